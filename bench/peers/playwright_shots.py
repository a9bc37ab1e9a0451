#!/usr/bin/env python3
"""Counts the frames of a page that Playwright takes of headless Chromium, one screenshot each, and prints one line of JSON.

usage: playwright_shots.py URL [--size WxH] [--fps N] [--seconds S]

Needs Playwright's package for Python; the browser is the installed Chromium. Its clock is the day's, so --fps is not followed.
"""
import shutil
import time

from playwright.sync_api import sync_playwright

import devtools
import figures


def main():
    args = figures.arguments(warm_up=1)
    width, height = (int(side) for side in args.size.split("x"))
    program = next(filter(None, map(shutil.which, ("chromium", "chromium-browser", "google-chrome"))), None)
    start = time.monotonic()
    with sync_playwright() as playwright:
        switches = [one for one in devtools.SWITCHES if not one.startswith(("--headless", "--remote-debugging"))]
        browser = playwright.chromium.launch(executable_path=program, args=switches)
        page = browser.new_page(viewport={"width": width, "height": height})
        page.goto(args.url)
        pictures = [page.screenshot()]
        first = time.monotonic() - start
        end = time.monotonic() + args.warm_up
        while time.monotonic() < end:
            page.screenshot()
        before, begin = figures.own_cpu(), time.monotonic()
        moments = [begin]
        while moments[-1] < begin + args.seconds:
            pictures = [pictures[-1], page.screenshot()]
            moments.append(time.monotonic())
        span, own = moments[-1] - begin, figures.own_cpu() - before
        browser.close()
    intervals = [(b - a) * 1000 for a, b in zip(moments, moments[1:])]
    figures.show(args, span, len(intervals), len(intervals), intervals, first, own)


if __name__ == "__main__":
    main()
