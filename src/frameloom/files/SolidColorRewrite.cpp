#include "frameloom/files/SolidColorRewrite.h"

#include "frameloom/files/JSONArray.h"

#include <charconv>

namespace frameloom {

namespace {

// The numbers of a solid or text colour array matched by its pattern, when the array holds
// nothing but ASCII digits, points, commas, brackets and JSON white space: then it is exactly
// the JSON array of three or four numbers the pattern describes, and reading the numbers directly
// gives what a JSON parser would (both round correctly). Other arrays, whose spaces or digits
// the pattern takes in their Unicode meaning, go through the JSON parser instead.
bool readPlainArray(std::string_view array, std::vector<double>& numbers) {
  for (const char c : array) {
    const bool plain = (c >= '0' && c <= '9') || c == '.' || c == ',' || c == '[' || c == ']' ||
                       c == ' ' || c == '\t' || c == '\n' || c == '\r';
    if (!plain) {
      return false;
    }
  }
  const char* p = array.data() + 1;
  const char* const end = array.data() + array.size() - 1;
  while (p < end) {
    if (*p >= '0' && *p <= '9') {
      double value = 0;
      p = std::from_chars(p, end, value).ptr;
      numbers.push_back(value);
    } else {
      ++p;
    }
  }
  return true;
}

} // namespace

bool SolidColorRewriter::rewrite(std::string_view array, std::string& out) {
  std::vector<double>& source = numbers_;
  source.clear();
  if (!readPlainArray(array, source)) {
    const nlohmann::json parsed = parseJSONArray(array);
    if (!parsed.is_array()) {
      return false;
    }
    for (const auto& element : parsed) {
      if (!element.is_number()) {
        return false;
      }
      source.push_back(element.get<double>());
    }
  }
  if (source.size() < 3) {
    return false;
  }
  const std::size_t entry = map_.replacementIndex(source);
  const std::size_t index = map_.colorIndex(entry);
  if (index >= formatted_.size()) {
    formatted_.resize(index + 1);
  }
  std::string& text = formatted_[index];
  if (text.empty()) {
    text = '[';
    text += formatComponents(map_.entries()[entry].replacement, precision_);
    text += ']';
  }
  out += text;
  return true;
}

} // namespace frameloom
