// Runs a display link at 60 frames per second for 5 seconds on the main loop and reports the
// rate it achieved and how late its ticks ran, next to a naive peer that sleeps one period after
// each tick (and so drifts). Figures depend on the machine's load.

#include <frameloom/platform/runtime/DisplayLink.h>
#include <frameloom/platform/runtime/MainLoop.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <string>
#include <thread>

using namespace frameloom::platform;
using Clock = std::chrono::steady_clock;

namespace {

constexpr double framesPerSecond = 60;
constexpr auto runTime = std::chrono::seconds(5);

struct Figures {
  double rate = 0;
  double worstLateMs = 0;
  double meanLateMs = 0;
};

std::map<std::string, Figures> results;

double seconds(Clock::time_point time) {
  return std::chrono::duration<double>(time.time_since_epoch()).count();
}

// Rate and lateness of ticks that were due at `due` and ran at `ran` (seconds).
Figures measure(const std::vector<double>& due, const std::vector<double>& ran, double span) {
  Figures figures;
  figures.rate = static_cast<double>(ran.size()) / span;
  double total = 0;
  for (std::size_t i = 0; i < ran.size(); ++i) {
    double late = (ran[i] - due[i]) * 1000;
    figures.worstLateMs = std::max(figures.worstLateMs, late);
    total += late;
  }
  figures.meanLateMs = ran.empty() ? 0 : total / static_cast<double>(ran.size());
  return figures;
}

Figures runDisplayLink() {
  std::vector<double> due;
  std::vector<double> ran;
  auto link = DisplayLink::make([&](DisplayLink& link) {
    ran.push_back(seconds(Clock::now()));
    due.push_back(link.timestamp());
  });
  link->setPreferredFrameRateRange({5, framesPerSecond, framesPerSecond});
  link->addToMainLoop();
  link->setPaused(false);
  MainLoop::shared().runFor(runTime);
  link->invalidate();
  return measure(due, ran, std::chrono::duration<double>(runTime).count());
}

// The peer: a thread that sleeps one period after each tick; due times are the ideal grid.
Figures runSleepLoop() {
  std::vector<double> due;
  std::vector<double> ran;
  auto period = std::chrono::duration<double>(1 / framesPerSecond);
  auto start = Clock::now();
  auto end = start + runTime;
  for (int tick = 1;; ++tick) {
    std::this_thread::sleep_for(period);
    auto now = Clock::now();
    if (now >= end) {
      break;
    }
    ran.push_back(seconds(now));
    due.push_back(seconds(start) + tick * period.count());
  }
  return measure(due, ran, std::chrono::duration<double>(runTime).count());
}

void report(benchmark::State& state, const std::string& name, const Figures& figures) {
  state.counters["fps"] = figures.rate;
  state.counters["worst_late_ms"] = figures.worstLateMs;
  state.counters["mean_late_ms"] = figures.meanLateMs;
  results[name] = figures;
}

void BM_DisplayLink60(benchmark::State& state) {
  Figures figures;
  for (auto _ : state) {
    figures = runDisplayLink();
  }
  report(state, "display link", figures);
}

void BM_SleepLoop60(benchmark::State& state) {
  Figures figures;
  for (auto _ : state) {
    figures = runSleepLoop();
  }
  report(state, "sleep loop", figures);
}

BENCHMARK(BM_DisplayLink60)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();
BENCHMARK(BM_SleepLoop60)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

} // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  if (results.count("display link") != 0 && results.count("sleep loop") != 0) {
    const Figures& link = results["display link"];
    const Figures& peer = results["sleep loop"];
    double period = 1000 / framesPerSecond;
    std::printf("display link: %.2f fps, worst lateness %.2f ms (%.2f periods), mean %.3f ms\n",
                link.rate, link.worstLateMs, link.worstLateMs / period, link.meanLateMs);
    std::printf("sleep loop:   %.2f fps, worst lateness %.2f ms (%.2f periods), mean %.3f ms\n",
                peer.rate, peer.worstLateMs, peer.worstLateMs / period, peer.meanLateMs);
    std::printf("ratio display link / sleep loop: rate %.3f, worst lateness %.3f\n",
                link.rate / peer.rate,
                peer.worstLateMs > 0 ? link.worstLateMs / peer.worstLateMs : 0.0);
  }
  return 0;
}
