#include "support/TemporaryFolder.h"

#include <cstdlib>
#include <stdexcept>
#include <string>

namespace frameloom::testing {

TemporaryFolder::TemporaryFolder() {
  auto pattern = (std::filesystem::temp_directory_path() / "frameloom-test-XXXXXX").string();
  if (!mkdtemp(pattern.data())) {
    throw std::runtime_error("cannot make a temporary folder");
  }
  path_ = pattern;
}

} // namespace frameloom::testing
