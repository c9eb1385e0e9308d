#pragma once

#include <frameloom/platform/Export.h>

#include <functional>
#include <string_view>

namespace frameloom::platform {

// Where the library's log lines go. One sink for the process, chosen by the host; by default
// each line is written to standard output with a newline and flushed. A sink is called from
// whichever thread logs (the main loop, the shared executor), one line at a time: calls never
// overlap. A sink must not log itself. Nothing here throws.
using LogSink = std::function<void(std::string_view line)>;

// Replaces the sink; an empty function restores the default.
FRAMELOOM_EXPORT void setLogSink(LogSink sink);
// Hands `line` (without its newline) to the sink. A sink that throws loses the line.
FRAMELOOM_EXPORT void logLine(std::string_view line);

} // namespace frameloom::platform
