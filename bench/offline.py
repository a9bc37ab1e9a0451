#!/usr/bin/env python3
"""Measures pages by their own clock: frames a second beside the probe and beside Playwright, wrong frames of 10,000, and sound.

usage: bench/offline.py [--only speed|exact|sound]... [--rounds N] [--page NAME]... [--size WxH]... [--programs DIR] [--yardstick DIR] [--playwright PYTHON] [--out FILE]

speed: our page_clock_bench, the probe of the yardstick's folder, and headless Chromium driven by Playwright with one screenshot a
frame: the pictures are taken and dropped by all three; and pennywort render, which writes a film (mkv). In turn, and each round
turns their order round; figures are medians. A start counts for none of them.
exact: pennywort render of a page that writes its clocks into its picture, 10,000 frames, alone and beside two busy
processes; a frame is wrong that differs in any clock from its number by the rate.
sound: bench/sound.py --clock exact, 10 minutes. All three without --only. Each run is kept in --out, which later ones add to; the
table of all of them is printed.
"""
import argparse
import hashlib
import json
import os
import pathlib
import re
import shutil
import statistics
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent
PAGES = ("full_change", "producer", "still", "film")
SIZES = ("1280x720", "1920x1080", "3840x2160")
FRAMES = {"1280x720": 400, "1920x1080": 250, "3840x2160": 100}
RATE = 50
EXACT_FRAMES, EXACT_WIDTH, EXACT_HEIGHT, CLOCKS = 10_000, 240, 64, 6
DAY = 1_700_000_000
MEASURED = ("speed", "exact", "sound")
CONTENDERS = ("ours", "film", "probe", "playwright")


