#include <frameloom/Version.h>

extern "C" {
const double FrameloomVersionNumber = 1.0;
const char FrameloomVersionString[] =
    "@(#)PROGRAM:Frameloom  PROJECT:Frameloom-" FRAMELOOM_VERSION "\n";
}
