#pragma once

#include <frameloom/platform/core/Progress.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <string>

namespace frameloom::tool {

// A one-line progress bar on standard error that follows a progress record while a command
// works. It draws only when standard error is a terminal, at most ten times a second, and ends
// its line when destroyed. The record is always there, so the work runs the same either way.
//
// The observer runs on whichever thread changes the record; drawing is serialised by a mutex.
class ProgressBar {
public:
  explicit ProgressBar(std::string label);
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  // The record to hand to the library call.
  const std::shared_ptr<platform::Progress>& progress() const { return progress_; }

private:
  void draw(double fraction);

  std::string label_;
  std::shared_ptr<platform::Progress> progress_;
  bool visible_;
  std::mutex mutex_;
  std::chrono::steady_clock::time_point lastDrawn_{};
  bool drawn_ = false;
};

} // namespace frameloom::tool
