#pragma once

#include <frameloom/ziploom/Archive.h>

#include <chrono>
#include <string>
#include <utility>
#include <vector>

namespace frameloom::testing {

// The bytes of a ZIP archive holding the given file entries, deflated, in the given order.
inline frameloom::platform::Bytes
makeZip(const std::vector<std::pair<std::string, std::string>>& entries) {
  frameloom::ziploom::Archive archive(frameloom::platform::Bytes{},
                                      frameloom::ziploom::AccessMode::create);
  for (const auto& entry : entries) {
    const std::string& contents = entry.second;
    const auto size = static_cast<std::int64_t>(contents.size());
    archive.addEntry(entry.first, frameloom::ziploom::Entry::EntryType::file, size,
                     std::chrono::system_clock::now(), std::nullopt,
                     frameloom::ziploom::CompressionMethod::deflate, 16384, nullptr,
                     [&](std::int64_t position, std::int64_t count) {
                       const auto from = contents.begin() + position;
                       return frameloom::platform::Bytes(from, from + count);
                     });
  }
  return *archive.data();
}

} // namespace frameloom::testing
