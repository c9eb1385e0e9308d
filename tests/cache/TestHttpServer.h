#pragma once

#include <cstdio>
#include <string>

namespace frameloom::testing {

// Runs tests/cache/http_server.py on 127.0.0.1 at an ephemeral port for as long as the object
// lives; the destructor (or stop()) terminates the process and waits for it.
class TestHttpServer {
public:
  TestHttpServer();
  TestHttpServer(const TestHttpServer&) = delete;
  TestHttpServer& operator=(const TestHttpServer&) = delete;
  ~TestHttpServer() { stop(); }

  // "http://127.0.0.1:PORT" followed by `path` (which starts with '/').
  std::string url(const std::string& path) const;
  void stop();

private:
  std::FILE* output_ = nullptr; // the server's standard output; closing it waits for the server
  int process_ = 0;
  int port_ = 0;
};

} // namespace frameloom::testing
