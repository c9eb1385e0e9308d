#include "support/TemporaryFolder.h"
#include <frameloom/platform/graphics/Color.h>
#include <frameloom/platform/graphics/ContactSheet.h>
#include <frameloom/platform/graphics/Image.h>
#include <frameloom/platform/graphics/Png.h>

#include <gtest/gtest.h>
#include <png.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <stdexcept>

namespace frameloom::platform {
namespace {

// Every alpha, with colours spread over 0...alpha, premultiplied.
std::shared_ptr<const Image> gradientImage(std::size_t width, std::size_t height) {
  std::vector<std::uint8_t> pixels;
  for (std::size_t i = 0; i < width * height; ++i) {
    const auto c = [&](std::size_t n) { return static_cast<std::uint8_t>(i * n); };
    const Rgba8 p = premultiplied({c(13), c(1), c(7), c(1)});
    pixels.insert(pixels.end(), {p.r, p.g, p.b, p.a});
  }
  return Image::make(width, height, std::move(pixels));
}

TEST(PngTest, FileHoldsStraightAlphaAndDecodesToEveryPixel) {
  const auto image = gradientImage(61, 17);
  const auto encoded = encodePng(*image);
  png_image png{};
  png.version = PNG_IMAGE_VERSION;
  ASSERT_TRUE(png_image_begin_read_from_memory(&png, encoded.data(), encoded.size()));
  png.format = PNG_FORMAT_RGBA;
  std::vector<std::uint8_t> file(PNG_IMAGE_SIZE(png));
  ASSERT_TRUE(png_image_finish_read(&png, nullptr, file.data(), 0, nullptr));
  EXPECT_TRUE(std::ranges::equal(decodePng(encoded)->pixels(), image->pixels()));
  for (std::size_t i = 0; i < 61 * 17; ++i) {
    const Rgba8 straight{file[i * 4], file[i * 4 + 1], file[i * 4 + 2], file[i * 4 + 3]};
    ASSERT_EQ(straight, unpremultiplied(image->pixel(i % 61, i / 61))) << i;
  }
}

TEST(PngTest, BadInputAndUnwritablePathsThrowAndLeaveNoFiles) {
  EXPECT_THROW(decodePng(std::vector<std::uint8_t>{0x89, 'P', 'N', 'G', 1, 2, 3}), PngError);
  auto truncated = encodePng(*gradientImage(8, 8));
  truncated.resize(truncated.size() / 2);
  EXPECT_THROW(decodePng(truncated), PngError);
  const frameloom::testing::TemporaryFolder temporary;
  const auto& folder = temporary.path();
  EXPECT_THROW(writePng(*gradientImage(2, 2), folder / "missing" / "out.png"), PngError);
  writePng(*gradientImage(4, 3), folder / "out.png");
  EXPECT_EQ(readPng(folder / "out.png")->pixel(3, 2), gradientImage(4, 3)->pixel(3, 2));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 1);
}

TEST(ContactSheetTest, PlacesFramesRowByRowAndRefusesGridsThatCannotHoldThem) {
  // Frames of one premultiplied grey each; the third is smaller than a cell.
  const auto grey = [](std::size_t side, std::uint8_t level) {
    return Image::make(side, side, std::vector<std::uint8_t>(side * side * 4, level));
  };
  const auto sheet = makeContactSheet({grey(3, 10), grey(3, 20), grey(1, 30)}, 2, 2);
  ASSERT_TRUE(sheet->width() == 6 && sheet->height() == 6);
  // Corners of the first two cells, the small frame, beside it, and the empty fourth cell.
  const std::vector<std::size_t> x{2, 3, 0, 1, 5}, y{2, 0, 3, 3, 5}, level{10, 20, 30, 0, 0};
  for (std::size_t i = 0; i < x.size(); ++i) {
    EXPECT_EQ(sheet->pixel(x[i], y[i]).a, level[i]) << i;
  }
  const auto frame = grey(250, 0);
  for (auto [frames, columns] :
       std::vector<std::pair<std::size_t, std::size_t>>{{0, 1}, {2, 1}, {1, 0}, {1, 66}}) {
    EXPECT_THROW(makeContactSheet(std::vector(frames, frame), columns, 1), std::invalid_argument);
  }
}

// Frames may keep the renderer's B, G, R, A bytes, padded rows included: every reader that
// decodes pixels (pixel(), PNG, contact sheets, inRgbaOrder) sees the same picture as from RGBA.
TEST(ImageTest, BgraImagesReadAsTheSamePixelsEverywhere) {
  const auto rgba = gradientImage(5, 3);
  std::vector<std::uint8_t> swapped(3 * 24, 0xEE); // rows of 24 bytes: 4 bytes of padding
  for (std::size_t y = 0; y < 3; ++y) {
    for (std::size_t x = 0; x < 5; ++x) {
      const Rgba8 p = rgba->pixel(x, y);
      std::copy_n(std::array<std::uint8_t, 4>{p.b, p.g, p.r, p.a}.data(), 4,
                  swapped.data() + y * 24 + x * 4);
    }
  }
  const auto bgra = Image::make(5, 3, 24, std::move(swapped), PixelOrder::bgra);
  for (std::size_t i = 0; i < 15; ++i) {
    ASSERT_EQ(bgra->pixel(i % 5, i / 5), rgba->pixel(i % 5, i / 5)) << i;
  }
  EXPECT_EQ(encodePng(*bgra), encodePng(*rgba));
  const auto converted = inRgbaOrder(bgra);
  EXPECT_EQ(converted->pixelOrder(), PixelOrder::rgba);
  EXPECT_TRUE(std::ranges::equal(converted->pixels(), rgba->pixels()));
  EXPECT_EQ(inRgbaOrder(rgba), rgba);
  EXPECT_TRUE(std::ranges::equal(makeContactSheet({bgra, rgba}, 2, 1)->pixels(),
                                 makeContactSheet({rgba, rgba}, 2, 1)->pixels()));
}

TEST(ColorTest, ResolvesTheDarkVariantOnlyForDarkAndClampsComponents) {
  using Style = TraitCollection::UserInterfaceStyle;
  const Color color = Color::dynamic(Color(1, 0, 0), Color(0, 0, 1, 0.5));
  EXPECT_EQ(color.rgbaArray({Style::unspecified}), (std::vector<double>{1, 0, 0, 1}));
  EXPECT_EQ(color.rgbaArray({Style::dark}), (std::vector<double>{0, 0, 1, 0.5}));
  EXPECT_EQ(Color(-1, 2, NAN, INFINITY).rgbaArray({}), (std::vector<double>{0, 1, 0, 0}));
}

} // namespace
} // namespace frameloom::platform
