#include <frameloom/platform/system/Log.h>

#include <iostream>
#include <mutex>

namespace frameloom::platform {
namespace {

// The sink is the host's process-wide choice, so it lives as long as the process; the mutex
// keeps a replacement from racing a line in flight and keeps lines whole.
struct LogState {
  std::mutex mutex;
  LogSink sink;
};

LogState& logState() {
  static LogState* const state = new LogState;
  return *state;
}

} // namespace

void setLogSink(LogSink sink) {
  auto& state = logState();
  std::lock_guard lock(state.mutex);
  state.sink = std::move(sink);
}

void logLine(std::string_view line) {
  auto& state = logState();
  std::lock_guard lock(state.mutex);
  if (!state.sink) {
    std::cout << line << std::endl;
    return;
  }
  try {
    state.sink(line);
  } catch (...) {
    // The host's sink failed; the line is lost rather than the caller's work.
  }
}

} // namespace frameloom::platform
