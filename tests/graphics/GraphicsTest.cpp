#include "platform/graphics/Color.h"
#include "platform/graphics/ContactSheet.h"
#include "platform/graphics/Image.h"
#include "platform/graphics/Png.h"
#include "platform/graphics/TraitCollection.h"

#include <gtest/gtest.h>
#include <png.h>

#include <cmath>
#include <filesystem>
#include <stdexcept>
#include <thread>

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

std::shared_ptr<const Image> filled(std::size_t width, std::size_t height, Rgba8 c) {
  std::vector<std::uint8_t> pixels;
  for (std::size_t i = 0; i < width * height; ++i) {
    pixels.insert(pixels.end(), {c.r, c.g, c.b, c.a});
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
  const auto decoded = decodePng(encoded);
  for (std::size_t i = 0; i < 61 * 17; ++i) {
    const Rgba8 straight{file[i * 4], file[i * 4 + 1], file[i * 4 + 2], file[i * 4 + 3]};
    ASSERT_EQ(straight, unpremultiplied(image->pixel(i % 61, i / 61))) << i;
    ASSERT_EQ(decoded->pixel(i % 61, i / 61), image->pixel(i % 61, i / 61)) << i;
  }
}

TEST(PngTest, BadInputAndUnwritablePathsThrowAndLeaveNoFiles) {
  EXPECT_THROW(decodePng(std::vector<std::uint8_t>{0x89, 'P', 'N', 'G', 1, 2, 3}), PngError);
  auto truncated = encodePng(*gradientImage(8, 8));
  truncated.resize(truncated.size() / 2);
  EXPECT_THROW(decodePng(truncated), PngError);
  const auto folder = std::filesystem::temp_directory_path() / "frameloom-png-test";
  std::filesystem::create_directories(folder);
  EXPECT_THROW(writePng(*gradientImage(2, 2), folder / "missing" / "out.png"), PngError);
  writePng(*gradientImage(4, 3), folder / "out.png");
  EXPECT_EQ(readPng(folder / "out.png")->pixel(3, 2), gradientImage(4, 3)->pixel(3, 2));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 1);
  std::filesystem::remove_all(folder);
}

TEST(ContactSheetTest, PlacesFramesRowByRowAndRefusesGridsThatCannotHoldThem) {
  const Rgba8 red{255, 0, 0, 255};
  const Rgba8 blue{0, 0, 255, 255};
  const auto sheet =
      makeContactSheet({filled(3, 2, red), filled(3, 2, blue), filled(1, 1, red)}, 2, 2);
  ASSERT_EQ(std::pair(sheet->width(), sheet->height()),
            (std::pair<std::size_t, std::size_t>(6, 4)));
  EXPECT_EQ(sheet->pixel(2, 1), red);
  EXPECT_EQ(sheet->pixel(3, 0), blue);
  EXPECT_EQ(sheet->pixel(0, 2), red);
  EXPECT_EQ(sheet->pixel(1, 2), Rgba8{});
  EXPECT_EQ(sheet->pixel(5, 3), Rgba8{});
  const auto frame = filled(250, 250, {});
  for (auto [frames, columns] :
       std::vector<std::pair<std::size_t, std::size_t>>{{0, 1}, {2, 1}, {1, 0}, {1, 66}}) {
    EXPECT_THROW(makeContactSheet(std::vector(frames, frame), columns, 1), std::invalid_argument);
  }
}

TEST(ColorTest, ResolvesTheDarkVariantOnlyForDarkAndClampsComponents) {
  using Style = TraitCollection::UserInterfaceStyle;
  const Color color = Color::dynamic(Color(1, 0, 0), Color(0, 0, 1, 0.5));
  EXPECT_EQ(color.rgbaArray({Style::unspecified}), (std::vector<double>{1, 0, 0, 1}));
  EXPECT_EQ(color.rgbaArray({Style::dark}), (std::vector<double>{0, 0, 1, 0.5}));
  EXPECT_EQ(Color(-1, 2, NAN, INFINITY).rgbaArray({}), (std::vector<double>{0, 1, 0, 0}));
  // The current traits belong to the thread and to the innermost scope.
  {
    ScopedTraitCollection dark({Style::dark});
    Style elsewhere = Style::light;
    std::thread([&] { elsewhere = TraitCollection::current().userInterfaceStyle; }).join();
    EXPECT_EQ(elsewhere, Style::unspecified);
    EXPECT_EQ(TraitCollection::current().userInterfaceStyle, Style::dark);
  }
  EXPECT_EQ(TraitCollection::current().userInterfaceStyle, Style::unspecified);
}

} // namespace
} // namespace frameloom::platform
