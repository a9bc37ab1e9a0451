#!/usr/bin/env python3
"""Measures the web display beside the bare runtime and its peers, and writes the figures down.

usage: bench/run.py [--quick | --full] [--only NAME]... [--list] ...

  --quick        one short round of everything that --only names, to see that it runs
  --full         the figures: 3 rounds of 4 s, some 37 minutes (the default)
  --only NAME    cells whose name begins with NAME or matches it as a pattern; may be repeated
  --list         prints the cells and how long they would take, and measures nothing

Contenders run in turn, and each round turns their order round, so that a neighbour who makes the
machine slow for a while hurts them alike. Writes results.json and results.md into --out.
"""
import argparse
import datetime
import fnmatch
import json
import os
import pathlib
import platform
import shutil
import signal
import subprocess
import sys
import tempfile
import time

import cells
import report

ROOT = cells.HERE.parent


def say(text):
    print(f"== {text}", file=sys.stderr, flush=True)


def options():
    parser = argparse.ArgumentParser(usage=__doc__.split("usage: ")[1].split("\n")[0], description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    length = parser.add_mutually_exclusive_group()
    length.add_argument("--quick", action="store_true")
    length.add_argument("--full", action="store_true")
    parser.add_argument("--only", action="append", default=[])
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--programs", type=pathlib.Path, default=ROOT / "build/release/bin", help="folder of the benchmark programs")
    parser.add_argument("--yardstick", type=pathlib.Path, default=ROOT.parent / "shared/yardstick",
                        help="folder of bare_runtime.cpp; without it there are no ratios")
    parser.add_argument("--out", type=pathlib.Path, default=ROOT / "build/bench")
    parser.add_argument("--rounds", type=int)
    parser.add_argument("--seconds", type=float, help="of one run")
    parser.add_argument("--bound", type=float, default=50, help="minutes; cells that come later are left out")
    return parser.parse_args()


def runtime_folder(programs):
    """The runtime that the programs load, so that the yardstick loads the same."""
    named = os.environ.get("CEF_ROOT")
    return pathlib.Path(named) if named else (programs / "libcef.so").resolve().parent


def is_current(program, sources):
    return program.exists() and all(program.stat().st_mtime >= source.stat().st_mtime for source in sources)


def build_bare(folder, out):
    """(program, "") or (None, why not). It is built beside the figures, never into the product."""
    source, generator, tables = folder / "bare_runtime.cpp", folder / "gen_abi.py", folder.parent / "cef-abi"
    if not source.exists():
        return None, f"no yardstick: {source.name} is not in the folder that --yardstick names"
    out.mkdir(parents=True, exist_ok=True)
    program, header = out / "bare_runtime", out / "cef_abi.h"
    if is_current(program, [source, generator]):
        return program, ""
    with header.open("wb") as file:
        subprocess.run([sys.executable, str(generator), str(tables), "linux"], check=True, stdout=file)
    subprocess.run([os.environ.get("CXX", "g++"), "-std=c++20", "-O2", f"-I{out}", str(source), "-o", str(program),
                    "-ldl", "-lpthread"], check=True)
    return program, ""


def setting_of(args):
    bare, no_bare = build_bare(args.yardstick, args.out)
    seconds = args.seconds or (1.5 if args.quick else 4)
    return cells.Setting(programs=args.programs.resolve(), runtime=runtime_folder(args.programs), bare=bare, no_bare=no_bare,
                         seconds=seconds, idle_seconds=5 if args.quick else 60, rounds=args.rounds or (1 if args.quick else 3),
                         calls=200 if args.quick else 2000)


def check_programs(programs):
    needed = ["display_bench", "script_bench", "idle_bench", "overhead_bench", "CEFChildProcess", "libcef.so"]
    absent = [name for name in needed if not (programs / name).exists()]
    if absent:
        sys.exit(f"not in {programs}: {', '.join(absent)}\n"
                 "build them first:\n"
                 "  cmake --preset release -DPENNYWORT_BENCH=ON && cmake --build --preset release -j2\n"
                 "  scripts/link-runtime build/release/bin")


def chosen(all_cells, only):
    def wanted(name):
        return not only or any(name.startswith(one) or fnmatch.fnmatch(name, one) for one in only)
    found = [cell for cell in all_cells if wanted(cell.name)]
    return found or sys.exit(f"no cell is called {', '.join(only)}; --list names them")


def stop(process):
    """The whole group: the runtime's helper processes would go on otherwise."""
    try:
        os.killpg(process.pid, signal.SIGKILL)
    except ProcessLookupError:
        pass
    process.wait()


def run_once(contender, limit):
    """(figures, "") of one run, or (None, why there are none)."""
    # A folder of its own for each run: every start is a first one, and the user's stays clean.
    folder = tempfile.mkdtemp(prefix="pennywort_bench_")
    environment = {**os.environ, "XDG_CONFIG_HOME": folder, "XDG_CACHE_HOME": folder}
    process = subprocess.Popen(contender.command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                               env=environment, start_new_session=True)
    try:
        out, errors = process.communicate(timeout=limit)
    except subprocess.TimeoutExpired:
        return None, f"no answer within {limit:.0f} s"
    finally:
        stop(process)
        shutil.rmtree(folder, ignore_errors=True)
    if process.returncode != 0:
        lines = errors.decode(errors="replace").strip().splitlines() or [""]
        return None, f"status {process.returncode}: {lines[-1][:300]}"
    return json.loads(out), ""


def run_cell(cell):
    runs = {one.name: [] for one in cell.contenders}
    notes = {one.name: one.missing for one in cell.contenders if one.missing}
    for number in range(cell.rounds):
        in_turn = cell.contenders if number % 2 == 0 else cell.contenders[::-1]
        for one in in_turn:
            if one.name in notes:
                continue
            figures, fault = run_once(one, 60 + 10 * (cell.seconds + cell.overhead))
            if fault:
                notes[one.name] = fault
                say(f"{cell.name}, {one.name}: {fault}")
            else:
                runs[one.name].append(figures)
    return {"name": cell.name, "ratios": cell.ratios, "contenders": list(runs), "runs": runs, "notes": notes,
            "medians": {name: report.medians(figures) for name, figures in runs.items() if figures}}


def processor_model():
    try:
        lines = pathlib.Path("/proc/cpuinfo").read_text().splitlines()
    except OSError:
        return platform.machine()
    return next((line.split(":", 1)[1].strip() for line in lines if line.startswith("model name")), platform.machine())


def commit():
    found = subprocess.run(["git", "-C", str(ROOT), "describe", "--always", "--dirty"], capture_output=True, text=True)
    return found.stdout.strip() or "no commit"


def new_results(setting):
    return {"started": datetime.datetime.now().strftime("%Y-%m-%d %H:%M"), "commit": commit(), "rounds": setting.rounds,
            "seconds": setting.seconds, "cells": [], "left_out": [],
            "machine": {"processors": os.cpu_count(), "model": processor_model(), "load_before": os.getloadavg()[0],
                        "load_after": 0}}


def write(results, out):
    results["machine"]["load_after"] = os.getloadavg()[0]
    out.mkdir(parents=True, exist_ok=True)
    (out / "results.json").write_text(json.dumps(results, indent=1) + "\n")
    (out / "results.md").write_text(report.markdown(results) + "\n")


def one_line(cell):
    def shown(name):
        figures = cell["medians"].get(name, {})
        keys = [key for key in ("fresh_s", "p99_ms", "p50_us", "p99_us", "cpu_own") if key in figures]
        return f"{name}: " + (" ".join(f"{key} {figures[key]:g}" for key in keys) or "–")
    return "; ".join(shown(name) for name in cell["contenders"])


def measure(wanted, results, args):
    end = time.monotonic() + args.bound * 60
    for number, cell in enumerate(wanted, 1):
        if time.monotonic() + cell.estimate() > end:
            results["left_out"].append(cell.name)
            continue
        measured = run_cell(cell)
        results["cells"].append(measured)
        say(f"{number}/{len(wanted)} {cell.name}: {one_line(measured)}")
        write(results, args.out)  # so that an interruption leaves what was measured


def main():
    args = options()
    check_programs(args.programs)
    setting = setting_of(args)
    if setting.no_bare:
        say(setting.no_bare)
    wanted = chosen(cells.all_cells(setting), args.only)
    minutes = sum(cell.estimate() for cell in wanted) / 60
    if args.list:
        print("\n".join(cell.name for cell in wanted) + f"\n{len(wanted)} cells, {minutes:.0f} minutes")
        return
    say(f"{len(wanted)} cells, about {minutes:.0f} minutes, at most {args.bound:g}; load {os.getloadavg()[0]:.2f}")
    results = new_results(setting)
    try:
        measure(wanted, results, args)
    except KeyboardInterrupt:
        say("interrupted; what was measured is kept")
    write(results, args.out)
    print(report.markdown(results))
    say(f"written to {args.out}/results.json and results.md")


if __name__ == "__main__":
    main()
