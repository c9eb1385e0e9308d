#include "AnimationCommands.h"

#include "ColorArguments.h"
#include "ErrorText.h"
#include "OutputFile.h"
#include "RenderSource.h"
#include "StandardInput.h"
#include "Swatches.h"
#include <frameloom/actor/DotLottieActor.h>
#include <frameloom/files/DotLottieFile.h>
#include <frameloom/platform/core/DecimalText.h>
#include <frameloom/platform/graphics/Png.h>
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
  const std::string name = isStandardStream(path) ? "standard input" : path;
  try {
    withInputFile(path, action);
  } catch (const std::exception& error) {
    throw std::runtime_error(errorTextNaming(name, error));
  }
}

void info(const std::string& name) {
  naming(name, [&](const fs::path& path) {
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

// Whether `path` holds a JSON document rather than a .lottie archive: by its name, else by its
// first bytes (an archive starts with "PK").
bool looksLikeJSON(const fs::path& path) {
  if (isJSONDocument(path)) {
    return true;
  }
  // Only a regular file is looked into: opening a FIFO would wait for a writer.
  std::error_code error;
  if (!fs::is_regular_file(path, error)) {
    return false;
  }
  std::ifstream in(path, std::ios::binary);
  char first[2] = {};
  in.read(first, 2);
  return in.gcount() == 2 && !(first[0] == 'P' && first[1] == 'K');
}

void palette(const std::string& name, const std::string& swatches) {
  naming(name, [&](const fs::path& path) {
    std::vector<DotLottieFile::PaletteColor> colors;
    if (looksLikeJSON(path)) {
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
    const bool colour = standardOutputShowsColor();
    for (const auto& color : colors) {
      std::printf("%s%s %s %zu\n", colour ? (ansiSwatch(color.color) + " ").c_str() : "",
                  formatHexColor(color.color).c_str(), color.key.c_str(), color.uses);
    }
    if (!swatches.empty()) {
      std::vector<ColorComponents> components;
      for (const auto& color : colors) {
        components.push_back(color.color);
      }
      // One row of 32-pixel squares, at most as wide as a picture may be.
      components.resize(std::min(components.size(), platform::Image::maxDimension / 32));
      writeOutput(platform::encodePng(*makeSwatches(components, 32)), swatches);
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
  naming(path, [&](const fs::path& file) {
    result = DotLottieFile::recolor(file, std::move(colors), 3);
  });
  if (!output.empty()) {
    try {
      moveFile(result, output);
    } catch (const std::exception& error) {
      throw std::runtime_error(errorTextNaming(output, error));
    }
    result = output;
  }
  std::printf("%s\n", result.c_str());
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
  auto swatches = std::make_shared<std::string>();
  paletteCommand
      ->add_option("FILE", *palettePath,
                   "A .lottie file or a Lottie .json document, or - for standard input")
      ->required();
  paletteCommand->add_option("--swatches", *swatches, "Also write the colours as a PNG picture");
  paletteCommand->callback([palettePath, swatches] { palette(*palettePath, *swatches); });

  auto* recolorCommand =
      app.add_subcommand("recolor", "Write a recoloured copy of a .lottie file and print its path");
  auto recolorPath = std::make_shared<std::string>();
  auto colors = std::make_shared<std::string>();
  auto output = std::make_shared<std::string>();
  recolorCommand->add_option("FILE", *recolorPath, "The .lottie file")->required();
  recolorCommand->add_option("--colors", *colors, "The new colours, in order, comma-separated")
      ->required()
      ->check(colorListCheck());
  recolorCommand->add_option("--output", *output,
                             "Move the recoloured copy here instead of the temporary directory");
  recolorCommand->callback(
      [recolorPath, colors, output] { recolor(*recolorPath, *colors, *output); });
}

} // namespace frameloom::tool
