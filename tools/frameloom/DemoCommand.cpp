#include "DemoCommand.h"

#include "ColorArguments.h"
#include "DemoAnimation.h"
#include "PlayCommand.h"
#include <frameloom/actor/DotLottieActor.h>
#include <frameloom/files/DotLottieFile.h>
#include <frameloom/platform/core/DecimalText.h>
#include <frameloom/platform/graphics/ContactSheet.h>
#include <frameloom/platform/graphics/Png.h>
#include <frameloom/platform/runtime/MainLoop.h>
#include <frameloom/ziploom/Archive.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace frameloom::tool {
namespace {

namespace fs = std::filesystem;

// The host palette the demo recolours with: teal, pink, navy, yellow, orange.
constexpr const char* demoPalette = "#1B998B,#ED217C,#2D3047,#FFFD82,#FF9B71";

constexpr const char* demoId = "frameloom_demo";

// The bundled animation as a .lottie archive: a manifest naming it and the JSON under
// animations/.
platform::Bytes packDemoLottie() {
  const std::string manifest = std::string(R"({"version":"1","generator":"frameloom",)") +
                               R"("animations":[{"id":")" + demoId + R"("}]})";
  ziploom::Archive archive(platform::Bytes{}, ziploom::AccessMode::create);
  auto add = [&archive](const std::string& path, std::string_view text) {
    archive.addEntry(path, ziploom::Entry::EntryType::file, static_cast<std::int64_t>(text.size()),
                     std::chrono::system_clock::now(), 0644, ziploom::CompressionMethod::deflate,
                     ziploom::defaultWriteChunkSize, nullptr,
                     [text](std::int64_t position, std::int64_t count) {
                       auto begin = text.begin() + position;
                       return platform::Bytes(begin, begin + count);
                     });
  };
  add("manifest.json", manifest);
  add(std::string("animations/") + demoId + ".json", demoAnimationJson());
  return *archive.data();
}

void writeFile(const fs::path& path, const platform::Bytes& bytes) {
  const fs::path partial = path.string() + ".partial";
  {
    std::FILE* file = std::fopen(partial.c_str(), "wb");
    if (!file) {
      throw std::runtime_error("cannot write " + partial.string());
    }
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    if (std::fclose(file) != 0 || !written) {
      fs::remove(partial);
      throw std::runtime_error("cannot write " + partial.string());
    }
  }
  fs::rename(partial, path);
}

// A 4 x 3 sheet of evenly spaced frames of the .lottie at `path`, rendered through the actor.
asio::awaitable<void> writeContactSheet(const fs::path& path, const fs::path& sheet) {
  constexpr std::size_t columns = 4;
  constexpr std::size_t rows = 3;
  auto animation = co_await DotLottieActor::load(platform::Url::fromFilePath(path),
                                                 platform::Size{250, 250}, std::nullopt);
  if (!animation) {
    throw std::runtime_error("cannot load an animation from " + path.string());
  }
  std::vector<std::shared_ptr<const platform::Image>> frames;
  std::exception_ptr failure;
  try {
    const float last = std::max(0.0f, animation->totalFrames() - 1);
    for (std::size_t i = 0; i < columns * rows; ++i) {
      const float frame = static_cast<float>(i) * last / (columns * rows - 1);
      auto image = co_await DotLottieActor::shared().seek(frame, animation);
      if (!image) {
        throw std::runtime_error("no image for frame " + std::to_string(frame));
      }
      frames.push_back(std::move(image));
    }
    platform::writePng(*platform::makeContactSheet(frames, columns, rows), sheet);
  } catch (...) {
    failure = std::current_exception();
  }
  co_await DotLottieActor::shared().destroy(animation);
  if (failure) {
    std::rethrow_exception(failure);
  }
}

void runDemo(const fs::path& folder, Console& console) {
  fs::create_directories(folder);
  const fs::path original = folder / "demo.lottie";
  writeFile(original, packDemoLottie());
  std::cout << "animation: " << original.string() << "\n";

  const DotLottieFile file(original);
  std::cout << "size: " << platform::shortestDecimal(file.size().width) << " x "
            << platform::shortestDecimal(file.size().height) << "\n";
  std::cout << "palette:\n";
  for (const auto& color : DotLottieFile::readPalette(original)) {
    std::cout << "  " << formatHexColor(color.color) << " " << color.key << " " << color.uses
              << "\n";
  }

  const fs::path recoloured = folder / "demo-recoloured.lottie";
  const fs::path copy = DotLottieFile::recolor(original, parseColorList(demoPalette), 3);
  fs::copy_file(copy, recoloured, fs::copy_options::overwrite_existing);
  std::cout << "recoloured copy with " << demoPalette << ": " << recoloured.string() << "\n";

  for (const auto& [source, sheet] : {std::pair{original, folder / "sheet-original.png"},
                                      std::pair{recoloured, folder / "sheet-recoloured.png"}}) {
    platform::MainLoop::shared().runUntilComplete(writeContactSheet(source, sheet));
    std::cout << "contact sheet: " << sheet.string() << "\n";
  }
  std::cout << std::flush;

  PlayOptions play;
  play.source = recoloured.string();
  play.fps = 30;
  play.seconds = 2;
  play.output = folder / "frames";
  auto result = platform::MainLoop::shared().runUntilComplete(playFor(play, console));
  std::cout << "frames: " << deliveredLine(result) << ", written to " << play.output->string()
            << "\n";
}

} // namespace

void addDemoCommand(CLI::App& app, Console& console) {
  auto folder = std::make_shared<fs::path>("frameloom-demo");
  auto* command = app.add_subcommand(
      "demo", "Run the bundled animation through sizing, palette, recolouring, rendering and "
              "playing, writing the results into a folder");
  command->add_option("--output", *folder, "The folder to write into (default ./frameloom-demo)");
  command->callback([folder, &console] { runDemo(*folder, console); });
}

} // namespace frameloom::tool
