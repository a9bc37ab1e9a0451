#!/usr/bin/env python3
"""Measures the firewall query with rule sets of 5,000 rules, beside "nft -j list ruleset".

usage: bench/firewall/run.py [--runs N] BENCH-PROGRAM

In a network namespace of its own; prints a table of medians. The port that is asked for is let in by the
last rule of all for one row and by none for the other, so every rule is looked at.
"""
import argparse
import os
import resource
import statistics
import subprocess
import sys
import time

RULES = 5000
OPEN, BLOCKED = "0", "1"


def plain(i):
    return f"ip saddr 10.{i // 250 % 250}.{i % 250}.0/24 tcp dport {1000 + i} counter accept"


def with_set(i):
    return f"tcp dport {{ {1000 + i}, {20000 + i} }} counter accept"


def some_with_set(i):
    return with_set(i) if i % 10 == 0 else plain(i)


def with_state(i):
    return f"ct state new iifname \"eth*\" tcp dport {1000 + i} limit rate 10/second accept"


def nft(text):
    subprocess.run(["nft", "-f", "-"], input=text, text=True, check=True)


def load(rule, last):
    """In pieces: what a user may send the kernel at once is bounded."""
    nft("flush ruleset; table inet t { chain c { type filter hook input priority 0; policy drop; }; }")
    rules = [f"add rule inet t c {rule(i)}" for i in range(RULES)] + [f"add rule inet t c {last}"]
    for begin in range(0, len(rules), 250):
        nft("\n".join(rules[begin:begin + 250]))


def measure_own(program, runs):
    """A new process for each run: the first query of each, and the median of two behind it."""
    first, later, busy, answers = [], [], [], set()
    for _ in range(runs):
        output = subprocess.run([program, "999", "3"], capture_output=True, text=True, check=True)
        lines = [line.split() for line in output.stdout.splitlines()]
        answers.update(line[0] for line in lines)
        first.append(float(lines[0][1]))
        later += [float(line[1]) for line in lines[1:]]
        busy += [float(line[2]) for line in lines]
    return answers, statistics.median(first), statistics.median(later), statistics.median(busy)


def measure_nft(runs):
    passed, busy = [], []
    for _ in range(runs):
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        begin = time.monotonic()
        subprocess.run(["nft", "-j", "list", "ruleset"], stdout=subprocess.DEVNULL, check=True)
        passed.append((time.monotonic() - begin) * 1000)
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        busy.append((after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime) * 1000)
    return statistics.median(passed), statistics.median(busy)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("program")
    parser.add_argument("--runs", type=int, default=15)
    arguments = parser.parse_args()
    if os.environ.get("PENNYWORT_IN_NAMESPACE") is None:
        os.environ["PENNYWORT_IN_NAMESPACE"] = "yes"
        os.execvp("unshare", ["unshare", "--map-root-user", "--net", sys.executable, *sys.argv])
    print(f"| {RULES} rules, each with | last rule | first query, ms | later ones, ms | processor, ms "
          "| `nft -j list ruleset`, ms | its processor, ms | nft : first query |")
    print("|---|---|---|---|---|---|---|---|")
    for name, rule in (("a sender's net, a port, a counter", plain),
                       ("state, interface, port, limit", with_state),
                       ("every tenth an unnamed set of two ports", some_with_set),
                       ("an unnamed set of two ports each", with_set)):
        for words, last, want in (("lets the port in", "tcp dport 999 accept", OPEN),
                                  ("does not", "tcp dport 998 accept", BLOCKED)):
            load(rule, last)
            answers, first, later, busy = measure_own(arguments.program, arguments.runs)
            if answers != {want}:
                sys.exit(f"{name}: the answers are {answers}, not {want}")
            listing, listing_busy = measure_nft(arguments.runs)
            print(f"| {name} | {words} | {first:.1f} | {later:.1f} | {busy:.1f} | {listing:.0f} "
                  f"| {listing_busy:.0f} | {listing / first:.1f} |", flush=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
