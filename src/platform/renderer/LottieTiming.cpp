#include "platform/renderer/LottieDocument.h"

#include <nlohmann/json.hpp>

#include <cmath>

namespace frameloom::platform {

namespace {

// Collects the three top-level numbers and stops the parse once it has them.
class TimingHandler : public nlohmann::json_sax<nlohmann::json> {
public:
  std::optional<double> inPoint;
  std::optional<double> outPoint;
  std::optional<double> frameRate;

  bool null() override { return true; }
  bool boolean(bool) override { return true; }
  bool number_integer(number_integer_t value) override {
    return number(static_cast<double>(value));
  }
  bool number_unsigned(number_unsigned_t value) override {
    return number(static_cast<double>(value));
  }
  bool number_float(number_float_t value, const string_t&) override { return number(value); }
  bool string(string_t&) override { return true; }
  bool binary(binary_t&) override { return true; }
  bool start_object(std::size_t) override {
    ++depth_;
    return true;
  }
  bool key(string_t& key) override {
    if (depth_ == 1) {
      key_ = key;
    }
    return true;
  }
  bool end_object() override {
    --depth_;
    return true;
  }
  bool start_array(std::size_t) override {
    ++depth_;
    return true;
  }
  bool end_array() override {
    --depth_;
    return true;
  }
  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
    return false;
  }

private:
  bool number(double value) {
    if (depth_ == 1) {
      if (key_ == "ip") {
        inPoint = value;
      } else if (key_ == "op") {
        outPoint = value;
      } else if (key_ == "fr") {
        frameRate = value;
      }
    }
    return !(inPoint && outPoint && frameRate);
  }

  int depth_ = 0;
  std::string key_;
};

} // namespace

std::optional<LottieTiming> readLottieTiming(std::string_view json) {
  TimingHandler handler;
  nlohmann::json::sax_parse(json, &handler, nlohmann::json::input_format_t::json, false);
  if (!handler.inPoint || !handler.outPoint || !handler.frameRate ||
      !std::isfinite(*handler.inPoint) || !std::isfinite(*handler.outPoint) ||
      !std::isfinite(*handler.frameRate) || *handler.frameRate <= 0) {
    return std::nullopt;
  }
  return LottieTiming{*handler.inPoint, *handler.outPoint, *handler.frameRate};
}

} // namespace frameloom::platform
