#include "frameloom/MemoryCache.h"

#include <gtest/gtest.h>

#include <thread>

namespace frameloom {
namespace {

MemoryCache::Value bytes(std::size_t count) {
  return std::make_shared<const std::vector<std::uint8_t>>(count, 7);
}

TEST(MemoryCacheTest, EvictsLeastRecentlyUsedPastEitherLimit) {
  MemoryCache cache(3, 100);
  cache.setObject("a", bytes(40));
  cache.setObject("b", bytes(30));
  cache.setObject("c", bytes(1));
  cache.object("a");              // b is now the least recently used
  cache.setObject("d", bytes(1)); // count limit: b goes
  EXPECT_EQ(cache.object("b"), nullptr);
  cache.setObject("c", bytes(60)); // replacing frees the old cost; cost limit: a goes
  EXPECT_EQ(cache.object("a"), nullptr);
  EXPECT_EQ(cache.totalCost(), 61);
  cache.setObject("huge", bytes(101)); // over the limit on its own: not kept, nothing evicted
  EXPECT_EQ(cache.object("huge"), nullptr);
  EXPECT_EQ(cache.count(), 2u);
}

TEST(MemoryCacheTest, ConcurrentUseKeepsTheBounds) {
  MemoryCache cache(8, 64);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&cache, t] {
      for (int i = 0; i < 2000; ++i) {
        const int n = (i * 7 + t) % 20;
        if (auto hit = cache.object(std::to_string(n))) {
          EXPECT_EQ(hit->size(), static_cast<std::size_t>(n % 16));
        } else {
          cache.setObject(std::to_string(n), bytes(static_cast<std::size_t>(n % 16)));
        }
        if (i % 500 == 0) {
          cache.removeAllObjects();
        }
      }
    });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  EXPECT_LE(cache.count(), 8u);
  EXPECT_LE(cache.totalCost(), 64);
}

} // namespace
} // namespace frameloom
