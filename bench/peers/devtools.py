"""Starts Chromium without a window and speaks its DevTools protocol, with Python's library only."""
import base64
import json
import os
import pathlib
import shutil
import socket
import struct
import subprocess
import tempfile
import time
import urllib.request

# What a machine without a display and a GPU needs; the same as the other hosts here are given.
SWITCHES = ["--headless=new", "--no-sandbox", "--ozone-platform=headless", "--disable-gpu-compositing", "--use-gl=angle",
            "--use-angle=swiftshader", "--enable-unsafe-swiftshader", "--disable-dev-shm-usage", "--no-first-run",
            "--hide-scrollbars", "--autoplay-policy=no-user-gesture-required", "--remote-debugging-port=0",
            "--allow-file-access-from-files"]


class WebSocket:
    """The client's half of RFC 6455, as much as the protocol needs: text messages, any length."""

    def __init__(self, url):
        host, path = url.removeprefix("ws://").split("/", 1)
        name, port = host.rsplit(":", 1)
        self.socket = socket.create_connection((name, int(port)), timeout=20)
        self.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        key = base64.b64encode(os.urandom(16)).decode()
        self.socket.sendall(f"GET /{path} HTTP/1.1\r\nHost: {host}\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                            f"Sec-WebSocket-Key: {key}\r\nSec-WebSocket-Version: 13\r\n\r\n".encode())
        self.bytes = self.socket.makefile("rb", buffering=1 << 20)
        if b" 101 " not in self.bytes.readline():
            raise RuntimeError("the browser did not take the WebSocket")
        while self.bytes.readline().strip():
            pass

    def send(self, text):
        data = text.encode()
        mask = os.urandom(4)
        head = b"\x81" + (bytes([0x80 | len(data)]) if len(data) < 126
                          else b"\xfe" + struct.pack(">H", len(data)) if len(data) < 65536
                          else b"\xff" + struct.pack(">Q", len(data)))
        self.socket.sendall(head + mask + bytes(b ^ mask[i % 4] for i, b in enumerate(data)))

    def receive(self):
        """The next message's bytes; pieces of one are put together."""
        whole = b""
        while True:
            first, second = self.bytes.read(2)
            length = second & 0x7f
            if length == 126:
                length, = struct.unpack(">H", self.bytes.read(2))
            elif length == 127:
                length, = struct.unpack(">Q", self.bytes.read(8))
            data = self.bytes.read(length)
            if first & 0x0f in (0, 1, 2):
                whole += data
                if first & 0x80:
                    return whole


class Page:
    """One page in a browser of its own; both end with the `with` block."""

    def __init__(self, url, size):
        self.width, self.height = (int(side) for side in size.split("x"))
        self.url = url
        self.number = 0
        self.events = []

    def __enter__(self):
        program = next(filter(None, map(shutil.which, ("chromium", "chromium-browser", "google-chrome"))), None)
        if not program:
            raise FileNotFoundError("chromium is not installed (Debian: chromium)")
        self.folder = tempfile.mkdtemp(prefix="bench_chromium_")
        self.process = subprocess.Popen(
            [program, *SWITCHES, f"--user-data-dir={self.folder}", f"--window-size={self.width},{self.height}", "about:blank"],
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, stdin=subprocess.DEVNULL)
        try:
            self.connect()
        except BaseException:
            self.__exit__()
            raise
        return self

    def connect(self):
        port_file = pathlib.Path(self.folder, "DevToolsActivePort")
        end = time.monotonic() + 20
        while not port_file.exists() or not port_file.read_text().strip():
            if self.process.poll() is not None or time.monotonic() > end:
                raise RuntimeError("the browser did not start")
            time.sleep(0.02)
        port = port_file.read_text().split()[0]
        with urllib.request.urlopen(f"http://127.0.0.1:{port}/json/list", timeout=20) as answer:
            targets = json.load(answer)
        page = next(target for target in targets if target["type"] == "page")
        self.wire = WebSocket(page["webSocketDebuggerUrl"])
        self.call("Page.enable")
        self.call("Emulation.setDeviceMetricsOverride", width=self.width, height=self.height, deviceScaleFactor=1,
                  mobile=False)
        self.call("Page.navigate", url=self.url)
        # A page that is still on its way has no picture to send.
        while not any(event.get("method") == "Page.loadEventFired" for event in self.events):
            self.events.append(json.loads(self.wire.receive()))

    def __exit__(self, *_):
        self.process.terminate()
        try:
            self.process.wait(10)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        shutil.rmtree(self.folder, ignore_errors=True)

    def send(self, method, **parameters):
        self.number += 1
        self.wire.send(json.dumps({"id": self.number, "method": method, "params": parameters}))
        return self.number

    def call(self, method, **parameters):
        number = self.send(method, **parameters)
        while True:
            message = json.loads(self.wire.receive())
            if message.get("id") == number:
                if "error" in message:
                    raise RuntimeError(f"{method}: {message['error']}")
                return message["result"]
            self.events.append(message)
