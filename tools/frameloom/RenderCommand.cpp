#include "RenderCommand.h"

#include "ColorArguments.h"
#include "ProgressBar.h"
#include <frameloom/actor/DotLottieActor.h>
#include <frameloom/cache/LottieCache.h>
#include <frameloom/platform/core/DecimalText.h>
#include <frameloom/platform/graphics/ContactSheet.h>
#include <frameloom/platform/graphics/Png.h>
#include <frameloom/platform/runtime/MainLoop.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace frameloom::tool {

namespace {

struct RenderOptions {
  std::string source;
  std::string colors;
  std::string size = "250x250";
  std::optional<float> frame;
  std::string sheet;
  std::string output;
};

// "AxB" as two positive finite numbers; throws std::invalid_argument naming `what` otherwise.
template <class Number>
std::pair<Number, Number> parsePair(const std::string& text, const char* what) {
  const auto x = text.find('x');
  Number first{};
  Number second{};
  const char* end = text.data() + text.size();
  if (x != std::string::npos) {
    const auto [firstEnd, firstError] = std::from_chars(text.data(), text.data() + x, first);
    const auto [secondEnd, secondError] = std::from_chars(text.data() + x + 1, end, second);
    if (firstError == std::errc() && firstEnd == text.data() + x && secondError == std::errc() &&
        secondEnd == end && first > 0 && second > 0 && std::isfinite(double(first)) &&
        std::isfinite(double(second))) {
      return {first, second};
    }
  }
  throw std::invalid_argument(std::string("invalid ") + what + " '" + text + "'");
}

asio::awaitable<DotLottieActor::Animation> loadSource(const RenderOptions& options,
                                                      platform::Size size) {
  std::optional<std::vector<platform::Color>> colors;
  if (!options.colors.empty()) {
    colors.emplace();
    for (const std::vector<double>& c : parseColorList(options.colors)) {
      colors->emplace_back(c[0], c[1], c[2], c[3]);
    }
  }
  if (platform::Url::isHttp(options.source)) {
    if (colors) {
      throw std::invalid_argument("--colors needs a local .lottie file, not a URL");
    }
    const auto url = platform::Url::parse(options.source);
    if (!url) {
      throw std::invalid_argument("invalid URL " + options.source);
    }
    const LottieCache::Data bytes = co_await LottieCache::shared().loadLottie(*url);
    co_return co_await DotLottieActor::load(*bytes, size);
  }
  co_return co_await DotLottieActor::load(platform::Url::fromFilePath(options.source), size,
                                          std::move(colors));
}

// The frame numbers to render: the one asked for, or one per sheet cell spread evenly from the
// first frame to the last.
std::vector<float> framesToRender(const RenderOptions& options, float totalFrames) {
  const float last = std::max(0.0f, totalFrames - 1);
  if (options.frame) {
    if (!std::isfinite(*options.frame) || *options.frame < 0 || *options.frame > totalFrames) {
      throw std::invalid_argument("frame " + platform::shortestDecimal(*options.frame) +
                                  " is outside the animation's 0..." +
                                  platform::shortestDecimal(totalFrames));
    }
    return {*options.frame};
  }
  if (options.sheet.empty()) {
    return {0};
  }
  const auto [columns, rows] = parsePair<std::size_t>(options.sheet, "sheet");
  const std::size_t count = columns * rows;
  if (count > 10000) {
    throw std::invalid_argument("a sheet holds at most 10000 frames");
  }
  std::vector<float> frames;
  for (std::size_t i = 0; i < count; ++i) {
    frames.push_back(count == 1 ? 0 : static_cast<float>(i) * last / static_cast<float>(count - 1));
  }
  return frames;
}

// Refuses a sheet that could not be drawn before any frame is rendered for it. Its frames are all
// held until it is drawn, and it holds as many pixels again: the pixel bound keeps each of the
// two under 256 MiB.
void checkSheetSize(const RenderOptions& options, double width, double height) {
  constexpr double maxSheetPixels = 64.0 * 1024 * 1024;
  if (options.sheet.empty()) {
    return;
  }
  const auto [columns, rows] = parsePair<std::size_t>(options.sheet, "sheet");
  const double sheetWidth = static_cast<double>(columns) * std::ceil(width);
  const double sheetHeight = static_cast<double>(rows) * std::ceil(height);
  if (sheetWidth > platform::Image::maxDimension || sheetHeight > platform::Image::maxDimension) {
    throw std::invalid_argument("a " + options.sheet + " sheet of " + options.size +
                                " frames is beyond 16384 pixels on a side");
  }
  if (sheetWidth * sheetHeight > maxSheetPixels) {
    throw std::invalid_argument("a " + options.sheet + " sheet of " + options.size +
                                " frames is beyond 67108864 pixels");
  }
}

asio::awaitable<void> render(const RenderOptions& options) {
  const auto [width, height] = parsePair<double>(options.size, "size");
  if (width >= platform::Image::maxDimension + 1 || height >= platform::Image::maxDimension + 1) {
    throw std::invalid_argument("size " + options.size + " is beyond 16384 pixels on a side");
  }
  checkSheetSize(options, width, height);
  DotLottieActor::Animation animation = co_await loadSource(options, {width, height});
  if (!animation) {
    throw std::runtime_error("cannot load " + options.source);
  }
  std::exception_ptr failure;
  try {
    const std::vector<float> frames = framesToRender(options, animation->totalFrames());
    ProgressBar bar("render");
    bar.progress()->setTotalUnitCount(static_cast<std::int64_t>(frames.size()));
    std::vector<std::shared_ptr<const platform::Image>> images;
    for (const float frame : frames) {
      auto image = co_await DotLottieActor::shared().seek(frame, animation);
      if (!image) {
        throw std::runtime_error("no image for frame " + platform::shortestDecimal(frame) + " of " +
                                 options.source);
      }
      images.push_back(std::move(image));
      bar.progress()->addCompletedUnitCount(1);
    }
    if (options.sheet.empty()) {
      platform::writePng(*images.front(), options.output);
    } else {
      const auto [columns, rows] = parsePair<std::size_t>(options.sheet, "sheet");
      platform::writePng(*platform::makeContactSheet(images, columns, rows), options.output);
    }
  } catch (...) {
    failure = std::current_exception();
  }
  co_await DotLottieActor::shared().destroy(animation);
  if (failure) {
    std::rethrow_exception(failure);
  }
}

} // namespace

void addRenderCommand(CLI::App& app) {
  auto options = std::make_shared<RenderOptions>();
  auto* command = app.add_subcommand(
      "render", "Render one frame or a contact sheet of an animation to a PNG file");
  command->add_option("SOURCE", options->source, "A .lottie file or an http(s) URL")->required();
  command->add_option("--colors", options->colors,
                      "Replacement colours: #RGB, #RRGGBB or #RRGGBBAA, separated by commas");
  command->add_option("--size", options->size, "Pixel size WxH (default 250x250)");
  auto* frame = command->add_option("--frame", options->frame, "The frame number to render");
  command->add_option("--sheet", options->sheet, "A COLSxROWS sheet of evenly spaced frames")
      ->excludes(frame);
  command->add_option("--output", options->output, "The PNG file to write")->required();
  command->callback([options] {
    platform::MainLoop::shared().runUntilComplete(render(*options));
    std::cout << options->output << "\n";
  });
}

} // namespace frameloom::tool
