#include <frameloom/Version.h>

extern "C" {
const double FrameloomVersionNumber = FRAMELOOM_VERSION_MAJOR + FRAMELOOM_VERSION_MINOR / 10.0;
const char FrameloomVersionString[] =
    "@(#)PROGRAM:Frameloom  PROJECT:Frameloom-" FRAMELOOM_VERSION_STRING "\n";

const char* frameloom_version(void) {
  return FRAMELOOM_VERSION_STRING;
}
}
