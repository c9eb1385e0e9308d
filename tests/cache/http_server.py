#!/usr/bin/env python3
"""Local HTTP server for the cache tests and benchmarks.

Listens on 127.0.0.1 at an ephemeral port, prints the port on the first line of standard output,
and serves until it is terminated. Paths (anything after them, such as /name or ?query, only
makes the URL distinct):

  /bytes/N            200 with N bytes of a fixed pattern
  /empty              200 with no body
  /status/CODE        CODE with the body "status CODE" (none for 204 and 304)
  /redirect/N         a chain of N redirects ending at /bytes/64
  /redirect-to?URL    302 to URL (any scheme)
  /slow               announces 1000 bytes, sends 10, then stalls until the client leaves
  /drop               announces 1000 bytes, sends 10, then closes the connection
  /garbage            answers with bytes that are not HTTP
  /requests           200 with the number of requests served before this one
"""

import http.server
import sys
import threading
import urllib.parse

PATTERN = bytes(range(256))


def pattern_bytes(count):
    whole, rest = divmod(count, len(PATTERN))
    return PATTERN * whole + PATTERN[:rest]


class Handler(http.server.BaseHTTPRequestHandler):
    requests_served = 0
    counter_lock = threading.Lock()

    def log_message(self, format, *args):
        pass

    def do_GET(self):
        parsed = urllib.parse.urlsplit(self.path)
        parts = parsed.path.strip("/").split("/")
        with Handler.counter_lock:
            served = Handler.requests_served
            Handler.requests_served += 1
        name = parts[0]
        if name == "bytes":
            self.answer(200, pattern_bytes(int(parts[1])))
        elif name == "empty":
            self.answer(200, b"")
        elif name == "status":
            code = int(parts[1])
            self.answer(code, b"" if code in (204, 304) else b"status %d" % code)
        elif name == "redirect":
            remaining = int(parts[1])
            target = "/bytes/64" if remaining <= 1 else "/redirect/%d" % (remaining - 1)
            self.redirect(target)
        elif name == "redirect-to":
            self.redirect(urllib.parse.unquote(parsed.query))
        elif name == "slow":
            self.partial_body()
            try:
                # The client sends nothing more; recv returns once it closes the connection.
                self.connection.recv(1)
            except OSError:
                pass
            self.close_connection = True
        elif name == "drop":
            self.partial_body()
            self.close_connection = True
        elif name == "garbage":
            self.wfile.write(b"\x00\xffNOT HTTP AT ALL\r\n\r\n" * 4)
            self.close_connection = True
        elif name == "requests":
            self.answer(200, str(served).encode())
        else:
            self.answer(404, b"not found")

    def answer(self, code, body):
        self.send_response(code)
        if code not in (204, 304):
            self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        if body:
            self.wfile.write(body)

    def redirect(self, location):
        self.send_response(302)
        self.send_header("Location", location)
        self.send_header("Content-Length", "0")
        self.end_headers()

    def partial_body(self):
        self.send_response(200)
        self.send_header("Content-Length", "1000")
        self.end_headers()
        self.wfile.write(pattern_bytes(10))
        self.wfile.flush()


class Server(http.server.ThreadingHTTPServer):
    daemon_threads = True
    request_queue_size = 128


def main():
    server = Server(("127.0.0.1", 0), Handler)
    print(server.server_address[1], flush=True)
    server.serve_forever()


if __name__ == "__main__":
    sys.exit(main())
