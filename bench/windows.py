#!/usr/bin/env python3
"""Measures the Windows build under Wine: what its files weigh, how long its programs take to start, and
how often the timer of the display thread ticks. Writes the table of the documents to standard output.

usage: bench/windows.py [--runs N] [BUILD_DIR]

BUILD_DIR is build/mingw by default; scripts/test-windows makes it, and the Wine that this runs in.
"""
import argparse
import os
import pathlib
import statistics
import subprocess
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
FILES = ("loam.dll", "pennywort.dll", "pennywort.exe", "CEFChildProcess.exe")
STRIP = "x86_64-w64-mingw32-strip"
WINESERVER = "/usr/lib/wine/wineserver64"


def wine(*command, **options):
    # A server that has ended costs seconds to start again; -p keeps it between the runs.
    return subprocess.run([ROOT / "scripts/run-windows", *command], check=True, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, **options).stdout


def sizes(build):
    yield "| file | with debug information, MB | stripped, MB |"
    yield "|---|---|---|"
    with tempfile.TemporaryDirectory() as folder:
        for name in FILES:
            stripped = pathlib.Path(folder) / name
            subprocess.run([STRIP, "-o", stripped, build / "bin" / name], check=True)
            sizes_mb = [path.stat().st_size / 1e6 for path in (build / "bin" / name, stripped)]
            yield f"| {name} | {sizes_mb[0]:.2f} | {sizes_mb[1]:.2f} |"


def milliseconds(runs, *command, **options):
    taken = []
    for _ in range(runs):
        begin = time.perf_counter()
        wine(*command, **options)
        taken.append((time.perf_counter() - begin) * 1000)
    return taken


def row(what, taken):
    return f"| {what} | {statistics.median(taken):.0f} | {min(taken):.0f} | {max(taken):.0f} |"


def starts(build, runs):
    yield f"| from the command to the end of the program, {runs} runs | median ms | least | most |"
    yield "|---|---|---|---|"
    # Wine's own share: a program of the system's that does nothing.
    yield row("`cmd /c exit`, for comparison", milliseconds(runs, "cmd", "/c", "exit"))
    yield row("`pennywort.exe --version`", milliseconds(runs, build / "bin/pennywort.exe", "--version"))
    fake = dict(os.environ, CEF_ROOT=str(build / "fake_runtime"),
                WINEPATH=";".join("Z:" + str(build / name).replace("/", "\\") for name in ("bin", "fake_runtime")))
    yield row("a host that starts the fake runtime, opens a display and ends",
              milliseconds(runs, build / "fake_host/webdisplay_start_probe.exe", env=fake))


def ticks(build):
    yield "| timer | ticks a second | interval, median ms | 99th percentile, ms |"
    yield "|---|---|---|---|"
    for line in wine(build / "bin/tick_rate.exe").splitlines():
        what, _, figures = line.partition(": ")
        words = figures.split()
        yield f"| {what} | {words[0]} | {words[5]} | {words[8]} |"


def main():
    arguments = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    arguments.add_argument("--runs", type=int, default=20)
    arguments.add_argument("build", nargs="?", type=pathlib.Path, default=ROOT / "build/mingw")
    options = arguments.parse_args()
    prefix = os.environ.get("PENNYWORT_WINE_PREFIX", str(ROOT / "build/wine"))
    subprocess.run([WINESERVER, "-p"], env=dict(os.environ, WINEPREFIX=prefix), check=True,
                   stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        wine("wineboot")
        for table in (sizes(options.build), starts(options.build, options.runs), ticks(options.build)):
            print("\n".join(table), end="\n\n", flush=True)
    finally:
        subprocess.run([WINESERVER, "-k"], env=dict(os.environ, WINEPREFIX=prefix), check=False,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


if __name__ == "__main__":
    main()
