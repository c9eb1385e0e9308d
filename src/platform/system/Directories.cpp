#include <frameloom/platform/system/Directories.h>

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace frameloom::platform {
namespace {

const char* environment(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr && *value != '\0' ? value : nullptr;
}

std::filesystem::path homeDirectory() {
  if (const char* home = environment("HOME")) {
    return home;
  }
  long size = sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buffer(size > 0 ? static_cast<std::size_t>(size) : 16384);
  passwd entry{};
  passwd* found = nullptr;
  if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr &&
      found->pw_dir != nullptr && *found->pw_dir != '\0') {
    return found->pw_dir;
  }
  return {};
}

} // namespace

std::filesystem::path userCachesDirectory() {
  // The XDG rules ignore relative values.
  if (const char* cache = environment("XDG_CACHE_HOME"); cache != nullptr && *cache == '/') {
    return cache;
  }
  std::filesystem::path home = homeDirectory();
  return home.empty() ? temporaryDirectory() / ".cache" : home / ".cache";
}

std::filesystem::path temporaryDirectory() {
  if (const char* tmp = environment("TMPDIR")) {
    return tmp;
  }
  return "/tmp";
}

} // namespace frameloom::platform
