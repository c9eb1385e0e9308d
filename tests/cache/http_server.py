"""Local HTTP server for the cache tests and benchmarks: listens on 127.0.0.1 at an ephemeral port,
prints its port and process id on its first line and serves until terminated. Anything after the
path (/name, ?query) only makes a URL distinct, except for /redirect-to.

  /bytes/N          200 with N bytes of a fixed pattern
  /status/CODE      CODE with the body "status CODE" (none for 204)
  /redirect/N       a chain of N redirects ending at /bytes/64
  /redirect-to?URL  302 to URL (any scheme)
  /slow, /drop      announce 1000 bytes, send 10, then stall until the client leaves, or close
  anything else     200 with the number of requests served before this one
"""

import http.server
import itertools
import os
import urllib.parse

served = itertools.count()  # atomic under the interpreter lock


class Handler(http.server.BaseHTTPRequestHandler):
    def log_message(self, *args):
        pass

    def do_GET(self):
        url = urllib.parse.urlsplit(self.path)
        name, _, rest = url.path.strip("/").partition("/")
        number = int(rest.split("/")[0]) if rest[:1].isdigit() else 0
        count = next(served)
        body = (bytes(range(256)) * (number // 256 + 1))[:number]
        if name in ("slow", "drop"):
            self.close_connection = True
            self.send_response(200)
            self.send_header("Content-Length", "1000")
            self.end_headers()
            self.wfile.write(b"0123456789")
            self.wfile.flush()
            return name == "slow" and self.connection.recv(1)  # until the client closes
        if name in ("redirect", "redirect-to"):
            self.send_response(302)
            self.send_header("Location", urllib.parse.unquote(url.query) if name == "redirect-to"
                             else "/bytes/64" if number <= 1 else "/redirect/%d" % (number - 1))
            body = b""
        elif name == "status":
            self.send_response(number)
            body = b"" if number == 204 else b"status %d" % number
        else:
            self.send_response(200)
            body = body if name == "bytes" else str(count).encode()
        if number != 204:
            self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)


server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
server.daemon_threads = True
server.request_queue_size = 128
print(server.server_address[1], os.getpid(), flush=True)
server.serve_forever()
