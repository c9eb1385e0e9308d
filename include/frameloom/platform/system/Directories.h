#pragma once

#include <filesystem>
#include <frameloom/platform/Export.h>

namespace frameloom::platform {

// The per-user folders the library keeps files in. Both read the environment on every call and
// touch no file system; neither creates the folder it names.

// $XDG_CACHE_HOME when set to an absolute path, else $HOME/.cache, else the home folder of the
// user database entry, else the temporary directory.
FRAMELOOM_EXPORT std::filesystem::path userCachesDirectory();

// $TMPDIR when set and not empty, else /tmp.
FRAMELOOM_EXPORT std::filesystem::path temporaryDirectory();

} // namespace frameloom::platform
