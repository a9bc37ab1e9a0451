#!/usr/bin/env python3
"""Compares the HTTP server with its peers, in turns, and prints tables with the medians.

usage: bench/http/run.py [--build build/release] [--rounds 5] [--seconds 4] [--widths 1,64,512]
                         [--only NAME;...] [--skip-rate] [--skip-memory] [--skip-parsing]

Build first: cmake --preset release -DPENNYWORT_BENCH=ON && cmake --build --preset release
Needs wrk; peers that were not built are left out. A neighbour that takes a core while one of them
runs spoils that round: use a quiet machine and look at the spread.
"""
import argparse
import json
import os
import pathlib
import re
import socket
import statistics
import subprocess

IDLE_CONNECTIONS = 900  # what select() can hold is a little more
REQUEST = b"GET / HTTP/1.1\r\nHost: bench\r\n\r\n"
# name: program and its arguments; {width} is the number of connections
SERVERS = {
    "pennywort": ["http_bench_own", "typical"],
    "pennywort, SendAnswer": ["http_bench_own", "short"],
    "libmicrohttpd, epoll": ["http_bench_microhttpd", "epoll"],
    "libmicrohttpd, select": ["http_bench_microhttpd", "select"],
    "libevent evhttp": ["http_bench_evhttp"],
    "cpp-httplib": ["http_bench_httplib", "{width}"],
}


class Server:
    def __init__(self, folder, name, width):
        program, *arguments = SERVERS[name]
        command = [folder / program, *(text.format(width=width) for text in arguments)]
        self.process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def __enter__(self):
        self.port = int(self.process.stdout.readline())
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()

    def resident_bytes(self):
        status = pathlib.Path(f"/proc/{self.process.pid}/status").read_text()
        return int(re.search(r"VmRSS:\s+(\d+) kB", status)[1]) * 1024

    def cpu_seconds(self):
        fields = pathlib.Path(f"/proc/{self.process.pid}/stat").read_text().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def measure_rate(server, width, seconds):
    """Requests a second, CPU microseconds of the server for each, and what went wrong."""
    before = server.cpu_seconds()
    out = subprocess.run(["wrk", "-t1", f"-c{width}", f"-d{seconds}s", "--timeout", "10s",
                          f"http://127.0.0.1:{server.port}/"],
                         check=True, stdout=subprocess.PIPE, text=True).stdout
    cpu = server.cpu_seconds() - before
    requests = int(re.search(r"(\d+) requests in", out)[1])
    rate = float(re.search(r"Requests/sec:\s+([\d.]+)", out)[1])
    trouble = re.findall(r"(?:Socket errors|Non-2xx).*", out)
    return rate, 1e6 * cpu / max(requests, 1), trouble


def rates(folder, names, widths, rounds, seconds):
    results = {(name, width): [] for name in names for width in widths}
    for number in range(rounds):
        for width in widths:
            # Another order each time, so that nobody always runs first.
            for name in names[number % len(names):] + names[:number % len(names)]:
                with Server(folder, name, width) as server:
                    result = measure_rate(server, width, seconds)
                results[name, width].append(result)
                for line in result[2]:
                    print(f"  {name} at {width}: {line}", flush=True)
    return results


def print_rates(results, names, widths):
    print("\nRequests a second, 1 KiB answers: median (lowest to highest); CPU of the server in µs a "
          "request\n")
    print("| server | " + " | ".join(f"{width} connections" for width in widths) + " |")
    print("|---|" + "---|" * len(widths))
    for name in names:
        cells = []
        for width in widths:
            values = [rate for rate, _, _ in results[name, width]]
            cpu = statistics.median(cost for _, cost, _ in results[name, width])
            cells.append(f"{statistics.median(values):,.0f} ({min(values):,.0f} to "
                         f"{max(values):,.0f}); {cpu:.1f}")
        print(f"| {name} | " + " | ".join(cells) + " |", flush=True)


def print_ratios(results, names, widths):
    """How each of ours compares to the best of the others."""
    def median(name, width):
        return statistics.median(rate for rate, _, _ in results[name, width])

    own = [name for name in names if SERVERS[name][0] == "http_bench_own"]
    peers = [name for name in names if name not in own]
    if not own or not peers:
        return
    print("\n| beside the best peer | " + " | ".join(f"{width} connections" for width in widths) + " |")
    print("|---|" + "---|" * len(widths))
    best = {width: max(peers, key=lambda name: median(name, width)) for width in widths}
    for name in own:
        cells = [f"{median(name, width) / median(best[width], width):.2f} of {best[width]}"
                 for width in widths]
        print(f"| {name} | " + " | ".join(cells) + " |", flush=True)


