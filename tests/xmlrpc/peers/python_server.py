#!/usr/bin/env python3
"""An XML-RPC server of Python's own library, for tests.

usage: python_server.py [--tls ADDRESS PORT]

Prints its port, and with --tls the file of its certificate, in one line; ends when standard input does.
"""
import os
import pathlib
import ssl
import subprocess
import sys
import tempfile
import threading
import xmlrpc.client
import xmlrpc.server

BOUNDARY = "xYzZY"


def fail(code, text):
    raise xmlrpc.client.Fault(code, text)


def repeat(text, count):
    return [text] * count


class handler(xmlrpc.server.SimpleXMLRPCRequestHandler):
    """Answers a call of "multipart" in two parts, the second of which is bytes of all kinds."""

    def do_POST(self):
        if self.path != "/multipart":
            super().do_POST()
            return
        self.rfile.read(int(self.headers["Content-Length"]))
        response = xmlrpc.client.dumps(("cid:all",), methodresponse=True).encode()
        body = b"".join([
            f"--{BOUNDARY}\r\nContent-Type: text/xml\r\n\r\n".encode(), response,
            f"\r\n--{BOUNDARY}\r\nContent-ID: <all>\r\n\r\n".encode(), bytes(range(256)),
            f"\r\n--{BOUNDARY}--\r\n".encode()])
        self.send_response(200)
        self.send_header("Content-Type", f"multipart/related; boundary={BOUNDARY}")
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)


handler.rpc_paths = ("/RPC2", "/multipart")


def certificate(folder, address):
    key, cert = folder / "key.pem", folder / "cert.pem"
    subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2",
                    "-subj", "/CN=test", "-addext", f"subjectAltName=IP:{address}",
                    "-keyout", key, "-out", cert], check=True, stdin=subprocess.DEVNULL,
                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return key, cert


def serve(address, port, folder):
    server = xmlrpc.server.SimpleXMLRPCServer(
        (address, port), requestHandler=handler, logRequests=False, allow_none=True)
    words = [str(server.server_address[1])]
    if folder:
        key, cert = certificate(folder, address)
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(cert, key)
        server.socket = context.wrap_socket(server.socket, server_side=True)
        words.append(str(cert))
    server.register_function(lambda *values: list(values), "echo")
    server.register_function(lambda a, b: a + b, "add")
    server.register_function(fail, "fail")
    server.register_function(repeat, "repeat")
    server.register_function(lambda value: type(value).__name__, "type")
    server.register_multicall_functions()
    print(*words, flush=True)
    server.serve_forever()


def main():
    threading.Thread(target=lambda: (sys.stdin.read(), os._exit(0)), daemon=True).start()
    if sys.argv[1:2] == ["--tls"]:
        with tempfile.TemporaryDirectory() as folder:
            serve(sys.argv[2], int(sys.argv[3]), pathlib.Path(folder))
    else:
        serve("127.0.0.1", 0, None)


if __name__ == "__main__":
    main()
