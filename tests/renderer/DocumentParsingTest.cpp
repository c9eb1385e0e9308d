#include "renderer/DocumentParsing.h"

#include <gtest/gtest.h>

#include <string>

namespace frameloom::renderer {
namespace {

using Json = nlohmann::ordered_json;

// The tree must be the one nlohmann's own parser makes, member order and repeated names included,
// and text that is not one JSON value must give none.
TEST(DocumentParsing, MakesTheTreeNlohmannMakes) {
  std::string manyMembers = "{";
  for (int member = 0; member < 100; ++member) {
    // Every name twice, the second time further on: the hash lookup of large objects.
    manyMembers += "\"m" + std::to_string(member % 60) + "\":" + std::to_string(member) + ",";
  }
  manyMembers += "\"last\":[]}";
  for (const std::string& text :
       {std::string(R"({"ty":4,"ks":{"o":{"a":0,"k":100}},"nm":"layer"})"),
        std::string(R"({"a":1,"b":{"c":[1,2,{"d":null}]},"a":{"e":3}})"),
        std::string(R"([1,-2,18446744073709551615,2.5e-3,true,false,null,"t\u00e9xt",{},[]])"),
        std::string(R"("just a string")"), manyMembers}) {
    const auto parsed = parseDocument(text);
    ASSERT_TRUE(parsed) << text;
    EXPECT_EQ(parsed->dump(), Json::parse(text).dump()) << text;
  }
  for (const char* text : {"", "{", "{\"a\":}", "[1,]", "1 2", "{\"a\":1}}", "nul"}) {
    EXPECT_FALSE(parseDocument(text)) << text;
  }
}

} // namespace
} // namespace frameloom::renderer
