#pragma once

#include <array>
#include <cstdint>
#include <frameloom/platform/Export.h>
#include <string>

namespace frameloom::platform {

// A 128-bit universally unique identifier. Plain value; safe to use from any thread.
struct FRAMELOOM_EXPORT Uuid {
  std::array<std::uint8_t, 16> bytes{};

  // A new version-4 (random) identifier.
  static Uuid random();

  // The 36-character upper-case text form, "E621E1F8-C36C-495A-93FC-0C247A3E6E5F".
  std::string uuidString() const;

  friend bool operator==(const Uuid&, const Uuid&) = default;
};

} // namespace frameloom::platform
