#pragma once

#include <frameloom/platform/Export.h>

#include <string>
#include <utility>
#include <vector>

namespace frameloom::platform {

// The libraries Frameloom was built with and their versions, as name and version pairs ("zlib",
// "1.2.13"): those linked report their own version at run time, the others the version of the
// headers they were built with. For a tool's --version and for bug reports. Any thread; throws
// nothing but std::bad_alloc.
FRAMELOOM_EXPORT std::vector<std::pair<std::string, std::string>> libraryVersions();

} // namespace frameloom::platform
