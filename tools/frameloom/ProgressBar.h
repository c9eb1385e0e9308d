#pragma once

#include "Console.h"

#include <frameloom/platform/core/Progress.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <string>

namespace frameloom::tool {

// A one-line progress bar that follows a progress record while a command works: the share done,
// the units done of all (frames, entries or bytes), the rate and the time left. It draws through
// the console, only when the console shows progress, at most ten times a second, and ends its
// line when destroyed. The record is always there, so the work runs the same either way.
//
// The observer runs on whichever thread changes the record; drawing is serialised by a mutex.
class ProgressBar {
public:
  // What the record's units count: a word ("frames") or bytes, shown in KB/MB.
  enum class Units { items, bytes };

  ProgressBar(Console& console, std::string label, std::string unitName = "",
              Units units = Units::items);
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  // The record to hand to the library call.
  const std::shared_ptr<platform::Progress>& progress() const { return progress_; }

private:
  void draw(const platform::Progress& progress);
  std::string amount(double units) const;
  std::string rate(double unitsPerSecond) const;

  Console& console_;
  std::string label_;
  std::string unitName_;
  Units units_;
  std::shared_ptr<platform::Progress> progress_;
  bool visible_;
  std::mutex mutex_;
  const std::chrono::steady_clock::time_point started_ = std::chrono::steady_clock::now();
  std::chrono::steady_clock::time_point lastDrawn_{};
  bool drawn_ = false;
};

} // namespace frameloom::tool
