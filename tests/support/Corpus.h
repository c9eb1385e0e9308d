#pragma once

// The corpus of real animations nobody here wrote: the folder named by $FRAMELOOM_CORPUS, else
// ../shared/corpus next to the repository. Tests that use it skip when it is absent.

#include <filesystem>
#include <optional>
#include <string_view>
#include <vector>

namespace frameloom::testing {

std::optional<std::filesystem::path> corpusFolder();
// The corpus files with this extension (".json", ".lottie"), sorted; none without a corpus.
std::vector<std::filesystem::path> corpusFiles(std::string_view extension);

} // namespace frameloom::testing
