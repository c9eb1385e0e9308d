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

// The disk level of LottieCache: a flat folder holding one file per key, named by the key and
// holding exactly the bytes stored. Each file records the URL it belongs to in an extended
// attribute set before the file appears, so a key shared by two URLs never hands one's bytes to
// the other. Files being written are hidden temporaries (named ".<key>.XXXXXX"), possibly of
// other processes: trims and wipes neither count nor delete them until they are older than any
// write takes. Trims and wipes open the folder without following a symbolic link, and never
// follow one inside it. A value type naming the folder; every call lists or touches the folder
// afresh, so copies may run on several threads and processes at once.
class FRAMELOOM_EXPORT CacheFolder {
public:
  // A temporary this old belongs to a writer that died: a write of the largest body takes
  // seconds, not an hour.
  static constexpr std::chrono::hours abandonedTemporaryAge{1};

  explicit CacheFolder(std::filesystem::path folder);

  const std::filesystem::path& path() const { return folder_; }
  std::filesystem::path fileFor(const std::string& key) const { return folder_ / key; }

  // Creates the folder and its parents; an error is ignored (later writes then fail).
  void create() const;

  // The whole file of `key` when it holds the bytes of `url`; nullopt when there is no file or
  // it belongs to another URL (or to none). Throws std::system_error when it cannot be read.
  std::optional<std::vector<std::uint8_t>> read(const std::string& key,
                                                const std::string& url) const;

  // Replaces the file of `key` with `bytes` of `url`. The bytes go to a temporary file in the
  // folder that is then renamed over the key, so a concurrent reader sees the old or the new
  // file, never a part of one; a failed write leaves nothing behind. Refuses a folder that is a
  // symbolic link, which no trim would bound. Throws std::system_error.
  void write(const std::string& key, const std::string& url,
             std::span<const std::uint8_t> bytes) const;

  // The total byte count of the regular files in the folder, temporaries left out; 0 when it
  // cannot be listed.
  std::int64_t size() const;

  // Deletes abandoned temporaries, then regular files oldest first until the folder holds at most
  // `target` bytes. Files whose date or size cannot be read are kept (and still counted). A failed
  // deletion prints "Failed to remove cache file: <description>" on standard output and the trim
  // goes on. Does nothing when the folder cannot be listed.
  void trim(std::int64_t target) const;

  // Deletes every item of the folder (sub-folders with their contents, symbolic links themselves)
  // but temporaries in flight, in listing order. Throws std::filesystem::filesystem_error for a
  // listing failure (a folder that is a symbolic link among them) or the first failed deletion.
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
