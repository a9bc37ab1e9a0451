#!/usr/bin/env python3
"""Measures XML-RPC and multipart messages beside xmlrpc-c, Python, gmime and mimetic.

usage: bench/xmlrpc/run.py [--bin FOLDER] [--validator PROGRAM] [--rounds N]

Contenders run in turn, A B then B A; a figure is the median of the rounds, each the quickest run of about a
second. Calls are made to one server over xmlrpc-c (tests build it). Prints the tables of
bench/results/xmlrpc.md.
"""
import argparse
import collections
import os
import pathlib
import statistics
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent


def figures(command):
    out = subprocess.run(command, stdout=subprocess.PIPE, text=True, check=True, timeout=120).stdout
    return {line.split()[0]: float(line.split()[1]) for line in out.splitlines()}


def in_turn(contenders, rounds):
    """{contender: {figure: median}}; each is a command."""
    found = collections.defaultdict(lambda: collections.defaultdict(list))
    for number in range(rounds):
        for name in (contenders if number % 2 == 0 else reversed(contenders)):
            for figure, value in figures(contenders[name]).items():
                found[name][figure].append(value)
    return {name: {figure: statistics.median(values) for figure, values in each.items()}
            for name, each in found.items()}


def present(contenders):
    return {name: command for name, command in contenders.items()
            if command[0] == sys.executable or os.path.exists(command[0])}


def print_table(title, unit, found):
    names = list(dict.fromkeys(figure for each in found.values() for figure in each))
    print(f"\n## {title}\n\n| contender | " + " | ".join(f"{name}, {unit}" for name in names) + " |")
    print("|---|" + "---|" * len(names))
    for contender, each in found.items():
        cells = [f"{each[name]:,.0f}" if name in each else "" for name in names]
        print(f"| {contender} | " + " | ".join(cells) + " |")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--bin", type=pathlib.Path, default=ROOT / "build" / "release" / "bin")
    parser.add_argument("--validator", type=pathlib.Path,
                        default=ROOT / "build" / "dev" / "bin" / "xmlrpc_validator_server")
    parser.add_argument("--rounds", type=int, default=3)
    options = parser.parse_args()

    def program(name, *arguments):
        return [str(options.bin / f"xmlrpc_bench_{name}"), *map(str, arguments)]

    commit = subprocess.run(["git", "rev-parse", "--short", "HEAD"], cwd=ROOT, text=True,
                            stdout=subprocess.PIPE, check=True).stdout.strip()
    print(f"# XML-RPC and multipart\n\nCommit {commit}, {options.rounds} rounds, load before "
          f"{os.getloadavg()[0]:.1f}, {os.cpu_count()} processors.")
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run([sys.executable, HERE / "make_messages.py", folder], check=True)
        for name in ("rows", "texts"):
            path = pathlib.Path(folder) / f"{name}.xml"
            found = in_turn(present({
                "ours": program("own_messages", path),
                "xmlrpc-c": program("xmlrpc_c_messages", path),
                "Python": [sys.executable, str(HERE / "python_messages.py"), str(path)],
            }), options.rounds)
            print_table(f"A response of {path.stat().st_size:,} bytes: {name}", "MB/s", found)
        parts = pathlib.Path(folder) / "parts.bin"
        print_table("64 parts of 1 MiB", "MB/s", in_turn(present({
            "ours": program("own_parts", parts), "gmime": program("gmime_parts", parts),
            "mimetic": program("mimetic_parts", parts)}), options.rounds))
    if options.validator.exists():
        with subprocess.Popen([options.validator], stdout=subprocess.PIPE, text=True) as server:
            port = int(server.stdout.readline())
            url = f"http://127.0.0.1:{port}/RPC2"
            print_table("Calls of one server, one after the other", "a second", in_turn(present({
                "ours": program("own_calls", url, 2), "xmlrpc-c": program("xmlrpc_c_calls", url, 2),
            }), options.rounds))
            server.kill()
    print(f"\nLoad after: {os.getloadavg()[0]:.1f}.")


if __name__ == "__main__":
    main()
