// Throughput of the colour replacement over real Lottie documents, read into memory first, next
// to one plain scan that only finds every "c", "fc", "sc" and "g" key of the same text, over all
// documents together and over each one alone (ReplaceColors/<file>, PlainKeyScan/<file>); and the
// time of a whole recolouring (read, replace, unpack, repack) of a 1 MB .lottie made of those
// documents. Recolouring writes into $TMPDIR, which the program points at a scratch folder of
// its own and removes at the end.
//
// Usage: bench_color_replacement [benchmark flags] [FILE or FOLDER...]   (default: every *.json
// of the corpus: $FRAMELOOM_CORPUS, else ../shared/corpus next to the repository)

#include "support/Corpus.h"
#include "support/Files.h"
#include "support/TemporaryFolder.h"
#include <frameloom/files/DotLottieFile.h>
#include <frameloom/ziploom/Archive.h>

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

namespace {

std::vector<std::string>& documents() {
  static std::vector<std::string> texts;
  return texts;
}

std::vector<std::string>& documentNames() {
  static std::vector<std::string> names;
  return names;
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

std::filesystem::path& oneMegabyteLottie() {
  static std::filesystem::path path;
  return path;
}

// A .lottie whose animation JSON holds the documents, repeated until it passes 1 MB.
std::filesystem::path makeOneMegabyteLottie(const std::filesystem::path& folder) {
  std::string json = R"({"v":"5.7.0","w":512,"h":512,"layers":[],"assets":[)";
  for (std::size_t i = 0; json.size() < 1000000; ++i) {
    if (i > 0) {
      json += ',';
    }
    json += documents()[i % documents().size()];
  }
  json += "]}";
  const auto path = folder / "one-megabyte.lottie";
  frameloom::ziploom::Archive archive(path, frameloom::ziploom::AccessMode::create);
  const std::string manifest = R"({"animations":[{"id":"a"}]})";
  for (const auto& [name, content] : {std::pair{std::string("manifest.json"), manifest},
                                      std::pair{std::string("animations/a.json"), json}}) {
    // A named reference: Clang 14 cannot capture a structured binding.
    const std::string& text = content;
    archive.addEntry(name, frameloom::ziploom::Entry::EntryType::file,
                     static_cast<std::int64_t>(text.size()), std::chrono::system_clock::now(),
                     std::nullopt, frameloom::ziploom::CompressionMethod::deflate,
                     frameloom::ziploom::defaultWriteChunkSize, nullptr,
                     [&text](std::int64_t position, std::int64_t count) {
                       const auto begin = text.begin() + position;
                       return frameloom::platform::Bytes(begin, begin + count);
                     });
  }
  return path;
}

void RecolorOneMegabyteLottie(benchmark::State& state) {
  const std::filesystem::path temporary = oneMegabyteLottie().parent_path() / "tmp";
  for (auto _ : state) {
    benchmark::DoNotOptimize(frameloom::DotLottieFile::recolor(oneMegabyteLottie(), palette, 3));
    state.PauseTiming();
    std::filesystem::remove_all(temporary);
    std::filesystem::create_directories(temporary);
    state.ResumeTiming();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(std::filesystem::file_size(
                                                   oneMegabyteLottie())));
}

BENCHMARK(ReplaceColors)->Unit(benchmark::kMillisecond);
BENCHMARK(PlainKeyScan)->Unit(benchmark::kMillisecond);
BENCHMARK(RecolorOneMegabyteLottie)->Unit(benchmark::kMillisecond)->UseRealTime();

// The replacement and the key scan of each document alone, side by side.
void registerPerDocument() {
  for (std::size_t i = 0; i < documents().size(); ++i) {
    const std::string& text = documents()[i];
    const auto bytes = static_cast<std::int64_t>(text.size());
    benchmark::RegisterBenchmark(("ReplaceColors/" + documentNames()[i]).c_str(),
                                 [&text, bytes](benchmark::State& state) {
                                   for (auto _ : state) {
                                     benchmark::DoNotOptimize(
                                         frameloom::DotLottieFile::replaceColors(text, palette, 3));
                                   }
                                   state.SetBytesProcessed(state.iterations() * bytes);
                                 })
        ->MinTime(0.1);
    benchmark::RegisterBenchmark(("PlainKeyScan/" + documentNames()[i]).c_str(),
                                 [&text, bytes](benchmark::State& state) {
                                   for (auto _ : state) {
                                     benchmark::DoNotOptimize(countColorKeys(text));
                                   }
                                   state.SetBytesProcessed(state.iterations() * bytes);
                                 })
        ->MinTime(0.1);
  }
}

} // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  std::vector<std::filesystem::path> sources;
  for (int i = 1; i < argc; ++i) {
    sources.emplace_back(argv[i]);
  }
  if (sources.empty()) {
    if (const auto corpus = frameloom::testing::corpusFolder()) {
      sources.push_back(*corpus);
    }
  }
  const auto read = [](const std::filesystem::path& path) {
    documents().push_back(frameloom::testing::readText(path));
    documentNames().push_back(path.filename().string());
  };
  for (const auto& source : sources) {
    if (!std::filesystem::is_directory(source)) {
      read(source);
      continue;
    }
    std::error_code error;
    for (const auto& item : std::filesystem::directory_iterator(source, error)) {
      if (item.path().extension() == ".json") {
        read(item.path());
      }
    }
  }
  if (documents().empty()) {
    std::cerr << "bench_color_replacement: no documents to read\n";
    return 1;
  }
  std::cerr << documents().size() << " documents, " << totalBytes() << " bytes\n";

  const frameloom::testing::TemporaryFolder scratchFolder;
  const std::filesystem::path& scratch = scratchFolder.path();
  std::filesystem::create_directories(scratch / "tmp");
  setenv("TMPDIR", (scratch / "tmp").c_str(), 1);
  oneMegabyteLottie() = makeOneMegabyteLottie(scratch);
  registerPerDocument();

  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
