#include "ProgressBar.h"

#include <unistd.h>

#include <cstdio>

namespace frameloom::tool {

namespace {

constexpr int barWidth = 40;
constexpr auto redrawInterval = std::chrono::milliseconds(100);

} // namespace

ProgressBar::ProgressBar(std::string label)
    : label_(std::move(label)), progress_(platform::Progress::make()),
      visible_(isatty(STDERR_FILENO) == 1) {
  if (!visible_) {
    return;
  }
  progress_->setObserver([this](const platform::Progress& progress) {
    const auto now = std::chrono::steady_clock::now();
    {
      std::lock_guard lock(mutex_);
      if (drawn_ && now - lastDrawn_ < redrawInterval) {
        return;
      }
      lastDrawn_ = now;
    }
    // Measuring walks every child record, so it is done only when a frame is due.
    draw(progress.fractionCompleted());
  });
}

ProgressBar::~ProgressBar() {
  progress_->setObserver(nullptr);
  if (!visible_) {
    return;
  }
  bool drawn = false;
  {
    std::lock_guard lock(mutex_);
    drawn = drawn_;
  }
  // The last change may have fallen between two frames: show where the work ended.
  if (drawn) {
    draw(progress_->fractionCompleted());
    std::fputc('\n', stderr);
  }
}

void ProgressBar::draw(double fraction) {
  std::lock_guard lock(mutex_);
  const int filled = static_cast<int>(fraction * barWidth);
  std::string bar(static_cast<std::size_t>(filled), '#');
  bar.resize(barWidth, '.');
  std::fprintf(stderr, "\r%s [%s] %3d%%", label_.c_str(), bar.c_str(),
               static_cast<int>(fraction * 100));
  std::fflush(stderr);
  drawn_ = true;
}

} // namespace frameloom::tool
