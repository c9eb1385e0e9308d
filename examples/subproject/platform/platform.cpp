#include "platform.h"

const char* hostPlatformName() {
  return "host platform";
}
