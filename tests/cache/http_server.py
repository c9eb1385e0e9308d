"""Local HTTP server for the cache tests and benchmarks: listens on 127.0.0.1 at an ephemeral port,
prints its port and process id on its first line and serves until terminated. Anything after the
path (/name, ?query) only makes a URL distinct, except for /redirect-to.

  /bytes/N          200 with N bytes of a fixed pattern
  /status/CODE      CODE with the body "status CODE" (none for 204)
  /redirect/N       a chain of N redirects ending at /bytes/64
  /redirect-to?URL  302 to URL (any scheme)
  /slow, /drop      announce 1000 bytes, send 10, then stall until the client leaves, or close
  /trickle          announce 1000 bytes, then send one every 200 ms until the client leaves
  /slow-headers     send the status line, then one header byte every 200 ms until the client
                    leaves
  /reset            announce 1000 bytes, send 10, then reset the connection
  /echo             200 with the whole request path as the body
  /open             200 with the number of /slow, /trickle and /slow-headers answers still running
  anything else     200 with the number of requests served before this one
"""

import http.server
import itertools
import os
import socket
import struct
import threading
import time
import urllib.parse

served = itertools.count()  # atomic under the interpreter lock
open_lock = threading.Lock()
open_answers = 0


def count_open(change):
    global open_answers
    with open_lock:
        open_answers += change


class Handler(http.server.BaseHTTPRequestHandler):
    def log_message(self, *args):
        pass

    def announce(self, first):
        """Announces 1000 bytes, sends `first` of them and closes the connection after."""
        self.close_connection = True
        self.send_response(200)
        self.send_header("Content-Length", "1000")
        self.end_headers()
        self.wfile.write(first)
        self.wfile.flush()

    def do_GET(self):
        url = urllib.parse.urlsplit(self.path)
        name, _, rest = url.path.strip("/").partition("/")
        number = int(rest.split("/")[0]) if rest[:1].isdigit() else 0
        count = next(served)
        body = (bytes(range(256)) * (number // 256 + 1))[:number]
        if name in ("slow", "trickle", "slow-headers"):
            count_open(1)
            try:
                if name == "slow-headers":
                    self.close_connection = True
                    self.wfile.write(b"HTTP/1.1 200 OK\r\n")
                else:
                    self.announce(b"0123456789" if name == "slow" else b"")
                if name == "slow":
                    self.connection.recv(1)  # until the client closes
                    return
                for _ in range(100000):
                    self.wfile.write(b"x" if name == "trickle" else b"X")
                    self.wfile.flush()
                    time.sleep(0.2)
            except OSError:
                pass
            finally:
                count_open(-1)
            return
        if name in ("reset", "drop"):
            self.announce(b"0123456789")
            if name == "reset":
                self.connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER,
                                           struct.pack("ii", 1, 0))
                self.connection.close()
            return
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
            body = (body if name == "bytes" else self.path.encode() if name == "echo"
                    else str(open_answers).encode() if name == "open" else str(count).encode())
        if number != 204:
            self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)


class Server(http.server.ThreadingHTTPServer):
    daemon_threads = True
    request_queue_size = 128  # the listen backlog: read when the server is made

    def handle_error(self, request, client_address):
        pass  # clients leaving a stalled or trickling answer are expected


server = Server(("127.0.0.1", 0), Handler)
print(server.server_address[1], os.getpid(), flush=True)
server.serve_forever()
