#pragma once

#include <exception>
#include <filesystem>
#include <new>
#include <string>

namespace frameloom::tool {

// The one line the tool prints for an error: a file-system error as its path and the system's
// reason (its own text repeats the reason), running out of memory in words, others as they are.
inline std::string errorText(const std::exception& error) {
  if (const auto* failure = dynamic_cast<const std::filesystem::filesystem_error*>(&error)) {
    const std::string reason = failure->code().message();
    return failure->path1().empty() ? reason : failure->path1().string() + ": " + reason;
  }
  if (dynamic_cast<const std::bad_alloc*>(&error) != nullptr) {
    return "not enough memory";
  }
  return error.what();
}

// `errorText` with `path` in front, unless the text names it already.
inline std::string errorTextNaming(const std::string& path, const std::exception& error) {
  const std::string text = errorText(error);
  return text.starts_with(path + ": ") ? text : path + ": " + text;
}

} // namespace frameloom::tool
