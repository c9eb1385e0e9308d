#include <frameloom/platform/core/Progress.h>

#include <algorithm>

namespace frameloom::platform {

std::shared_ptr<Progress> Progress::make(std::int64_t totalUnitCount) {
  return std::make_shared<Progress>(totalUnitCount);
}

Progress::Progress(std::int64_t totalUnitCount) : total_(totalUnitCount) {}

std::int64_t Progress::read(const std::int64_t& count) const {
  std::lock_guard lock(mutex_);
  return count;
}

std::int64_t Progress::totalUnitCount() const {
  return read(total_);
}

void Progress::setTotalUnitCount(std::int64_t units) {
  update([&] { total_ = units; });
}

std::int64_t Progress::completedUnitCount() const {
  return read(completed_);
}

void Progress::setCompletedUnitCount(std::int64_t units) {
  update([&] { completed_ = units; });
}

void Progress::addCompletedUnitCount(std::int64_t units) {
  update([&] { completed_ += units; });
}

void Progress::cancel() {
  if (cancelled_.exchange(true, std::memory_order_acq_rel)) {
    return;
  }
  std::vector<std::shared_ptr<Progress>> children;
  {
    std::lock_guard lock(mutex_);
    children.reserve(children_.size());
    for (const auto& [key, child] : children_) {
      children.push_back(child.progress);
    }
  }
  for (const auto& child : children) {
    child->cancel();
  }
  changed();
}

void Progress::addChild(const std::shared_ptr<Progress>& child, std::int64_t pendingUnitCount) {
  {
    std::lock_guard lock(mutex_);
    children_.insert_or_assign(child.get(), Child{child, pendingUnitCount});
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
  std::lock_guard lock(mutex_);
  if (total_ <= 0) {
    return 0.0;
  }
  const double units = static_cast<double>(completed_) + childUnits_;
  return std::clamp(units / static_cast<double>(total_), 0.0, 1.0);
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

// A finished child hands its pending units to this record's completed count and is detached;
// an unfinished one updates the share it contributes. Both take constant time, so a record with
// many children stays cheap to update and to read.
void Progress::childChanged(const Progress* child) {
  const bool finished = child->isFinished();
  const double fraction = finished ? 1.0 : child->fractionCompleted();
  {
    std::lock_guard lock(mutex_);
    const auto found = children_.find(child);
    if (found != children_.end()) {
      Child& entry = found->second;
      childUnits_ -= entry.completedUnits;
      if (finished) {
        completed_ += entry.pendingUnitCount;
        children_.erase(found);
      } else {
        entry.completedUnits = fraction * static_cast<double>(entry.pendingUnitCount);
        childUnits_ += entry.completedUnits;
      }
      childUnits_ = std::max(childUnits_, 0.0);
    }
  }
  changed();
}

} // namespace frameloom::platform
