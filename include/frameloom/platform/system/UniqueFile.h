#pragma once

#include <cstdio>
#include <frameloom/platform/Export.h>
#include <memory>

namespace frameloom::platform {

// Closes a stdio stream when its owner goes; the closing result is not reported, so a writer that
// must know its data reached the file calls fclose itself (after release()) and checks it.
struct FRAMELOOM_EXPORT FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

// The one owner of a stdio stream.
using UniqueFile = std::unique_ptr<std::FILE, FileCloser>;

} // namespace frameloom::platform
