#!/usr/bin/env python3
"""Runs `pennywort live` under all that its control page can ask for, and shows what it holds as time passes.

usage: bench/soak.py [--minutes M] [--size WxH] [--programs DIR] [--out FILE]

Watches the picture, loads pages and one that fails, changes the size, hides and shows, runs scripts, deletes cookies, and opens
connections that end in the middle of a request. Every 10 s it notes the resident memory, descriptors and threads of the program
and the memory and number of the runtime's processes. What is held after the first minutes should stay; a leak of 1 kB a frame
would show as 3 MB a minute.
"""
import argparse
import json
import pathlib
import socket
import statistics
import struct
import sys
import time

import live

PAGES = [(live.HERE / f"pages/{name}.html").as_uri() for name in ("full_change", "producer", "still")]
NOWHERE = "http://127.0.0.1:1/"
SIZES = [(1280, 720), (1920, 1080), (640, 360)]
SAMPLE_SECONDS = 10


def options():
    parser = argparse.ArgumentParser(usage=__doc__.split("usage: ")[1].split("\n")[0], description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--minutes", type=float, default=20)
    parser.add_argument("--size", default="1280x720")
    parser.add_argument("--programs", type=pathlib.Path, default=live.ROOT / "build/release/bin")
    parser.add_argument("--out", type=pathlib.Path, default=live.ROOT / "build/bench/soak.json")
    return parser.parse_args()


def status_of(process):
    """(parent, resident bytes) of a process; (0, 0) if it has gone."""
    try:
        lines = pathlib.Path(f"/proc/{process}/status").read_text().splitlines()
    except OSError:
        return 0, 0
    fields = dict(line.split(":", 1) for line in lines if ":" in line)
    return int(fields["PPid"]), int(fields.get("VmRSS", "0 kB").split()[0]) * 1024


def descendants(process):
    statuses = {int(one.name): status_of(one.name) for one in pathlib.Path("/proc").iterdir() if one.name.isdigit()}
    found, wanted = {}, {process}
    while wanted:
        next_wanted = {one for one, (parent, _) in statuses.items() if parent in wanted and one not in found}
        found.update({one: statuses[one][1] for one in next_wanted})
        wanted = next_wanted
    return found


def sample(process):
    folder = pathlib.Path(f"/proc/{process}")
    children = descendants(process)
    return {"rss_mb": status_of(process)[1] / 1e6, "descriptors": len(list((folder / "fd").iterdir())),
            "threads": len(list((folder / "task").iterdir())), "processes": len(children),
            "children_mb": sum(children.values()) / 1e6}


def post(program, command, **members):
    program.connection.request("POST", f"/api/{command}", json.dumps(members))
    answer = program.connection.getresponse()
    body = answer.read()
    if answer.status != 200:
        raise RuntimeError(f"{command}: status {answer.status}: {body.decode()}")


def break_off(program):
    """Connections that are reset before, in and behind a request."""
    for part in (b"", b"GET /api/pict", b"GET /api/picture?after=0 HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"):
        with socket.create_connection((program.connection.host, program.connection.port)) as peer:
            peer.sendall(part)
            peer.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))


def disturb(program, step):
    """One step a second."""
    post(program, "script", script=f"document.title = '{step}'; ({{step: {step}}})")
    if step % 3 == 0:
        width, height = SIZES[step // 3 % len(SIZES)]
        post(program, "size", width=width, height=height)
    if step % 4 == 0:
        post(program, "load", url=NOWHERE if step % 20 == 0 else PAGES[step // 4 % len(PAGES)])
    if step % 5 == 0:
        post(program, "visibility", visible=step % 10 != 0)
    if step % 7 == 0:
        post(program, "cookies/delete", url="https://example.org")
    for log in ("events", "traces"):
        program.get(f"/api/{log}?after=0")
    break_off(program)


def soak(program, seconds):
    samples, pictures = [], 0
    begin = time.monotonic()
    step, next_sample = 0, SAMPLE_SECONDS
    while (now := time.monotonic() - begin) < seconds:
        pictures += sum(1 for _ in program.pictures(begin + step + 1))
        disturb(program, step := step + 1)
        if now >= next_sample:
            next_sample += SAMPLE_SECONDS
            samples.append({"seconds": now, **sample(program.process.pid)})
    return samples, pictures


def table(samples):
    """The quarters of the time, so that what grows shows as a row of growing numbers."""
    columns = ["rss_mb", "descriptors", "threads", "processes", "children_mb"]
    titles = ["own MB", "descriptors", "threads", "processes of the runtime", "their MB"]
    lines = ["| minutes | " + " | ".join(titles) + " |", "|---" * (len(titles) + 1) + "|"]
    quarter = max(1, len(samples) // 4)
    for start in range(0, quarter * 4, quarter):
        part = samples[start:start + quarter]
        if part:
            span = f"{part[0]['seconds'] / 60:.1f} to {part[-1]['seconds'] / 60:.1f}"
            cells = [f"{statistics.median(one[column] for one in part):.0f}" for column in columns]
            lines.append(f"| {span} | " + " | ".join(cells) + " |")
    return "\n".join(lines)


def main():
    args = options()
    with live.Live(args.programs, args.size, 50) as program:
        samples, pictures = soak(program, args.minutes * 60)
        state = program.state()
    args.out.parent.mkdir(parents=True, exist_ok=True)
    args.out.write_text(json.dumps(samples, indent=1))
    print(table(samples))
    print(f"\n{args.minutes:g} minutes, {state['painted']} pictures painted, {pictures} of them fetched.")


if __name__ == "__main__":
    sys.exit(main())
