#pragma once

#include <cstddef>
#include <cstdint>
#include <frameloom/platform/Export.h>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace frameloom {

// The memory level of LottieCache: shared immutable byte buffers by key, bounded by an object
// count and a total cost (the byte count of each buffer). When an insertion exceeds either bound
// the least recently used entries are dropped; an entry whose own cost exceeds the cost bound is
// not kept at all. A hit hands out the shared buffer without copying it.
//
// Thread-safe: every call may come from any thread; none blocks beyond a short internal lock.
class FRAMELOOM_EXPORT MemoryCache {
public:
  using Value = std::shared_ptr<const std::vector<std::uint8_t>>;

  MemoryCache(std::size_t countLimit, std::int64_t totalCostLimit);

  // The buffer under `key`, marked as most recently used, or null.
  Value object(const std::string& key);

  // Stores `value` (not null) under `key`, replacing an earlier one, with cost = its byte count.
  void setObject(const std::string& key, Value value);

  void removeAllObjects();

  std::size_t count() const;
  std::int64_t totalCost() const;

private:
  struct Entry {
    std::string key;
    Value value;
  };
  using Order = std::list<Entry>; // most recently used first

  void removeLocked(Order::iterator position, std::vector<Value>& released);

  const std::size_t countLimit_;
  const std::int64_t totalCostLimit_;
  mutable std::mutex mutex_;
  Order order_;
  std::unordered_map<std::string, Order::iterator> index_;
  std::int64_t totalCost_ = 0;
};

} // namespace frameloom
