# Writes INPUT as a C++ source defining frameloom::tool::demoAnimationJson() into OUTPUT.
# Run as: cmake -DINPUT=... -DOUTPUT=... -P EmbedAsset.cmake
file(READ "${INPUT}" hex HEX)
string(LENGTH "${hex}" hex_length)
math(EXPR size "${hex_length} / 2")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
# Sixteen bytes to a line.
string(REPEAT "0x[0-9a-f][0-9a-f]," 16 line_pattern)
string(REGEX REPLACE "(${line_pattern})" "\\1\n" bytes "${bytes}")
file(WRITE "${OUTPUT}.tmp" "// Generated from ${INPUT} by EmbedAsset.cmake.
#include \"DemoAnimation.h\"

namespace frameloom::tool {
namespace {
constexpr unsigned char bytes[${size}] = {
${bytes}
};
} // namespace

std::string_view demoAnimationJson() {
  return {reinterpret_cast<const char*>(bytes), sizeof bytes};
}

} // namespace frameloom::tool
")
file(RENAME "${OUTPUT}.tmp" "${OUTPUT}")
