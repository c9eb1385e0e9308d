#include <frameloom/files/RecoloredCopies.h>

#include "frameloom/files/CopyRegistry.h"

#include <filesystem>
#include <system_error>

namespace frameloom {

std::size_t removeRecoloredCopies() {
  std::size_t removed = 0;
  for (const auto& path : detail::takeRecoloredCopies()) {
    std::error_code error;
    if (std::filesystem::remove_all(path, error) > 0 && !error) {
      ++removed;
    }
  }
  return removed;
}

} // namespace frameloom
