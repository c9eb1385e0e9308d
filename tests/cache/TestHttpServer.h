#pragma once

#include <filesystem>
#include <string>
#include <sys/types.h>

namespace frameloom::testing {

// Runs tests/cache/http_server.py on 127.0.0.1 at an ephemeral port for as long as the object
// lives; the destructor (or stop()) terminates the process and waits for it.
class TestHttpServer {
public:
  TestHttpServer();
  TestHttpServer(const TestHttpServer&) = delete;
  TestHttpServer& operator=(const TestHttpServer&) = delete;
  ~TestHttpServer();

  // "http://127.0.0.1:PORT" followed by `path` (which starts with '/').
  std::string url(const std::string& path) const;
  int port() const { return port_; }
  void stop();

private:
  pid_t process_ = -1;
  int port_ = 0;
};

} // namespace frameloom::testing
