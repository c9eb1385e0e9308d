#include "frameloom/cache/MemoryCache.h"

namespace frameloom {
namespace {

std::int64_t costOf(const MemoryCache::Value& value) {
  return static_cast<std::int64_t>(value->size());
}

} // namespace

MemoryCache::MemoryCache(std::size_t countLimit, std::int64_t totalCostLimit)
    : countLimit_(countLimit), totalCostLimit_(totalCostLimit) {}

MemoryCache::Value MemoryCache::object(const std::string& key) {
  std::lock_guard lock(mutex_);
  auto found = index_.find(key);
  if (found == index_.end()) {
    return nullptr;
  }
  order_.splice(order_.begin(), order_, found->second);
  return found->second->value;
}

void MemoryCache::setObject(const std::string& key, Value value) {
  // The replaced and evicted buffers are released after the lock, outside the critical section.
  std::vector<Value> released;
  std::lock_guard lock(mutex_);
  if (auto found = index_.find(key); found != index_.end()) {
    removeLocked(found->second, released);
  }
  if (costOf(value) > totalCostLimit_ || countLimit_ == 0) {
    return;
  }
  totalCost_ += costOf(value);
  order_.push_front(Entry{key, std::move(value)});
  index_.emplace(key, order_.begin());
  while (order_.size() > countLimit_ || totalCost_ > totalCostLimit_) {
    removeLocked(std::prev(order_.end()), released);
  }
}

void MemoryCache::removeAllObjects() {
  Order released;
  std::lock_guard lock(mutex_);
  released.swap(order_);
  index_.clear();
  totalCost_ = 0;
}

std::size_t MemoryCache::count() const {
  std::lock_guard lock(mutex_);
  return order_.size();
}

std::int64_t MemoryCache::totalCost() const {
  std::lock_guard lock(mutex_);
  return totalCost_;
}

void MemoryCache::removeLocked(Order::iterator position, std::vector<Value>& released) {
  totalCost_ -= costOf(position->value);
  released.push_back(std::move(position->value));
  index_.erase(position->key);
  order_.erase(position);
}

} // namespace frameloom