def read_answer(connection):
    data = b""
    while b"\r\n\r\n" not in data:
        data += connection.recv(65536)
    head, _, body = data.partition(b"\r\n\r\n")
    length = int(re.search(rb"content-length: *(\d+)", head, re.IGNORECASE)[1])
    while len(body) < length:
        body += connection.recv(65536)


def idle_bytes(server):
    """Resident bytes for a connection that had one answer and waits."""
    def one():
        connection = socket.create_connection(("127.0.0.1", server.port))
        connection.sendall(REQUEST)
        read_answer(connection)
        return connection

    warm = [one() for _ in range(10)]
    before = server.resident_bytes()
    connections = [one() for _ in range(IDLE_CONNECTIONS)]
    grown = server.resident_bytes() - before
    for connection in warm + connections:
        connection.close()
    return grown / IDLE_CONNECTIONS


def print_memory(folder, names, rounds):
    print(f"\nResident bytes for each of {IDLE_CONNECTIONS} idle connections, median, without what "
          "the system keeps\n")
    print("| server | bytes |\n|---|---|")
    for name in names:
        values = []
        for _ in range(rounds):
            with Server(folder, name, IDLE_CONNECTIONS + 20) as server:
                values.append(idle_bytes(server))
        print(f"| {name} | {statistics.median(values):,.0f} |", flush=True)


def benchmark(program, rounds):
    out = subprocess.run([program, f"--benchmark_repetitions={rounds}", "--benchmark_min_time=0.1",
                          "--benchmark_enable_random_interleaving=true",
                          "--benchmark_report_aggregates_only=true", "--benchmark_format=json"],
                         check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True).stdout
    return [one for one in json.loads(out)["benchmarks"] if one["aggregate_name"] == "median"]


def print_parsing(folder, rounds):
    print("\nHeader parsing\n\n| block | ns a header |\n|---|---|")
    for one in sorted(benchmark(folder / "header_bench", rounds), key=lambda one: one["run_name"]):
        print(f"| {one['run_name']} | {1e9 * one['per_header']:.0f} |")
    searches = benchmark(folder / "search_bench", rounds)
    programs = ["Own", "Memmem", "StdHorspool", "StdBoyerMoore"]
    kinds = ["any bytes", "letters", "one byte"]
    print("\nByte search in GB/s\n")
    print("| pattern | text | cBoyerMoore | memmem | std horspool | std boyer_moore |")
    print("|---|---|---|---|---|---|")
    table = {one["run_name"]: one["bytes_per_second"] / 1e9 for one in searches}
    keys = [name.partition("/")[2] for name in table if name.startswith("Own/")]
    for key in sorted(keys, key=lambda key: [int(part) for part in reversed(key.split("/"))]):
        size, kind, length = (int(part) for part in key.split("/"))
        text = f"{size >> 10} KiB of {kinds[kind]}"
        cells = " | ".join(f"{table[f'{program}/{key}']:.1f}" for program in programs)
        print(f"| {length} bytes | {text} | {cells} |")


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("--build", default="build/release", type=pathlib.Path)
    parser.add_argument("--rounds", default=5, type=int)
    parser.add_argument("--seconds", default=4, type=int)
    parser.add_argument("--widths", default="1,64,512")
    parser.add_argument("--only", default="")
    for part in ["rate", "memory", "parsing"]:
        parser.add_argument(f"--skip-{part}", action="store_true")
    options = parser.parse_args()
    folder = options.build.resolve() / "bin"
    names = [name for name, (program, *_) in SERVERS.items() if (folder / program).exists()]
    if options.only:
        names = [name for name in names if name in options.only.split(";")]
    widths = [int(width) for width in options.widths.split(",")]
    print(f"load before: {os.getloadavg()[0]:.2f} on {os.cpu_count()} cores")
    if not options.skip_rate:
        results = rates(folder, names, widths, options.rounds, options.seconds)
        print_rates(results, names, widths)
        print_ratios(results, names, widths)
    if not options.skip_memory:
        print_memory(folder, names, min(options.rounds, 3))
    if not options.skip_parsing:
        print_parsing(folder, options.rounds)
    print(f"\nload after: {os.getloadavg()[0]:.2f}")


if __name__ == "__main__":
    main()
