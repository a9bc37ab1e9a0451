#!/usr/bin/env python3
"""Measures our WebSocket clients beside plain and tuned Boost.Beast's, against one server.

usage: bench/websocket/run.py [--bin FOLDER] [--rounds N] [--seconds S] [--idle CONNECTIONS]

Contenders run in turn, A B then B A; a figure is the median of the rounds. Prints the table of
bench/results/websocket.md.
"""
import argparse
import collections
import pathlib
import statistics
import subprocess

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
GROUPS = [("own-asynchronous", "beast-asynchronous", "tuned-asynchronous"),
          ("own-system", "beast-blocking", "tuned-blocking")]
FIGURES = {"ping": "ping-pong of 100 bytes, messages/s", "bulk": "messages of 1 MiB, MB/s each way",
           "idle": "bytes held for each idle connection"}
# What comes beside a figure.
MORE = {"pingcpu": "ping-pong of 100 bytes, µs of the processor a message",
        "bulkcpu": "messages of 1 MiB, µs of the processor a message"}


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--bin", type=pathlib.Path, default=ROOT / "build" / "release" / "bin")
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--seconds", type=int, default=2)
    parser.add_argument("--idle", type=int, default=300)
    options = parser.parse_args()
    server = subprocess.Popen([options.bin / "websocket_bench_server"], stdout=subprocess.PIPE, text=True)
    port = server.stdout.readline().strip()
    found = collections.defaultdict(list)
    contenders = [name for group in GROUPS for name in group]
    try:
        for number in range(options.rounds):
            for what in FIGURES:
                amount = options.idle if what == "idle" else options.seconds
                for name in (contenders if number % 2 == 0 else reversed(contenders)):
                    out = subprocess.run([options.bin / "websocket_bench_client", name, what, str(amount), port],
                                         stdout=subprocess.PIPE, text=True, check=True, timeout=60).stdout
                    for line in out.splitlines():
                        which, value = line.split()
                        found[name, what if which == "figure" else what + which].append(float(value))
    finally:
        server.kill()
    print("| what | contender | median | least | most | ours to it |\n|---|---|---|---|---|---|")
    for what, title in {**FIGURES, **MORE}.items():
        for group in GROUPS:
            for name in group:
                values = found[name, what]
                ratio = statistics.median(found[group[0], what]) / statistics.median(values)
                told = "" if name == group[0] else f"{ratio:.2f}"
                print(f"| {title} | {name} | {statistics.median(values):,.1f} | {min(values):,.1f} | "
                      f"{max(values):,.1f} | {told} |")


if __name__ == "__main__":
    main()
