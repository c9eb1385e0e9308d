#include "frameloom/files/CopyRegistry.h"

#include <mutex>
#include <utility>

namespace frameloom::detail {
namespace {

struct Registry {
  std::mutex mutex;
  std::vector<std::filesystem::path> paths;
};

Registry& registry() {
  // Never destroyed: recolouring may still run on the shared executor while the process exits.
  static Registry* const instance = new Registry;
  return *instance;
}

} // namespace

void rememberRecoloredCopy(const std::filesystem::path& path) {
  auto& list = registry();
  std::lock_guard lock(list.mutex);
  list.paths.push_back(path);
}

std::vector<std::filesystem::path> takeRecoloredCopies() {
  auto& list = registry();
  std::lock_guard lock(list.mutex);
  return std::exchange(list.paths, {});
}

} // namespace frameloom::detail
