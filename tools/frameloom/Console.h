#pragma once

#include <cstdio>
#include <mutex>
#include <string>
#include <string_view>

namespace frameloom::tool {

// The tool's terminal: while it lives it is the library's log sink, so that log lines (on
// standard output) and a progress bar (on standard error) never run into each other when both
// show on one terminal: the bar's line is cleared before a log line is printed and drawn again
// after it. Made once in main and handed to the commands by reference; any thread may call it,
// one call at a time under its mutex.
class Console {
public:
  Console();
  ~Console();
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;

  // --quiet: no progress bars, whatever standard error is.
  void setQuiet(bool quiet);
  // Whether progress bars are drawn: standard error is a terminal and --quiet was not given.
  bool showsProgress() const;

  // Shows `text` as the bar's line, replacing what was there.
  void drawBar(const std::string& text);
  // Leaves the bar's last text on its own line; later output starts below it.
  void endBar();
  // Prints one log line on standard output, out of the bar's way.
  void logLine(std::string_view line);

private:
  void clearBarLine();

  mutable std::mutex mutex_;
  bool terminal_;
  bool quiet_ = false;
  std::string bar_;
};

} // namespace frameloom::tool
