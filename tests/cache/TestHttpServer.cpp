#include "TestHttpServer.h"

#include <signal.h>

#include <stdexcept>

namespace frameloom::testing {

TestHttpServer::TestHttpServer()
    : output_(::popen("exec python3 '" FRAMELOOM_SOURCE_DIR "/tests/cache/http_server.py'", "r")) {
  // The server's first line is its port and process id.
  if (output_ == nullptr || std::fscanf(output_, "%d %d", &port_, &process_) != 2) {
    stop();
    throw std::runtime_error("the test HTTP server did not start");
  }
}

std::string TestHttpServer::url(const std::string& path) const {
  return "http://127.0.0.1:" + std::to_string(port_) + path;
}

void TestHttpServer::stop() {
  if (process_ > 0) {
    ::kill(process_, SIGTERM);
  }
  if (output_ != nullptr) {
    ::pclose(output_);
  }
  output_ = nullptr;
  process_ = 0;
}

} // namespace frameloom::testing
