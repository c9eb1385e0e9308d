// The animated WebP and GIF writers, read back with the libraries' own decoders.

#include <frameloom/platform/graphics/AnimatedWebp.h>
#include <frameloom/platform/graphics/DigitFont.h>
#include <frameloom/platform/graphics/Gif.h>

#include "support/AnimatedPictures.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

namespace frameloom::testing {
namespace {

using platform::Image;
using platform::Rgba8;

std::shared_ptr<const Image> filled(std::size_t width, std::size_t height,
                                    Rgba8 (*colour)(std::size_t x, std::size_t y)) {
  std::vector<std::uint8_t> pixels;
  for (std::size_t y = 0; y < height; ++y) {
    for (std::size_t x = 0; x < width; ++x) {
      const Rgba8 p = colour(x, y);
      pixels.insert(pixels.end(), {p.r, p.g, p.b, p.a});
    }
  }
  return Image::make(width, height, std::move(pixels));
}

// Four flat colours, a transparent quarter and a half-transparent premultiplied one.
std::shared_ptr<const Image> quarters() {
  return filled(40, 20, [](std::size_t x, std::size_t y) -> Rgba8 {
    if (x < 10) {
      return {255, 0, 0, 255};
    }
    if (x < 20) {
      return y < 10 ? Rgba8{0, 0, 0, 0} : Rgba8{0, 200, 0, 255};
    }
    return x < 30 ? Rgba8{0, 0, 100, 200} : Rgba8{10, 20, 30, 255};
  });
}

// A ramp through far more than 256 colours.
std::shared_ptr<const Image> gradient() {
  return filled(256, 32, [](std::size_t x, std::size_t y) -> Rgba8 {
    return {static_cast<std::uint8_t>(x), static_cast<std::uint8_t>(255 - x),
            static_cast<std::uint8_t>(y * 8), 255};
  });
}

TEST(AnimatedWebpWriter, KeepsFramesTimesAndLoopsExactly) {
  platform::AnimatedWebpWriter writer(40, 20, {.loopCount = 3});
  const auto second = filled(40, 20, [](std::size_t x, std::size_t) -> Rgba8 {
    return {static_cast<std::uint8_t>(x * 6), 0, 0, 255};
  });
  writer.addFrame(*quarters(), 0);
  writer.addFrame(*second, 40);
  writer.addFrame(*quarters(), 120);
  const DecodedAnimation decoded = decodeWebp(writer.finish(200));
  ASSERT_EQ(decoded.frames.size(), 3u);
  EXPECT_EQ(std::tuple(decoded.width, decoded.height, decoded.loopCount), std::tuple(40u, 20u, 3));
  EXPECT_EQ(decoded.startTimes, (std::vector<int>{0, 40, 120}));
  EXPECT_EQ(largestDifference(*decoded.frames[0], *quarters()), 0);
  EXPECT_EQ(largestDifference(*decoded.frames[1], *second), 0);
  EXPECT_EQ(largestDifference(*decoded.frames[2], *quarters()), 0);
}

TEST(GifWriter, KeepsFewColoursExactlyAndThresholdsAlpha) {
  platform::GifWriter writer(40, 20, 0);
  writer.addFrame(*quarters(), 5);
  writer.addFrame(*quarters(), 7);
  const DecodedAnimation decoded = decodeGif(writer.finish());
  ASSERT_EQ(decoded.frames.size(), 2u);
  EXPECT_EQ(decoded.loopCount, 0);
  EXPECT_EQ(decoded.startTimes, (std::vector<int>{0, 50}));
  const Image& frame = *decoded.frames[0];
  // Opaque colours stay as they are; alpha 200 of 255 becomes opaque, alpha 0 transparent.
  EXPECT_EQ(frame.pixel(5, 5), (Rgba8{255, 0, 0, 255}));
  EXPECT_EQ(frame.pixel(15, 5), (Rgba8{0, 0, 0, 0}));
  EXPECT_EQ(frame.pixel(15, 15), (Rgba8{0, 200, 0, 255}));
  EXPECT_EQ(frame.pixel(25, 5), (Rgba8{0, 0, 128, 255}));
  EXPECT_EQ(frame.pixel(35, 5), (Rgba8{10, 20, 30, 255}));
}

TEST(GifWriter, DithersGradientsWithoutBanding) {
  platform::GifWriter writer(256, 32, 1);
  writer.addFrame(*gradient(), 10);
  const DecodedAnimation decoded = decodeGif(writer.finish());
  EXPECT_EQ(decoded.loopCount, 1);
  const Image& frame = *decoded.frames.at(0);
  const auto source = gradient();
  // Averaged over 8 x 8 blocks the dithered picture follows the ramp closely, and no single
  // pixel is far off: a palette cut into bands would miss by a band's width.
  double worstBlock = 0;
  for (std::size_t by = 0; by < 32; by += 8) {
    for (std::size_t bx = 0; bx < 256; bx += 8) {
      for (int c = 0; c < 3; ++c) {
        double difference = 0;
        for (std::size_t y = by; y < by + 8; ++y) {
          for (std::size_t x = bx; x < bx + 8; ++x) {
            const auto p = frame.pixel(x, y);
            const auto q = source->pixel(x, y);
            const int channels[2][3] = {{p.r, p.g, p.b}, {q.r, q.g, q.b}};
            difference += channels[0][c] - channels[1][c];
          }
        }
        worstBlock = std::max(worstBlock, std::abs(difference / 64));
      }
    }
  }
  EXPECT_LT(worstBlock, 6.0);
  EXPECT_LE(largestDifference(frame, *source), 24);
}

TEST(AnimatedWriters, RefuseFramesThatDoNotFit) {
  platform::GifWriter gif(40, 20, 0);
  EXPECT_THROW(gif.addFrame(*gradient(), 1), std::invalid_argument);
  EXPECT_THROW(gif.addFrame(*quarters(), -1), std::invalid_argument);
  platform::AnimatedWebpWriter webp(40, 20, {});
  EXPECT_THROW(webp.addFrame(*gradient(), 0), std::invalid_argument);
  webp.addFrame(*quarters(), 10);
  EXPECT_THROW(webp.addFrame(*quarters(), 10), std::invalid_argument);
  EXPECT_THROW(webp.finish(5), std::invalid_argument);
}

TEST(DigitFont, DrawsDigitsInsideTheirBoxAndCutsAtTheEdge) {
  constexpr std::size_t width = 20;
  std::vector<std::uint8_t> pixels(width * 10 * 4, 7);
  const Rgba8 ink{255, 255, 255, 255};
  const Rgba8 backing{0, 0, 0, 255};
  // "1" at scale 1: a box 5 wide and 7 high; its stem is the glyph's middle column.
  platform::DigitFont::draw(pixels, width, 2, 1, "1", 1, ink, backing);
  auto at = [&](std::size_t x, std::size_t y) {
    const std::uint8_t* p = pixels.data() + (y * width + x) * 4;
    return Rgba8{p[0], p[1], p[2], p[3]};
  };
  EXPECT_EQ(at(2, 1), backing);
  EXPECT_EQ(at(4, 2), ink);
  EXPECT_EQ(at(3, 3), ink);
  EXPECT_EQ(at(3, 4), backing);
  EXPECT_EQ(at(4, 6), ink);
  EXPECT_EQ(at(7, 1), (Rgba8{7, 7, 7, 7}));
  EXPECT_EQ(platform::DigitFont::width("12.5", 2), 34u);
  // Past the right and bottom edges nothing is written out of bounds.
  platform::DigitFont::draw(pixels, width, 18, 8, "888", 3, ink, backing);
  EXPECT_EQ(at(18, 8), backing);
}

} // namespace
} // namespace frameloom::testing
