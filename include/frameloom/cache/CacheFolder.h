#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <frameloom/platform/Export.h>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace frameloom {

// The disk level of LottieCache: a flat folder holding one file per key, named by the key, with
// no index beside it. A value type naming the folder; every call lists or touches the folder
// afresh, so copies may run on several threads at once, also against each other.
class FRAMELOOM_EXPORT CacheFolder {
public:
  explicit CacheFolder(std::filesystem::path folder);

  const std::filesystem::path& path() const { return folder_; }
  std::filesystem::path fileFor(const std::string& key) const { return folder_ / key; }

  // Creates the folder and its parents; an error is ignored (later writes then fail).
  void create() const;

  bool contains(const std::string& key) const;

  // The whole file of `key`. Throws std::system_error.
  std::vector<std::uint8_t> read(const std::string& key) const;

  // Replaces the file of `key` with `bytes`. The bytes go to a temporary file in the folder that
  // is then renamed over the key, so a concurrent reader sees the old or the new file, never a
  // part of one; a failed write leaves nothing behind. Throws std::system_error.
  void write(const std::string& key, std::span<const std::uint8_t> bytes) const;

  // The total byte count of the regular files in the folder; 0 when it cannot be listed.
  std::int64_t size() const;

  // Deletes regular files oldest first until the folder holds at most `target` bytes. Files whose
  // date or size cannot be read are kept (and still counted). A failed deletion prints
  // "Failed to remove cache file: <description>" on standard output and the trim goes on.
  // Does nothing when the folder cannot be listed.
  void trim(std::int64_t target) const;

  // Deletes every item of the folder (sub-folders with their contents), in listing order.
  // Throws std::filesystem::filesystem_error for a listing failure or the first failed deletion.
  void removeAll() const;

private:
  std::filesystem::path folder_;
};

// One item of the folder as a trim sees it.
struct FRAMELOOM_EXPORT FolderItem {
  std::filesystem::path path;
  // Linux file systems may not record a creation time: the birth time is used where the file
  // system reports one, the modification time otherwise.
  std::optional<std::chrono::sys_time<std::chrono::nanoseconds>> creationDate;
  std::optional<std::int64_t> size; // regular files only
};

// The items a trim may delete, oldest first: those with both a date and a size, in a stable order
// (equal dates keep their listing order).
FRAMELOOM_EXPORT std::vector<FolderItem> evictionCandidates(std::vector<FolderItem> items);

} // namespace frameloom
