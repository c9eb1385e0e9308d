#include "platform/system/Uuid.h"

#include <gtest/gtest.h>

#include <regex>
#include <set>

using frameloom::platform::Uuid;

TEST(Uuid, RandomIdentifiersAreUpperCaseVersionFourAndDistinct) {
  const std::regex form("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
  std::set<std::string> seen;
  for (int i = 0; i < 200; ++i) {
    std::string text = Uuid::random().uuidString();
    EXPECT_TRUE(std::regex_match(text, form)) << text;
    seen.insert(text);
  }
  EXPECT_EQ(seen.size(), 200u);
}
