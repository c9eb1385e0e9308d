#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

namespace frameloom::tool {

// Runs `use` on the file `path` names; for "-", on a temporary copy of standard input, removed
// afterwards. The library reads files by path (and reads some twice), so standard input is
// spooled to disk first, at most `maxStandardInputBytes`. Throws std::runtime_error when the
// copy cannot be made or standard input is larger.
void withInputFile(const std::string& path,
                   const std::function<void(const std::filesystem::path&)>& use);

// The most standard input spooled: as large as any archive or animation the tool is expected to
// take, so that a stream that never ends costs a bounded amount of disk.
constexpr std::uintmax_t maxStandardInputBytes = std::uintmax_t{1} << 30;

} // namespace frameloom::tool
