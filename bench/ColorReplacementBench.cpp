// Throughput of the colour replacement over real Lottie documents, read into memory first, next
// to one plain scan that only finds every "c", "fc", "sc" and "g" key of the same text.
//
// Usage: bench_color_replacement [benchmark flags] [FOLDER]   (FOLDER defaults to
// $FRAMELOOM_CORPUS or /work/shared/corpus; every *.json in it is used)

#include "frameloom/DotLottieFile.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::vector<std::string>& documents() {
  static std::vector<std::string> texts;
  return texts;
}

std::int64_t totalBytes() {
  std::int64_t bytes = 0;
  for (const auto& text : documents()) {
    bytes += static_cast<std::int64_t>(text.size());
  }
  return bytes;
}

const std::vector<frameloom::ColorComponents> palette = {
    {0.9, 0.2, 0.1, 1.0}, {0.1, 0.6, 0.3, 1.0}, {0.2, 0.3, 0.9, 1.0}};

void ReplaceColors(benchmark::State& state) {
  for (auto _ : state) {
    for (const auto& text : documents()) {
      benchmark::DoNotOptimize(frameloom::DotLottieFile::replaceColors(text, palette, 3));
    }
  }
  state.SetBytesProcessed(state.iterations() * totalBytes());
}

// Counts the colour keys with one pass over the text: the least any replacement has to do.
std::size_t countColorKeys(const std::string& text) {
  std::size_t keys = 0;
  const char* end = text.data() + text.size();
  const char* p = text.data();
  while ((p = static_cast<const char*>(std::memchr(p, '"', static_cast<std::size_t>(end - p))))) {
    const std::size_t left = static_cast<std::size_t>(end - p);
    if ((left >= 3 && (p[1] == 'c' || p[1] == 'g') && p[2] == '"') ||
        (left >= 4 && (p[1] == 'f' || p[1] == 's') && p[2] == 'c' && p[3] == '"')) {
      ++keys;
    }
    ++p;
  }
  return keys;
}

void PlainKeyScan(benchmark::State& state) {
  for (auto _ : state) {
    for (const auto& text : documents()) {
      benchmark::DoNotOptimize(countColorKeys(text));
    }
  }
  state.SetBytesProcessed(state.iterations() * totalBytes());
}

BENCHMARK(ReplaceColors)->Unit(benchmark::kMillisecond);
BENCHMARK(PlainKeyScan)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  std::filesystem::path folder = "/work/shared/corpus";
  if (const char* fromEnvironment = std::getenv("FRAMELOOM_CORPUS")) {
    folder = fromEnvironment;
  }
  if (argc > 1) {
    folder = argv[1];
  }
  std::error_code error;
  for (const auto& item : std::filesystem::directory_iterator(folder, error)) {
    if (item.path().extension() == ".json") {
      std::ifstream in(item.path(), std::ios::binary);
      std::ostringstream content;
      content << in.rdbuf();
      documents().push_back(content.str());
    }
  }
  if (documents().empty()) {
    std::cerr << "bench_color_replacement: no .json documents in " << folder << "\n";
    return 1;
  }
  std::cerr << documents().size() << " documents, " << totalBytes() << " bytes\n";
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
