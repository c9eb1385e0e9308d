#pragma once

#include <frameloom/platform/Export.h>
#include <stdexcept>

namespace frameloom::platform {

// Thrown when a host drives the main loop in a way it cannot honour.
class FRAMELOOM_EXPORT RuntimeError : public std::runtime_error {
public:
  enum class Code {
    // run, runFor or runUntilComplete called while the loop is already running.
    loopAlreadyRunning,
    // The loop was stopped before the work given to runUntilComplete finished.
    loopStopped,
  };

  explicit RuntimeError(Code code);

  Code code() const noexcept { return code_; }

private:
  Code code_;
};

} // namespace frameloom::platform
