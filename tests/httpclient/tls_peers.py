#!/usr/bin/env python3
"""Runs a program beside servers that speak TLS, each with another certificate.

usage: tls_peers.py PROGRAM [ARGUMENT...]

Each server answers every request on 127.0.0.1 with "hello". The program finds the port of server NAME in
the variable TLS_PEER_NAME, and in TLS_PEERS_ROOT the file (DER) of the certificate that has signed all but
that of SELF_SIGNED. It ends with the program's status.
"""
import datetime
import os
import pathlib
import socket
import ssl
import subprocess
import sys
import tempfile
import threading

DAY = datetime.timedelta(days=1)

# Name: what the certificate is for, and its days from now.
PEERS = {
    "GOOD": ("localhost", -1, 1),
    "EXPIRED": ("localhost", -3, -1),
    "EARLY": ("localhost", 1, 3),
    "OTHER_NAME": ("example.org", -1, 1),
}

# What "openssl ca" has to be told in a file.
SIGNING = """[ca]
default_ca = test
[test]
database = index
new_certs_dir = .
default_md = sha256
policy = any
certificate = root.pem
private_key = key.pem
rand_serial = yes
unique_subject = no
copy_extensions = copy
[any]
commonName = supplied
"""


def openssl(folder, *words):
    subprocess.run(["openssl", *words], check=True, cwd=folder, stdin=subprocess.DEVNULL,
                   stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)


def make_root(folder):
    # With a name of this run's own: another run may have the system trust one at the same time.
    (folder / "signing.cnf").write_text(SIGNING, encoding="ascii")
    (folder / "index").touch()
    for name in ("root", "self_signed"):
        openssl(folder, "req", "-x509", *(["-key", "key.pem"] if name != "root" else
                                          ["-newkey", "rsa:2048", "-nodes", "-keyout", "key.pem"]),
                "-days", "2", "-subj", f"/CN=Test {name} {os.getpid()}", "-addext", "subjectAltName=DNS:localhost",
                "-out", f"{name}.pem")
    openssl(folder, "x509", "-in", "root.pem", "-outform", "DER", "-out", "root.der")


def day(days):
    return (datetime.datetime.now(datetime.timezone.utc) + days * DAY).strftime("%Y%m%d%H%M%SZ")


def make_certificate(folder, name, host, first, last):
    openssl(folder, "req", "-new", "-key", "key.pem", "-subj", f"/CN={host}",
            "-addext", f"subjectAltName=DNS:{host}", "-out", "request.pem")
    openssl(folder, "ca", "-batch", "-notext", "-config", "signing.cnf", "-in", "request.pem",
            "-startdate", day(first), "-enddate", day(last), "-out", f"{name.lower()}.pem")


def talk(context, connection):
    try:
        with context.wrap_socket(connection, server_side=True) as secure:
            head = b""
            while b"\r\n\r\n" not in head:
                piece = secure.recv(4096)
                if not piece:
                    return
                head += piece
            secure.sendall(b"HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello")
            secure.unwrap()
    except OSError:
        pass  # whoever does not trust a certificate ends the connection


def serve(listener, context):
    while True:
        connection, _ = listener.accept()
        threading.Thread(target=talk, args=(context, connection), daemon=True).start()


def start(folder, name):
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(folder / f"{name.lower()}.pem", folder / "key.pem")
    listener = socket.create_server(("127.0.0.1", 0))
    threading.Thread(target=serve, args=(listener, context), daemon=True).start()
    return str(listener.getsockname()[1])


def main():
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        make_root(folder)
        for peer, wish in PEERS.items():
            make_certificate(folder, peer, *wish)
        variables = {f"TLS_PEER_{peer}": start(folder, peer) for peer in [*PEERS, "SELF_SIGNED"]}
        variables["TLS_PEERS_ROOT"] = str(folder / "root.der")
        return subprocess.call(sys.argv[1:], env={**os.environ, **variables})


if __name__ == "__main__":
    sys.exit(main())
