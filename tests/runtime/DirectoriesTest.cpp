#include "platform/system/Directories.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>

using namespace frameloom::platform;

namespace {

// Sets or clears an environment variable for the scope's lifetime.
struct ScopedEnvironment {
  ScopedEnvironment(const char* name, const char* value) : name(name) {
    const char* old = std::getenv(name);
    previous = old ? std::optional<std::string>(old) : std::nullopt;
    value ? setenv(name, value, 1) : unsetenv(name);
  }
  ~ScopedEnvironment() { previous ? setenv(name, previous->c_str(), 1) : unsetenv(name); }
  const char* name;
  std::optional<std::string> previous;
};

} // namespace

TEST(Directories, FollowTheEnvironment) {
  ScopedEnvironment home("HOME", "/home/someone");
  {
    ScopedEnvironment xdg("XDG_CACHE_HOME", "/var/cache/someone");
    ScopedEnvironment tmpdir("TMPDIR", "/scratch");
    EXPECT_EQ(userCachesDirectory(), "/var/cache/someone");
    EXPECT_EQ(temporaryDirectory(), "/scratch");
  }
  ScopedEnvironment relative("XDG_CACHE_HOME", "relative/cache");
  ScopedEnvironment unset("TMPDIR", nullptr);
  EXPECT_EQ(userCachesDirectory(), "/home/someone/.cache");
  EXPECT_EQ(temporaryDirectory(), "/tmp");
}
