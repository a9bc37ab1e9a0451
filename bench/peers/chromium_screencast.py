#!/usr/bin/env python3
"""Counts the frames of headless Chromium's screencast of a page and prints one line of JSON.

usage: chromium_screencast.py URL [--size WxH] [--fps N] [--seconds S]

Frames come as JPEG in base64, each acknowledged at once. --fps is not the browser's to follow: it
sends what its own 60 a second give.
"""
import argparse
import json
import resource
import time
import zlib

import devtools


def cpu(who):
    usage = resource.getrusage(who)
    return usage.ru_utime + usage.ru_stime


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


def percentile(values, q):
    values = sorted(values)
    return values[min(len(values) - 1, int(q * len(values)))] if values else 0


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("url")
    parser.add_argument("--size", default="1920x1080")
    parser.add_argument("--fps", type=int, default=60)
    parser.add_argument("--seconds", type=float, default=5)
    parser.add_argument("--warm-up", type=float, default=2)
    args = parser.parse_args()

    start = time.monotonic()
    with devtools.Page(args.url, args.size) as page:
        page.call("Page.startScreencast", format="jpeg", quality=80, maxWidth=page.width,
                  maxHeight=page.height, everyNthFrame=1)
        warm = list(frames(page, time.monotonic() + args.warm_up))
        before, begin = cpu(resource.RUSAGE_SELF), time.monotonic()
        seen = list(frames(page, begin + args.seconds))
        span, own = time.monotonic() - begin, cpu(resource.RUSAGE_SELF) - before
    fresh = sum(1 for (_, a), (_, b) in zip(seen, seen[1:]) if a != b) + bool(seen)
    intervals = [(b - a) * 1000 for (a, _), (b, _) in zip(seen, seen[1:])]
    print(json.dumps({
        "size": args.size, "fps": args.fps, "displays": 1, "frames_s": round(len(seen) / span, 1),
        "fresh_s": round(fresh / span, 1), "p50_ms": round(percentile(intervals, .5), 2),
        "p99_ms": round(percentile(intervals, .99), 2), "max_ms": round(max(intervals, default=0), 2),
        "first_ms": round((warm[0][0] - start) * 1000) if warm else -1, "cpu_own": round(own / span, 3)}))


if __name__ == "__main__":
    main()
