#pragma once

#include <frameloom/platform/Export.h>

namespace frameloom::platform {

// A width and a height in points, as two doubles. No invariant: callers that turn a size into
// pixels decide what to do with negative, fractional or non-finite values.
struct FRAMELOOM_EXPORT Size {
  double width = 0;
  double height = 0;

  friend bool operator==(const Size&, const Size&) = default;
};

} // namespace frameloom::platform
