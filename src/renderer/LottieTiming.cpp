#include "renderer/LottieTiming.h"

#include <charconv>
#include <cmath>
#include <string>

namespace frameloom::renderer {

namespace {

// Walks the top-level members of a JSON object without building anything: nested values are
// skipped by counting brackets outside strings, so a document whose timeline comes after its
// layers costs one pass over the bytes and no allocation per value.
class TopLevelScanner {
public:
  explicit TopLevelScanner(std::string_view json) : json_(json) {}

  // Moves into the top-level object; false when the text does not start with one.
  bool enterObject() {
    skipSpace();
    return consume('{');
  }

  // Reads the next member's key and moves to its value; false at the end of the object or on
  // malformed text.
  bool nextKey(std::string& key) {
    skipSpace();
    if (!first_ && !consume(',')) {
      return false;
    }
    first_ = false;
    skipSpace();
    if (!readString(&key)) {
      return false;
    }
    skipSpace();
    if (!consume(':')) {
      return false;
    }
    skipSpace();
    return true;
  }

  // Reads the value into `number`, or none when it is not a number that fits a double; false on
  // malformed text.
  bool readNumber(std::optional<double>& number) {
    const std::size_t start = position_;
    if (!skipValue()) {
      return false;
    }
    const std::string_view token = json_.substr(start, position_ - start);
    double value = 0;
    const auto [end, error] = std::from_chars(token.data(), token.data() + token.size(), value);
    const bool isNumber = token[0] == '-' || (token[0] >= '0' && token[0] <= '9');
    number = isNumber && error == std::errc() && end == token.data() + token.size()
                 ? std::optional(value)
                 : std::nullopt;
    return true;
  }

  // Skips one value of any kind; false on malformed text. Inside an object or array only strings
  // and brackets are looked at: what lies between is the renderer's to judge.
  bool skipValue() {
    skipSpace();
    if (position_ >= json_.size()) {
      return false;
    }
    const char first = json_[position_];
    if (first == '"') {
      return readString(nullptr);
    }
    if (first != '{' && first != '[') {
      const std::size_t start = position_;
      while (position_ < json_.size() && !isDelimiter(json_[position_])) {
        ++position_;
      }
      return position_ > start;
    }
    std::size_t depth = 0;
    while (position_ < json_.size()) {
      const char c = json_[position_++];
      if (c == '"') {
        if (!skipString()) {
          return false;
        }
      } else if (c == '{' || c == '[') {
        ++depth;
      } else if ((c == '}' || c == ']') && --depth == 0) {
        return true;
      }
    }
    return false;
  }

private:
  static bool isDelimiter(char c) {
    return c == ',' || c == ':' || c == '{' || c == '}' || c == '[' || c == ']' || c == '"' ||
           c == ' ' || c == '\t' || c == '\r' || c == '\n';
  }

  void skipSpace() {
    while (position_ < json_.size() && (json_[position_] == ' ' || json_[position_] == '\t' ||
                                        json_[position_] == '\r' || json_[position_] == '\n')) {
      ++position_;
    }
  }

  // Moves past the rest of a string whose opening quote has been read.
  bool skipString() {
    while (position_ < json_.size()) {
      const char c = json_[position_++];
      if (c == '\\') {
        ++position_;
      } else if (c == '"') {
        return true;
      }
    }
    return false;
  }

  bool consume(char c) {
    if (position_ < json_.size() && json_[position_] == c) {
      ++position_;
      return true;
    }
    return false;
  }

  // Reads a string, keeping its text in `text` when given. Escapes of ASCII characters are
  // decoded, which is all the keys looked for need; others are kept as written.
  bool readString(std::string* text) {
    if (!consume('"')) {
      return false;
    }
    if (text) {
      text->clear();
    }
    while (position_ < json_.size()) {
      char c = json_[position_++];
      if (c == '"') {
        return true;
      }
      if (c == '\\') {
        if (position_ >= json_.size()) {
          return false;
        }
        c = json_[position_++];
        unsigned code = 0;
        if (c == 'u' && position_ + 4 <= json_.size() &&
            std::from_chars(json_.data() + position_, json_.data() + position_ + 4, code, 16).ptr ==
                json_.data() + position_ + 4) {
          position_ += 4;
          c = code < 0x80 ? static_cast<char>(code) : '?';
        }
      }
      if (text) {
        text->push_back(c);
      }
    }
    return false;
  }

  std::string_view json_;
  std::size_t position_ = 0;
  bool first_ = true;
};

} // namespace

std::optional<LottieTiming> readLottieTiming(std::string_view json) {
  TopLevelScanner scanner(json);
  if (!scanner.enterObject()) {
    return std::nullopt;
  }
  std::optional<double> inPoint;
  std::optional<double> outPoint;
  std::optional<double> frameRate;
  std::string key;
  while (!(inPoint && outPoint && frameRate) && scanner.nextKey(key)) {
    std::optional<double>* field = key == "ip"   ? &inPoint
                                   : key == "op" ? &outPoint
                                   : key == "fr" ? &frameRate
                                                 : nullptr;
    if (!(field ? scanner.readNumber(*field) : scanner.skipValue())) {
      break;
    }
  }
  if (!inPoint || !outPoint || !frameRate || !std::isfinite(*inPoint) ||
      !std::isfinite(*outPoint) || !std::isfinite(*frameRate) || *frameRate <= 0) {
    return std::nullopt;
  }
  return LottieTiming{*inPoint, *outPoint, *frameRate};
}

} // namespace frameloom::renderer
