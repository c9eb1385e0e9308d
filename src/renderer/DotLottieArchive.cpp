#include "renderer/DotLottieArchive.h"

#include "renderer/PictureInlining.h"
#include <frameloom/renderer/Limits.h>
#include <frameloom/ziploom/Archive.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <stdexcept>
#include <unordered_map>
#include <vector>

namespace frameloom::renderer {

namespace {

// Bounds what one archive may make the renderer unpack, whatever its entries claim: the
// document and the pictures inlined into it.
constexpr std::size_t maxUnpackedBytes = std::size_t{96} << 20;
constexpr std::size_t maxManifestBytes = std::size_t{1} << 20;

class TooLarge : public std::runtime_error {
public:
  TooLarge() : std::runtime_error("archive entry too large") {}
};

bool startsWith(std::string_view text, std::string_view prefix) {
  return text.substr(0, prefix.size()) == prefix;
}

bool endsWithJson(std::string_view path) {
  if (path.size() < 5) {
    return false;
  }
  std::string suffix(path.substr(path.size() - 5));
  std::transform(suffix.begin(), suffix.end(), suffix.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return suffix == ".json";
}

class ArchiveReader {
public:
  explicit ArchiveReader(ziploom::Archive& archive) : archive_(archive) {
    for (const ziploom::Entry& entry : archive) {
      if (entry.type() == ziploom::Entry::EntryType::file) {
        files_.push_back(entry);
      }
    }
    // Indexed by path so that inlining many pictures stays linear; the first entry of a path wins.
    for (std::size_t index = 0; index < files_.size(); ++index) {
      byPath_.try_emplace(files_[index].path(), index);
    }
  }

  const ziploom::Entry* find(const std::string& path) const {
    const auto found = byPath_.find(path);
    return found == byPath_.end() ? nullptr : &files_[found->second];
  }

  bool hasPictures() const {
    return std::any_of(files_.begin(), files_.end(), [](const ziploom::Entry& e) {
      const std::string path = e.path();
      return startsWith(path, "images/") || startsWith(path, "i/");
    });
  }

  const ziploom::Entry* firstAnimation() const {
    const auto found = std::find_if(files_.begin(), files_.end(), [](const ziploom::Entry& e) {
      const std::string path = e.path();
      return (startsWith(path, "animations/") || startsWith(path, "a/")) && endsWithJson(path);
    });
    return found == files_.end() ? nullptr : &*found;
  }

  // Reads an entry whole; throws TooLarge beyond `limit` or beyond what is left of the budget.
  std::string read(const ziploom::Entry& entry, std::size_t limit = maxUnpackedBytes) {
    std::string contents;
    archive_.extract(entry, [&](platform::ByteView chunk) {
      if (contents.size() + chunk.size() > std::min(limit, maxUnpackedBytes - unpacked_)) {
        throw TooLarge();
      }
      contents.append(chunk.begin(), chunk.end());
    });
    unpacked_ += contents.size();
    return contents;
  }

private:
  ziploom::Archive& archive_;
  std::vector<ziploom::Entry> files_;
  std::unordered_map<std::string, std::size_t> byPath_;
  std::size_t unpacked_ = 0;
};

// The id of the first animation the manifest lists, when there is a readable one.
std::optional<std::string> manifestAnimationId(ArchiveReader& reader) {
  const ziploom::Entry* manifest = reader.find("manifest.json");
  if (!manifest) {
    return std::nullopt;
  }
  const auto json = nlohmann::json::parse(reader.read(*manifest, maxManifestBytes), nullptr, false);
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

const ziploom::Entry* chooseAnimation(ArchiveReader& reader) {
  if (const auto id = manifestAnimationId(reader)) {
    for (const char* folder : {"animations/", "a/"}) {
      if (const ziploom::Entry* entry = reader.find(folder + *id + ".json")) {
        return entry;
      }
    }
  }
  return reader.firstAnimation();
}

} // namespace

std::optional<std::string> dotLottieAnimationDocument(platform::ByteView bytes) {
  const auto archive = ziploom::Archive::make(platform::Bytes(bytes.begin(), bytes.end()),
                                              ziploom::AccessMode::read);
  if (!archive) {
    return std::nullopt;
  }
  try {
    ArchiveReader reader(*archive);
    const ziploom::Entry* animation = chooseAnimation(reader);
    if (!animation) {
      return std::nullopt;
    }
    std::string document = reader.read(*animation, maximumAnimationDocumentSize);
    if (!reader.hasPictures() && !mayHoldWebpDataUri(document)) {
      return document;
    }
    return inlinePictures(
        std::move(document), [&](std::string_view name) -> std::optional<std::string> {
          for (const char* folder : {"images/", "i/"}) {
            if (const ziploom::Entry* picture = reader.find(folder + std::string(name))) {
              return reader.read(*picture);
            }
          }
          return std::nullopt;
        });
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

} // namespace frameloom::renderer
