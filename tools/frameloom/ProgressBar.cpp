#include "ProgressBar.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace frameloom::tool {

namespace {

constexpr int barWidth = 30;
constexpr auto redrawInterval = std::chrono::milliseconds(100);
// Before this much time has passed a rate says more about start-up than about the work.
constexpr double secondsBeforeEstimate = 0.5;

std::string duration(double seconds) {
  const auto whole = static_cast<long long>(std::llround(seconds));
  char text[32];
  std::snprintf(text, sizeof text, "%lld:%02lld", whole / 60, whole % 60);
  return text;
}

} // namespace

ProgressBar::ProgressBar(Console& console, std::string label, std::string unitName, Units units)
    : console_(console), label_(std::move(label)), unitName_(std::move(unitName)), units_(units),
      progress_(platform::Progress::make()), visible_(console.showsProgress()) {
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
      drawn_ = true;
    }
    draw(progress);
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
    draw(*progress_);
    console_.endBar();
  }
}

std::string ProgressBar::amount(double units) const {
  char text[32];
  if (units_ == Units::bytes) {
    if (units >= 1e6) {
      std::snprintf(text, sizeof text, "%.1f MB", units / 1e6);
    } else {
      std::snprintf(text, sizeof text, "%.0f KB", std::ceil(units / 1e3));
    }
  } else {
    std::snprintf(text, sizeof text, "%.0f", std::floor(units));
  }
  return text;
}

std::string ProgressBar::rate(double unitsPerSecond) const {
  if (units_ == Units::bytes) {
    return amount(unitsPerSecond) + "/s";
  }
  char text[32];
  std::snprintf(text, sizeof text, "%.1f/s", unitsPerSecond);
  return text;
}

void ProgressBar::draw(const platform::Progress& progress) {
  std::lock_guard lock(mutex_);
  const double fraction = std::clamp(progress.fractionCompleted(), 0.0, 1.0);
  const double total = static_cast<double>(progress.totalUnitCount());
  const double done = fraction * total;
  const double elapsed =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - started_).count();
  const int filled = static_cast<int>(fraction * barWidth);
  std::string text = label_ + " [" + std::string(static_cast<std::size_t>(filled), '#') +
                     std::string(static_cast<std::size_t>(barWidth - filled), '.') + "] ";
  char percent[8];
  std::snprintf(percent, sizeof percent, "%3d%%", static_cast<int>(fraction * 100));
  text += percent;
  if (total > 0) {
    text += " " + amount(done) + "/" + amount(total);
    if (!unitName_.empty()) {
      text += " " + unitName_;
    }
  }
  if (elapsed >= secondsBeforeEstimate && fraction > 0) {
    if (total > 0) {
      text += ", " + rate(done / elapsed);
    }
    if (fraction < 1) {
      text += ", " + duration(elapsed * (1 - fraction) / fraction) + " left";
    }
  }
  console_.drawBar(text);
}

} // namespace frameloom::tool
