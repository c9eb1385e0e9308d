// The frameloom command-line tool: a thin shell over the library's public API.
//
// Exit status: 0 on success, 1 on failure with one line "frameloom: <what went wrong>" on
// standard error, 2 on a usage error with a short usage text.

#include "AnimationCommands.h"
#include "ArchiveCommands.h"
#include "CacheCommands.h"
#include "DemoCommand.h"
#include "ErrorText.h"
#include "Interruption.h"
#include "PlayCommand.h"
#include "RenderCommand.h"
#include <frameloom/Version.h>
#include <frameloom/platform/runtime/SharedExecutor.h>

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>
#include <iostream>

namespace {

// Work still running on the shared pool when a command ends (a frame being rendered, an animation
// being destroyed) finishes before main() returns, while the renderer's static objects exist.
struct SharedExecutorShutdown {
  ~SharedExecutorShutdown() { frameloom::platform::shutDownSharedExecutor(); }
};

} // namespace

int main(int argc, char** argv) {
  // Before any other thread starts, so that every thread leaves the signals to it.
  frameloom::tool::Interruption interruption;
  const SharedExecutorShutdown shutdown;
  CLI::App app{"frameloom: recoloured dotLottie animations and ZIP archives", "frameloom"};
  app.require_subcommand(1);
  frameloom::tool::addAnimationCommands(app);
  frameloom::tool::addArchiveCommands(app, interruption);
  frameloom::tool::addCacheCommands(app);
  frameloom::tool::addRenderCommand(app);
  frameloom::tool::addPlayCommand(app);
  frameloom::tool::addDemoCommand(app);
  app.set_version_flag("--version", std::string(FrameloomVersionString)
                                        .substr(0, std::string(FrameloomVersionString).find('\n')));

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForVersion& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    std::cerr << "frameloom: " << e.what() << "\n" << app.help("", CLI::AppFormatMode::Normal);
    return 2;
  } catch (const std::exception& e) {
    std::fflush(stdout);
    std::cerr << "frameloom: " << frameloom::tool::errorText(e) << "\n";
    return 1;
  }
  return 0;
}
