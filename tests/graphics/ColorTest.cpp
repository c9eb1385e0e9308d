#include "platform/graphics/Color.h"
#include "platform/graphics/TraitCollection.h"

#include <gtest/gtest.h>

#include <cmath>
#include <thread>

namespace frameloom::platform {
namespace {

using Style = TraitCollection::UserInterfaceStyle;

TEST(ColorTest, ResolvesDarkVariantOnlyForDarkStyle) {
  const Color color = Color::dynamic(Color(1, 0, 0), Color(0, 0, 1, 0.5));
  EXPECT_EQ(color.rgbaArray({Style::unspecified}), (std::vector<double>{1, 0, 0, 1}));
  EXPECT_EQ(color.rgbaArray({Style::light}), (std::vector<double>{1, 0, 0, 1}));
  EXPECT_EQ(color.rgbaArray({Style::dark}), (std::vector<double>{0, 0, 1, 0.5}));
  EXPECT_EQ(Color(0.2, 0.4, 0.6).rgbaArray({Style::dark}), (std::vector<double>{0.2, 0.4, 0.6, 1}));
}

TEST(ColorTest, ClampsComponentsIntoUnitRange) {
  EXPECT_EQ(Color(-1, 2, NAN, INFINITY).rgbaArray({}), (std::vector<double>{0, 1, 0, 0}));
}

TEST(TraitCollectionTest, CurrentIsPerThreadAndScoped) {
  EXPECT_EQ(TraitCollection::current().userInterfaceStyle, Style::unspecified);
  {
    ScopedTraitCollection dark({Style::dark});
    EXPECT_EQ(TraitCollection::current().userInterfaceStyle, Style::dark);
    Style seenElsewhere = Style::light;
    std::thread([&] { seenElsewhere = TraitCollection::current().userInterfaceStyle; }).join();
    EXPECT_EQ(seenElsewhere, Style::unspecified);
    {
      ScopedTraitCollection light({Style::light});
      EXPECT_EQ(TraitCollection::current().userInterfaceStyle, Style::light);
    }
    EXPECT_EQ(TraitCollection::current().userInterfaceStyle, Style::dark);
  }
  EXPECT_EQ(TraitCollection::current().userInterfaceStyle, Style::unspecified);
}

} // namespace
} // namespace frameloom::platform
