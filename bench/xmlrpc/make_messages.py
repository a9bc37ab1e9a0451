#!/usr/bin/env python3
"""Writes the messages that the benchmark reads.

usage: make_messages.py FOLDER

rows.xml is a response of 7 MB with many short values, as a list of clips would be; texts.xml one with
texts of 200 bytes; parts.bin is a multipart message of 64 parts of 1 MiB of random bytes.
"""
import pathlib
import random
import sys
import xmlrpc.client

SIZE = 7_000_000
BOUNDARY = "MimeBoundary_8923gr836bidfb3i"


def row(number):
    return {
        "id": number, "name": f"Camera {number % 1000} & more", "level": random.random() * 100,
        "on": bool(number & 1), "tags": [f"a{random.randint(0, 99)}" for _ in range(3)],
        "when": xmlrpc.client.DateTime("20260131T14:08:55"),
        "data": xmlrpc.client.Binary(random.randbytes(30)),
    }


def text(number):
    return {"id": number, "text": "".join(random.choices("abcdefghij klmnop", k=200))}


def response(make):
    size = len(xmlrpc.client.dumps(([make(n) for n in range(100)],), methodresponse=True)) / 100
    values = [make(n) for n in range(int(SIZE / size))]
    return xmlrpc.client.dumps((values,), methodresponse=True)


def main():
    random.seed(1)
    folder = pathlib.Path(sys.argv[1])
    folder.mkdir(parents=True, exist_ok=True)
    (folder / "rows.xml").write_text(response(row))
    (folder / "texts.xml").write_text(response(text))
    parts = [f"--{BOUNDARY}\r\nContent-Type: image/png\r\nContent-ID: <{n}>\r\n\r\n".encode()
             + random.randbytes(1 << 20) + b"\r\n" for n in range(64)]
    head = f"MIME-Version: 1.0\r\nContent-Type: multipart/related;boundary={BOUNDARY}\r\n\r\n"
    (folder / "parts.bin").write_bytes(head.encode() + b"".join(parts) + f"--{BOUNDARY}--".encode())


if __name__ == "__main__":
    main()
