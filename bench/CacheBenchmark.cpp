// Speed of the download cache next to its peers, in one run:
//   memory hit                 (alone: a lookup that hands out the cached buffer)
//   disk hit of a 1 MB file    next to open + read of the same size into a new buffer (from a
//                              task on the shared executor, and from the main loop)
//   50 MB download             next to `curl -s -o /dev/null` on the same local server
// The ratios are printed at the end (cache time / peer time).

#include "TestHttpServer.h"
#include "frameloom/cache/CacheKey.h"
#include "support/TemporaryFolder.h"
#include <frameloom/cache/LottieCache.h>
#include <frameloom/platform/runtime/MainLoop.h>
#include <frameloom/platform/runtime/SharedExecutor.h>

#include <asio/co_spawn.hpp>
#include <asio/use_future.hpp>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>

namespace {
namespace fs = std::filesystem;
using frameloom::LottieCache;
using frameloom::platform::MainLoop;
using frameloom::platform::Url;

constexpr std::size_t diskFileSize = 1'000'000;
constexpr std::size_t downloadSize = 50 * 1024 * 1024;

struct Fixture {
  Fixture() {
    cache = std::make_unique<LottieCache>(folder);
    std::ofstream(cache->cacheFile(diskUrl), std::ios::binary) << std::string(diskFileSize, 'x');
  }
  const frameloom::testing::TemporaryFolder scratch;
  // Made by the cache itself.
  const fs::path folder = scratch / "cache";
  std::unique_ptr<LottieCache> cache;
  const Url diskUrl = *Url::parse("https://example.com/disk.lottie");
  frameloom::testing::TestHttpServer server;
};

Fixture& fixture() {
  static Fixture instance;
  return instance;
}

void BM_MemoryHit(benchmark::State& state) {
  LottieCache& cache = *fixture().cache;
  const Url url = fixture().diskUrl;
  MainLoop::shared().runUntilComplete(
      [](benchmark::State& state, LottieCache& cache, Url url) -> asio::awaitable<void> {
        co_await cache.loadLottie(url);
        for (auto _ : state) {
          benchmark::DoNotOptimize(co_await cache.loadLottie(url));
        }
      }(state, cache, url));
}
BENCHMARK(BM_MemoryHit);

// Each load is a disk hit: the memory level is emptied (through the low-memory signal) after it,
// and the buffer is released at once, as the plain read below releases its own.
asio::awaitable<void> loadDiskFiles(benchmark::State& state, Fixture& f) {
  for (auto _ : state) {
    auto data = co_await f.cache->loadLottie(f.diskUrl);
    benchmark::DoNotOptimize(data);
    data.reset();
    frameloom::platform::LowMemorySignal::shared().post();
  }
}

// Loaded from a task on the shared executor, where loads usually come from.
void BM_DiskHit1MB(benchmark::State& state) {
  asio::co_spawn(frameloom::platform::sharedExecutor(), loadDiskFiles(state, fixture()),
                 asio::use_future)
      .get();
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * diskFileSize));
}
BENCHMARK(BM_DiskHit1MB)->UseRealTime();

// Loaded from the main loop: each load hops to the shared executor and back.
void BM_DiskHit1MBFromMainLoop(benchmark::State& state) {
  MainLoop::shared().runUntilComplete(loadDiskFiles(state, fixture()));
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * diskFileSize));
}
BENCHMARK(BM_DiskHit1MBFromMainLoop)->UseRealTime();

void BM_PlainRead1MB(benchmark::State& state) {
  const fs::path file = fixture().cache->cacheFile(fixture().diskUrl);
  for (auto _ : state) {
    int descriptor = ::open(file.c_str(), O_RDONLY);
    struct stat attributes {};
    ::fstat(descriptor, &attributes);
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(attributes.st_size));
    benchmark::DoNotOptimize(::read(descriptor, bytes.data(), bytes.size()));
    ::close(descriptor);
    benchmark::DoNotOptimize(bytes);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * diskFileSize));
}
BENCHMARK(BM_PlainRead1MB)->UseRealTime();

void BM_Download50MB(benchmark::State& state) {
  Fixture& f = fixture();
  int round = 0;
  for (auto _ : state) {
    const Url url = *Url::parse(
        f.server.url("/bytes/" + std::to_string(downloadSize) + "/" + std::to_string(round++)));
    auto data = MainLoop::shared().runUntilComplete(f.cache->loadLottie(url));
    state.PauseTiming();
    data.reset();
    frameloom::platform::LowMemorySignal::shared().post();
    fs::remove(f.cache->cacheFile(url));
    state.ResumeTiming();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * downloadSize));
}
BENCHMARK(BM_Download50MB)->UseRealTime()->Unit(benchmark::kMillisecond)->MinTime(3);

void BM_CurlToDevNull50MB(benchmark::State& state) {
  const std::string command = "curl -s -o /dev/null '" +
                              fixture().server.url("/bytes/" + std::to_string(downloadSize)) + "'";
  for (auto _ : state) {
    if (std::system(command.c_str()) != 0) {
      state.SkipWithError("curl failed");
      break;
    }
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * downloadSize));
}
BENCHMARK(BM_CurlToDevNull50MB)->UseRealTime()->Unit(benchmark::kMillisecond)->MinTime(3);

// Remembers each benchmark's time per iteration to print the ratios after the table.
class RatioReporter : public benchmark::ConsoleReporter {
public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      nanoseconds[run.benchmark_name()] = run.GetAdjustedRealTime() *
                                          benchmark::GetTimeUnitMultiplier(benchmark::kNanosecond) /
                                          benchmark::GetTimeUnitMultiplier(run.time_unit);
    }
  }

  void printRatio(const std::string& what, const std::string& mine, const std::string& peer) {
    if (nanoseconds.count(mine) && nanoseconds.count(peer)) {
      std::printf("%s: %.3f x\n", what.c_str(), nanoseconds[mine] / nanoseconds[peer]);
    }
  }

  std::map<std::string, double> nanoseconds;
};

} // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  if (reporter.nanoseconds.count("BM_MemoryHit")) {
    std::printf("memory hit: %.1f ns\n", reporter.nanoseconds["BM_MemoryHit"]);
  }
  reporter.printRatio("disk hit 1 MB / plain read", "BM_DiskHit1MB/real_time",
                      "BM_PlainRead1MB/real_time");
  reporter.printRatio("disk hit 1 MB from the main loop / plain read",
                      "BM_DiskHit1MBFromMainLoop/real_time", "BM_PlainRead1MB/real_time");
  reporter.printRatio("download 50 MB / curl -o /dev/null",
                      "BM_Download50MB/min_time:3.000/real_time",
                      "BM_CurlToDevNull50MB/min_time:3.000/real_time");
  benchmark::Shutdown();
  return 0;
}
