#include "support/Corpus.h"

#include <algorithm>
#include <cstdlib>

namespace frameloom::testing {

std::optional<std::filesystem::path> corpusFolder() {
  const char* named = std::getenv("FRAMELOOM_CORPUS");
  const std::filesystem::path folder =
      named ? std::filesystem::path(named)
            : std::filesystem::path(FRAMELOOM_SOURCE_DIR) / ".." / "shared" / "corpus";
  std::error_code error;
  if (!std::filesystem::is_directory(folder, error)) {
    return std::nullopt;
  }
  return folder.lexically_normal();
}

std::vector<std::filesystem::path> corpusFiles(std::string_view extension) {
  std::vector<std::filesystem::path> files;
  if (const auto folder = corpusFolder()) {
    for (const auto& item : std::filesystem::directory_iterator(*folder)) {
      if (item.is_regular_file() && item.path().extension() == extension) {
        files.push_back(item.path());
      }
    }
  }
  std::ranges::sort(files);
  return files;
}

} // namespace frameloom::testing
