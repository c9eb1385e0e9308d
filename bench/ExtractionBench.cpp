// Extraction speed: Ziploom against unzip on the same generated archive in the same run, to
// memory and to files, and against bare zlib inflate plus CRC-32 over the same streams (the floor
// for any extractor). Prints MB/s of uncompressed data for each and the ratios.
#include "BareInflate.h"
#include "support/TemporaryFolder.h"
#include <frameloom/ziploom/Archive.h>
#include <frameloom/ziploom/Compression.h>

#include <benchmark/benchmark.h>
#include <zlib.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <random>
#include <string>

namespace {

namespace fs = std::filesystem;
using frameloom::ziploom::Archive;

constexpr std::size_t fileSize = 40 << 20;

struct Setup {
  frameloom::testing::TemporaryFolder scratch;
  fs::path folder = scratch.path();
  fs::path archive;
  std::uint64_t totalBytes = 0;

  Setup() {
    fs::create_directories(folder / "source");
    std::mt19937_64 random(2026);
    // Four files of animation-like JSON text with random numbers (compressible about 3 to 1),
    // and one of random bytes that zip stores.
    for (int i = 0; i < 4; ++i) {
      std::ofstream out(folder / "source" / ("frames-" + std::to_string(i) + ".json"));
      std::string text;
      while (text.size() < fileSize) {
        text += "{\"t\":" + std::to_string(random() % 100000) + ",\"s\":[" +
                std::to_string(random() % 1000) + "," + std::to_string(random() % 1000) +
                "],\"c\":[0." + std::to_string(random() % 1000) + ",0.5,1,1]}\n";
      }
      text.resize(fileSize);
      out << text;
    }
    {
      std::ofstream out(folder / "source" / "noise.raw", std::ios::binary);
      std::string bytes(fileSize, '\0');
      for (auto& byte : bytes) {
        byte = static_cast<char>(random());
      }
      out << bytes;
    }
    totalBytes = 5ull * fileSize;
    archive = folder / "bench.zip";
    const auto command = "cd '" + (folder / "source").string() + "' && zip -q -n .raw '" +
                         archive.string() + "' frames-0.json frames-1.json frames-2.json " +
                         "frames-3.json noise.raw";
    if (std::system(command.c_str()) != 0) {
      throw std::runtime_error("zip failed");
    }
    fs::remove_all(folder / "source");
  }
};

Setup& setup() {
  static Setup instance;
  return instance;
}

void runShell(benchmark::State& state, const std::string& command) {
  if (std::system(command.c_str()) != 0) {
    state.SkipWithError(("failed: " + command).c_str());
  }
}

// Clears the extraction's output folder outside the timed part of the run.
void removeUntimed(benchmark::State& state, const fs::path& out) {
  state.PauseTiming();
  fs::remove_all(out);
  state.ResumeTiming();
}

void ZiploomToMemory(benchmark::State& state) {
  auto& data = setup();
  for (auto _ : state) {
    Archive archive(data.archive, Archive::AccessMode::read);
    for (const auto& entry : archive) {
      const auto checksum = archive.extract(entry, [](frameloom::platform::ByteView chunk) {
        benchmark::DoNotOptimize(chunk.data());
      });
      if (checksum != entry.checksum()) {
        state.SkipWithError("CRC-32 mismatch");
      }
    }
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * data.totalBytes));
}

void UnzipToMemory(benchmark::State& state) {
  auto& data = setup();
  for (auto _ : state) {
    runShell(state, "unzip -p '" + data.archive.string() + "' > /dev/null");
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * data.totalBytes));
}

void ZiploomToFiles(benchmark::State& state) {
  auto& data = setup();
  const auto out = data.folder / "ziploom-out";
  for (auto _ : state) {
    Archive archive(data.archive, Archive::AccessMode::read);
    for (const auto& entry : archive) {
      archive.extract(entry, out / entry.path());
    }
    removeUntimed(state, out);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * data.totalBytes));
}

void UnzipToFiles(benchmark::State& state) {
  auto& data = setup();
  const auto out = data.folder / "unzip-out";
  for (auto _ : state) {
    runShell(state, "unzip -q '" + data.archive.string() + "' -d '" + out.string() + "'");
    removeUntimed(state, out);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * data.totalBytes));
}

// The same streams read with fread in the same chunk size and fed straight to zlib.
void BareZlibInflateAndCRC(benchmark::State& state) {
  auto& data = setup();
  const auto streams = bench::bareStreamsOf(data.archive);
  constexpr std::size_t chunk = 16384;
  std::vector<unsigned char> input(chunk), output(chunk);
  for (auto _ : state) {
    FILE* file = std::fopen(data.archive.c_str(), "rb");
    for (const auto& stream : streams) {
      benchmark::DoNotOptimize(
          bench::bareInflate(file, stream, input, output, [](std::span<const unsigned char>) {}));
    }
    std::fclose(file);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * data.totalBytes));
}

// Collects the throughput of every run and prints the comparisons after the usual table.
class RatioReporter : public benchmark::ConsoleReporter {
public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const auto& run : runs) {
      const auto it = run.counters.find("bytes_per_second");
      if (it != run.counters.end()) {
        const auto name = run.benchmark_name();
        rates_[name.substr(0, name.find('/'))] = it->second.value / 1e6;
      }
    }
  }

  void Finalize() override {
    ConsoleReporter::Finalize();
    auto rate = [this](const std::string& name) { return rates_[name]; };
    std::printf("\nMB/s of uncompressed data:\n");
    for (const auto& [name, value] : rates_) {
      std::printf("  %-24s %8.1f\n", name.c_str(), value);
    }
    std::printf("ziploom / unzip, to memory:       %.2f x\n",
                rate("ZiploomToMemory") / rate("UnzipToMemory"));
    std::printf("ziploom / unzip, to files:        %.2f x\n",
                rate("ZiploomToFiles") / rate("UnzipToFiles"));
    std::printf("bare zlib / ziploom, to memory:   %.2f x (target: at most 1.1)\n",
                rate("BareZlibInflateAndCRC") / rate("ZiploomToMemory"));
  }

private:
  std::map<std::string, double> rates_;
};

} // namespace

BENCHMARK(ZiploomToMemory)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);
BENCHMARK(UnzipToMemory)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);
BENCHMARK(BareZlibInflateAndCRC)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);
BENCHMARK(ZiploomToFiles)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);
BENCHMARK(UnzipToFiles)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  setup();
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
}
