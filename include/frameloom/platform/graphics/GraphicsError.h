#pragma once

#include <stdexcept>

namespace frameloom::platform {

// The base of every error the graphics layer raises (PngError, WebpError), so that one catch
// takes them all.
class GraphicsError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

} // namespace frameloom::platform
