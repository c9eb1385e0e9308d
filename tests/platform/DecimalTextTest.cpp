#include <frameloom/platform/core/DecimalText.h>

#include <gtest/gtest.h>

#include <charconv>
#include <limits>
#include <string>

using frameloom::platform::shortestDecimal;
using frameloom::platform::WholeNumbers;

// Shortest round-trip digits, always positional, in both widths; whole numbers with or without
// their ".0".
TEST(DecimalText, WritesShortestDigitsPositionally) {
  struct Case {
    double value;
    const char* bare;
    const char* withPoint;
  };
  const Case cases[] = {
      {0.0, "0", "0.0"},
      {-0.0, "-0", "-0.0"},
      {2.0, "2", "2.0"},
      {60.0, "60", "60.0"},
      {0.2, "0.2", "0.2"},
      {-1.5, "-1.5", "-1.5"},
      {100000.0, "100000", "100000.0"},
      {0.0001, "0.0001", "0.0001"},
      {123.456, "123.456", "123.456"},
      {1e21, "1000000000000000000000", "1000000000000000000000.0"},
      {1.25e-7, "0.000000125", "0.000000125"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(shortestDecimal(c.value), c.bare) << c.bare;
    EXPECT_EQ(shortestDecimal(c.value, WholeNumbers::withPoint), c.withPoint) << c.bare;
  }
}

TEST(DecimalText, FloatsUseTheirOwnShortestDigits) {
  EXPECT_EQ(shortestDecimal(0.1f), "0.1");
  EXPECT_EQ(shortestDecimal(16.666666f), "16.666666");
  EXPECT_EQ(shortestDecimal(1e30f, WholeNumbers::withPoint), "1000000000000000000000000000000.0");
  EXPECT_EQ(shortestDecimal(std::numeric_limits<float>::infinity(), WholeNumbers::withPoint),
            "inf");
  EXPECT_EQ(shortestDecimal(-std::numeric_limits<float>::infinity()), "-inf");
  EXPECT_EQ(shortestDecimal(std::numeric_limits<double>::quiet_NaN()), "nan");
}

// Every written number reads back as the value it was made from, subnormals included.
template <typename Number>
Number readBack(const std::string& text) {
  Number value{};
  std::from_chars(text.data(), text.data() + text.size(), value);
  return value;
}

TEST(DecimalText, RoundTrips) {
  for (const double value : {3.0e-300, 1.7976931348623157e308, 5e-324, 0.30000000000000004}) {
    EXPECT_EQ(readBack<double>(shortestDecimal(value)), value);
  }
  for (const float value : {1.17549435e-38f, 3.40282347e38f, 1.0e-45f, 0.33333334f}) {
    EXPECT_EQ(readBack<float>(shortestDecimal(value)), value);
  }
}
