// Rendering every frame of three corpus animations at 250 x 250 through the animation actor's
// seek, next to rlottie's own C++ API rendering the same frames into a buffer, and the time of a
// recoloured load of a 1 MB .lottie next to its plain load and rlottie's own load of its document.
// Prints frames per second for both paths and their ratio.
//
// Times are wall-clock: the actor renders on the pool, not on the calling thread.
//
// Usage: bench_render [benchmark flags] [FOLDER]   (FOLDER defaults to the corpus:
// $FRAMELOOM_CORPUS, else ../shared/corpus next to the repository)

#include "renderer/LottieDocument.h"
#include "support/Corpus.h"
#include "support/Files.h"
#include "support/TemporaryFolder.h"
#include <frameloom/actor/DotLottieActor.h>
#include <frameloom/files/DotLottieFile.h>
#include <frameloom/platform/runtime/MainLoop.h>

#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>
#include <rlottie.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <string>
#include <vector>

namespace {

using frameloom::DotLottieActor;
using frameloom::platform::MainLoop;
using frameloom::platform::Size;
using frameloom::testing::readFile;

constexpr std::size_t side = 250;
const char* const animationNames[] = {"LottieLogo1.json", "LottieFiles__growth.json",
                                      "DotLottie__confused.lottie"};

struct Sample {
  std::vector<std::uint8_t> bytes;
  std::string document;
};

std::vector<Sample>& samples() {
  static std::vector<Sample> loaded;
  return loaded;
}

std::filesystem::path& recolourSource() {
  static std::filesystem::path path;
  return path;
}

// rlottie alone: one model per animation, every frame rendered into one reused buffer.
void BareRlottie(benchmark::State& state) {
  std::int64_t frames = 0;
  std::vector<std::uint32_t> buffer(side * side);
  for (auto _ : state) {
    for (const Sample& sample : samples()) {
      auto model = rlottie::Animation::loadFromData(sample.document, "", "", false);
      for (std::size_t frame = 0; frame < model->totalFrame(); ++frame) {
        rlottie::Surface surface(buffer.data(), side, side, side * 4);
        model->renderSync(frame, surface, true);
        benchmark::DoNotOptimize(buffer.data());
        ++frames;
      }
    }
  }
  state.counters["fps"] =
      benchmark::Counter(static_cast<double>(frames), benchmark::Counter::kIsRate);
}

// The actor: load, then one seek per frame from the main loop (a hop onto the actor and back),
// each giving a new RGBA image.
asio::awaitable<std::int64_t> renderThroughActor() {
  std::int64_t frames = 0;
  for (const Sample& sample : samples()) {
    auto animation = co_await DotLottieActor::load(sample.bytes, Size{side, side});
    const auto total = static_cast<std::int64_t>(animation->totalFrames());
    for (std::int64_t frame = 0; frame < total; ++frame) {
      auto image = co_await DotLottieActor::shared().seek(static_cast<float>(frame), animation);
      benchmark::DoNotOptimize(image);
      ++frames;
    }
    co_await DotLottieActor::shared().destroy(animation);
  }
  co_return frames;
}

void ActorSeek(benchmark::State& state) {
  std::int64_t frames = 0;
  for (auto _ : state) {
    frames += MainLoop::shared().runUntilComplete(renderThroughActor());
  }
  state.counters["fps"] =
      benchmark::Counter(static_cast<double>(frames), benchmark::Counter::kIsRate);
}

// Recoloured copies and their work folders, removed between runs.
void removeRecoloredCopies() {
  for (const auto& item :
       std::filesystem::directory_iterator(std::filesystem::temp_directory_path())) {
    if (item.path().filename().string().starts_with("modified_")) {
      std::filesystem::remove(item.path());
    }
  }
}

void RecolouredLoad(benchmark::State& state) {
  const std::vector<frameloom::platform::Color> colors{
      {0.9, 0.2, 0.1}, {0.1, 0.6, 0.3}, {0.2, 0.3, 0.9}};
  const auto url = frameloom::platform::Url::fromFilePath(recolourSource());
  for (auto _ : state) {
    auto animation =
        MainLoop::shared().runUntilComplete(DotLottieActor::load(url, Size{side, side}, colors));
    state.PauseTiming();
    MainLoop::shared().runUntilComplete(DotLottieActor::shared().destroy(animation));
    removeRecoloredCopies();
    state.ResumeTiming();
  }
}

// The recolouring alone (read, replace, unpack, repack), without loading the copy.
void RecolorOnly(benchmark::State& state) {
  const std::vector<std::vector<double>> colors{
      {0.9, 0.2, 0.1, 1}, {0.1, 0.6, 0.3, 1}, {0.2, 0.3, 0.9, 1}};
  for (auto _ : state) {
    benchmark::DoNotOptimize(frameloom::DotLottieFile::recolor(recolourSource(), colors, 3));
    state.PauseTiming();
    removeRecoloredCopies();
    state.ResumeTiming();
  }
}

// The same file loaded as it is, to show what the recolouring adds.
void PlainLoad(benchmark::State& state) {
  const auto url = frameloom::platform::Url::fromFilePath(recolourSource());
  for (auto _ : state) {
    auto animation = MainLoop::shared().runUntilComplete(
        DotLottieActor::load(url, Size{side, side}, std::nullopt));
    state.PauseTiming();
    MainLoop::shared().runUntilComplete(DotLottieActor::shared().destroy(animation));
    state.ResumeTiming();
  }
}

// rlottie alone loading the same document, to show what the repairs before it cost.
void BareLoad(benchmark::State& state) {
  const auto document = frameloom::renderer::lottieDocument(readFile(recolourSource()));
  for (auto _ : state) {
    benchmark::DoNotOptimize(rlottie::Animation::loadFromData(*document, "", "", false));
  }
}

BENCHMARK(BareRlottie)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ActorSeek)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(RecolouredLoad)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(PlainLoad)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BareLoad)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(RecolorOnly)->Unit(benchmark::kMillisecond)->UseRealTime();

