#include "Console.h"

#include <frameloom/platform/system/Log.h>

#include <unistd.h>

namespace frameloom::tool {

Console::Console() : terminal_(isatty(STDERR_FILENO) == 1) {
  platform::setLogSink([this](std::string_view line) { logLine(line); });
}

Console::~Console() {
  platform::setLogSink(nullptr);
}

void Console::setQuiet(bool quiet) {
  std::lock_guard lock(mutex_);
  quiet_ = quiet;
}

bool Console::showsProgress() const {
  std::lock_guard lock(mutex_);
  return terminal_ && !quiet_;
}

void Console::clearBarLine() {
  if (!bar_.empty()) {
    std::fputs("\r\033[K", stderr);
  }
}

void Console::drawBar(const std::string& text) {
  std::lock_guard lock(mutex_);
  clearBarLine();
  bar_ = text;
  std::fputs(bar_.c_str(), stderr);
  std::fflush(stderr);
}

void Console::endBar() {
  std::lock_guard lock(mutex_);
  if (!bar_.empty()) {
    std::fputc('\n', stderr);
    std::fflush(stderr);
    bar_.clear();
  }
}

void Console::logLine(std::string_view line) {
  std::lock_guard lock(mutex_);
  clearBarLine();
  std::fflush(stderr);
  std::fwrite(line.data(), 1, line.size(), stdout);
  std::fputc('\n', stdout);
  std::fflush(stdout);
  if (!bar_.empty()) {
    std::fputs(bar_.c_str(), stderr);
    std::fflush(stderr);
  }
}

} // namespace frameloom::tool
