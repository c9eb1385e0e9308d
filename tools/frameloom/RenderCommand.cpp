#include "RenderCommand.h"

#include "AnimatedOutput.h"
#include "ColorArguments.h"
#include "FrameLabels.h"
#include "OutputFile.h"
#include "ProgressBar.h"
#include "RenderSource.h"
#include "Usage.h"
#include <frameloom/platform/core/DecimalText.h>
#include <frameloom/platform/graphics/ContactSheet.h>
#include <frameloom/platform/graphics/Png.h>
#include <frameloom/platform/runtime/MainLoop.h>

#include <cmath>
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
  std::string format;
  std::string background;
  AnimationRange range;
};

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
  const auto [columns, rows] = parseGrid(options.sheet, "sheet");
  return evenlySpacedFrames(columns * rows, last);
}

// Refuses a sheet that could not be drawn before any frame is rendered for it. Its frames are all
// held until it is drawn, and it holds as many pixels again: the pixel bound keeps each of the
// two under 256 MiB.
void checkSheetSize(const RenderOptions& options, double width, double height) {
  constexpr double maxSheetPixels = 64.0 * 1024 * 1024;
  if (options.sheet.empty()) {
    return;
  }
  const auto [columns, rows] = parseGrid(options.sheet, "sheet");
  if (columns * rows > maxSheetFrames) {
    throw UsageError("a sheet holds at most " + std::to_string(maxSheetFrames) + " frames");
  }
  const double sheetWidth = static_cast<double>(columns) * std::ceil(width);
  const double sheetHeight = static_cast<double>(rows) * std::ceil(height);
  if (sheetWidth > platform::Image::maxDimension || sheetHeight > platform::Image::maxDimension) {
    throw UsageError("a " + options.sheet + " sheet of " + options.size +
                     " frames is beyond 16384 pixels on a side");
  }
  if (sheetWidth * sheetHeight > maxSheetPixels) {
    throw UsageError("a " + options.sheet + " sheet of " + options.size +
                     " frames is beyond 67108864 pixels");
  }
}

asio::awaitable<void> renderStill(const DotLottieActor::Animation& animation,
                                  const RenderOptions& options, Console& console) {
  const std::vector<float> frames = framesToRender(options, animation->totalFrames());
  // Rendering a frame and encoding the picture are counted alike per frame.
  ProgressBar bar(console, "render", "steps");
  bar.progress()->setTotalUnitCount(static_cast<std::int64_t>(frames.size() * 2));
  std::vector<std::shared_ptr<const platform::Image>> images;
  for (const float frame : frames) {
    auto image = co_await renderFrame(animation, frame, options.source);
    if (!options.background.empty()) {
      image = overBackground(*image, colorsOf(options.background)->front());
    }
    images.push_back(std::move(image));
    bar.progress()->addCompletedUnitCount(1);
  }
  std::shared_ptr<const platform::Image> picture = images.front();
  if (!options.sheet.empty()) {
    const auto [columns, rows] = parseGrid(options.sheet, "sheet");
    picture =
        labelFrames(*platform::makeContactSheet(images, columns, rows), columns, rows, frames);
  }
  images.clear();
  writeOutput(platform::encodePng(*picture), options.output);
  bar.progress()->setCompletedUnitCount(bar.progress()->totalUnitCount());
}

void render(RenderOptions& options, Console& console) {
  const std::optional<PictureFormat> format = !options.format.empty() ? formatNamed(options.format)
                                              : isStandardStream(options.output)
                                                  ? std::optional(PictureFormat::png)
                                                  : formatOfPath(options.output);
  if (!format) {
    throw UsageError("cannot tell the picture format of '" + options.output +
                     "': use .png, .webp, .gif or .apng, or --format");
  }
  const bool animated = *format != PictureFormat::png;
  if (animated && (options.frame || !options.sheet.empty())) {
    throw UsageError("--frame and --sheet make a still picture: write it as .png");
  }
  const auto [width, height] = parseSize(options.size, "size");
  if (width >= platform::Image::maxDimension + 1 || height >= platform::Image::maxDimension + 1) {
    throw UsageError("size " + options.size + " is beyond 16384 pixels on a side");
  }
  checkSheetSize(options, width, height);
  if (!options.background.empty()) {
    options.range.background = colorsOf(options.background)->front();
  }
  auto& loop = platform::MainLoop::shared();
  auto animation =
      loop.runUntilComplete(loadSource(options.source, {width, height}, colorsOf(options.colors)));
  loop.runUntilComplete(usingAnimation(
      animation, [&](const DotLottieActor::Animation& model) -> asio::awaitable<void> {
        if (animated) {
          co_await writeAnimation(model, options.source, *format, options.range, options.output,
                                  console);
        } else {
          co_await renderStill(model, options, console);
        }
      }));
}

} // namespace

void addRenderCommand(CLI::App& app, Console& console) {
  auto options = std::make_shared<RenderOptions>();
  auto* command = app.add_subcommand(
      "render", "Render a frame or a contact sheet as PNG, or the animation as animated WebP or "
                "GIF (chosen by the output's extension)");
  command->add_option("SOURCE", options->source, "A .lottie file or an http(s) URL")->required();
  command
      ->add_option("--colors", options->colors,
                   "Replacement colours: #RGB, #RRGGBB or #RRGGBBAA, separated by commas")
      ->check(colorListCheck());
  command->add_option("--size", options->size, "Pixel size WxH (default 250x250)")
      ->check(sizeCheck());
  auto* frame = command->add_option("--frame", options->frame, "The frame number to render");
  command->add_option("--sheet", options->sheet, "A COLSxROWS sheet of evenly spaced frames")
      ->check(gridCheck())
      ->excludes(frame);
  command
      ->add_option("--fps", options->range.fps,
                   "Animated output: frames per second (default the animation's own, at most "
                   "50 for GIF)")
      ->check(numberCheck(0.1, 120));
  command->add_option("--from", options->range.from, "Animated output: the first frame");
  command->add_option("--to", options->range.to, "Animated output: the last frame");
  command
      ->add_option("--loop", options->range.loop,
                   "Animated output: how many times it plays (default 0, forever)")
      ->check(numberCheck(0, 65535));
  command
      ->add_option("--background", options->background,
                   "A colour to lay the frames over (default transparent)")
      ->check(colorListCheck());
  command
      ->add_option("--format", options->format,
                   "png, webp, gif or apng, when the output's extension does not say (as for -)")
      ->check(CLI::IsMember({"png", "webp", "gif", "apng"}));
  addOutput(*command, options->output,
            "The .png, .webp, .gif or .apng file to write, or - for standard output",
            [options, &console] { render(*options, console); });
}

} // namespace frameloom::tool
