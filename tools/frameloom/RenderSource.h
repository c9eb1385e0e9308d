#pragma once

#include <frameloom/actor/DotLottieActor.h>
#include <frameloom/platform/graphics/Color.h>
#include <frameloom/platform/graphics/Image.h>

#include <CLI/CLI.hpp>
#include <asio/awaitable.hpp>

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace frameloom::tool {

// "AxB" as two positive finite numbers; throws UsageError naming `what` otherwise.
std::pair<double, double> parseSize(const std::string& text, const char* what);
std::pair<std::size_t, std::size_t> parseGrid(const std::string& text, const char* what);

// Validators that make a malformed value a usage error while the line is parsed.
CLI::Validator colorListCheck();
CLI::Validator sizeCheck();
CLI::Validator gridCheck();
CLI::Validator numberCheck(double low, double high);

// Adds the required --output option, described by `description`, and makes the command run
// `write` and then print the name of the file written (nothing for standard output).
void addOutput(CLI::App& command, std::string& output, const std::string& description,
               std::function<void()> write);

// The colours of a --colors list, or none for an empty list.
std::optional<std::vector<platform::Color>> colorsOf(const std::string& list);

// Loads SOURCE (a .lottie path or an http(s) URL) through the actor at `size`, recoloured when
// `colors` are given. Runs on the main loop; throws UsageError for a URL of another scheme or
// colours with a URL, and the library's errors with the source named once, among them the
// renderer's refusal of a document beyond its budgets.
asio::awaitable<DotLottieActor::Animation>
loadSource(const std::string& source, platform::Size size,
           std::optional<std::vector<platform::Color>> colors);

// Renders frame `frame`; throws when the renderer gives no image.
asio::awaitable<std::shared_ptr<const platform::Image>>
renderFrame(const DotLottieActor::Animation& animation, float frame, const std::string& source);

// Destroys the animation however `work` ends.
template <typename Work>
asio::awaitable<void> usingAnimation(DotLottieActor::Animation animation, Work work) {
  std::exception_ptr failure;
  try {
    co_await work(animation);
  } catch (...) {
    failure = std::current_exception();
  }
  co_await DotLottieActor::shared().destroy(animation);
  if (failure) {
    std::rethrow_exception(failure);
  }
}

} // namespace frameloom::tool
