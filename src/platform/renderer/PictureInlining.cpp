#include "platform/renderer/PictureInlining.h"

#include <nlohmann/json.hpp>

namespace frameloom::platform {

namespace {

std::string_view mediaType(std::string_view bytes) {
  if (bytes.starts_with("\x89PNG")) {
    return "image/png";
  }
  if (bytes.starts_with("\xFF\xD8\xFF")) {
    return "image/jpeg";
  }
  if (bytes.starts_with("GIF8")) {
    return "image/gif";
  }
  if (bytes.size() >= 12 && bytes.starts_with("RIFF") && bytes.substr(8, 4) == "WEBP") {
    return "image/webp";
  }
  return "application/octet-stream";
}

std::string_view fileName(std::string_view path) {
  const auto slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

} // namespace

std::string base64Encoded(std::string_view bytes) {
  static constexpr char alphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string encoded;
  encoded.reserve((bytes.size() + 2) / 3 * 4);
  std::size_t i = 0;
  for (; i + 2 < bytes.size(); i += 3) {
    const unsigned triple = static_cast<unsigned char>(bytes[i]) << 16 |
                            static_cast<unsigned char>(bytes[i + 1]) << 8 |
                            static_cast<unsigned char>(bytes[i + 2]);
    encoded += alphabet[triple >> 18];
    encoded += alphabet[(triple >> 12) & 63];
    encoded += alphabet[(triple >> 6) & 63];
    encoded += alphabet[triple & 63];
  }
  if (i < bytes.size()) {
    const bool two = i + 1 < bytes.size();
    const unsigned triple = static_cast<unsigned char>(bytes[i]) << 16 |
                            (two ? static_cast<unsigned char>(bytes[i + 1]) << 8 : 0u);
    encoded += alphabet[triple >> 18];
    encoded += alphabet[(triple >> 12) & 63];
    encoded += two ? alphabet[(triple >> 6) & 63] : '=';
    encoded += '=';
  }
  return encoded;
}

std::string inlinePictures(std::string json, const PictureLookup& lookup) {
  // Ordered: rlottie needs the keys in the order the exporter wrote them.
  auto document = nlohmann::ordered_json::parse(json, nullptr, false);
  if (!document.is_object() || !document.contains("assets") || !document["assets"].is_array()) {
    return json;
  }
  bool changed = false;
  for (auto& asset : document["assets"]) {
    if (!asset.is_object() || !asset.contains("p") || !asset["p"].is_string()) {
      continue;
    }
    const auto& path = asset["p"].get_ref<const std::string&>();
    if (path.starts_with("data:")) {
      continue;
    }
    const std::optional<std::string> picture = lookup(fileName(path));
    if (!picture) {
      continue;
    }
    asset["p"] = "data:" + std::string(mediaType(*picture)) + ";base64," + base64Encoded(*picture);
    asset["u"] = "";
    asset["e"] = 1;
    changed = true;
  }
  if (!changed) {
    return json;
  }
  return document.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

} // namespace frameloom::platform
