#!/usr/bin/env python3
"""Times a script with a result over headless Chromium's DevTools protocol; one line of JSON.

usage: chromium_script.py URL [--calls N]
"""
import argparse
import json
import time

import devtools


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("url")
    parser.add_argument("--calls", type=int, default=2000)
    args = parser.parse_args()

    times = []
    with devtools.Page(args.url, "1280x720") as page:
        time.sleep(1.5)
        for number in range(args.calls):
            sent = time.monotonic()
            answer = page.call("Runtime.evaluate", expression=f"{number} + 1", returnByValue=True)
            times.append((time.monotonic() - sent) * 1e6)
            if answer["result"]["value"] != number + 1:
                raise RuntimeError("a wrong answer")
    times.sort()
    print(json.dumps({"calls": args.calls, "p50_us": round(times[len(times) // 2]),
                      "p99_us": round(times[int(len(times) * .99)]), "max_us": round(times[-1])}))


if __name__ == "__main__":
    main()
