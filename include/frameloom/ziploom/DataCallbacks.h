#pragma once

#include <frameloom/platform/core/Bytes.h>

#include <cstdint>
#include <functional>

namespace frameloom::ziploom {

using platform::Bytes;
using platform::ByteView;

// Supplies the next source bytes of an entry: given the position reached so far and the number of
// bytes wanted, returns normally exactly that many (fewer only when the source runs short).
// May throw; the error ends the operation that called it.
using Provider = std::function<Bytes(std::int64_t position, std::int64_t count)>;

// Receives the result bytes chunk by chunk. The view is valid only during the call. May throw.
using Consumer = std::function<void(ByteView chunk)>;

} // namespace frameloom::ziploom
