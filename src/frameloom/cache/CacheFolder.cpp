#include "frameloom/cache/CacheFolder.h"

#include <frameloom/platform/system/Log.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

namespace frameloom {
namespace fs = std::filesystem;

namespace {

// Owns one open file descriptor.
class FileDescriptor {
public:
  explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor() {
    if (descriptor_ >= 0) {
      ::close(descriptor_);
    }
  }

  int get() const { return descriptor_; }
  // Closes now, reporting the error a deferred write may only show at this point.
  int close() { return ::close(std::exchange(descriptor_, -1)); }

private:
  int descriptor_;
};

[[noreturn]] void throwErrno(const fs::path& path, const char* what) {
  throw std::system_error(errno, std::generic_category(), std::string(what) + " " + path.string());
}

std::optional<FolderItem> describe(const fs::path& path) {
  struct statx attributes {};
  if (::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW,
              STATX_TYPE | STATX_SIZE | STATX_BTIME | STATX_MTIME, &attributes) != 0) {
    return std::nullopt;
  }
  FolderItem item{path, std::nullopt, std::nullopt};
  if ((attributes.stx_mask & STATX_TYPE) && S_ISREG(attributes.stx_mode) &&
      (attributes.stx_mask & STATX_SIZE)) {
    item.size = static_cast<std::int64_t>(attributes.stx_size);
  }
  const statx_timestamp* stamp = nullptr;
  if (attributes.stx_mask & STATX_BTIME) {
    stamp = &attributes.stx_btime;
  } else if (attributes.stx_mask & STATX_MTIME) {
    stamp = &attributes.stx_mtime;
  }
  if (stamp) {
    item.creationDate = std::chrono::sys_time<std::chrono::nanoseconds>(
        std::chrono::seconds(stamp->tv_sec) + std::chrono::nanoseconds(stamp->tv_nsec));
  }
  return item;
}

// The folder's items with their attributes; nullopt when the folder cannot be listed.
std::optional<std::vector<FolderItem>> listItems(const fs::path& folder) {
  std::error_code error;
  fs::directory_iterator listing(folder, error);
  if (error) {
    return std::nullopt;
  }
  std::vector<FolderItem> items;
  for (const fs::directory_entry& entry : listing) {
    if (auto item = describe(entry.path())) {
      items.push_back(std::move(*item));
    }
  }
  return items;
}

} // namespace

CacheFolder::CacheFolder(fs::path folder) : folder_(std::move(folder)) {}

void CacheFolder::create() const {
  std::error_code ignored;
  fs::create_directories(folder_, ignored);
}

bool CacheFolder::contains(const std::string& key) const {
  std::error_code ignored;
  return fs::exists(fileFor(key), ignored);
}

std::vector<std::uint8_t> CacheFolder::read(const std::string& key) const {
  const fs::path file = fileFor(key);
  FileDescriptor descriptor(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
  if (descriptor.get() < 0) {
    throwErrno(file, "cannot open");
  }
  struct stat attributes {};
  if (::fstat(descriptor.get(), &attributes) != 0) {
    throwErrno(file, "cannot read");
  }
  if (!S_ISREG(attributes.st_mode)) {
    errno = EISDIR;
    throwErrno(file, "cannot read");
  }
  std::vector<std::uint8_t> bytes(static_cast<std::size_t>(attributes.st_size));
  std::size_t filled = 0;
  while (filled < bytes.size()) {
    ssize_t count = ::read(descriptor.get(), bytes.data() + filled, bytes.size() - filled);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count < 0) {
      throwErrno(file, "cannot read");
    }
    if (count == 0) {
      bytes.resize(filled); // the file shrank while it was read
      break;
    }
    filled += static_cast<std::size_t>(count);
  }
  return bytes;
}

void CacheFolder::write(const std::string& key, std::span<const std::uint8_t> bytes) const {
  const fs::path file = fileFor(key);
  std::string pattern = (folder_ / ("." + key + ".XXXXXX")).string();
  FileDescriptor descriptor(::mkostemp(pattern.data(), O_CLOEXEC));
  if (descriptor.get() < 0) {
    throwErrno(file, "cannot create");
  }
  const fs::path temporary = pattern;
  auto fail = [&](const char* what) {
    const int error = errno;
    ::unlink(temporary.c_str());
    errno = error;
    throwErrno(file, what);
  };
  if (::fchmod(descriptor.get(), 0644) != 0) {
    fail("cannot write");
  }
  std::size_t written = 0;
  while (written < bytes.size()) {
    ssize_t count = ::write(descriptor.get(), bytes.data() + written, bytes.size() - written);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count < 0) {
      fail("cannot write");
    }
    written += static_cast<std::size_t>(count);
  }
  if (descriptor.close() != 0) {
    fail("cannot write");
  }
  if (::rename(temporary.c_str(), file.c_str()) != 0) {
    fail("cannot write");
  }
}

std::int64_t CacheFolder::size() const {
  std::int64_t total = 0;
  for (const FolderItem& item : listItems(folder_).value_or(std::vector<FolderItem>{})) {
    total += item.size.value_or(0);
  }
  return total;
}

void CacheFolder::trim(std::int64_t target) const {
  auto items = listItems(folder_);
  if (!items) {
    return;
  }
  const std::vector<FolderItem> candidates = evictionCandidates(std::move(*items));
  std::int64_t total = size();
  for (const FolderItem& candidate : candidates) {
    if (total <= target) {
      break;
    }
    std::error_code error;
    if (fs::remove(candidate.path, error) && !error) {
      total -= *candidate.size;
    } else {
      if (!error) {
        error = std::make_error_code(std::errc::no_such_file_or_directory);
      }
      const fs::filesystem_error failure("cannot remove", candidate.path, error);
      platform::logLine(std::string("Failed to remove cache file: ") + failure.what());
    }
  }
}

void CacheFolder::removeAll() const {
  std::vector<fs::path> items;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder_)) {
    items.push_back(entry.path());
  }
  for (const fs::path& item : items) {
    fs::remove_all(item);
  }
}

std::vector<FolderItem> evictionCandidates(std::vector<FolderItem> items) {
  std::erase_if(items, [](const FolderItem& item) { return !item.creationDate || !item.size; });
  std::stable_sort(items.begin(), items.end(), [](const FolderItem& a, const FolderItem& b) {
    return *a.creationDate < *b.creationDate;
  });
  return items;
}

} // namespace frameloom
