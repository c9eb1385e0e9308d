#pragma once

#include <atomic>
#include <cstdint>
#include <frameloom/platform/ZiploomExport.h>
#include <functional>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

namespace frameloom::platform {

// A tree of progress records through which long operations report how far they are and learn
// that they should stop. A record has a total and a completed unit count and a cancelled flag;
// a child attached with a pending unit count contributes that many of its parent's units in
// proportion to its own fraction, and hands them over in full when it finishes.
//
// Thread-safe: the worker may update a record while another thread reads it or cancels it.
// Cancelling a record cancels its children, and a child attached to a cancelled parent starts
// cancelled. The observer runs on the thread that made the change, after the record's lock is
// released; it must not block.
class FRAMELOOM_ZIPLOOM_EXPORT Progress : public std::enable_shared_from_this<Progress> {
public:
  using Observer = std::function<void(const Progress&)>;

  static std::shared_ptr<Progress> make(std::int64_t totalUnitCount = 0);

  std::int64_t totalUnitCount() const;
  void setTotalUnitCount(std::int64_t units);
  std::int64_t completedUnitCount() const;
  void setCompletedUnitCount(std::int64_t units);
  void addCompletedUnitCount(std::int64_t units);

  bool isCancelled() const { return cancelled_.load(std::memory_order_acquire); }
  void cancel();

  // Attaches a child that accounts for `pendingUnitCount` of this record's units.
  void addChild(const std::shared_ptr<Progress>& child, std::int64_t pendingUnitCount);

  // Completed share in 0...1, children included in proportion to their pending units.
  double fractionCompleted() const;
  bool isFinished() const;

  // Called after every change of this record or of one of its descendants.
  void setObserver(Observer observer);

  explicit Progress(std::int64_t totalUnitCount);

private:
  // An attached child and the share of this record's units it has completed so far, kept up to
  // date on each of its changes so that reading the fraction never walks the children.
  struct Child {
    std::shared_ptr<Progress> progress;
    std::int64_t pendingUnitCount;
    double completedUnits = 0;
  };

  // Reads one count under the lock.
  std::int64_t read(const std::int64_t& count) const;
  // Runs `change` on the counts under the lock, then reports the change.
  template <typename Change>
  void update(Change change) {
    {
      std::lock_guard lock(mutex_);
      change();
    }
    changed();
  }
  void changed();
  void childChanged(const Progress* child);

  mutable std::mutex mutex_;
  std::int64_t total_ = 0;
  std::int64_t completed_ = 0;
  std::unordered_map<const Progress*, Child> children_;
  double childUnits_ = 0;
  std::weak_ptr<Progress> parent_;
  Observer observer_;
  std::atomic<bool> cancelled_{false};
};

} // namespace frameloom::platform
