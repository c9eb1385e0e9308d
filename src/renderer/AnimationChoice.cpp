#include <frameloom/renderer/AnimationChoice.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>

namespace frameloom::renderer {

namespace {

std::string lowercased(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return result;
}

bool endsWithJson(std::string_view path) {
  return path.size() >= 5 && lowercased(path.substr(path.size() - 5)) == ".json";
}

// The id of the first animation the manifest lists, when there is a readable one.
std::optional<std::string> manifestAnimationId(std::string_view manifest) {
  const auto json = nlohmann::json::parse(manifest, nullptr, false);
  if (!json.is_object() || !json.contains("animations") || !json["animations"].is_array() ||
      json["animations"].empty() || !json["animations"][0].is_object()) {
    return std::nullopt;
  }
  const auto& first = json["animations"][0];
  if (!first.contains("id") || !first["id"].is_string()) {
    return std::nullopt;
  }
  return first["id"].get<std::string>();
}

std::optional<std::size_t> indexOf(std::span<const std::string> paths, std::string_view path) {
  const auto found = std::find(paths.begin(), paths.end(), path);
  if (found == paths.end()) {
    return std::nullopt;
  }
  return static_cast<std::size_t>(found - paths.begin());
}

} // namespace

bool isSizeReaderAnimation(std::string_view path) {
  const std::string lower = lowercased(path);
  return lower.starts_with("animations/") && lower.ends_with(".json");
}

bool isRecolouringAnimation(std::string_view path) {
  return path.find("animations/") != std::string_view::npos && endsWithJson(path);
}

std::optional<std::size_t> rendererAnimation(std::span<const std::string> filePaths,
                                             std::optional<std::string_view> manifest) {
  if (const auto id = manifest ? manifestAnimationId(*manifest) : std::nullopt) {
    for (const char* folder : {"animations/", "a/"}) {
      if (const auto index = indexOf(filePaths, folder + *id + ".json")) {
        return index;
      }
    }
  }
  const auto found = std::find_if(filePaths.begin(), filePaths.end(), [](const std::string& path) {
    return (path.starts_with("animations/") || path.starts_with("a/")) && endsWithJson(path);
  });
  if (found == filePaths.end()) {
    return std::nullopt;
  }
  return static_cast<std::size_t>(found - filePaths.begin());
}

} // namespace frameloom::renderer
