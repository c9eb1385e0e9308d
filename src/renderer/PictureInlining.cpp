#include "renderer/PictureInlining.h"

#include "renderer/DocumentParsing.h"
#include "renderer/Limits.h"
#include "renderer/PictureHeaders.h"

#include <frameloom/platform/graphics/Png.h>
#include <frameloom/platform/graphics/Webp.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <span>
#include <tuple>
#include <vector>

namespace frameloom::renderer {

namespace {

using Json = nlohmann::ordered_json;

// Pictures beyond 4096 x 4096 pixels (64 MiB decoded) are not re-encoded: a small hostile file
// can otherwise claim a huge canvas.
constexpr std::size_t maxWebpPixels = std::size_t{1} << 24;

constexpr char base64Alphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::span<const std::uint8_t> asBytes(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

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
  return "application/octet-stream";
}

std::string_view fileName(std::string_view path) {
  const auto slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

// The picture the renderer is given for a picture's bytes: WebP re-encoded as PNG, other formats
// as they are. None for WebP it cannot decode within `maxPixels`.
std::optional<std::string> decodable(std::string picture, std::uint64_t maxPixels) {
  if (!platform::isWebp(asBytes(picture))) {
    return picture;
  }
  try {
    const auto pixels = static_cast<std::size_t>(std::min<std::uint64_t>(maxWebpPixels, maxPixels));
    const std::vector<std::uint8_t> png =
        platform::encodePng(*platform::decodeWebp(asBytes(picture), pixels));
    return std::string(png.begin(), png.end());
  } catch (const platform::WebpError&) {
    return std::nullopt;
  } catch (const platform::PngError&) {
    return std::nullopt;
  }
}

std::string dataUri(std::string_view picture) {
  return "data:" + std::string(mediaType(picture)) + ";base64," + base64Encoded(picture);
}

// The base64 payload of a data URI, when the URI is base64-encoded.
std::optional<std::string_view> base64Payload(std::string_view uri) {
  const auto comma = uri.find(',');
  if (comma == std::string_view::npos || !uri.substr(0, comma).ends_with(";base64")) {
    return std::nullopt;
  }
  return uri.substr(comma + 1);
}

// An asset whose picture is left out: no picture and no area, so that its layers draw nothing and
// cost nothing to draw.
void leaveOut(Json& asset) {
  asset["p"] = "";
  asset["u"] = "";
  asset["e"] = 1;
  asset["w"] = 0;
  asset["h"] = 0;
}

// Assets that show the same picture at the same size. rlottie decodes the picture of every asset
// on its own, so such assets are merged into the first: their layers are pointed at that one.
class SharedPictures {
public:
  // The id of an earlier asset of the same size that holds the picture `uri`, if any; this
  // asset's layers will then show that one.
  std::optional<std::string> find(const Json& asset, const std::string& uri) {
    const auto candidates = kept_.find(keyOf(asset, uri));
    if (candidates == kept_.end() || !isNamed(asset)) {
      return std::nullopt;
    }
    for (const Json* first : candidates->second) {
      if ((*first)["p"].get_ref<const std::string&>() == uri && (*first)["id"] != asset["id"]) {
        aliases_.emplace(asset["id"].get<std::string>(), (*first)["id"].get<std::string>());
        return (*first)["id"].get<std::string>();
      }
    }
    return std::nullopt;
  }

  // Records an asset kept with its picture, which later assets may share.
  void add(const Json& asset) {
    if (isNamed(asset)) {
      kept_[keyOf(asset, asset["p"].get_ref<const std::string&>())].push_back(&asset);
    }
  }

  // Points the picture layers of the document and of its precompositions at the assets kept.
  void repoint(Json& document) const {
    if (aliases_.empty()) {
      return;
    }
    repointLayers(document);
    for (auto& asset : document["assets"]) {
      repointLayers(asset);
    }
  }

private:
  // The picture's hash and the asset's size: assets sharing a key are compared in full.
  using Key = std::tuple<std::size_t, std::string, std::string>;

  static bool isNamed(const Json& asset) { return asset.contains("id") && asset["id"].is_string(); }

  static Key keyOf(const Json& asset, const std::string& uri) {
    const auto size = [&](const char* key) {
      return asset.contains(key) ? asset[key].dump() : std::string();
    };
    return {std::hash<std::string>{}(uri), size("w"), size("h")};
  }

  void repointLayers(Json& owner) const {
    if (!owner.is_object() || !owner.contains("layers") || !owner["layers"].is_array()) {
      return;
    }
    for (auto& layer : owner["layers"]) {
      if (!layer.is_object() || !layer.contains("refId") || !layer["refId"].is_string()) {
        continue;
      }
      const auto alias = aliases_.find(layer["refId"].get_ref<const std::string&>());
      if (alias != aliases_.end()) {
        layer["refId"] = alias->second;
      }
    }
  }

  std::map<Key, std::vector<const Json*>> kept_;
  std::map<std::string, std::string> aliases_;
};

} // namespace

std::string base64Encoded(std::string_view bytes) {
  std::string encoded;
  encoded.reserve((bytes.size() + 2) / 3 * 4);
  std::size_t i = 0;
  for (; i + 2 < bytes.size(); i += 3) {
    const unsigned triple = static_cast<unsigned char>(bytes[i]) << 16 |
                            static_cast<unsigned char>(bytes[i + 1]) << 8 |
                            static_cast<unsigned char>(bytes[i + 2]);
    encoded += base64Alphabet[triple >> 18];
    encoded += base64Alphabet[(triple >> 12) & 63];
    encoded += base64Alphabet[(triple >> 6) & 63];
    encoded += base64Alphabet[triple & 63];
  }
  if (i < bytes.size()) {
    const bool two = i + 1 < bytes.size();
    const unsigned triple = static_cast<unsigned char>(bytes[i]) << 16 |
                            (two ? static_cast<unsigned char>(bytes[i + 1]) << 8 : 0u);
    encoded += base64Alphabet[triple >> 18];
    encoded += base64Alphabet[(triple >> 12) & 63];
    encoded += two ? base64Alphabet[(triple >> 6) & 63] : '=';
    encoded += '=';
  }
  return encoded;
}

std::optional<std::string> base64Decoded(std::string_view text) {
  static const std::array<std::int8_t, 256> values = [] {
    std::array<std::int8_t, 256> table{};
    table.fill(-1);
    for (int i = 0; i < 64; ++i) {
      table[static_cast<unsigned char>(base64Alphabet[i])] = static_cast<std::int8_t>(i);
    }
    return table;
  }();
  if (text.size() % 4 != 0) {
    return std::nullopt;
  }
  std::size_t padding = 0;
  while (padding < 2 && padding < text.size() && text[text.size() - 1 - padding] == '=') {
    ++padding;
  }
  std::string decoded;
  decoded.reserve(text.size() / 4 * 3);
  unsigned bits = 0;
  int count = 0;
  for (const char c : text.substr(0, text.size() - padding)) {
    const std::int8_t value = values[static_cast<unsigned char>(c)];
    if (value < 0) {
      return std::nullopt;
    }
    bits = bits << 6 | static_cast<unsigned>(value);
    if (++count == 4) {
      decoded += static_cast<char>(bits >> 16);
      decoded += static_cast<char>(bits >> 8);
      decoded += static_cast<char>(bits);
      bits = 0;
      count = 0;
    }
  }
  if (count == 2) {
    decoded += static_cast<char>(bits >> 4);
  } else if (count == 3) {
    decoded += static_cast<char>(bits >> 10);
    decoded += static_cast<char>(bits >> 2);
  }
  return decoded;
}

bool mayHoldDataUri(std::string_view json) {
  return json.find("data:") != std::string_view::npos;
}

std::string inlinePictures(std::string json, const PictureLookup& lookup) {
  // Ordered: rlottie needs the keys in the order the exporter wrote them.
  auto parsed = parseDocument(json);
  if (!parsed) {
    return json;
  }
  auto& document = *parsed;
  if (!document.is_object() || !document.contains("assets") || !document["assets"].is_array()) {
    return json;
  }
  bool changed = false;
  std::uint64_t pixelsLeft = limits::maxPicturePixels;
  std::map<std::string, std::optional<std::string>, std::less<>> files;
  SharedPictures shared;
  for (auto& asset : document["assets"]) {
    if (!asset.is_object() || !asset.contains("p") || !asset["p"].is_string()) {
      continue;
    }
    const auto& path = asset["p"].get_ref<const std::string&>();
    const bool inlined = path.starts_with("data:");
    std::optional<std::string> picture;
    if (inlined) {
      const auto payload = base64Payload(path);
      picture = payload ? base64Decoded(*payload) : std::nullopt;
    } else {
      // Many assets may name one file: it is read once.
      auto file = files.find(fileName(path));
      if (file == files.end()) {
        file = files.emplace(std::string(fileName(path)), lookup(fileName(path))).first;
      }
      if (!file->second) {
        continue;
      }
      picture = file->second;
    }
    const bool webp = picture && platform::isWebp(asBytes(*picture));
    if (picture) {
      picture = decodable(std::move(*picture), pixelsLeft);
    }
    const auto extent = picture ? pictureExtent(*picture) : std::nullopt;
    // Every asset kept counts, shared or not: each is drawn on its own.
    if (extent && extent->pixels() <= pixelsLeft) {
      pixelsLeft -= extent->pixels();
      std::string uri = inlined && !webp ? path : dataUri(*picture);
      if (shared.find(asset, uri)) {
        leaveOut(asset);
      } else if (uri == path) {
        shared.add(asset);
        continue;
      } else {
        asset["p"] = std::move(uri);
        asset["u"] = "";
        asset["e"] = 1;
        shared.add(asset);
      }
    } else {
      leaveOut(asset);
    }
    changed = true;
  }
  if (!changed) {
    return json;
  }
  shared.repoint(document);
  return document.dump(-1, ' ', false, Json::error_handler_t::replace);
}

} // namespace frameloom::renderer
