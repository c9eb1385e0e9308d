#include <frameloom/platform/core/Progress.h>

#include <algorithm>

namespace frameloom::platform {

std::shared_ptr<Progress> Progress::make(std::int64_t totalUnitCount) {
  return std::make_shared<Progress>(totalUnitCount);
}

Progress::Progress(std::int64_t totalUnitCount) : total_(totalUnitCount) {}

std::int64_t Progress::totalUnitCount() const {
  std::lock_guard lock(mutex_);
  return total_;
}

void Progress::setTotalUnitCount(std::int64_t units) {
  {
    std::lock_guard lock(mutex_);
    total_ = units;
  }
  changed();
}

std::int64_t Progress::completedUnitCount() const {
  std::lock_guard lock(mutex_);
  return completed_;
}

void Progress::setCompletedUnitCount(std::int64_t units) {
  {
    std::lock_guard lock(mutex_);
    completed_ = units;
  }
  changed();
}

void Progress::addCompletedUnitCount(std::int64_t units) {
  {
    std::lock_guard lock(mutex_);
    completed_ += units;
  }
  changed();
}

void Progress::cancel() {
  if (cancelled_.exchange(true, std::memory_order_acq_rel)) {
    return;
  }
  std::vector<Child> children;
  {
    std::lock_guard lock(mutex_);
    children = children_;
  }
  for (const auto& child : children) {
    child.progress->cancel();
  }
  changed();
}

void Progress::addChild(const std::shared_ptr<Progress>& child, std::int64_t pendingUnitCount) {
  {
    std::lock_guard lock(mutex_);
    children_.push_back({child, pendingUnitCount});
  }
  {
    std::lock_guard lock(child->mutex_);
    child->parent_ = weak_from_this();
  }
  if (isCancelled()) {
    child->cancel();
  }
  childChanged(child.get());
}

double Progress::fractionCompleted() const {
  std::vector<Child> children;
  std::int64_t total = 0;
  std::int64_t completed = 0;
  {
    std::lock_guard lock(mutex_);
    children = children_;
    total = total_;
    completed = completed_;
  }
  if (total <= 0) {
    return 0.0;
  }
  double units = static_cast<double>(completed);
  for (const auto& child : children) {
    units += child.progress->fractionCompleted() * static_cast<double>(child.pendingUnitCount);
  }
  return std::clamp(units / static_cast<double>(total), 0.0, 1.0);
}

bool Progress::isFinished() const {
  std::lock_guard lock(mutex_);
  return total_ > 0 && completed_ >= total_;
}

void Progress::setObserver(Observer observer) {
  std::lock_guard lock(mutex_);
  observer_ = std::move(observer);
}

void Progress::changed() {
  Observer observer;
  std::shared_ptr<Progress> parent;
  {
    std::lock_guard lock(mutex_);
    observer = observer_;
    parent = parent_.lock();
  }
  if (observer) {
    observer(*this);
  }
  if (parent) {
    parent->childChanged(this);
  }
}

// A finished child hands its pending units to this record's completed count and is detached.
void Progress::childChanged(const Progress* child) {
  if (child->isFinished()) {
    std::lock_guard lock(mutex_);
    auto it = std::find_if(children_.begin(), children_.end(),
                           [child](const Child& c) { return c.progress.get() == child; });
    if (it != children_.end()) {
      completed_ += it->pendingUnitCount;
      children_.erase(it);
    }
  }
  changed();
}

} // namespace frameloom::platform
