#include <frameloom/files/ColorMap.h>
#include <frameloom/files/DotLottieFile.h>

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

TEST(ColorIdentity, KeysRoundToThreeDecimalsAndComponentsUsePrintfDigits) {
  EXPECT_EQ(frameloom::colorKey(std::vector<double>{0.9996, 0.12345, 0.0005}),
            "1.0,0.123,0.001,1.0");
  EXPECT_EQ(frameloom::colorKey(std::vector<double>{-0.0004, 255, 12.5, 0.25}),
            "-0.0,255.0,12.5,0.25");
  EXPECT_EQ(frameloom::normalizedRGBA(std::vector<double>{1, 0, 0, 0.5, 9}),
            (ColorComponents{1, 0, 0, 0.5}));
  EXPECT_EQ(frameloom::formatComponents(A, 0), "0,0,1,1");
  EXPECT_EQ(frameloom::formatComponents(std::vector<double>{0.0625, 2.5, 1e20}, -1),
            "0.062500,2.500000,100000000000000000000.000000");
  EXPECT_EQ(frameloom::formatComponents(std::vector<double>{0.5}, 40).size(), 42u);
}

TEST(ReplaceColors, RewritesOnlyMatchedArraysInHandOutOrder) {
  // Three or four components in, four out; white space outside the brackets kept; red, green,
  // red again (also after rounding), blue with two colours: A, B, A, A.
  EXPECT_EQ(replace("\"c\": {\"a\": 0, \"k\": [ 1, 0, 0 ],\"ix\":4}\n"),
            "\"c\": {\"a\": 0, \"k\": [0.200,0.400,0.600,1.000],\"ix\":4}\n");
  EXPECT_EQ(replace(R"([{"c":{"k":[1,0,0]}},{"c":{"k":[0,1,0]}},)"
                    R"({"c":{"k":[0.9996,0,0,1]}},{"c":{"k":[0,0,1]}}])",
                    {A, B}, 1),
            R"([{"c":{"k":[0.2,0.4,0.6,1.0]}},{"c":{"k":[0.1,0.3,0.5,0.8]}},)"
            R"({"c":{"k":[0.2,0.4,0.6,1.0]}},{"c":{"k":[0.2,0.4,0.6,1.0]}}])");
  // Text colours come after every solid colour, and share a solid colour's replacement.
  EXPECT_EQ(replace(R"({"fc":[1,1,1],"sc":[0,0,0,1],"s":[{"c":{"k":[1,1,1,1]}},)"
                    R"({"c":{"k":[0,1,0,1]}}]})",
                    {A, B, {0.7, 0.7, 0.7}}, 1),
            R"({"fc":[0.2,0.4,0.6,1.0],"sc":[0.7,0.7,0.7,1.0],"s":[{"c":{"k":[0.2,0.4,0.6,1.0]}},)"
            R"({"c":{"k":[0.1,0.3,0.5,0.8]}}]})");
  // The gradient's "-0" alpha is the integer 0 to a JSON parser, so it keys as 0.0.
  const auto palette = DotLottieFile::palette(
      R"({"g":{"k":{"k":[0,1,0,0,1,1,1,1,1,-0]}},"c":{"k":[1,0,0,1]},"sc":[0,0,1]})");
  std::vector<std::pair<std::string, std::size_t>> found;
  for (const auto& color : palette) {
    found.emplace_back(color.key, color.uses);
  }
  EXPECT_EQ(found, (decltype(found){
                       {"1.0,0.0,0.0,1.0", 2}, {"0.0,0.0,1.0,1.0", 1}, {"1.0,1.0,1.0,0.0", 1}}));
}

TEST(ReplaceColors, LeavesNearMissesAndKeyframesAlone) {
  for (const std::string text :
       {R"("c":{"a":1,"k":[{"t":0,"s":[1,0,0,1]}]})", R"("c":{"a":0,"k":[1.5,0,0,1]})",
        R"("c":{"k":[.5,0,0]})", R"("c":{"k":[-0,0,0]})", R"("c":{"k":[1E0,0,0]})",
        R"("c":{"k":[1,0]})", R"("c":{"k":[1,0,0,1,1]})", R"("c":{"k":[1,0,0)",
        R"("c":{"x":{"k":[1,0,0]}})", R"("C":{"k":[1,0,0]})",
        "\"c\":{\"k\":[1,\xC2\xA0" // a no-break space matches \s but is not JSON
        "0,0]}",
        "\"c\":{\"k\":[1,\xD9\xA1,0]}", // an Arabic-Indic digit matches \d but is not JSON
        "\"c\":{\"k\":[1,\v0,0]}", R"("g":{"p":2,"k":{"a":1,"k":[{"t":0,"s":[0,1,0,0]}]}})",
        R"("g":{"k":{"k":[0,1,0,0,]}})", R"("g":{"k":{"k":[01,1,0,0]}})"}) {
    EXPECT_EQ(replace(text), text);
  }
}

TEST(ReplaceColors, WalksGradientStopsAndWritesTheArrayCompactly) {
  const ColorComponents C{0.5, 0.5, 0.5, 0.25};
  const std::vector<std::pair<std::string, std::string>> cases = {
      // The second offset doubles as the first stop's alpha.
      {"[0,1,0,0,0.5,0,1,0,1,0,0,1]", "[0,0.2,0.4,0.6,1.0,0,0.5,0.5,0.5,0.25,0,1]"},
      {"[0, 1,0,0, 1,0,0,1]", "[0,0.2,0.4,0.6,1.0,0,0,1]"},
      // No alpha above 1.0001; other values kept as the JSON writer prints them.
      {R"([0.50,1,1,1,2,"x",-0,-1.250,3])", R"([0.5,0.2,0.4,0.6,2,"x",0,-1.25,3])"},
      {"[ 0.50 , 1 , 1 , 1 , 2 , -0 , -1.250 ]", "[0.5,0.2,0.4,0.6,2,0,-1.25]"},
      {"[1e0,1,0,0,-0,0.5E1]", "[1.0,0.2,0.4,0.6,1.0,5.0]"},
      {"[ ]", "[]"}};
  for (const auto& [array, expected] : cases) {
    const std::string prefix = R"("g":{"p":3,"k":{"a":0,"k":)";
    EXPECT_EQ(replace(prefix + array + "}}", {A, C}), prefix + expected + "}}") << array;
  }
}

TEST(ReplaceColors, KeepsEveryOtherByteOfIrregularText) {
  // Invalid UTF-8 before, between and after colours; replacement shifts later matches.
  EXPECT_EQ(replace("\xFF\xFE{\"c\":{\"k\":[1,0,0]}} \xC3\x80\"fc\":[0,0,0] \xE2\x82"
                    "\"g\":{\"k\":{\"k\":[0,1,1,1]}}\xF0",
                    {A}, 1),
            "\xFF\xFE{\"c\":{\"k\":[0.2,0.4,0.6,1.0]}} \xC3\x80\"fc\":[0.2,0.4,0.6,1.0] \xE2\x82"
            "\"g\":{\"k\":{\"k\":[0,0.2,0.4,0.6]}}\xF0");
  EXPECT_EQ(replace(R"({"layers":[],"w":512,"h":512})"), R"({"layers":[],"w":512,"h":512})");
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
