#include "platform/system/Directories.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>

using namespace frameloom::platform;

namespace {

// Sets or clears an environment variable for the scope's lifetime.
class ScopedEnvironment {
public:
  ScopedEnvironment(const char* name, const char* value) : name_(name) {
    if (const char* old = std::getenv(name)) {
      old_ = old;
    }
    value ? setenv(name, value, 1) : unsetenv(name);
  }
  ~ScopedEnvironment() { old_ ? setenv(name_, old_->c_str(), 1) : unsetenv(name_); }

private:
  const char* name_;
  std::optional<std::string> old_;
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
