#pragma once

#include <frameloom/platform/Export.h>

#include <cstddef>

namespace frameloom {

// Addition for hosts: every recoloured load writes a copy of the .lottie file and a work folder
// into the temporary directory, and keeps them so that the copy can be loaded again. A
// long-running host calls this, when no recoloured load is in flight, to remove every copy and
// work folder written so far in this process. Returns how many it removed; items already gone or
// that cannot be removed are skipped (they are not retried). Never throws but std::bad_alloc.
FRAMELOOM_EXPORT std::size_t removeRecoloredCopies();

} // namespace frameloom
