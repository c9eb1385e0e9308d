#include "support/Files.h"

#include <fstream>
#include <iterator>

namespace frameloom::testing {

platform::Bytes bytesOf(std::string_view text) {
  return {text.begin(), text.end()};
}

platform::Bytes readFile(const std::filesystem::path& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

std::string readText(const std::filesystem::path& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

void writeFile(const std::filesystem::path& path, platform::ByteView bytes) {
  writeFile(path, std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

void writeFile(const std::filesystem::path& path, std::string_view text) {
  if (path.has_parent_path()) {
    std::filesystem::create_directories(path.parent_path());
  }
  std::ofstream(path, std::ios::binary)
      .write(text.data(), static_cast<std::streamsize>(text.size()));
}

} // namespace frameloom::testing
