#include "renderer/DotLottieArchive.h"

#include "renderer/PictureInlining.h"
#include <frameloom/renderer/AnimationChoice.h>
#include <frameloom/renderer/Limits.h>
#include <frameloom/ziploom/Archive.h>

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

namespace frameloom::renderer {

namespace {

constexpr std::size_t maxUnpackedBytes = maximumUnpackedArchiveSize;
// A manifest lists a few animations and themes: a megabyte is far beyond any real one.
constexpr std::size_t maxManifestBytes = std::size_t{1} << 20;

// An entry passed its own limit or the archive's budget; says which refusal that is.
class TooLarge : public std::runtime_error {
public:
  explicit TooLarge(Refusal refusal)
      : std::runtime_error(refusalMessage(refusal)), refusal_(refusal) {}
  Refusal refusal() const { return refusal_; }

private:
  Refusal refusal_;
};

bool startsWith(std::string_view text, std::string_view prefix) {
  return text.substr(0, prefix.size()) == prefix;
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

  const std::vector<ziploom::Entry>& files() const { return files_; }

  bool hasPictures() const {
    return std::any_of(files_.begin(), files_.end(), [](const ziploom::Entry& e) {
      const std::string path = e.path();
      return startsWith(path, "images/") || startsWith(path, "i/");
    });
  }

  // Reads an entry whole; throws TooLarge beyond `limit` (refused as `beyondLimit`) or beyond
  // what is left of the budget.
  std::string read(const ziploom::Entry& entry, std::size_t limit = maxUnpackedBytes,
                   Refusal beyondLimit = Refusal::archiveTooLarge) {
    std::string contents;
    archive_.extract(entry, [&](platform::ByteView chunk) {
      const std::size_t size = contents.size() + chunk.size();
      if (size > limit) {
        throw TooLarge(beyondLimit);
      }
      if (size > maxUnpackedBytes - unpacked_) {
        throw TooLarge(Refusal::archiveTooLarge);
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

// The animation `rule` picks, among the archive's files.
const ziploom::Entry* chooseAnimation(ArchiveReader& reader, AnimationRule rule) {
  const std::vector<ziploom::Entry>& files = reader.files();
  if (rule == AnimationRule::recolouring) {
    const auto found = std::find_if(files.begin(), files.end(), [](const ziploom::Entry& e) {
      return isRecolouringAnimation(e.path());
    });
    return found == files.end() ? nullptr : &*found;
  }
  std::vector<std::string> paths;
  paths.reserve(files.size());
  for (const ziploom::Entry& entry : files) {
    paths.push_back(entry.path());
  }
  std::optional<std::string> manifest;
  if (const ziploom::Entry* entry = reader.find("manifest.json")) {
    manifest = reader.read(*entry, maxManifestBytes);
  }
  const auto index = rendererAnimation(paths, manifest);
  return index ? &files[*index] : nullptr;
}

} // namespace

std::optional<std::string> dotLottieAnimationDocument(platform::ByteView bytes, AnimationRule rule,
                                                      std::optional<Refusal>& refusal) {
  const auto archive = ziploom::Archive::make(platform::Bytes(bytes.begin(), bytes.end()),
                                              ziploom::AccessMode::read);
  if (!archive) {
    return std::nullopt;
  }
  try {
    ArchiveReader reader(*archive);
    const ziploom::Entry* animation = chooseAnimation(reader, rule);
    if (!animation) {
      return std::nullopt;
    }
    std::string document =
        reader.read(*animation, maximumAnimationDocumentSize, Refusal::documentTooLarge);
    if (!reader.hasPictures() && !mayHoldDataUri(document)) {
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
  } catch (const TooLarge& tooLarge) {
    refusal = tooLarge.refusal();
    return std::nullopt;
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

} // namespace frameloom::renderer
