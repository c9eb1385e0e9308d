#include <frameloom/ziploom/FileSystem.h>

#include <frameloom/ziploom/Archive.h>
#include <frameloom/ziploom/Errors.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <string>
#include <vector>

namespace frameloom::ziploom {

namespace fs = std::filesystem;

namespace {

bool isPresent(const fs::path& path) {
  std::error_code error;
  return fs::exists(fs::symlink_status(path, error));
}

fs::path absoluteNormal(const fs::path& path) {
  std::error_code error;
  auto absolute = fs::absolute(path, error);
  return (error ? path : absolute).lexically_normal();
}

// Every item below `folder`, relative to it: each folder before its contents, names in order.
// Links are listed, never followed.
void listSubpaths(const fs::path& folder, const fs::path& relative, std::vector<fs::path>& list) {
  std::vector<fs::path> names;
  for (const auto& item : fs::directory_iterator(folder / relative)) {
    names.push_back(item.path().filename());
  }
  std::sort(names.begin(), names.end());
  for (const auto& name : names) {
    const auto subpath = relative / name;
    list.push_back(subpath);
    if (fs::symlink_status(folder / subpath).type() == fs::file_type::directory) {
      listSubpaths(folder, subpath, list);
    }
  }
}

ProgressPointer childProgress(const ProgressPointer& parent, std::int64_t total) {
  if (!parent) {
    return nullptr;
  }
  auto child = frameloom::platform::Progress::make(total);
  parent->addChild(child, total);
  return child;
}

// The lexical test cannot see links already on disk: a link unzipped earlier could lead a later
// entry out of the destination. The deepest existing folder on the way, links resolved, must lie
// inside the destination too.
bool isPhysicallyContained(const fs::path& target, const fs::path& root) {
  std::error_code error;
  const auto parent = fs::weakly_canonical(target.parent_path(), error);
  return !error && isContained(parent / "", root);
}

// Sets the date of the folder itself, never of a link's target. A trailing "/" would make the
// call go through a link, so it is left off.
void setModificationTime(const fs::path& target, std::chrono::system_clock::time_point date) {
  const auto folder = target.has_filename() ? target : target.parent_path();
  const auto since = date.time_since_epoch();
  const auto seconds = std::chrono::floor<std::chrono::seconds>(since);
  const timespec times[2] = {
      {0, UTIME_OMIT},
      {static_cast<time_t>(seconds.count()),
       static_cast<long>(std::chrono::nanoseconds(since - seconds).count())}};
  if (utimensat(AT_FDCWD, folder.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0) {
    throwPOSIXError(errno, folder);
  }
}

} // namespace

bool isContained(const fs::path& url, const fs::path& folder) {
  const auto parent = (absoluteNormal(folder) / "").native();
  const auto child = absoluteNormal(url).native();
  return child.starts_with(parent);
}

fs::path appendingPathComponent(const fs::path& folder, std::string_view entryPath) {
  while (entryPath.starts_with('/')) {
    entryPath.remove_prefix(1);
  }
  return folder / entryPath;
}

void zipItem(const fs::path& source, const fs::path& destination, bool shouldKeepParent,
             CompressionMethod compressionMethod, const ProgressPointer& progress,
             int compressionLevel) {
  if (!isPresent(source)) {
    throw FileError(FileError::Code::fileReadNoSuchFile, source);
  }
  if (isPresent(destination)) {
    throw FileError(FileError::Code::fileWriteFileExists, destination);
  }
  Archive archive(destination, AccessMode::create);
  archive.setCompressionLevel(compressionLevel);
  const auto folder = absoluteNormal(source);
  const auto name = folder.filename().empty() ? folder.parent_path().filename() : folder.filename();
  const auto base =
      folder.filename().empty() ? folder.parent_path().parent_path() : folder.parent_path();
  if (fs::symlink_status(source).type() != fs::file_type::directory) {
    if (progress) {
      progress->setTotalUnitCount(Archive::totalUnitCountForAddingItem(source));
    }
    archive.addEntry(name.string(), Archive::FileURL{base / name}, compressionMethod,
                     defaultWriteChunkSize, progress);
    return;
  }

  std::vector<fs::path> subpaths;
  listSubpaths(source, {}, subpaths);
  if (shouldKeepParent) {
    subpaths.emplace_back();
  }
  if (progress) {
    std::int64_t total = 0;
    for (const auto& subpath : subpaths) {
      total += Archive::totalUnitCountForAddingItem(source / subpath);
    }
    progress->setTotalUnitCount(total);
  }
  std::vector<Archive::FileItem> items;
  for (const auto& subpath : subpaths) {
    const auto entryPath = shouldKeepParent ? (name / subpath).string() : subpath.string();
    const auto item = appendingPathComponent(shouldKeepParent ? base : folder, entryPath);
    items.push_back(
        {entryPath, item, childProgress(progress, Archive::totalUnitCountForAddingItem(item))});
  }
  archive.addEntries(items, compressionMethod, defaultWriteChunkSize);
}

void unzipItem(const fs::path& source, const fs::path& destination, bool skipCRC32,
               bool allowUncontainedSymlinks, const ProgressPointer& progress,
               std::optional<TextEncoding> pathEncoding, std::uint64_t maximumExtractedSize) {
  if (!isPresent(source)) {
    throw FileError(FileError::Code::fileReadNoSuchFile, source);
  }
  Archive archive(source, AccessMode::read, pathEncoding);
  // Refused before anything is written. No entry yields more than it declares, so the declared
  // sizes bound what the extraction writes.
  archive.checkDataRangesDisjoint();
  if (archive.declaredExtractionSize() > maximumExtractedSize) {
    throw FileError(FileError::Code::fileReadTooLarge, source);
  }
  if (progress) {
    std::int64_t total = 0;
    for (const auto& entry : archive) {
      total += Archive::totalUnitCountForReading(entry);
    }
    progress->setTotalUnitCount(total);
  }
  // The destination is made by the first item extracted, so an empty archive creates nothing.
  const auto root = fs::weakly_canonical(destination);
  std::vector<std::pair<fs::path, std::chrono::system_clock::time_point>> folders;
  for (const auto& entry : archive) {
    const auto path = pathEncoding ? entry.path(*pathEncoding) : entry.path();
    const auto target = appendingPathComponent(destination, path).lexically_normal();
    if (!isContained(target, destination) || !isPhysicallyContained(target, root)) {
      throw FileError(FileError::Code::fileReadInvalidFileName, target);
    }
    const auto checksum =
        archive.extract(entry, target, defaultReadChunkSize, skipCRC32, allowUncontainedSymlinks,
                        childProgress(progress, Archive::totalUnitCountForReading(entry)));
    if (!skipCRC32 && checksum != entry.checksum()) {
      throw ArchiveError(ArchiveError::Code::invalidCRC32);
    }
    if (entry.type() == Entry::EntryType::directory) {
      folders.emplace_back(target, entry.fileAttributes().modificationDate);
    }
  }
  // Filling a folder changed its modification time after it was given the entry's.
  for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder) {
    setModificationTime(folder->first, folder->second);
  }
}

void unzipItem(const fs::path& source, const fs::path& destination, bool skipCRC32,
               const ProgressPointer& progress, std::optional<TextEncoding> preferredEncoding) {
  unzipItem(source, destination, skipCRC32, false, progress, preferredEncoding);
}

} // namespace frameloom::ziploom
