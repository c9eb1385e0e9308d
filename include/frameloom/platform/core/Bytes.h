#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace frameloom::platform {

// An owned byte buffer, and a view of one: the byte types every layer passes around.
using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

} // namespace frameloom::platform