// Remembers each benchmark's frames per second (the median when repeated) to print the ratio
// after the run.
class RatioReporter : public benchmark::ConsoleReporter {
public:
  RatioReporter() : ConsoleReporter(::isatty(STDOUT_FILENO) ? OO_Defaults : OO_Tabular) {}

  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      const auto fps = run.counters.find("fps");
      if (fps != run.counters.end() &&
          (run.aggregate_name.empty() || run.aggregate_name == "median")) {
        rates[run.run_name.function_name] = fps->second.value;
      }
    }
  }
  std::map<std::string, double> rates;
};

// A .lottie holding about 1 MB of animation JSON: the layers of a corpus document repeated, zipped
// by Info-ZIP's zip, in the temporary directory.
std::filesystem::path makeLargeDotLottie(const std::filesystem::path& corpus) {
  const auto source = readFile(corpus / "LottieLogo1.json");
  auto document = nlohmann::ordered_json::parse(source.begin(), source.end());
  const auto layers = document["layers"];
  while (document.dump().size() < 1'000'000) {
    for (const auto& layer : layers) {
      document["layers"].push_back(layer);
    }
  }
  const auto folder = std::filesystem::temp_directory_path();
  std::filesystem::create_directories(folder / "animations");
  std::ofstream(folder / "animations" / "large.json") << document.dump();
  std::ofstream(folder / "manifest.json") << R"({"animations":[{"id":"large"}]})";
  const std::string command = "cd '" + folder.string() +
                              "' && zip -q -X -D large.lottie manifest.json animations/large.json";
  if (std::system(command.c_str()) != 0) {
    throw std::runtime_error("zip failed");
  }
  return folder / "large.lottie";
}

} // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  // The run's own temporary directory: recoloured copies and their work folders go there and are
  // removed with it at the end.
  const frameloom::testing::TemporaryFolder scratch;
  setenv("TMPDIR", scratch.path().c_str(), 1);
  std::filesystem::path corpus = frameloom::testing::corpusFolder().value_or(".");
  if (argc > 1) {
    corpus = argv[1];
  }
  for (const char* name : animationNames) {
    Sample sample{readFile(corpus / name), {}};
    const auto document = frameloom::renderer::lottieDocument(sample.bytes);
    if (!document) {
      std::cerr << "cannot read " << (corpus / name) << "\n";
      return 1;
    }
    sample.document = *document;
    samples().push_back(std::move(sample));
  }
  recolourSource() = makeLargeDotLottie(corpus);
  std::cout << "recoloured load source: " << std::filesystem::file_size(recolourSource())
            << " bytes (" << readFile(recolourSource()).size() << ")\n";

  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  if (reporter.rates.count("BareRlottie") && reporter.rates.count("ActorSeek")) {
    const double bare = reporter.rates["BareRlottie"];
    const double actor = reporter.rates["ActorSeek"];
    std::cout << "rlottie alone: " << bare << " frames/s; through the actor: " << actor
              << " frames/s; actor time / rlottie time = " << bare / actor << "\n";
  }
  benchmark::Shutdown();
}
