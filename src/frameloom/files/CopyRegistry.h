#pragma once

#include <filesystem>
#include <vector>

namespace frameloom::detail {

// The recoloured copies and work folders this process wrote, for removeRecoloredCopies(). One
// list for the process, since the files outlive any one DotLottieFile; safe from any thread.
// Throws std::bad_alloc only.
void rememberRecoloredCopy(const std::filesystem::path& path);
// Hands over and forgets every path remembered so far.
std::vector<std::filesystem::path> takeRecoloredCopies();

} // namespace frameloom::detail
