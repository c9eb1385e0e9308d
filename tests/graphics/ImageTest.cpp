#include "platform/graphics/Image.h"
#include "platform/graphics/ContactSheet.h"
#include "platform/graphics/Png.h"

#include <gtest/gtest.h>
#include <png.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace frameloom::platform {
namespace {

std::shared_ptr<const Image> gradientImage(std::size_t width, std::size_t height) {
  std::vector<std::uint8_t> pixels;
  for (std::size_t y = 0; y < height; ++y) {
    for (std::size_t x = 0; x < width; ++x) {
      const auto a = static_cast<std::uint8_t>((x * 37 + y * 11) % 256);
      const Rgba8 p =
          premultiplied({static_cast<std::uint8_t>(x * 13), static_cast<std::uint8_t>(y * 7),
                         static_cast<std::uint8_t>(x ^ y), a});
      pixels.insert(pixels.end(), {p.r, p.g, p.b, p.a});
    }
  }
  return Image::make(width, height, std::move(pixels));
}

TEST(ImageTest, RejectsDimensionsAndBuffersThatDisagree) {
  EXPECT_THROW(Image::make(0, 1, {}), std::invalid_argument);
  EXPECT_THROW(Image::make(Image::maxDimension + 1, 1, std::vector<std::uint8_t>(65540 * 4)),
               std::invalid_argument);
  EXPECT_THROW(Image::make(2, 2, 7, std::vector<std::uint8_t>(16)), std::invalid_argument);
  EXPECT_THROW(Image::make(2, 2, std::vector<std::uint8_t>(15)), std::invalid_argument);
  // Padded rows: the last row needs only its pixels, not the padding.
  const auto padded = Image::make(1, 2, 8, {1, 2, 3, 4, 0, 0, 0, 0, 5, 6, 7, 8});
  EXPECT_EQ(padded->pixel(0, 1), (Rgba8{5, 6, 7, 8}));
  EXPECT_FALSE(padded->isFullyTransparent());
  EXPECT_TRUE(Image::make(3, 1, std::vector<std::uint8_t>(12))->isFullyTransparent());
}

TEST(ImageTest, StraightAlphaRoundTripsEveryPremultipliedValue) {
  for (unsigned a = 0; a < 256; ++a) {
    for (unsigned c = 0; c <= a; ++c) {
      const Rgba8 p{static_cast<std::uint8_t>(c), 0, static_cast<std::uint8_t>(a - c),
                    static_cast<std::uint8_t>(a)};
      ASSERT_EQ(premultiplied(unpremultiplied(p)), p) << "c=" << c << " a=" << a;
    }
  }
  EXPECT_EQ(unpremultiplied({64, 32, 0, 128}), (Rgba8{128, 64, 0, 128}));
}

TEST(PngTest, RoundTripKeepsEveryPixel) {
  const auto image = gradientImage(61, 17);
  const auto decoded = decodePng(encodePng(*image));
  ASSERT_EQ(decoded->width(), 61u);
  ASSERT_EQ(decoded->height(), 17u);
  for (std::size_t y = 0; y < 17; ++y) {
    for (std::size_t x = 0; x < 61; ++x) {
      ASSERT_EQ(decoded->pixel(x, y), image->pixel(x, y)) << x << "," << y;
    }
  }
}

TEST(PngTest, FileHoldsStraightAlpha) {
  // Half-transparent pure red, premultiplied in memory, with padded rows.
  const auto image = Image::make(2, 1, 12, {128, 0, 0, 128, 0, 0, 0, 0, 9, 9, 9, 9});
  const auto encoded = encodePng(*image);

  png_image png{};
  png.version = PNG_IMAGE_VERSION;
  ASSERT_TRUE(png_image_begin_read_from_memory(&png, encoded.data(), encoded.size()));
  png.format = PNG_FORMAT_RGBA;
  std::vector<std::uint8_t> straight(PNG_IMAGE_SIZE(png));
  ASSERT_TRUE(png_image_finish_read(&png, nullptr, straight.data(), 0, nullptr));
  EXPECT_EQ(straight, (std::vector<std::uint8_t>{255, 0, 0, 128, 0, 0, 0, 0}));
}

TEST(PngTest, BadInputAndUnwritablePathsThrow) {
  const std::vector<std::uint8_t> garbage{0x89, 'P', 'N', 'G', 1, 2, 3};
  EXPECT_THROW(decodePng(garbage), PngError);
  auto truncated = encodePng(*gradientImage(8, 8));
  truncated.resize(truncated.size() / 2);
  EXPECT_THROW(decodePng(truncated), PngError);

  const auto folder = std::filesystem::temp_directory_path() / "frameloom-png-test";
  std::filesystem::remove_all(folder);
  std::filesystem::create_directories(folder);
  EXPECT_THROW(writePng(*gradientImage(2, 2), folder / "missing" / "out.png"), PngError);
  const auto path = folder / "out.png";
  writePng(*gradientImage(4, 3), path);
  EXPECT_EQ(readPng(path)->pixel(3, 2), gradientImage(4, 3)->pixel(3, 2));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder),
                          std::filesystem::directory_iterator()),
            1);
  std::filesystem::remove_all(folder);
}

std::shared_ptr<const Image> filled(std::size_t width, std::size_t height, Rgba8 color) {
  std::vector<std::uint8_t> pixels;
  for (std::size_t i = 0; i < width * height; ++i) {
    pixels.insert(pixels.end(), {color.r, color.g, color.b, color.a});
  }
  return Image::make(width, height, std::move(pixels));
}

TEST(ContactSheetTest, PlacesFramesRowByRowAndLeavesEmptyCellsTransparent) {
  const Rgba8 red{255, 0, 0, 255};
  const Rgba8 blue{0, 0, 255, 255};
  const Rgba8 green{0, 255, 0, 255};
  const auto sheet =
      makeContactSheet({filled(3, 2, red), filled(3, 2, blue), filled(1, 1, green)}, 2, 2);
  ASSERT_EQ(sheet->width(), 6u);
  ASSERT_EQ(sheet->height(), 4u);
  EXPECT_EQ(sheet->pixel(2, 1), red);
  EXPECT_EQ(sheet->pixel(3, 0), blue);
  EXPECT_EQ(sheet->pixel(0, 2), green);
  EXPECT_EQ(sheet->pixel(1, 2), Rgba8{});
  EXPECT_EQ(sheet->pixel(5, 3), Rgba8{});
}

TEST(ContactSheetTest, RefusesGridsThatCannotHoldTheFrames) {
  const auto frame = filled(250, 250, {});
  EXPECT_THROW(makeContactSheet({}, 1, 1), std::invalid_argument);
  EXPECT_THROW(makeContactSheet({frame, frame}, 1, 1), std::invalid_argument);
  EXPECT_THROW(makeContactSheet({frame}, 0, 1), std::invalid_argument);
  EXPECT_THROW(makeContactSheet({frame}, 66, 1), std::invalid_argument);
}

} // namespace
} // namespace frameloom::platform
