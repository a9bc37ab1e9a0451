#!/usr/bin/env python3
"""A web server that behaves as badly as the tests want.

Prints "port N" when it is ready, then one line per request ("GET /path"), and ends when its standard
input does, so that none is left behind by a test that was killed.

  /html/BASE64URL     that text as a page
  /status/CODE        a page with that status
  /redirect-loop      a redirect to itself, for ever
  /redirect/BASE64URL a redirect to that address
  /never              answers nothing
  /half               begins a page and never ends it
  /half-picture       begins a picture and never ends it
  /reset              closes the connection without an answer
  /nonsense           answers what is no HTTP
  /cookie/set         sets a cookie and says so
  /cookie/seen        a page with the cookies that came with the request
  /download           a file to be saved
  /locked             a page that asks for a password
"""
import base64
import socket
import struct
import sys
import threading
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

ended = threading.Event()


def decoded(text):
    return base64.urlsafe_b64decode(text + "=" * (-len(text) % 4))


class Handler(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, *_):
        pass

    def do_GET(self):
        print(f"{self.command} {self.path}", flush=True)
        name, _, rest = self.path.split("?")[0].lstrip("/").partition("/")
        action = getattr(self, "answer_" + name.replace("-", "_"), None)
        if action is None:
            self.page("not here", 404)
        else:
            action(rest)

    do_POST = do_GET

    def page(self, body, status=200, headers=()):
        data = body if isinstance(body, bytes) else body.encode()
        self.send_response(status)
        self.send_header("Content-Type", "text/html; charset=utf-8")
        self.send_header("Content-Length", str(len(data)))
        self.send_header("Cache-Control", "no-store")
        for header in headers:
            self.send_header(*header)
        self.end_headers()
        self.wfile.write(data)

    def answer_html(self, rest):
        self.page(decoded(rest))

    def answer_status(self, rest):
        self.page(f"<body>status {rest}", int(rest))

    def answer_redirect_loop(self, _):
        self.page("", 302, [("Location", "/redirect-loop")])

    def answer_redirect(self, rest):
        self.page("", 302, [("Location", decoded(rest).decode())])

    def answer_never(self, _):
        ended.wait()

    def begin(self, kind, start):
        self.send_response(200)
        self.send_header("Content-Type", kind)
        self.send_header("Content-Length", "1000000")
        self.end_headers()
        self.wfile.write(start)
        self.wfile.flush()
        ended.wait()

    def answer_half(self, _):
        self.begin("text/html", b"<!doctype html><body style='margin:0;background:#00f'>half" +
                   b" " * 5000)

    def answer_half_picture(self, _):
        self.begin("image/png", b"\x89PNG\r\n\x1a\n")

    def answer_reset(self, _):
        self.connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        self.close_connection = True
        self.connection.close()

    def answer_nonsense(self, _):
        self.wfile.write(b"\x00\x01\x02 this is no answer\r\n\r\n")
        self.close_connection = True

    def answer_cookie(self, rest):
        if rest == "set":
            self.page("<body>set", 200, [("Set-Cookie", "taste=sweet; Path=/; Max-Age=3600"),
                                         ("Set-Cookie", "shape=round; Path=/cookie")])
        else:
            seen = "; ".join(sorted((self.headers.get("Cookie") or "none").split("; ")))
            self.page(f"<body>{seen}")

    def answer_download(self, _):
        self.page(b"\x00" * 100000, 200, [("Content-Disposition", "attachment; filename=show.bin")])

    def answer_locked(self, _):
        self.page("<body>locked", 401, [("WWW-Authenticate", 'Basic realm="peer"')])


class Server(ThreadingHTTPServer):
    daemon_threads = True
    request_queue_size = 64

    def handle_error(self, *_):
        pass  # browsers hang up as they please


def main():
    server = Server(("127.0.0.1", 0), Handler)
    print(f"port {server.server_address[1]}", flush=True)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    sys.stdin.read()
    ended.set()


if __name__ == "__main__":
    main()
