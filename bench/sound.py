#!/usr/bin/env python3
"""How far the sound of a film lies from its picture, and whether that grows with its length.

usage: bench/sound.py [--minutes M] [--kind ENDING] [--size WxH] [--clock live|exact] [--programs DIR] [--out FILE]

Renders a page that turns white for 200 ms each second and begins a tone in the same frame, looks in the film for the first sample
of each tone and the first frame of each flash, and prints how many milliseconds the one lies behind the other: median, least and
most of pieces of the film. Needs ffmpeg.
"""
import argparse
import array
import json
import os
import pathlib
import statistics
import subprocess
import sys
import tempfile

import live

PAGE = live.HERE / "pages/beeps.html"
FPS, SAMPLE_RATE = 50, 48000
LOUD, QUIET_SECONDS = 1600, 0.4  # of 32768; between two tones
PIECE_SECONDS = 60
FARTHEST = 0.4  # seconds between a tone and the flash that it belongs to
GOAL_MS = 500 / FPS  # half a frame


def options():
    parser = argparse.ArgumentParser(usage=__doc__.split("usage: ")[1].split("\n")[0], description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--minutes", type=float, default=10)
    parser.add_argument("--kind", default="mkv", choices=("mkv", "mov", "mp4", "webm"))
    parser.add_argument("--size", default="320x180")
    parser.add_argument("--clock", default="live", choices=("live", "exact"))
    parser.add_argument("--programs", type=pathlib.Path, default=live.ROOT / "build/release/bin")
    parser.add_argument("--out", type=pathlib.Path, default=live.ROOT / "build/bench/sound.json")
    return parser.parse_args()


def read_back(film, *arguments):
    return subprocess.run(["ffmpeg", "-v", "error", "-i", film, *arguments, "-"], check=True, stdout=subprocess.PIPE).stdout


def flashes(film):
    """When the picture turns white, in seconds of the film."""
    levels = read_back(film, "-map", "v", "-vf", "scale=1:1:flags=area", "-f", "rawvideo", "-pix_fmt", "gray")
    return [n / FPS for n in range(1, len(levels)) if levels[n] > 127 >= levels[n - 1]]


def tones(film):
    """When it begins to be loud after some silence."""
    samples = array.array("h")
    samples.frombytes(read_back(film, "-map", "a", "-f", "s16le", "-ar", str(SAMPLE_RATE), "-ac", "1"))
    found, last_loud, block = [], -SAMPLE_RATE, 480
    for at in range(0, len(samples), block):
        part = samples[at:at + block]
        if max(part) < LOUD:
            continue
        first = next(i for i, value in enumerate(part) if value >= LOUD)
        if at + first - last_loud > QUIET_SECONDS * SAMPLE_RATE:
            found.append((at + first) / SAMPLE_RATE)
        last_loud = at + block
    return found


def pairs(film):
    """(when, milliseconds that the tone lies behind its flash) of each tone, and the flashes that have none."""
    seen, heard = flashes(film), tones(film)
    matched = []
    for tone in heard:
        flash = min(seen, key=lambda one: abs(one - tone))
        if abs(flash - tone) < FARTHEST:
            matched.append((flash, (tone - flash) * 1000))
    return matched, len(seen) - len(matched)


def pieces(matched, seconds):
    count = max(1, round(seconds / PIECE_SECONDS))
    for piece in range(count):
        begin, end = seconds * piece / count, seconds * (piece + 1) / count
        apart = [behind for at, behind in matched if begin <= at < end]
        if apart:
            yield {"from_s": begin, "to_s": end, "tones": len(apart), "median_ms": statistics.median(apart), "least_ms": min(apart),
                   "most_ms": max(apart)}


def render(given, film):
    command = [given.programs / "pennywort", "render", PAGE, f"--{given.clock}", "--size", given.size, "--fps", str(FPS), "--seconds",
               str(given.minutes * 60), "--json", "-o", film]
    done = subprocess.run(command, stdout=subprocess.PIPE, text=True)
    if done.returncode != 0:
        sys.exit(f"pennywort has ended with {done.returncode}")
    return json.loads(done.stdout.splitlines()[-1])


def main():
    given = options()
    load_before = os.getloadavg()[0]
    with tempfile.TemporaryDirectory() as folder:
        film = pathlib.Path(folder) / f"film.{given.kind}"
        run = render(given, film)
        matched, alone = pairs(film)
    found = list(pieces(matched, given.minutes * 60))
    if not found:
        sys.exit("no tone lies near a flash")
    print(f"{given.kind}, {given.clock}, {given.minutes:g} min at {FPS}: {len(matched)} tones, {alone} flashes without one, "
          f"{run['missed']} ticks missed, {run['repeated']} frames repeated, load {load_before:.1f} to {os.getloadavg()[0]:.1f}")
    print("| from, s | to, s | tones | median, ms | least | most |\n|---|---|---|---|---|---|")
    for one in found:
        print(f"| {one['from_s']:.0f} | {one['to_s']:.0f} | {one['tones']} | {one['median_ms']:.1f} | {one['least_ms']:.1f} | "
              f"{one['most_ms']:.1f} |")
    growth = found[-1]["median_ms"] - found[0]["median_ms"]
    is_met = abs(found[-1]["median_ms"]) <= GOAL_MS
    print(f"from the first piece to the last: {growth:+.1f} ms; goal {GOAL_MS:g} ms at the end: {'met' if is_met else 'missed'}")
    given.out.parent.mkdir(parents=True, exist_ok=True)
    given.out.write_text(json.dumps({"run": run, "pieces": found, "alone": alone}, indent=1))


if __name__ == "__main__":
    main()
