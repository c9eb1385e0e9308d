#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

namespace ziploom {

// An owned byte buffer, and a view of one.
using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

// Supplies the next source bytes of an entry: given the position reached so far and the number of
// bytes wanted, returns normally exactly that many (fewer only when the source runs short).
// May throw; the error ends the operation that called it.
using Provider = std::function<Bytes(std::int64_t position, std::int64_t count)>;

// Receives the result bytes chunk by chunk. The view is valid only during the call. May throw.
using Consumer = std::function<void(ByteView chunk)>;

} // namespace ziploom
