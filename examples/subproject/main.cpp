// Uses Frameloom's public headers under the host's strict warnings, next to the host's own
// asio and platform targets.
#include "platform.h"

#include <frameloom/Version.h>
#include <frameloom/platform/graphics/Color.h>
#include <frameloom/player/LottiePlayer.h>

#include <iostream>

int main() {
  const auto green = frameloom::platform::Color::fromHex("#0f0").resolved({});
  std::cout << HOST_ASIO_NAME << ", " << hostPlatformName() << ", Frameloom "
            << FRAMELOOM_VERSION_STRING << ", green " << green.green << '\n';
  return green.green == 1.0 ? 0 : 1;
}
