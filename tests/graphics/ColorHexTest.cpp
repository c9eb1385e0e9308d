#include <frameloom/platform/graphics/Color.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace frameloom::platform {
namespace {

TEST(ColorFromHex, ReadsEveryWrittenForm) {
  const struct {
    const char* text;
    Color expected;
  } cases[] = {
      {"#f80", Color(1, 0x88 / 255.0, 0)},
      {"#FF8800", Color(1, 0x88 / 255.0, 0)},
      {"#ff880080", Color(1, 0x88 / 255.0, 0, 0x80 / 255.0)},
      {"#000000ff", Color(0, 0, 0, 1)},
  };
  for (const auto& item : cases) {
    EXPECT_EQ(Color::fromHex(item.text), item.expected) << item.text;
  }
}

TEST(ColorFromHex, RefusesAnythingElseNamingTheText) {
  for (const char* text :
       {"", "#", "ff8800", "#ff88", "#ff8800f", "#gg8800", "#ff8800 ", "#ff8800ff0"}) {
    try {
      Color::fromHex(text);
      ADD_FAILURE() << "accepted \"" << text << "\"";
    } catch (const std::invalid_argument& error) {
      EXPECT_NE(std::string(error.what()).find('"' + std::string(text) + '"'), std::string::npos);
    }
  }
}

} // namespace
} // namespace frameloom::platform
