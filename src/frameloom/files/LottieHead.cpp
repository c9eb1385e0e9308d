#include <frameloom/files/DotLottieFile.h>

#include <frameloom/ziploom/Text.h>

#include <nlohmann/json.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace frameloom {
namespace {

using DecodingError = DotLottieFile::LottieHead::DecodingError;

// The encoding of JSON text told by its byte-order mark or, without one, by where the zero bytes
// of its first (ASCII) characters fall. Nothing for UTF-8.
struct WideEncoding {
  const char* name;
  std::size_t markLength;
};

std::optional<WideEncoding> wideEncoding(std::span<const std::uint8_t> b) {
  const std::size_t n = b.size();
  if (n >= 4 && b[0] == 0 && b[1] == 0 && b[2] == 0xFE && b[3] == 0xFF) {
    return WideEncoding{"UTF-32BE", 4};
  }
  if (n >= 4 && b[0] == 0xFF && b[1] == 0xFE && b[2] == 0 && b[3] == 0) {
    return WideEncoding{"UTF-32LE", 4};
  }
  if (n >= 2 && b[0] == 0xFE && b[1] == 0xFF) {
    return WideEncoding{"UTF-16BE", 2};
  }
  if (n >= 2 && b[0] == 0xFF && b[1] == 0xFE) {
    return WideEncoding{"UTF-16LE", 2};
  }
  if (n >= 4 && b[0] == 0 && b[1] == 0 && b[2] == 0 && b[3] != 0) {
    return WideEncoding{"UTF-32BE", 0};
  }
  if (n >= 4 && b[0] != 0 && b[1] == 0 && b[2] == 0 && b[3] == 0) {
    return WideEncoding{"UTF-32LE", 0};
  }
  if (n >= 2 && b[0] == 0 && b[1] != 0) {
    return WideEncoding{"UTF-16BE", 0};
  }
  if (n >= 2 && b[0] != 0 && b[1] == 0) {
    return WideEncoding{"UTF-16LE", 0};
  }
  return std::nullopt;
}

std::string toUTF8(std::span<const std::uint8_t> bytes, const WideEncoding& encoding) {
  auto text = ziploom::convertToUTF8(bytes.subspan(encoding.markLength), encoding.name);
  if (!text) {
    throw DecodingError(DecodingError::Code::notJSON,
                        std::string("the text is not valid ") + encoding.name);
  }
  return std::move(*text);
}

// Streams the document, keeping only the numbers of the top-level "w" and "h" and noting
// whether either had a value of another type.
class HeadReader : public nlohmann::json_sax<nlohmann::json> {
public:
  struct Field {
    std::optional<double> value;
    bool wrongType = false;
  };

  Field w;
  Field h;
  bool topLevelIsObject = false;
  std::optional<std::string> parseError;

  bool null() override { return other(); }
  bool boolean(bool) override { return other(); }
  bool number_integer(number_integer_t value) override {
    return number(static_cast<double>(value));
  }
  bool number_unsigned(number_unsigned_t value) override {
    return number(static_cast<double>(value));
  }
  bool number_float(number_float_t value, const string_t&) override { return number(value); }
  bool string(string_t&) override { return other(); }
  bool binary(binary_t&) override { return other(); }
  bool start_object(std::size_t) override {
    if (depth_ == 0) {
      topLevelIsObject = true;
    }
    other();
    ++depth_;
    return true;
  }
  bool key(string_t& key) override {
    if (depth_ == 1) {
      current_ = key == "w" ? &w : key == "h" ? &h : nullptr;
    }
    return true;
  }
  bool end_object() override {
    --depth_;
    return true;
  }
  bool start_array(std::size_t) override {
    other();
    ++depth_;
    return true;
  }
  bool end_array() override {
    --depth_;
    return true;
  }
  bool parse_error(std::size_t, const std::string&,
                   const nlohmann::detail::exception& error) override {
    parseError = error.what();
    return false;
  }

private:
  // A value at the top level of the object that is not a number.
  bool other() {
    if (depth_ == 1 && current_ != nullptr) {
      current_->value.reset();
      current_->wrongType = true;
      current_ = nullptr;
    }
    return true;
  }
  bool number(double value) {
    if (depth_ == 1 && current_ != nullptr) {
      current_->value = value;
      current_->wrongType = false;
      current_ = nullptr;
    }
    return true;
  }

  std::size_t depth_ = 0;
  Field* current_ = nullptr;
};

double fieldValue(const HeadReader::Field& field, const char* key) {
  if (field.wrongType) {
    throw DecodingError(DecodingError::Code::wrongType,
                        std::string("the value of \"") + key + "\" is not a number");
  }
  if (!field.value) {
    throw DecodingError(DecodingError::Code::missingKey,
                        std::string("no value for the key \"") + key + "\"");
  }
  return *field.value;
}

} // namespace

DotLottieFile::LottieHead::DecodingError::DecodingError(Code code, std::string message)
    : AnimationFileError("animation JSON: " + message), code_(code) {}

DotLottieFile::LottieHead DotLottieFile::LottieHead::decode(std::span<const std::uint8_t> json) {
  HeadReader reader;
  bool parsed = false;
  if (const auto encoding = wideEncoding(json)) {
    const std::string text = toUTF8(json, *encoding);
    parsed = nlohmann::json::sax_parse(text, &reader);
  } else {
    parsed = nlohmann::json::sax_parse(json.begin(), json.end(), &reader);
  }
  if (!parsed) {
    throw DecodingError(DecodingError::Code::notJSON,
                        "not valid JSON (" + reader.parseError.value_or("unknown error") + ")");
  }
  if (!reader.topLevelIsObject) {
    throw DecodingError(DecodingError::Code::wrongType, "the top level is not an object");
  }
  return LottieHead{fieldValue(reader.w, "w"), fieldValue(reader.h, "h")};
}

} // namespace frameloom