def options():
    parser = argparse.ArgumentParser(usage=__doc__.split("usage: ")[1].split("\n")[0], description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--page", action="append", choices=PAGES)
    parser.add_argument("--size", action="append")
    parser.add_argument("--only", action="append", choices=MEASURED, help="all of them without")
    parser.add_argument("--frames", type=int, default=EXACT_FRAMES, help="of the film whose wrong frames are counted")
    parser.add_argument("--busy", type=int, action="append", help="processes beside it; 0 and 2 without")
    parser.add_argument("--programs", type=pathlib.Path, default=ROOT / "build/release/bin")
    parser.add_argument("--yardstick", type=pathlib.Path, default=ROOT.parent / "shared/yardstick")
    parser.add_argument("--playwright", default=sys.executable, help="a Python that has Playwright's package")
    parser.add_argument("--out", type=pathlib.Path, default=ROOT / "build/bench/offline.json")
    return parser.parse_args()


def build_probe(yardstick, folder):
    source = yardstick / "offline/offline_probe.cpp"
    program, header = folder / "offline_probe", folder / "offline_abi/cef_abi.h"
    if not source.exists():
        return None
    if program.exists() and program.stat().st_mtime > source.stat().st_mtime:
        return program
    header.parent.mkdir(parents=True, exist_ok=True)
    with header.open("wb") as file:
        subprocess.run([sys.executable, str(yardstick / "gen_abi.py"), str(yardstick.parent / "cef-abi"), "linux"], check=True,
                       stdout=file)
    subprocess.run([os.environ.get("CXX", "g++"), "-std=c++20", "-O2", f"-I{header.parent}", str(source), "-o", str(program), "-ldl",
                    "-lpthread", "-Wl,-E"], check=True)
    return program


def page_url(page, folder):
    """The address of a page of ours. The film of the page that shows one is made here, the same by each ffmpeg of a version."""
    url = (HERE / "pages" / f"{page}.html").as_uri()
    if page != "film":
        return url
    film = folder / "film.webm"
    if not film.exists():
        subprocess.run(["ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", f"testsrc2=size=1280x720:rate={RATE}:duration=5", "-c:v", "libvpx",
                        "-b:v", "4M", "-g", "25", "-deadline", "realtime", "-cpu-used", "8", film], check=True)
    return f"{url}?film={film.resolve().as_uri()}"


def run(command):
    """What a program says; a folder of its own for each, so that every start is a first one."""
    folder = tempfile.mkdtemp(prefix="pennywort_bench_")
    environment = {**os.environ, "XDG_CONFIG_HOME": folder, "XDG_CACHE_HOME": folder, "TMPDIR": folder}
    try:
        done = subprocess.run([str(part) for part in command], stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=180,
                              env=environment)
    finally:
        shutil.rmtree(folder, ignore_errors=True)
    if done.returncode != 0:
        raise RuntimeError(f"{command[0]}: status {done.returncode}: {done.stderr.strip()[-300:]}")
    return done.stdout


def ours(args, url, size):
    said = run([args.programs / "page_clock_bench", url, "--frames", FRAMES[size], "--size", size, "--fps", RATE])
    return json.loads(said)["frames_s"]


def film(args, url, size):
    with tempfile.TemporaryDirectory(prefix="pennywort_bench_") as folder:
        said = run([args.programs / "pennywort", "render", url, "--exact", "--json", "--frames", FRAMES[size], "--size", size, "--fps",
                    RATE, "-o", pathlib.Path(folder) / "film.mkv"])
    told = json.loads(said.splitlines()[-1])
    return round(told["frames"] / told["seconds"], 1)


def probe(args, url, size):
    library = (args.programs / "libcef.so").resolve().parent
    driver = ["--video", 1, "--video-script", args.yardstick / "offline/film_driver.js"] if "?film=" in url else []
    said = run([args.probe, library, url, "--frames", FRAMES[size], "--size", size, "--fps", RATE, *driver])
    return float(re.search(r"= ([0-9.]+) frames/s", said).group(1))


def shots(args, url, size):
    said = run([args.playwright, HERE / "peers/playwright_shots.py", url, "--size", size, "--seconds", 3])
    return json.loads(said)["frames_s"]


def measure_speed(args, results):
    contenders = list(zip(CONTENDERS, (ours, film, probe, shots)))
    for page in args.page or PAGES:
        for size in args.size or SIZES:
            kept = results["speed"].setdefault(f"{page} {size}", {name: [] for name, _ in contenders})
            for number in range(args.rounds):
                for name, contender in contenders if number % 2 == 0 else contenders[::-1]:
                    kept[name].append(contender(args, page_url(page, args.out.parent), size))
                    print(f"== {page} {size} {name}: {kept[name][-1]}", file=sys.stderr, flush=True)


def read_clock(frame, row):
    value = 0
    for bit in range(24):
        if frame[((8 * row + 3) * EXACT_WIDTH + 10 * bit + 4) * 4 + 1] > 128:
            value |= 1 << bit
    return value


def wrong_frames(stream, frames):
    """(how many there were, the numbers of the wrong ones, a sum of all)."""
    size = EXACT_WIDTH * EXACT_HEIGHT * 4
    sum_of_all, wrong = hashlib.sha256(), []
    for number in range(frames + 1):
        frame = stream.read(size)
        if len(frame) < size:
            return number, wrong, sum_of_all.hexdigest()
        sum_of_all.update(frame)
        due = round(number * 10_000 / RATE) & 0xffffff
        if any(read_clock(frame, row) != due for row in range(CLOCKS)):
            wrong.append(number)
    return frames + 1, wrong, sum_of_all.hexdigest()


def count_wrong(args, busy):
    url = (HERE / "pages/clocks.html").as_uri() + f"?day={DAY}"
    idlers = [subprocess.Popen([sys.executable, "-c", "while True: pass"]) for _ in range(busy)]
    try:
        with subprocess.Popen([args.programs / "pennywort", "render", url, "--exact", "--size", f"{EXACT_WIDTH}x{EXACT_HEIGHT}", "--fps",
                               str(RATE), "--frames", str(args.frames), "--date", f"@{DAY}", "--format", "raw", "-o", "-"],
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE) as program:
            frames, wrong, sum_of_all = wrong_frames(program.stdout, args.frames)
            said = program.stderr.read().decode().strip().splitlines()
    finally:
        for one in idlers:
            one.kill()
            one.wait()
    return {"busy": busy, "frames": frames, "wrong": len(wrong), "first_wrong": wrong[:5], "sum": sum_of_all, "status": program.returncode,
            "said": said[-1] if said else ""}


def table(results):
    lines = []
    if results["speed"]:
        lines += ["| page, size | library, frames/s | the probe | ratio | Playwright, one screenshot a frame | ratio | program, a film | of the probe | "
                  "of Playwright | runs |", "|---|---|---|---|---|---|---|---|---|---|"]
    for name, runs in results["speed"].items():
        our, whole, its, theirs = (statistics.median(runs[one]) for one in CONTENDERS)
        lines.append(f"| {name} | {our:.1f} | {its:.1f} | {our / its:.2f} | {theirs:.1f} | {our / theirs:.1f} | {whole:.1f} | "
                     f"{whole / its:.2f} | {whole / theirs:.1f} | {len(runs['ours'])} |")
    if results["exact"]:
        lines += ["", "| beside | frames | wrong | sum of all | |", "|---|---|---|---|---|"]
    for one in results["exact"]:
        lines.append(f"| {one['busy']} busy processes | {one['frames']} | {one['wrong']} | {one['sum'][:16]} | {one['said']} |")
    return "\n".join(lines)


def main():
    args = options()
    args.out.parent.mkdir(parents=True, exist_ok=True)
    results = json.loads(args.out.read_text()) if args.out.exists() else {"speed": {}, "exact": []}
    only = args.only or MEASURED
    if "speed" in only:
        args.probe = build_probe(args.yardstick, args.out.parent)
        if args.probe is None:
            sys.exit("the probe is not in the folder that --yardstick names")
        measure_speed(args, results)
    for busy in (args.busy or [0, 2]) if "exact" in only else []:
        results["exact"].append(count_wrong(args, busy))
    args.out.write_text(json.dumps(results, indent=1) + "\n")
    print(table(results), flush=True)
    if "sound" in only:
        subprocess.run([sys.executable, HERE / "sound.py", "--clock", "exact", "--programs", args.programs], check=True)


if __name__ == "__main__":
    main()
