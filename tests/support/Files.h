#pragma once

// Whole-file reads and writes for test set-up and checks. A missing file reads as empty; writing
// makes the parent folders first.

#include <frameloom/platform/core/Bytes.h>

#include <filesystem>
#include <string>
#include <string_view>

namespace frameloom::testing {

platform::Bytes bytesOf(std::string_view text);
platform::Bytes readFile(const std::filesystem::path& path);
std::string readText(const std::filesystem::path& path);
void writeFile(const std::filesystem::path& path, platform::ByteView bytes);
void writeFile(const std::filesystem::path& path, std::string_view text);

} // namespace frameloom::testing
