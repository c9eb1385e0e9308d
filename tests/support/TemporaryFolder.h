#pragma once

// A fresh folder under the temporary directory, made on construction and removed with everything
// in it on destruction. Throws std::runtime_error when the folder cannot be made.

#include <filesystem>
#include <system_error>

namespace frameloom::testing {

class TemporaryFolder {
public:
  TemporaryFolder();
  ~TemporaryFolder() { std::filesystem::remove_all(path_, ignored_); }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(const std::filesystem::path& name) const { return path_ / name; }

private:
  std::filesystem::path path_;
  std::error_code ignored_;
};

} // namespace frameloom::testing
