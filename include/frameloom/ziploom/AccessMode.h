#pragma once

#include <cstdint>

namespace frameloom::ziploom {

// How an archive is opened: `create` makes a new, empty archive (failing when one exists) and
// opens it for reading and writing; `read` opens an existing one read-only; `update` opens an
// existing one for reading and writing.
enum class AccessMode : std::uint8_t { create = 0, read = 1, update = 2 };

} // namespace frameloom::ziploom
