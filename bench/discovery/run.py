#!/usr/bin/env python3
"""Measures discovery between two hosts, beside avahi-browse on the same host at the same time.

usage: bench/discovery/run.py [--build FOLDER] [--rounds N] [--services N] [--idle SECONDS]

The two hosts are network namespaces with an avahi-daemon each (tests/discovery/two_hosts); as root, or
where a user may make namespaces. The services are advertised on host b by our library. On host a watch:
our library as laid down (plain) and with each service reported once (once), and avahi-browse with its
look-ups. All of them hear of the same services, so what the daemons and the network take is the same for
all. A time ends when the line of a watcher has been read.
"""
import argparse
import os
import pathlib
import selectors
import statistics
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
TYPE = "_pwbench._tcp"
PATIENCE = 60


class Process:
    """A program whose lines are read with the time of their reading."""

    def __init__(self, *command):
        self.process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=subprocess.DEVNULL)
        os.set_blocking(self.process.stdout.fileno(), False)
        self.rest, self.lines = b"", []

    def read(self):
        now = time.monotonic()
        data = self.process.stdout.read()
        *whole, self.rest = (self.rest + (data or b"")).split(b"\n")
        self.lines += [(now, line.decode(errors="replace")) for line in whole]

    def tell(self, line):
        self.process.stdin.write(line.encode() + b"\n")
        self.process.stdin.flush()

    def end(self):
        self.process.kill()
        self.process.wait()

    def cpu(self):
        """Seconds on a processor, of all threads, to the nanosecond: a tick of 10 ms shows nothing of an idle one."""
        tasks = pathlib.Path(f"/proc/{self.process.pid}/task").iterdir()
        return sum(int((one / "schedstat").read_text().split()[0]) for one in tasks) / 1e9


def read_until(processes, done):
    end = time.monotonic() + PATIENCE
    with selectors.DefaultSelector() as ready:
        for one in processes:
            ready.register(one.process.stdout, selectors.EVENT_READ, one)
        while not done():
            if time.monotonic() > end:
                sys.exit("waited in vain")
            for key, _ in ready.select(1):
                key.data.read()


def names(process, event):
    """name: when its first line of this event ('+' or '-') was read."""
    found = {}
    for when, line in process.lines:
        if ";" in line:  # avahi-browse: =;interface;protocol;name;type;domain;host;address;port;txt
            words = line.split(";")
            wanted = "=" if event == "+" else "-"
            is_event, name = words[0] == wanted, words[3]
        else:  # ours: time, event, name, ...
            words = line.split(" ")
            is_event, name = len(words) > 2 and words[1] == event, words[2] if len(words) > 2 else ""
        if is_event:
            found.setdefault(name, when)
    return found


def last_time(process, event, count):
    found = names(process, event)
    return max(found.values()) if len(found) >= count else None


def watchers(peer):
    return {"ours, once": Process(peer, "watch", TYPE + ".", "once"),
            "ours, plain": Process(peer, "watch", TYPE + ".", "plain"),
            "avahi-browse": Process("avahi-browse", "-rp", TYPE)}


def one_round(peer, on_b, count, number):
    """Seconds from the first registration to the last notification, and from the withdrawal."""
    all_of_them = watchers(peer)
    own = [all_of_them["ours, once"], all_of_them["ours, plain"]]
    read_until(own, lambda: all(any("ready" in line for _, line in one.lines) for one in own))
    publisher = Process(*on_b, peer, "publish", TYPE + ".", "4711", str(count), f"r{number}n", "03613d31")
    everybody = [*all_of_them.values(), publisher]
    stamp = lambda word: next((when for when, line in publisher.lines if line.endswith(" " + word)), None)
    read_until(everybody, lambda: stamp("ready") and all(
        last_time(one, "+", count) for one in all_of_them.values()))
    found = {name: last_time(one, "+", count) - stamp("begin") for name, one in all_of_them.items()}
    time.sleep(0.3)
    publisher.tell("withdraw")
    leavers = {name: one for name, one in all_of_them.items() if name != "ours, plain"}
    read_until(everybody, lambda: stamp("withdraw") and all(
        last_time(one, "-", count) for one in leavers.values()))
    gone = {name: last_time(one, "-", count) - stamp("withdraw") for name, one in leavers.items()}
    for one in everybody:
        one.end()
    return found, gone


def idle(peer, on_b, seconds):
    publisher = Process(*on_b, peer, "publish", TYPE + ".", "4711", "1", "idle")
    all_of_them = watchers(peer)
    read_until(all_of_them.values(), lambda: all(
        last_time(one, "+", 1) for one in all_of_them.values()))
    program = pathlib.Path(peer).with_name("pennywort")
    if program.exists():
        discover = Process(program, "discover", TYPE)
        read_until([discover], lambda: any(line.startswith("found") for _, line in discover.lines))
        all_of_them["pennywort discover"] = discover
    time.sleep(1)
    before = {name: one.cpu() for name, one in all_of_them.items()}
    time.sleep(seconds)
    used = {name: (one.cpu() - before[name]) / seconds for name, one in all_of_them.items()}
    for one in [*all_of_them.values(), publisher]:
        one.end()
    return used


def table(title, unit, rows):
    """rows: {name: [values]}; the ratio is that of the medians, over avahi-browse's."""
    peer = statistics.median(rows["avahi-browse"])
    print(f"\n## {title}\n\n| watcher | median, {unit} | lowest | highest | ratio |\n|---|---|---|---|---|")
    for name, values in rows.items():
        median = statistics.median(values)
        ratio = f"{median / peer:.2f}" if peer else "-"
        print(f"| {name} | {median:.4g} | {min(values):.4g} | {max(values):.4g} | {ratio} |")


def gathered(rounds):
    return {name: [one[name] for one in rounds] for name in rounds[0]}


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=pathlib.Path, default=ROOT / "build/release")
    parser.add_argument("--rounds", type=int, default=10)
    parser.add_argument("--services", type=int, default=200)
    parser.add_argument("--idle", type=int, default=20)
    arguments = parser.parse_args()
    if "TWO_HOSTS_STATE" not in os.environ:
        os.execv(ROOT / "tests/discovery/two_hosts", ["two_hosts", __file__, *sys.argv[1:]])
    peer = str((arguments.build / "bin/discovery_peer").resolve())
    on_b = [os.environ["TWO_HOSTS"], "on", "b"]
    single = [one_round(peer, on_b, 1, number) for number in range(arguments.rounds)]
    many = [one_round(peer, on_b, arguments.services, 100 + number)
            for number in range(max(1, arguments.rounds // 3))]
    print(f"# Discovery\n\n{arguments.rounds} rounds, a third of them with {arguments.services} services;"
          " times from the registration or withdrawal on the other host.")
    table("One service, found and looked up", "s", gathered([found for found, _ in single]))
    table("One service, gone", "s", gathered([gone for _, gone in single]))
    table(f"{arguments.services} services at once, all found and looked up", "s",
          gathered([found for found, _ in many]))
    table(f"{arguments.services} services at once, all gone", "s", gathered([gone for _, gone in many]))
    table(f"Idle browse of one type, {arguments.idle} s", "millionths of a processor",
          {name: [value * 1e6] for name, value in idle(peer, on_b, arguments.idle).items()})


if __name__ == "__main__":
    main()
