#include "frameloom/ColorMap.h"
#include "frameloom/DotLottieFile.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

using frameloom::ColorComponents;
using frameloom::DotLottieFile;

namespace {

const ColorComponents A{0.2, 0.4, 0.6, 1.0};
const ColorComponents B{0.1, 0.3, 0.5, 0.8};

std::string replace(const std::string& text, std::vector<ColorComponents> colors = {A, B},
                    int precision = 3) {
  return DotLottieFile::replaceColors(text, std::move(colors), precision);
}

TEST(ColorKey, RoundsToThreeDecimalsAndFillsInAlpha) {
  EXPECT_EQ(frameloom::colorKey(std::vector<double>{1, 0.5, 0}), "1.0,0.5,0.0,1.0");
  EXPECT_EQ(frameloom::colorKey(std::vector<double>{0.9996, 0.12345, 0.0005, 1}),
            "1.0,0.123,0.001,1.0");
  EXPECT_EQ(frameloom::colorKey(std::vector<double>{-0.0004, 255, 12.5, 0.25}),
            "-0.0,255.0,12.5,0.25");
}

TEST(NormalizedRGBA, AddsOpaqueAlphaAndCutsToFour) {
  EXPECT_EQ(frameloom::normalizedRGBA(std::vector<double>{1, 0, 0}), (ColorComponents{1, 0, 0, 1}));
  EXPECT_EQ(frameloom::normalizedRGBA(std::vector<double>{1, 0, 0, 0.5, 9}),
            (ColorComponents{1, 0, 0, 0.5}));
  EXPECT_EQ(frameloom::normalizedRGBA(std::vector<double>{1, 0}), (ColorComponents{1, 0}));
}

TEST(FormatComponents, UsesFixedDecimals) {
  EXPECT_EQ(frameloom::formatComponents(A, 3), "0.200,0.400,0.600,1.000");
  EXPECT_EQ(frameloom::formatComponents(A, 0), "0,0,1,1");
  EXPECT_EQ(frameloom::formatComponents(std::vector<double>{0.5}, 40).size(), 42u);
}

TEST(ReplaceColors, RewritesOnlyTheSolidColourArray) {
  EXPECT_EQ(replace(R"({"c":{"a":0,"k":[1,0,0,1],"ix":4}})"),
            R"({"c":{"a":0,"k":[0.200,0.400,0.600,1.000],"ix":4}})");
  EXPECT_EQ(replace("\"c\": {\"a\": 0, \"k\": [ 1, 0, 0 ]}\n"),
            "\"c\": {\"a\": 0, \"k\": [0.200,0.400,0.600,1.000]}\n");
  EXPECT_EQ(replace(R"("c":{"k":[1,0,0,1]})", {A}, 0), R"("c":{"k":[0,0,1,1]})");
}

TEST(ReplaceColors, HandsOutColoursByFirstAppearanceAndRoundTheList) {
  // Red, green, red, blue with two colours: red A, green B, red A again, blue A.
  const std::string text = R"([{"c":{"k":[1,0,0]}},{"c":{"k":[0,1,0]}},)"
                           R"({"c":{"k":[1,0,0,1]}},{"c":{"k":[0,0,1]}}])";
  EXPECT_EQ(replace(text, {A, B}, 1), R"([{"c":{"k":[0.2,0.4,0.6,1.0]}},)"
                                      R"({"c":{"k":[0.1,0.3,0.5,0.8]}},)"
                                      R"({"c":{"k":[0.2,0.4,0.6,1.0]}},)"
                                      R"({"c":{"k":[0.2,0.4,0.6,1.0]}}])");
}

TEST(ReplaceColors, TreatsColoursEqualAfterRoundingAsOne) {
  const auto palette = DotLottieFile::palette(
      R"({"c":{"k":[1,0,0,1]}} {"c":{"k":[1,0,0]}} {"c":{"k":[0.9996,0,0,1]}})");
  ASSERT_EQ(palette.size(), 1u);
  EXPECT_EQ(palette[0].key, "1.0,0.0,0.0,1.0");
  EXPECT_EQ(palette[0].uses, 3u);
}

TEST(ReplaceColors, LeavesNearMissesAndKeyframesAlone) {
  const std::vector<std::string> untouched = {
      R"("c":{"a":1,"k":[{"t":0,"s":[1,0,0,1]}]})",
      R"("c":{"a":0,"k":[1.5,0,0,1]})",
      R"("c":{"a":0,"k":[.5,0,0]})",
      R"("c":{"a":0,"k":[-0,0,0]})",
      R"("c":{"a":0,"k":[1E0,0,0]})",
      R"("c":{"a":0,"k":[1,0]})",
      R"("c":{"a":0,"k":[1,0,0,1,1]})",
      R"("c":{"a":0,"k":[1,0,0)",
      R"("c":{"x":{"k":[1,0,0]}})",
      R"("C":{"k":[1,0,0]})",
      "\"c\":{\"k\":[1,\xC2\xA0"
      "0,0]}",                        // a no-break space matches \s but is not JSON
      "\"c\":{\"k\":[1,\xD9\xA1,0]}", // an Arabic-Indic digit matches \d but is not JSON
      R"("g":{"p":2,"k":{"a":1,"k":[{"t":0,"s":[0,1,0,0]}]}})",
      R"({"layers":[],"w":512,"h":512})",
  };
  for (const std::string& text : untouched) {
    EXPECT_EQ(replace(text), text);
  }
}

TEST(ReplaceColors, RunsTextPassesAfterSolidColours) {
  // The white text fill comes first in the text but after the solid colours in the hand-out
  // order, and it shares the white shape fill's replacement.
  const std::string text = R"({"fc":[1,1,1],"sc":[0,0,0,1],"s":[{"c":{"k":[1,1,1,1]}},)"
                           R"({"c":{"k":[0,1,0,1]}}]})";
  EXPECT_EQ(replace(text, {A, B, {0.7, 0.7, 0.7}}, 1),
            R"({"fc":[0.2,0.4,0.6,1.0],"sc":[0.7,0.7,0.7,1.0],"s":[{"c":{"k":[0.2,0.4,0.6,1.0]}},)"
            R"({"c":{"k":[0.1,0.3,0.5,0.8]}}]})");
}

TEST(ReplaceColors, WalksGradientStops) {
  const ColorComponents C{0.5, 0.5, 0.5, 0.25};
  // Three stops; the second offset doubles as the first stop's alpha, as in the original walk.
  EXPECT_EQ(replace(R"("g":{"p":3,"k":{"a":0,"k":[0,1,0,0,0.5,0,1,0,1,0,0,1]}})", {A, C}),
            R"("g":{"p":3,"k":{"a":0,"k":[0,0.2,0.4,0.6,1.0,0,0.5,0.5,0.5,0.25,0,1]}})");
  EXPECT_EQ(replace(R"("g":{"p":2,"k":{"a":0,"k":[0, 1,0,0, 1,0,0,1],"ix":9}})", {A, B}),
            R"("g":{"p":2,"k":{"a":0,"k":[0,0.2,0.4,0.6,1.0,0,0,1],"ix":9}})");
  // A stop whose next element is above 1.0001 has no alpha; non-numbers are kept as parsed.
  EXPECT_EQ(replace(R"("g":{"k":{"k":[0,1,1,1,2,"x",0,0,0]}})", {B}),
            R"("g":{"k":{"k":[0,0.1,0.3,0.5,2,"x",0,0,0]}})");
}

TEST(ReplaceColors, SharesOneMapAcrossSolidAndGradientPasses) {
  const auto palette =
      DotLottieFile::palette(R"({"g":{"k":{"k":[0,1,0,0,1]}},"c":{"k":[1,0,0,1]},"sc":[0,0,1]})");
  ASSERT_EQ(palette.size(), 2u);
  EXPECT_EQ(palette[0].key, "1.0,0.0,0.0,1.0");
  EXPECT_EQ(palette[0].uses, 2u);
  EXPECT_EQ(palette[1].key, "0.0,0.0,1.0,1.0");
}

TEST(ReplaceColors, KeepsEveryOtherByteOfIrregularText) {
  // Invalid UTF-8 before, between and after colours; replacement shifts later matches.
  const std::string prefix = "\xFF\xFE{\"c\":{\"k\":[1,0,0]}} \xC3";
  const std::string middle = "\x80\"fc\":[0,0,0] \xE2\x82";
  const std::string text = prefix + middle + "\"g\":{\"k\":{\"k\":[0,1,1,1]}}\xF0";
  EXPECT_EQ(replace(text, {A}, 1),
            "\xFF\xFE{\"c\":{\"k\":[0.2,0.4,0.6,1.0]}} \xC3\x80\"fc\":[0.2,0.4,0.6,1.0] \xE2\x82"
            "\"g\":{\"k\":{\"k\":[0,0.2,0.4,0.6]}}\xF0");
}

TEST(ReplaceColors, RefusesAnEmptyOrShortColourList) {
  EXPECT_THROW(replace("{}", {}), std::invalid_argument);
  EXPECT_THROW(replace("{}", {{1, 0}}), std::invalid_argument);
}

TEST(ReplaceColors, StaysLinearOnUnterminatedGradients) {
  // Every gradient start here would scan to the end of the text looking for a "]".
  std::string tail;
  for (int i = 0; i < 200000; ++i) {
    tail += R"("g":{"k":{"k":[0,)";
  }
  EXPECT_EQ(replace(R"("c":{"k":[1,0,0]})" + tail, {A}, 1),
            R"("c":{"k":[0.2,0.4,0.6,1.0]})" + tail);
}

} // namespace
