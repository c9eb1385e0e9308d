#include "AnimationCommands.h"

#include "ColorArguments.h"
#include "ErrorText.h"
#include <frameloom/actor/DotLottieActor.h>
#include <frameloom/files/DotLottieFile.h>
#include <frameloom/platform/core/DecimalText.h>
#include <frameloom/platform/runtime/MainLoop.h>
#include <frameloom/renderer/Limits.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>

namespace frameloom::tool {
namespace {

namespace fs = std::filesystem;

// The library's errors say what went wrong; put the file involved in front.
template <typename Action>
void naming(const std::string& path, Action action) {
  try {
    action();
  } catch (const std::exception& error) {
    throw std::runtime_error(errorTextNaming(path, error));
  }
}

void info(const std::string& path) {
  naming(path, [&] {
    const DotLottieFile file(path);
    std::printf("size: %s x %s\n", platform::shortestDecimal(file.size().width).c_str(),
                platform::shortestDecimal(file.size().height).c_str());
    auto& loop = platform::MainLoop::shared();
    const auto animation = loop.runUntilComplete(
        DotLottieActor::load(platform::Url::fromFilePath(path), std::nullopt, std::nullopt));
    if (!animation) {
      throw std::runtime_error("cannot load the animation");
    }
    std::printf("frames: %s\nduration: %s s\n",
                platform::shortestDecimal(animation->totalFrames()).c_str(),
                platform::shortestDecimal(animation->duration()).c_str());
    loop.runUntilComplete(DotLottieActor::shared().destroy(animation));
  });
}

bool isJSONDocument(const fs::path& path) {
  std::string extension = path.extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return extension == ".json";
}

void palette(const std::string& path) {
  naming(path, [&] {
    std::vector<DotLottieFile::PaletteColor> colors;
    if (isJSONDocument(path)) {
      // A FIFO or device would block or never end; an oversized document is refused unread.
      std::error_code error;
      const auto status = fs::status(path, error);
      if (!error && status.type() != fs::file_type::regular) {
        throw std::runtime_error("not a regular file");
      }
      if (!error && fs::file_size(path, error) > renderer::maximumAnimationDocumentSize) {
        throw std::runtime_error("the document is larger than " +
                                 std::to_string(renderer::maximumAnimationDocumentSize >> 20) +
                                 " MiB");
      }
      std::ifstream in(path, std::ios::binary);
      if (!in) {
        throw std::system_error(errno, std::generic_category(), "cannot read the file");
      }
      colors = DotLottieFile::palette(
          std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()));
    } else {
      colors = DotLottieFile::readPalette(path);
    }
    for (const auto& color : colors) {
      std::printf("%s %s %zu\n", formatHexColor(color.color).c_str(), color.key.c_str(),
                  color.uses);
    }
  });
}

// Moves `from` to `to` so that `to` never holds a partial file: a rename, or across file
// systems a copy beside `to` that is then renamed onto it.
void moveFile(const fs::path& from, const fs::path& to) {
  std::error_code error;
  fs::rename(from, to, error);
  if (!error) {
    return;
  }
  if (error != std::errc::cross_device_link) {
    throw fs::filesystem_error("cannot move the recoloured copy", from, to, error);
  }
  const fs::path scratch = to.parent_path() / ("." + to.filename().string() + ".partial");
  try {
    fs::copy_file(from, scratch, fs::copy_options::overwrite_existing);
    fs::rename(scratch, to);
  } catch (...) {
    fs::remove(scratch, error);
    throw;
  }
  fs::remove(from);
}

void recolor(const std::string& path, const std::string& colorList, const std::string& output) {
  auto colors = parseColorList(colorList);
  fs::path result;
  naming(path, [&] { result = DotLottieFile::recolor(path, std::move(colors), 3); });
  if (!output.empty()) {
    naming(output, [&] { moveFile(result, output); });
    result = output;
  }
  std::printf("%s\n", result.c_str());
}

CLI::Validator colorListValidator() {
  return CLI::Validator(
      [](std::string& text) {
        try {
          parseColorList(text);
          return std::string();
        } catch (const std::invalid_argument& error) {
          return std::string(error.what());
        }
      },
      "#RGB|#RRGGBB|#RRGGBBAA,...");
}

} // namespace

void addAnimationCommands(CLI::App& app) {
  auto* infoCommand =
      app.add_subcommand("info", "Open a .lottie file as the size reader does and print its size");
  auto infoPath = std::make_shared<std::string>();
  infoCommand->add_option("FILE", *infoPath, "The .lottie file")->required();
  infoCommand->callback([infoPath] { info(*infoPath); });

  auto* paletteCommand = app.add_subcommand(
      "palette", "List the distinct source colours in the order recolouring replaces them");
  auto palettePath = std::make_shared<std::string>();
  paletteCommand->add_option("FILE", *palettePath, "A .lottie file or a Lottie .json document")
      ->required();
  paletteCommand->callback([palettePath] { palette(*palettePath); });

  auto* recolorCommand =
      app.add_subcommand("recolor", "Write a recoloured copy of a .lottie file and print its path");
  auto recolorPath = std::make_shared<std::string>();
  auto colors = std::make_shared<std::string>();
  auto output = std::make_shared<std::string>();
  recolorCommand->add_option("FILE", *recolorPath, "The .lottie file")->required();
  recolorCommand->add_option("--colors", *colors, "The new colours, in order, comma-separated")
      ->required()
      ->check(colorListValidator());
  recolorCommand->add_option("--output", *output,
                             "Move the recoloured copy here instead of the temporary directory");
  recolorCommand->callback(
      [recolorPath, colors, output] { recolor(*recolorPath, *colors, *output); });
}

} // namespace frameloom::tool
