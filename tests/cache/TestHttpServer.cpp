#include "TestHttpServer.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>

extern char** environ;

namespace frameloom::testing {

TestHttpServer::TestHttpServer() {
  int pipeEnds[2];
  if (::pipe2(pipeEnds, O_CLOEXEC) != 0) {
    throw std::system_error(errno, std::generic_category(), "pipe");
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], STDOUT_FILENO);
  std::string script = std::string(FRAMELOOM_SOURCE_DIR) + "/tests/cache/http_server.py";
  char python[] = "python3";
  char* arguments[] = {python, script.data(), nullptr};
  int result = ::posix_spawnp(&process_, "python3", &actions, nullptr, arguments, environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(pipeEnds[1]);
  if (result != 0) {
    ::close(pipeEnds[0]);
    process_ = -1;
    throw std::system_error(result, std::generic_category(), "cannot start python3");
  }
  std::string line;
  char character = 0;
  while (::read(pipeEnds[0], &character, 1) == 1 && character != '\n') {
    line += character;
  }
  ::close(pipeEnds[0]);
  if (line.empty()) {
    stop();
    throw std::runtime_error("the test HTTP server did not start");
  }
  port_ = std::stoi(line);
}

TestHttpServer::~TestHttpServer() {
  stop();
}

std::string TestHttpServer::url(const std::string& path) const {
  return "http://127.0.0.1:" + std::to_string(port_) + path;
}

void TestHttpServer::stop() {
  if (process_ > 0) {
    ::kill(process_, SIGTERM);
    int status = 0;
    while (::waitpid(process_, &status, 0) < 0 && errno == EINTR) {
    }
    process_ = -1;
  }
}

} // namespace frameloom::testing
