#!/usr/bin/env python3
"""Measures how many pictures a second a control page gets, beside Chromium's screencast of the same page.

usage: bench/live.py [--rounds N] [--seconds S] [--size WxH] [--programs DIR] [--out FILE]

Asks as the control page does, one picture after the other: at once after a picture, 15 ms after "none yet". A picture counts if
its bytes differ from those before. Contenders run in turn, and each round turns their order round; figures are medians. Prints the
table of bench/results/live.md, and writes every run into --out.
"""
import argparse
import http.client
import json
import os
import pathlib
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import time
import urllib.parse
import zlib

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent
PAGE = (HERE / "pages/full_change.html").as_uri()
RATES = (50, 60)
WARM_UP = 2.0
# What the control page waits after "none yet", and after a picture.
PAUSE_NONE, PAUSE_PICTURE = 0.015, 0.001

sys.path.insert(0, str(HERE / "peers"))
import figures  # noqa: E402


def options():
    parser = argparse.ArgumentParser(usage=__doc__.split("usage: ")[1].split("\n")[0], description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--seconds", type=float, default=5, help="of one run")
    parser.add_argument("--size", default="1280x720")
    parser.add_argument("--programs", type=pathlib.Path, default=ROOT / "build/release/bin")
    parser.add_argument("--out", type=pathlib.Path, default=ROOT / "build/bench/live.json")
    return parser.parse_args()


def cpu_of(process_id):
    """Seconds that a process has used so far, without its children."""
    fields = pathlib.Path(f"/proc/{process_id}/stat").read_text().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


class Live:
    """The program with its control page, and a connection to it; both end with the `with` block."""

    def __init__(self, programs, size, rate):
        self.folder = tempfile.mkdtemp(prefix="pennywort_bench_")
        environment = {**os.environ, "XDG_CONFIG_HOME": self.folder, "XDG_CACHE_HOME": self.folder}
        self.process = subprocess.Popen([programs / "pennywort", "live", PAGE, "--port", "0", "--size", size, "--fps", str(rate)],
                                        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True, env=environment,
                                        start_new_session=True)

    def __enter__(self):
        address = urllib.parse.urlsplit(self.process.stdout.readline().strip())
        if not address.port:
            self.__exit__()
            raise RuntimeError("pennywort live did not start")
        self.connection = http.client.HTTPConnection(address.hostname, address.port, timeout=20)
        self.number = 0
        return self

    def __exit__(self, *_):
        self.process.send_signal(signal.SIGTERM)
        try:
            self.process.wait(15)
        except subprocess.TimeoutExpired:
            os.killpg(self.process.pid, signal.SIGKILL)
            self.process.wait()
        shutil.rmtree(self.folder, ignore_errors=True)

    def get(self, path):
        self.connection.request("GET", path)
        answer = self.connection.getresponse()
        return answer, answer.read()

    def state(self):
        return json.loads(self.get("/api/state")[1])

    def pictures(self, end):
        """The fingerprints and times of the pictures until `end`. They are not decoded."""
        while time.monotonic() < end:
            answer, body = self.get(f"/api/picture?after={self.number}")
            now = time.monotonic()
            if answer.status == 204:
                time.sleep(PAUSE_NONE)
                continue
            if answer.status != 200:
                raise RuntimeError(f"status {answer.status} instead of a picture")
            self.number = int(answer.headers["X-Picture"])
            yield now, zlib.crc32(body), len(body)
            time.sleep(PAUSE_PICTURE)


def measure_live(args, rate):
    with Live(args.programs, args.size, rate) as live:
        list(live.pictures(time.monotonic() + WARM_UP))
        before, own, theirs, begin = live.state(), figures.own_cpu(), cpu_of(live.process.pid), time.monotonic()
        seen = list(live.pictures(begin + args.seconds))
        span = time.monotonic() - begin
        own, theirs, after = figures.own_cpu() - own, cpu_of(live.process.pid) - theirs, live.state()
    if len(seen) < 2:
        raise RuntimeError("no pictures came")
    intervals = [(b[0] - a[0]) * 1000 for a, b in zip(seen, seen[1:])]
    return {"fresh_s": (1 + sum(a[1] != b[1] for a, b in zip(seen, seen[1:]))) / span, "frames_s": len(seen) / span,
            "painted_s": (after["painted"] - before["painted"]) / span, "p50_ms": figures.percentile(intervals, .5),
            "p99_ms": figures.percentile(intervals, .99), "client_cpu": own / span, "cpu": theirs / span,
            "kilobytes": statistics.median(one[2] for one in seen) / 1000}


def measure_screencast(args, _rate):
    command = [sys.executable, HERE / "peers/chromium_screencast.py", PAGE, "--size", args.size, "--seconds", str(args.seconds)]
    told = json.loads(subprocess.run(command, check=True, stdout=subprocess.PIPE, timeout=60 + args.seconds).stdout)
    return {"fresh_s": told["fresh_s"], "frames_s": told["frames_s"], "p50_ms": told["p50_ms"], "p99_ms": told["p99_ms"],
            "client_cpu": told["cpu_own"]}


CONTENDERS = [(f"pennywort live, {rate}", measure_live, rate) for rate in RATES] + [("screencast (JPEG)", measure_screencast, 60)]


def table(runs):
    columns = ["painted_s", "frames_s", "fresh_s", "p50_ms", "p99_ms", "kilobytes", "cpu", "client_cpu"]
    titles = ["painted/s", "pictures/s", "fresh/s", "p50 ms", "p99 ms", "kB each", "host's CPU, cores", "client's CPU, cores"]
    lines = ["| what | " + " | ".join(titles) + " |", "|---" * (len(titles) + 1) + "|"]
    for name, figures_of in runs.items():
        cells = []
        for column in columns:
            values = [one[column] for one in figures_of if column in one]
            digits = 2 if "cpu" in column else 1
            cells.append(f"{statistics.median(values):.{digits}f}" if values else "")
            if column == "fresh_s":
                cells[-1] += f" ({min(values):.1f} to {max(values):.1f})"
        lines.append(f"| {name} | " + " | ".join(cells) + " |")
    return "\n".join(lines)


def main():
    args = options()
    for name in ("pennywort", "CEFChildProcess", "libcef.so"):
        if not (args.programs / name).exists():
            sys.exit(f"{name} is not in {args.programs}: build the release preset, then scripts/link-runtime build/release/bin")
    runs = {name: [] for name, _, _ in CONTENDERS}
    load = os.getloadavg()[0]
    for number in range(args.rounds):
        for name, measure, rate in CONTENDERS if number % 2 == 0 else CONTENDERS[::-1]:
            runs[name].append(measure(args, rate))
            print(f"== {name}: {runs[name][-1]['fresh_s']:.1f} fresh a second", file=sys.stderr, flush=True)
    args.out.parent.mkdir(parents=True, exist_ok=True)
    args.out.write_text(json.dumps({"size": args.size, "seconds": args.seconds, "load_before": load, "runs": runs}, indent=1))
    print(table(runs))
    print(f"\n{args.size}, {args.rounds} rounds of {args.seconds:g} s, load {load:.1f} before.")


if __name__ == "__main__":
    main()
