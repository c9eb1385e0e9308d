// The frameloom command-line tool: a thin shell over the library's public API.
//
// Exit status: 0 on success, 1 on failure with one line "frameloom: <what went wrong>" on
// standard error, 2 on a usage error with one line naming it and the --help to read.

#include "AnimationCommands.h"
#include "ArchiveCommands.h"
#include "CacheCommands.h"
#include "CompareCommand.h"
#include "Console.h"
#include "DemoCommand.h"
#include "ErrorText.h"
#include "Interruption.h"
#include "PlayCommand.h"
#include "RenderCommand.h"
#include "Usage.h"
#include <frameloom/Version.h>
#include <frameloom/platform/runtime/SharedExecutor.h>
#include <frameloom/platform/system/LibraryVersions.h>

#include <CLI/CLI.hpp>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <iostream>

namespace {

// Work still running on the shared pool when a command ends (a frame being rendered, an animation
// being destroyed) finishes before main() returns, while the renderer's static objects exist.
struct SharedExecutorShutdown {
  ~SharedExecutorShutdown() { frameloom::platform::shutDownSharedExecutor(); }
};

std::string versionText() {
  std::string text = std::string("frameloom ") + frameloom_version();
  for (const auto& [name, version] : frameloom::platform::libraryVersions()) {
    text += "\n" + name + " " + version;
  }
  return text;
}

// Everything written to standard output reached it; a full disk or a closed pipe is a failure.
int finishOutput(int status) {
  std::cout.flush();
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0 || !std::cout) {
    const int error = errno;
    std::cerr << "frameloom: cannot write to standard output: " << std::strerror(error) << "\n";
    return status == 0 ? 1 : status;
  }
  return status;
}

} // namespace

int main(int argc, char** argv) {
  // Before any other thread starts, so that every thread leaves the signals to it.
  frameloom::tool::Interruption interruption;
  const SharedExecutorShutdown shutdown;
  frameloom::tool::Console console;
  CLI::App app{"frameloom: recoloured dotLottie animations and ZIP archives", "frameloom"};
  app.require_subcommand(1);
  // Options the tool takes anywhere on the line, such as --quiet, reach it from every command.
  app.fallthrough();
  app.add_flag_callback(
      "-q,--quiet", [&console] { console.setQuiet(true); }, "No progress bars");
  app.set_version_flag("--version", versionText(),
                       "Print the versions of frameloom and its libraries");
  frameloom::tool::addAnimationCommands(app);
  frameloom::tool::addArchiveCommands(app, interruption, console);
  frameloom::tool::addCacheCommands(app, console);
  frameloom::tool::addRenderCommand(app, console);
  frameloom::tool::addCompareCommand(app, console);
  frameloom::tool::addPlayCommand(app, console);
  frameloom::tool::addDemoCommand(app, console);

  const std::vector<std::string> arguments(argv + 1, argv + argc);
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return finishOutput(app.exit(e));
  } catch (const CLI::CallForAllHelp& e) {
    return finishOutput(app.exit(e));
  } catch (const CLI::CallForVersion& e) {
    return finishOutput(app.exit(e));
  } catch (const CLI::ParseError& e) {
    std::cerr << "frameloom: " << frameloom::tool::usageLine(app, arguments, e.what()) << "\n";
    return finishOutput(2);
  } catch (const frameloom::tool::UsageError& e) {
    std::fflush(stdout);
    std::cerr << "frameloom: " << frameloom::tool::usageLine(app, arguments, e.what()) << "\n";
    return finishOutput(2);
  } catch (const std::exception& e) {
    std::fflush(stdout);
    std::cerr << "frameloom: " << frameloom::tool::errorText(e) << "\n";
    return finishOutput(1);
  }
  return finishOutput(0);
}
