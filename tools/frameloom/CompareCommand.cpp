#include "CompareCommand.h"

#include "ColorArguments.h"
#include "FrameLabels.h"
#include "OutputFile.h"
#include "ProgressBar.h"
#include "RenderSource.h"
#include "Swatches.h"
#include "Usage.h"
#include <frameloom/files/DotLottieFile.h>
#include <frameloom/platform/graphics/ContactSheet.h>
#include <frameloom/platform/graphics/Png.h>
#include <frameloom/platform/runtime/MainLoop.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace frameloom::tool {

namespace {

// A comparison is as wide as its frames side by side; a few dozen frames already make a strip
// wider than a screen.
constexpr std::size_t maxCompareFrames = 64;

struct CompareOptions {
  std::string source;
  std::string colors;
  std::string size = "250x250";
  std::size_t frames = 4;
  std::string output;
};

// Copies `part` into `pixels` (tightly packed, `width` columns) with its top-left corner at
// (x, y); `part` must fit.
void place(std::vector<std::uint8_t>& pixels, std::size_t width, const platform::Image& part,
           std::size_t x, std::size_t y) {
  for (std::size_t row = 0; row < part.height(); ++row) {
    const auto source = part.pixels().subspan(row * part.bytesPerRow(), part.width() * 4);
    std::copy(source.begin(), source.end(), pixels.begin() + ((y + row) * width + x) * 4);
  }
}

struct Rendered {
  std::vector<float> frames;
  std::vector<std::shared_ptr<const platform::Image>> images;
};

asio::awaitable<Rendered> renderFrames(const std::string& source, platform::Size size,
                                       std::optional<std::vector<platform::Color>> colors,
                                       std::size_t count, ProgressBar& bar) {
  Rendered rendered;
  auto animation = co_await loadSource(source, size, std::move(colors));
  co_await usingAnimation(
      animation, [&](const DotLottieActor::Animation& model) -> asio::awaitable<void> {
        rendered.frames = evenlySpacedFrames(count, std::max(0.0f, model->totalFrames() - 1));
        for (const float frame : rendered.frames) {
          rendered.images.push_back(co_await renderFrame(model, frame, source));
          bar.progress()->addCompletedUnitCount(1);
        }
      });
  co_return rendered;
}

// The two rows of frames, then the source palette and the new colours as two rows of swatches.
std::shared_ptr<const platform::Image> comparison(const Rendered& original,
                                                  const Rendered& recoloured,
                                                  const std::vector<ColorComponents>& sourceColors,
                                                  const std::vector<ColorComponents>& newColors) {
  std::vector<std::shared_ptr<const platform::Image>> images = original.images;
  images.insert(images.end(), recoloured.images.begin(), recoloured.images.end());
  std::vector<float> frames = original.frames;
  frames.insert(frames.end(), recoloured.frames.begin(), recoloured.frames.end());
  const std::size_t columns = original.images.size();
  const auto sheet =
      labelFrames(*platform::makeContactSheet(images, columns, 2), columns, 2, frames);
  const std::size_t cell =
      std::clamp<std::size_t>(sheet->height() / 10, 8, platform::Image::maxDimension / 64);
  const auto sourceSwatches = makeSwatches(sourceColors, cell);
  const auto newSwatches = makeSwatches(newColors, cell);
  const std::size_t width =
      std::min(platform::Image::maxDimension,
               std::max({sheet->width(), sourceSwatches->width(), newSwatches->width()}));
  const std::size_t height = sheet->height() + 2 * cell;
  std::vector<std::uint8_t> pixels(width * height * 4);
  place(pixels, width, *sheet, 0, 0);
  // Swatches beyond the picture's widest side are left out.
  for (const auto& [swatches, y] : {std::pair{sourceSwatches, sheet->height()},
                                    std::pair{newSwatches, sheet->height() + cell}}) {
    const std::size_t shown = std::min(width, swatches->width());
    for (std::size_t row = 0; row < cell; ++row) {
      const auto line = swatches->pixels().subspan(row * swatches->bytesPerRow(), shown * 4);
      std::copy(line.begin(), line.end(), pixels.begin() + ((y + row) * width) * 4);
    }
  }
  return platform::Image::make(width, height, std::move(pixels));
}

void compare(const CompareOptions& options, Console& console) {
  if (options.frames == 0 || options.frames > maxCompareFrames) {
    throw UsageError("--frames must be from 1 to " + std::to_string(maxCompareFrames));
  }
  const auto [width, height] = parseSize(options.size, "size");
  if (width * static_cast<double>(options.frames) > platform::Image::maxDimension ||
      height * 3 > platform::Image::maxDimension) {
    throw UsageError("a comparison of " + std::to_string(options.frames) + " frames of " +
                     options.size + " is beyond 16384 pixels on a side");
  }
  std::vector<ColorComponents> sourceColors;
  for (const auto& color : DotLottieFile::readPalette(options.source)) {
    sourceColors.push_back(color.color);
  }

  ProgressBar bar(console, "compare", "steps");
  // Each frame is rendered twice, and the picture encoded as one more step.
  bar.progress()->setTotalUnitCount(static_cast<std::int64_t>(options.frames * 2 + 1));
  auto& loop = platform::MainLoop::shared();
  const Rendered original = loop.runUntilComplete(
      renderFrames(options.source, {width, height}, std::nullopt, options.frames, bar));
  const Rendered recoloured = loop.runUntilComplete(
      renderFrames(options.source, {width, height}, colorsOf(options.colors), options.frames, bar));
  const auto picture =
      comparison(original, recoloured, sourceColors, parseColorList(options.colors));
  writeOutput(platform::encodePng(*picture), options.output);
  bar.progress()->addCompletedUnitCount(1);
}

} // namespace

void addCompareCommand(CLI::App& app, Console& console) {
  auto options = std::make_shared<CompareOptions>();
  auto* command = app.add_subcommand(
      "compare", "Write the original and the recoloured animation side by side with the "
                 "palette's swatches as a PNG");
  command->add_option("SOURCE", options->source, "The .lottie file")->required();
  command->add_option("--colors", options->colors, "The new colours, in order, comma-separated")
      ->required()
      ->check(colorListCheck());
  command->add_option("--size", options->size, "Pixel size of each frame WxH (default 250x250)")
      ->check(sizeCheck());
  command->add_option("--frames", options->frames, "How many evenly spaced frames (default 4)");
  addOutput(*command, options->output, "The PNG file to write, or - for standard output",
            [options, &console] { compare(*options, console); });
}

} // namespace frameloom::tool
