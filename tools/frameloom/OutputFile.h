#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace frameloom::tool {

// Whether `path` stands for standard output ("-").
inline bool isStandardStream(const std::string& path) {
  return path == "-";
}

// Writes `bytes` to standard output when `path` is "-", else beside `path` first and renamed into
// place, so that a failure never leaves a partial file under the name asked for. Throws
// std::runtime_error naming the path and the system's reason.
void writeOutput(std::span<const std::uint8_t> bytes, const std::string& path);

} // namespace frameloom::tool
