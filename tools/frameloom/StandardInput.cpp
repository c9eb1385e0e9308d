#include "StandardInput.h"

#include "OutputFile.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <vector>

namespace frameloom::tool {

namespace {

// Removes the spooled copy however the command ends.
struct Spool {
  std::string path;
  int descriptor = -1;
  ~Spool() {
    if (descriptor >= 0) {
      close(descriptor);
    }
    if (!path.empty()) {
      std::remove(path.c_str());
    }
  }
};

[[noreturn]] void fail(const std::string& what) {
  throw std::runtime_error("standard input: " + what + ": " + std::strerror(errno));
}

} // namespace

void withInputFile(const std::string& path,
                   const std::function<void(const std::filesystem::path&)>& use) {
  if (!isStandardStream(path)) {
    use(path);
    return;
  }
  Spool spool;
  std::string pattern =
      (std::filesystem::temp_directory_path() / "frameloom-stdin-XXXXXX").string();
  spool.descriptor = mkstemp(pattern.data());
  if (spool.descriptor < 0) {
    fail("cannot make a temporary copy");
  }
  spool.path = pattern;
  std::vector<char> buffer(1 << 16);
  std::uintmax_t total = 0;
  for (;;) {
    const ssize_t count = read(STDIN_FILENO, buffer.data(), buffer.size());
    if (count == 0) {
      break;
    }
    if (count < 0) {
      if (errno == EINTR) {
        continue;
      }
      fail("cannot read");
    }
    total += static_cast<std::uintmax_t>(count);
    if (total > maxStandardInputBytes) {
      throw std::runtime_error("standard input: larger than " +
                               std::to_string(maxStandardInputBytes >> 20) + " MiB");
    }
    for (ssize_t written = 0; written < count;) {
      const ssize_t step = write(spool.descriptor, buffer.data() + written,
                                 static_cast<std::size_t>(count - written));
      if (step < 0 && errno != EINTR) {
        fail("cannot make a temporary copy");
      }
      written += std::max<ssize_t>(step, 0);
    }
  }
  use(spool.path);
}

} // namespace frameloom::tool
