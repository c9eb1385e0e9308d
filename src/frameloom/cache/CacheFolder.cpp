#include <frameloom/cache/CacheFolder.h>

#include <frameloom/platform/system/Log.h>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
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
  FileDescriptor(FileDescriptor&& other) noexcept
      : descriptor_(std::exchange(other.descriptor_, -1)) {}
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

// The extended attribute holding the URL a file's bytes belong to.
constexpr const char* urlAttribute = "user.frameloom.url";

using Clock = std::chrono::system_clock;

bool isTemporary(const std::string& name) {
  return !name.empty() && name.front() == '.';
}

std::optional<FolderItem> describe(int folder, const fs::path& directory, const std::string& name) {
  struct statx attributes {};
  if (::statx(folder, name.c_str(), AT_SYMLINK_NOFOLLOW,
              STATX_TYPE | STATX_SIZE | STATX_BTIME | STATX_MTIME, &attributes) != 0) {
    return std::nullopt;
  }
  FolderItem item{directory / name, std::nullopt, std::nullopt};
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

// Opens a folder for listing without following a symbolic link at its last component; errno is
// ELOOP for a link.
FileDescriptor openFolder(int parent, const char* path) {
  FileDescriptor folder(::openat(parent, path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat attributes {};
  if (folder.get() < 0 && errno == ENOTDIR &&
      ::fstatat(parent, path, &attributes, AT_SYMLINK_NOFOLLOW) == 0 &&
      S_ISLNK(attributes.st_mode)) {
    errno = ELOOP;
  }
  return folder;
}

// The names in an open folder ("." and ".." left out); nullopt when it cannot be listed.
std::optional<std::vector<std::string>> listNames(const FileDescriptor& folder) {
  DIR* listing = ::fdopendir(::dup(folder.get()));
  if (listing == nullptr) {
    return std::nullopt;
  }
  std::vector<std::string> names;
  while (const dirent* entry = ::readdir(listing)) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") {
      names.push_back(name);
    }
  }
  ::closedir(listing);
  return names;
}

// Whether a temporary's writer must have died: only such temporaries are deleted.
bool isAbandoned(const FolderItem& temporary) {
  return temporary.creationDate && temporary.size &&
         *temporary.creationDate < Clock::now() - CacheFolder::abandonedTemporaryAge;
}

struct Listing {
  std::vector<FolderItem> items;
  std::vector<FolderItem> abandoned; // temporaries older than abandonedTemporaryAge
};

// The folder's items with their attributes, temporaries apart; nullopt when it cannot be listed.
std::optional<Listing> listItems(const fs::path& path) {
  const FileDescriptor folder = openFolder(AT_FDCWD, path.c_str());
  if (folder.get() < 0) {
    return std::nullopt;
  }
  auto names = listNames(folder);
  if (!names) {
    return std::nullopt;
  }
  Listing listing;
  for (const std::string& name : *names) {
    if (auto item = describe(folder.get(), path, name); item && !isTemporary(name)) {
      listing.items.push_back(std::move(*item));
    } else if (item && isAbandoned(*item)) {
      listing.abandoned.push_back(std::move(*item));
    }
  }
  return listing;
}

// Deletes `name` in the open `folder`: a sub-folder with its contents, never what a symbolic
// link points to. Throws fs::filesystem_error.
void removeItem(int folder, const fs::path& path, const std::string& name) {
  if (::unlinkat(folder, name.c_str(), 0) == 0 || errno == ENOENT) {
    return;
  }
  if (errno != EISDIR && errno != EPERM) {
    throw fs::filesystem_error("cannot remove", path / name,
                               std::error_code(errno, std::generic_category()));
  }
  const FileDescriptor inner = openFolder(folder, name.c_str());
  if (inner.get() < 0 && errno == ENOENT) {
    return; // removed meanwhile, by a wipe of another process
  }
  if (inner.get() < 0) {
    throw fs::filesystem_error("cannot open", path / name,
                               std::error_code(errno, std::generic_category()));
  }
  for (const std::string& innerName : listNames(inner).value_or(std::vector<std::string>{})) {
    removeItem(inner.get(), path / name, innerName);
  }
  if (::unlinkat(folder, name.c_str(), AT_REMOVEDIR) != 0 && errno != ENOENT) {
    throw fs::filesystem_error("cannot remove", path / name,
                               std::error_code(errno, std::generic_category()));
  }
}

void removeReporting(const FolderItem& item, std::int64_t& total) {
  std::error_code error;
  if (fs::remove(item.path, error) && !error) {
    total -= item.size.value_or(0);
    return;
  }
  if (!error) {
    error = std::make_error_code(std::errc::no_such_file_or_directory);
  }
  const fs::filesystem_error failure("cannot remove", item.path, error);
  platform::logLine(std::string("Failed to remove cache file: ") + failure.what());
}

} // namespace

CacheFolder::CacheFolder(fs::path folder) : folder_(std::move(folder)) {}

void CacheFolder::create() const {
  std::error_code ignored;
  fs::create_directories(folder_, ignored);
}

std::optional<std::vector<std::uint8_t>> CacheFolder::read(const std::string& key,
                                                           const std::string& url) const {
  const fs::path file = fileFor(key);
  FileDescriptor descriptor(::open(file.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  if (descriptor.get() < 0 && (errno == ENOENT || errno == ELOOP)) {
    return std::nullopt;
  }
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
  // Read from the open file, so the URL and the bytes are those of one file even while another
  // writer replaces it.
  std::string owner(url.size() + 1, '\0');
  const ssize_t ownerLength =
      ::fgetxattr(descriptor.get(), urlAttribute, owner.data(), owner.size());
  if (ownerLength < 0 || owner.substr(0, static_cast<std::size_t>(ownerLength)) != url) {
    return std::nullopt;
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

void CacheFolder::write(const std::string& key, const std::string& url,
                        std::span<const std::uint8_t> bytes) const {
  const fs::path file = fileFor(key);
  if (std::error_code ignored; fs::is_symlink(folder_, ignored)) {
    errno = ELOOP;
    throwErrno(file, "cannot create");
  }
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
  if (::fchmod(descriptor.get(), 0644) != 0 ||
      ::fsetxattr(descriptor.get(), urlAttribute, url.data(), url.size(), 0) != 0) {
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
  for (const FolderItem& item : listItems(folder_).value_or(Listing{}).items) {
    total += item.size.value_or(0);
  }
  return total;
}

void CacheFolder::trim(std::int64_t target) const {
  auto listing = listItems(folder_);
  if (!listing) {
    return;
  }
  std::int64_t total = 0;
  for (const FolderItem& item : listing->items) {
    total += item.size.value_or(0);
  }
  for (const FolderItem& temporary : listing->abandoned) {
    std::int64_t untracked = 0;
    removeReporting(temporary, untracked);
  }
  for (const FolderItem& candidate : evictionCandidates(std::move(listing->items))) {
    if (total <= target) {
      break;
    }
    removeReporting(candidate, total);
  }
}

void CacheFolder::removeAll() const {
  const FileDescriptor folder = openFolder(AT_FDCWD, folder_.c_str());
  if (folder.get() < 0) {
    throw fs::filesystem_error("cannot open", folder_,
                               std::error_code(errno, std::generic_category()));
  }
  auto names = listNames(folder);
  if (!names) {
    throw fs::filesystem_error("cannot list", folder_,
                               std::error_code(errno, std::generic_category()));
  }
  for (const std::string& name : *names) {
    const auto item = describe(folder.get(), folder_, name);
    if (!isTemporary(name) || (item && isAbandoned(*item))) {
      removeItem(folder.get(), folder_, name);
    }
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
