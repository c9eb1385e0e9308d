#include "RenderSource.h"

#include "ColorArguments.h"
#include "OutputFile.h"
#include "Usage.h"
#include <frameloom/cache/LottieCache.h>
#include <frameloom/platform/core/DecimalText.h>
#include <frameloom/renderer/Refusal.h>

#include <charconv>
#include <cmath>
#include <iostream>
#include <stdexcept>

namespace frameloom::tool {

namespace {

template <class Number>
std::pair<Number, Number> parsePair(const std::string& text, const char* what) {
  const auto x = text.find('x');
  Number first{};
  Number second{};
  const char* end = text.data() + text.size();
  if (x != std::string::npos) {
    const auto [firstEnd, firstError] = std::from_chars(text.data(), text.data() + x, first);
    const auto [secondEnd, secondError] = std::from_chars(text.data() + x + 1, end, second);
    if (firstError == std::errc() && firstEnd == text.data() + x && secondError == std::errc() &&
        secondEnd == end && first > 0 && second > 0 && std::isfinite(double(first)) &&
        std::isfinite(double(second))) {
      return {first, second};
    }
  }
  throw UsageError(std::string("invalid ") + what + " '" + text + "' (expected AxB, as in " +
                   (std::is_integral_v<Number> ? "4x3)" : "250x250)"));
}

template <typename Check>
CLI::Validator validator(Check check, const char* description) {
  return CLI::Validator(
      [check](std::string& text) {
        try {
          check(text);
          return std::string();
        } catch (const std::exception& error) {
          return std::string(error.what());
        }
      },
      description);
}

} // namespace

std::pair<double, double> parseSize(const std::string& text, const char* what) {
  return parsePair<double>(text, what);
}

std::pair<std::size_t, std::size_t> parseGrid(const std::string& text, const char* what) {
  return parsePair<std::size_t>(text, what);
}

CLI::Validator colorListCheck() {
  return validator([](const std::string& text) { parseColorList(text); }, "#RGB,...");
}

CLI::Validator sizeCheck() {
  return validator([](const std::string& text) { parseSize(text, "size"); }, "WxH");
}

CLI::Validator gridCheck() {
  return validator([](const std::string& text) { parseGrid(text, "grid"); }, "COLSxROWS");
}

CLI::Validator numberCheck(double low, double high) {
  return validator(
      [low, high](const std::string& text) {
        double value = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
        if (error != std::errc() || end != text.data() + text.size() || !(value >= low) ||
            !(value <= high)) {
          throw std::invalid_argument("'" + text + "' is not a number from " +
                                      platform::shortestDecimal(low) + " to " +
                                      platform::shortestDecimal(high));
        }
      },
      "NUMBER");
}

void addOutput(CLI::App& command, std::string& output, const std::string& description,
               std::function<void()> write) {
  command.add_option("--output", output, description)->required();
  command.callback([&output, write = std::move(write)] {
    write();
    if (!isStandardStream(output)) {
      std::cout << output << "\n";
    }
  });
}

std::optional<std::vector<platform::Color>> colorsOf(const std::string& list) {
  if (list.empty()) {
    return std::nullopt;
  }
  std::vector<platform::Color> colors;
  for (const std::vector<double>& c : parseColorList(list)) {
    colors.emplace_back(c[0], c[1], c[2], c[3]);
  }
  return colors;
}

asio::awaitable<DotLottieActor::Animation>
loadSource(const std::string& source, platform::Size size,
           std::optional<std::vector<platform::Color>> colors) {
  DotLottieActor::Animation animation;
  if (platform::Url::isHttp(source)) {
    if (colors) {
      throw UsageError("--colors needs a local .lottie file, not a URL");
    }
    const auto url = platform::Url::parse(source);
    if (!url) {
      throw UsageError("invalid URL '" + source + "'");
    }
    LottieCache::Data bytes;
    try {
      bytes = co_await LottieCache::shared().loadLottie(*url);
    } catch (const std::exception& error) {
      throw std::runtime_error(source + ": " + error.what());
    }
    animation = co_await DotLottieActor::load(*bytes, size);
  } else {
    if (source.find("://") != std::string::npos) {
      throw UsageError("'" + source + "' is neither a file nor an http(s) URL");
    }
    animation =
        co_await DotLottieActor::load(platform::Url::fromFilePath(source), size, std::move(colors));
  }
  if (!animation) {
    throw std::runtime_error("cannot load " + source);
  }
  if (const auto refusal = animation->refusal()) {
    co_await DotLottieActor::shared().destroy(animation);
    throw std::runtime_error(source + ": " + renderer::refusalMessage(*refusal));
  }
  co_return animation;
}

asio::awaitable<std::shared_ptr<const platform::Image>>
renderFrame(const DotLottieActor::Animation& animation, float frame, const std::string& source) {
  auto image = co_await DotLottieActor::shared().seek(frame, animation);
  if (!image) {
    throw std::runtime_error("no image for frame " + platform::shortestDecimal(frame) + " of " +
                             source);
  }
  co_return image;
}

} // namespace frameloom::tool
