#!/usr/bin/env python3
"""Measures our WebSocket clients beside plain Boost.Beast's, against one server.

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
PAIRS = [("own-asynchronous", "beast-asynchronous"), ("own-system", "beast-blocking")]
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
    contenders = [name for pair in PAIRS for name in pair]
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
    print("| what | contender | median | least | most | ratio |\n|---|---|---|---|---|---|")
    for what, title in {**FIGURES, **MORE}.items():
        for own, peer in PAIRS:
            for name in (own, peer):
                values = found[name, what]
                ratio = statistics.median(values) / statistics.median(found[peer, what])
                told = f"{ratio:.2f}" if name == own else ""
                print(f"| {title} | {name} | {statistics.median(values):,.1f} | {min(values):,.1f} | "
                      f"{max(values):,.1f} | {told} |")


if __name__ == "__main__":
    main()
