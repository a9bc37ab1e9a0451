#!/usr/bin/env python3
"""Counts the frames of headless Chromium's screencast of a page and prints one line of JSON.

usage: chromium_screencast.py URL [--size WxH] [--fps N] [--seconds S]

Frames come as JPEG in base64, each acknowledged at once. --fps is not the browser's to follow: it
sends what its own 60 a second give.
"""
import json
import time
import zlib

import devtools
import figures


def frames(page, end):
    """The fingerprints and times of the frames until `end`. The picture itself is not decoded."""
    while time.monotonic() < end:
        message = page.wire.receive()
        now = time.monotonic()
        if b'"Page.screencastFrame"' not in message[:64]:
            continue
        parameters = json.loads(message)["params"]
        page.send("Page.screencastFrameAck", sessionId=parameters["sessionId"])
        yield now, zlib.crc32(parameters["data"].encode())


def main():
    args = figures.arguments(warm_up=2)
    start = time.monotonic()
    with devtools.Page(args.url, args.size) as page:
        page.call("Page.startScreencast", format="jpeg", quality=80, maxWidth=page.width,
                  maxHeight=page.height, everyNthFrame=1)
        warm = list(frames(page, time.monotonic() + args.warm_up))
        before, begin = figures.own_cpu(), time.monotonic()
        seen = list(frames(page, begin + args.seconds))
        span, own = time.monotonic() - begin, figures.own_cpu() - before
    fresh = sum(1 for (_, a), (_, b) in zip(seen, seen[1:]) if a != b) + bool(seen)
    intervals = [(b - a) * 1000 for (a, _), (b, _) in zip(seen, seen[1:])]
    figures.show(args, span, len(seen), fresh, intervals,
                 warm[0][0] - start if warm else None, own)


if __name__ == "__main__":
    main()
