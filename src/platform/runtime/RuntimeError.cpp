#include <frameloom/platform/runtime/RuntimeError.h>

namespace frameloom::platform {
namespace {

const char* describe(RuntimeError::Code code) {
  switch (code) {
  case RuntimeError::Code::loopAlreadyRunning:
    return "The main loop is already running";
  case RuntimeError::Code::loopStopped:
    return "The main loop stopped before the awaited work finished";
  }
  return "Runtime error";
}

} // namespace

RuntimeError::RuntimeError(Code code) : std::runtime_error(describe(code)), code_(code) {}

} // namespace frameloom::platform
