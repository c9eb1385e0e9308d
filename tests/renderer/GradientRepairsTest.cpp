#include "renderer/GradientRepairs.h"
#include <frameloom/renderer/DotLottieAnimation.h>

#include "LottieSamples.h"
#include "support/Files.h"

#include <gtest/gtest.h>

namespace frameloom::renderer {
using namespace frameloom::platform;
namespace {

using testing::bytesOf;
using testing::Json;

// A 16 x 8 composition filled by a gradient from left to right with the given stops.
Json gradientDocument(int colorStops, const Json& stops) {
  Json layer = testing::sampleLayer(4, {0, 30, 30});
  Json fill = Json::parse(R"({"ty":"gf","o":{"a":0,"k":100},"r":1,"t":1,)"
                          R"("s":{"a":0,"k":[0,4]},"e":{"a":0,"k":[16,4]}})");
  fill["g"] = {{"p", colorStops}, {"k", {{"a", 0}, {"k", stops}}}};
  layer["shapes"] = Json::array(
      {Json::parse(R"({"ty":"rc","p":{"a":0,"k":[8,4]},"s":{"a":0,"k":[16,8]},"r":{"a":0,"k":0}})"),
       fill});
  Json document = Json::parse(testing::sampleLottie(16, 8, {}, {0, 30, 30}));
  document["layers"] = Json::array({layer});
  return document;
}

TEST(GradientRepairsTest, AColourFadingOutTurnsIntoTheNextWhileItFades) {
  // Opaque red to transparent blue: half way, half red and half blue at half opacity.
  const Json document = gradientDocument(2, {0, 1, 0, 0, 1, 0, 0, 1, 0, 1, 1, 0});
  DotLottieAnimation animation(bytesOf(document.dump()), AnimationConfig{});
  const auto image = animation.tick();
  ASSERT_TRUE(image);
  const Rgba8 middle = image->pixel(8, 4);
  EXPECT_NEAR(middle.a, 128, 24);
  EXPECT_NEAR(middle.r, middle.b, 24) << "red " << int(middle.r) << ", blue " << int(middle.b);
}

TEST(GradientRepairsTest, OpaqueKeyframedOrUnreadableGradientsStayAsTheyAre) {
  for (const Json& stops : {
           Json{0, 1, 0, 0, 1, 0, 0, 1},                  // no opacity stops
           Json{0, 1, 0, 0, 1, 0, 0, 1, 0, 1, 1, 1},      // all opaque
           Json{1, 1, 0, 0, 0, 0, 0, 1, 0, 1, 1, 0},      // offsets going back
           Json{0, 1, 0, 0, 1, 0, 0, 1, 0, 1, 1, "half"}, // not a number
           Json{0, 1, 0, 0, 1, 0, 0, 1, 0, 1, 1},         // an opacity stop cut short
       }) {
    Json document = gradientDocument(2, stops);
    EXPECT_FALSE(opacityStopsResampled(document)) << stops;
  }
  Json keyframed = gradientDocument(2, Json::array());
  keyframed["layers"][0]["shapes"][1]["g"]["k"] = Json::parse(
      R"({"a":1,"k":[{"t":0,"s":[0,1,0,0,1,0,0,1,0,1,1,0]},{"t":9,"s":[0,1,0,0,1,0,0,1,0,1,1,0]}]})");
  EXPECT_FALSE(opacityStopsResampled(keyframed));
}

} // namespace
} // namespace frameloom::renderer
