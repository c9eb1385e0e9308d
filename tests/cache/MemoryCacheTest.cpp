#include "frameloom/MemoryCache.h"

#include <gtest/gtest.h>

#include <thread>

namespace frameloom {
namespace {

MemoryCache::Value bytes(std::size_t count) {
  return std::make_shared<const std::vector<std::uint8_t>>(count, 7);
}

TEST(MemoryCacheTest, HitReturnsTheSameSharedBuffer) {
  MemoryCache cache(10, 1000);
  auto value = bytes(5);
  cache.setObject("k", value);
  EXPECT_EQ(cache.object("k"), value);
  EXPECT_EQ(cache.object("other"), nullptr);
}

TEST(MemoryCacheTest, EvictsLeastRecentlyUsedPastTheCountLimit) {
  MemoryCache cache(2, 1000);
  cache.setObject("a", bytes(1));
  cache.setObject("b", bytes(1));
  cache.object("a"); // b is now the least recently used
  cache.setObject("c", bytes(1));
  EXPECT_NE(cache.object("a"), nullptr);
  EXPECT_EQ(cache.object("b"), nullptr);
  EXPECT_NE(cache.object("c"), nullptr);
  EXPECT_EQ(cache.count(), 2u);
}

TEST(MemoryCacheTest, KeepsTotalCostWithinTheLimit) {
  MemoryCache cache(100, 100);
  cache.setObject("a", bytes(40));
  cache.setObject("b", bytes(40));
  cache.setObject("a", bytes(30)); // replacing frees the old cost
  EXPECT_EQ(cache.totalCost(), 70);
  cache.setObject("c", bytes(50)); // b (least recent) goes
  EXPECT_EQ(cache.object("b"), nullptr);
  EXPECT_EQ(cache.totalCost(), 80);
  cache.setObject("huge", bytes(101)); // larger than the limit: not kept, nothing evicted
  EXPECT_EQ(cache.object("huge"), nullptr);
  EXPECT_EQ(cache.totalCost(), 80);
  cache.removeAllObjects();
  EXPECT_EQ(cache.count(), 0u);
  EXPECT_EQ(cache.totalCost(), 0);
}

TEST(MemoryCacheTest, ConcurrentUseKeepsTheBounds) {
  MemoryCache cache(8, 64);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&cache, t] {
      for (int i = 0; i < 2000; ++i) {
        const std::string key = std::to_string((i * 7 + t) % 20);
        if (auto hit = cache.object(key)) {
          EXPECT_EQ(hit->size(), static_cast<std::size_t>(std::stoi(key) % 16));
        } else {
          cache.setObject(key, bytes(static_cast<std::size_t>(std::stoi(key) % 16)));
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
