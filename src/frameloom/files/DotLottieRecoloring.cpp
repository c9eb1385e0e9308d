#include "frameloom/files/DotLottieRecoloring.h"

#include <frameloom/files/DotLottieError.h>
#include <frameloom/platform/system/Directories.h>
#include <frameloom/platform/system/UniqueFile.h>
#include <frameloom/platform/system/Uuid.h>
#include <frameloom/renderer/AnimationChoice.h>
#include <frameloom/renderer/Limits.h>
#include <frameloom/ziploom/Archive.h>
#include <frameloom/ziploom/Errors.h>
#include <frameloom/ziploom/FileSystem.h>
#include <frameloom/ziploom/Text.h>

#include "frameloom/files/CopyRegistry.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

namespace frameloom {
namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t maximumSizeHint = 64 * 1024 * 1024;

// Recolouring unpacks the whole archive into the temporary folder. A real .lottie unpacks to a
// few megabytes; an archive that declares more than this is refused before anything is written
// (and no entry yields more than it declares).
constexpr std::uint64_t maximumUnpackedArchiveSize = std::uint64_t{1} << 30;

// Removes what a recolouring wrote unless it completes: a failed or interrupted run leaves
// neither its work folder nor a partial archive behind.
class RemovedUnlessKept {
public:
  explicit RemovedUnlessKept(std::vector<fs::path> paths) : paths_(std::move(paths)) {}
  RemovedUnlessKept(const RemovedUnlessKept&) = delete;
  RemovedUnlessKept& operator=(const RemovedUnlessKept&) = delete;
  ~RemovedUnlessKept() {
    if (kept_) {
      return;
    }
    for (const fs::path& path : paths_) {
      std::error_code ignored;
      fs::remove_all(path, ignored);
    }
  }
  void keep() { kept_ = true; }

private:
  std::vector<fs::path> paths_;
  bool kept_ = false;
};

std::span<const std::uint8_t> bytesOf(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

// Whether `text` is valid UTF-8. Animation JSON is nearly always pure ASCII, which eight bytes at
// a time confirm far faster than decoding; the decoder only sees what follows the ASCII prefix.
bool isUTF8(std::string_view text) {
  std::size_t ascii = 0;
  for (std::uint64_t word; ascii + sizeof word <= text.size(); ascii += sizeof word) {
    std::memcpy(&word, text.data() + ascii, sizeof word);
    if ((word & 0x8080808080808080ULL) != 0) {
      break;
    }
  }
  return ziploom::isValidUTF8(bytesOf(text.substr(ascii)));
}

// Where an entry goes inside `work`: its path appended as a path component, without the
// trailing "/" of a folder entry.
fs::path destinationOf(const fs::path& work, std::string path) {
  while (!path.empty() && path.back() == '/') {
    path.pop_back();
  }
  return ziploom::appendingPathComponent(work, path);
}

// Replaces the file at `target` with `data`: written beside it, then renamed over it, so that
// the target holds either the old bytes or all of the new ones.
void writeAtomically(const fs::path& target, std::string_view data) {
  std::string scratchName = target.filename().string();
  scratchName.insert(scratchName.begin(), '.');
  scratchName += '.';
  scratchName += platform::Uuid::random().uuidString();
  scratchName += ".tmp";
  const fs::path scratch = target.parent_path() / scratchName;
  {
    platform::UniqueFile file(std::fopen(scratch.c_str(), "wbx"));
    if (!file) {
      throw fs::filesystem_error("cannot create", scratch,
                                 std::error_code(errno, std::generic_category()));
    }
    if (std::fwrite(data.data(), 1, data.size(), file.get()) != data.size() ||
        std::fflush(file.get()) != 0) {
      const std::error_code error(errno, std::generic_category());
      file.reset();
      fs::remove(scratch);
      throw fs::filesystem_error("cannot write", scratch, error);
    }
  }
  fs::rename(scratch, target);
}

// Every occurrence of `pattern` in `text` removed.
std::string removingAll(std::string text, const std::string& pattern) {
  for (std::size_t at = text.find(pattern); at != std::string::npos; at = text.find(pattern, at)) {
    text.erase(at, pattern.size());
  }
  return text;
}

// The animation JSON of an archive and its path as stored there.
struct AnimationJSON {
  std::string data;
  std::string path;
};

AnimationJSON readAnimationJSON(const fs::path& url) {
  std::unique_ptr<ziploom::Archive> archive =
      ziploom::Archive::make(url, ziploom::AccessMode::read);
  if (!archive) {
    throw DotLottieError(DotLottieError::Code::failedToReadArchive);
  }
  for (const ziploom::Entry& entry : *archive) {
    std::string path = entry.path();
    if (!renderer::isRecolouringAnimation(path)) {
      continue;
    }
    std::string data;
    // The declared size is only a hint: a hostile archive may claim anything.
    data.reserve(static_cast<std::size_t>(
        std::min<std::uint64_t>(entry.uncompressedSize(), maximumSizeHint)));
    archive->extract(entry, ziploom::defaultReadChunkSize, false, nullptr,
                     [&data, &path](platform::ByteView chunk) {
                       if (data.size() + chunk.size() > renderer::maximumAnimationDocumentSize) {
                         throw DotLottieError(DotLottieError::Code::animationJSONTooLarge, path);
                       }
                       data.append(chunk.begin(), chunk.end());
                     });
    return AnimationJSON{std::move(data), std::move(path)};
  }
  throw DotLottieError(DotLottieError::Code::noAnimationJSON);
}

// Unpacks the archive at `url` into a fresh work folder, writes `jsonData` over the entry at
// `jsonPath` there and packs the folder into a new archive, whose path it returns.
fs::path rebuildArchive(const fs::path& url, const std::string& jsonPath,
                        std::string_view jsonData) {
  std::unique_ptr<ziploom::Archive> source = ziploom::Archive::make(url, ziploom::AccessMode::read);
  if (!source) {
    throw DotLottieError(DotLottieError::Code::failedToReadOriginalArchive);
  }
  const fs::path work = platform::temporaryDirectory() / platform::Uuid::random().uuidString();
  // Every entry is checked before anything is written, so a hostile archive leaves nothing.
  for (const ziploom::Entry& entry : *source) {
    if (!ziploom::isContained(destinationOf(work, entry.path()), work)) {
      throw DotLottieError(DotLottieError::Code::entryOutsideWorkFolder, entry.path());
    }
  }
  source->checkDataRangesDisjoint();
  if (source->declaredExtractionSize() > maximumUnpackedArchiveSize) {
    throw ziploom::FileError(ziploom::FileError::Code::fileReadTooLarge, url);
  }
  const fs::path output = platform::temporaryDirectory() /
                          ("modified_" + platform::Uuid::random().uuidString() + ".lottie");
  RemovedUnlessKept written({work, output});
  detail::rememberRecoloredCopy(work);
  detail::rememberRecoloredCopy(output);
  fs::create_directories(work);
  const fs::path jsonDestination = destinationOf(work, jsonPath);
  bool jsonSkipped = false;
  for (const ziploom::Entry& entry : *source) {
    const fs::path destination = destinationOf(work, entry.path());
    // The animation JSON's old bytes would only be replaced at once; its new ones go there below.
    // A second entry at its path fails as extracting it over the first would.
    if (destination == jsonDestination) {
      if (jsonSkipped) {
        throw ziploom::FileError(ziploom::FileError::Code::fileWriteFileExists, destination);
      }
      jsonSkipped = true;
      continue;
    }
    fs::create_directories(destination.parent_path());
    source->extract(entry, destination, ziploom::defaultReadChunkSize, false, false, nullptr);
  }
  fs::create_directories(jsonDestination.parent_path());
  writeAtomically(jsonDestination, jsonData);

  std::unique_ptr<ziploom::Archive> archive =
      ziploom::Archive::make(output, ziploom::AccessMode::create);
  if (!archive) {
    throw DotLottieError(DotLottieError::Code::failedToCreateNewArchive);
  }
  std::error_code error;
  fs::recursive_directory_iterator items(work, error);
  if (error) {
    written.keep();
    return output;
  }
  const std::string prefix = work.string() + "/";
  std::vector<ziploom::Archive::FileItem> additions;
  for (const fs::directory_entry& item : items) {
    const std::string relative = removingAll(item.path().string(), prefix);
    additions.push_back({relative, ziploom::appendingPathComponent(work, relative), nullptr});
  }
  // One central directory for all of them: adding one at a time rewrites it every time.
  archive->addEntries(additions, ziploom::CompressionMethod::none, ziploom::defaultWriteChunkSize);
  written.keep();
  return output;
}

} // namespace

std::vector<DotLottieFile::PaletteColor> readDotLottiePalette(const fs::path& dotLottieURL) {
  AnimationJSON json = readAnimationJSON(dotLottieURL);
  if (!isUTF8(json.data)) {
    throw DotLottieError(DotLottieError::Code::animationJSONNotUTF8);
  }
  return DotLottieFile::palette(std::move(json.data));
}

fs::path recolorDotLottie(const fs::path& dotLottieURL, std::vector<ColorComponents> colors,
                          int precision) {
  if (colors.empty()) {
    throw std::invalid_argument("DotLottieFile::recolor: the colour list is empty");
  }
  AnimationJSON json = readAnimationJSON(dotLottieURL);
  if (!isUTF8(json.data)) {
    throw DotLottieError(DotLottieError::Code::animationJSONNotUTF8);
  }
  const std::string text =
      DotLottieFile::replaceColors(std::move(json.data), std::move(colors), precision);
  if (!isUTF8(text)) {
    throw DotLottieError(DotLottieError::Code::utf8EncodeFailed);
  }
  return rebuildArchive(dotLottieURL, json.path, text);
}

} // namespace frameloom
