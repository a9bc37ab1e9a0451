#!/usr/bin/env python3
"""Asks the program about real rule sets in a network namespace, and tries each port from another one.

usage: run.py PROGRAM CASE...       each CASE is loaded by nft, or by iptables-nft-restore (*.iptables)
       run.py --no-right PROGRAM    asks without the right to read the rules
       run.py --families PROGRAM    asks for each protocol, behind rules for one of them and then for both
       run.py --live PROGRAM        starts "pennywort live" on IPv4 behind rules that let only IPv6 in

A case says in comments what is expected: "# port 80: open" when the program says so and a peer comes in,
"blocked" when it says so and no peer does, "untold" when the program says open and the peer may find it
otherwise. Needs no root where a user may make namespaces; nothing outside them is touched.
"""
import json
import os
import re
import select
import socket
import subprocess
import sys
import time

EXPECTED = re.compile(r"^# port (\d+): (open|blocked|untold)$", re.MULTILINE)
ADDRESSES = ["10.9.0.1", "fd09::1"]
# A connection within one machine takes less than a millisecond; one that is dropped takes all of it.
TRY = """
import socket, sys, threading
reached = set()
def attempt(address, port):
    try:
        socket.create_connection((address, port), timeout=3).close()
        reached.add(port)
    except OSError:
        pass
tries = [threading.Thread(target=attempt, args=(address, int(port)))
         for address in sys.argv[1].split(",") for port in sys.argv[2:]]
for one in tries: one.start()
for one in tries: one.join()
print(*reached)
"""


def run(*command, text=None):
    subprocess.run(command, check=True, input=text, text=True)


def network():
    """Joins this namespace to a new one; returns the process that keeps the other."""
    run("ip", "link", "set", "lo", "up")
    peer = subprocess.Popen(["unshare", "--net", "sleep", "600"])
    own = os.readlink("/proc/self/ns/net")
    bound = time.monotonic() + 10
    while os.readlink(f"/proc/{peer.pid}/ns/net") == own and time.monotonic() < bound:
        time.sleep(0.01)
    run("ip", "link", "add", "out0", "type", "veth", "peer", "name", "in0", "netns", str(peer.pid))
    inside = ["nsenter", "--target", str(peer.pid), "--net"]
    for prefix, device, last in (([], "out0", 1), (inside, "in0", 2)):
        run(*prefix, "ip", "address", "add", f"10.9.0.{last}/24", "dev", device)
        run(*prefix, "ip", "address", "add", f"fd09::{last}/64", "dev", device, "nodad")
        run(*prefix, "ip", "link", "set", device, "up")
    return peer


def load(case):
    run("nft", "flush", "ruleset")
    with open(case, encoding="utf-8") as file:
        text = file.read()
    if case.endswith(".iptables"):
        run("iptables-nft-restore", text=text)
        run("ip6tables-nft-restore", text=text)
    else:
        run("nft", "-f", "-", text=text)
    return [(int(port), state) for port, state in EXPECTED.findall(text)]


def said(program, port, *prefix):
    answer = subprocess.run([*prefix, program, "firewall", *str(port).split(), "--json"], text=True,
                            capture_output=True, check=False)
    return answer.returncode, json.loads(answer.stdout)


def reached_ports(peer, ports):
    """Those that a peer comes in by, whichever protocol a rule may let in."""
    listeners = [socket.create_server(("::", port), family=socket.AF_INET6, dualstack_ipv6=True)
                 for port in ports]
    answer = subprocess.run(["nsenter", "--target", str(peer.pid), "--net", sys.executable, "-c", TRY,
                             ",".join(ADDRESSES), *map(str, ports)],
                            text=True, capture_output=True, check=True)
    for listener in listeners:
        listener.close()
    return {int(port) for port in answer.stdout.split()}


def faults_of(case, program, peer):
    expected = load(case)
    if not expected:
        yield f"{case}: expects nothing"
    reached = reached_ports(peer, [port for port, _ in expected])
    for port, state in expected:
        status, answer = said(program, port)
        want = ("blocked", 3) if state == "blocked" else ("open", 0)
        if (answer["state"], status) != want:
            yield f"{case}: port {port} should be {want[0]}, but: {answer}, status {status}"
        if state != "untold" and (port in reached) != (state == "open"):
            yield f"{case}: a peer finds port {port} not {state}"


def check_cases(program, cases):
    peer = network()
    try:
        faults = [fault for case in cases for fault in faults_of(case, program, peer)]
    finally:
        peer.kill()
        peer.wait()
    print("\n".join(faults) or f"{len(cases)} rule sets: all as they should be")
    return 1 if faults else 0


def check_no_right(program):
    without = ["setpriv", "--bounding-set=-net_admin", "--inh-caps=-net_admin"]
    status, answer = said(program, 80, *without)
    print(status, answer)
    return 0 if (status, answer["state"]) == (1, "unknown") and "no right" in answer["why"] else 1


def check_families(program):
    peer = network()
    run("nft", "-f", "-", text="table ip t { chain c { type filter hook input priority 0; policy drop; }; }")
    answers = [said(program, port) for port in ("80", "80 --ipv4", "80 --ipv6")]
    run("nft", "-f", "-", text="table ip6 t { chain c { type filter hook input priority 0; policy drop; }; }")
    answers.append(said(program, "80"))
    peer.kill()
    peer.wait()
    print(answers)
    found = [(status, answer["state"], answer.get("blocked_over")) for status, answer in answers]
    return 0 if found == [(0, "open", "IPv4"), (3, "blocked", None), (0, "open", None), (3, "blocked", None)] else 1


def check_live(program):
    peer = network()
    run("nft", "-f", "-", text="table inet t { chain c { type filter hook input priority 0; policy drop; "
                               "iifname lo accept; meta nfproto ipv6 accept; }; }")
    live = subprocess.Popen([program, "live", "about:blank", "--port", "0", "--listen", "0.0.0.0"],
                            stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    try:
        select.select([live.stderr], [], [], 90)
    finally:
        live.terminate()  # it says all of it first
        said = live.communicate(timeout=30)[1]
        peer.kill()
        peer.wait()
    print(said)
    is_warned = "others cannot come in: port " in said and "over IPv4: chain c of table inet t" in said
    return 0 if is_warned and "from another machine: http://10.9.0.1:" in said else 1


def main():
    arguments = sys.argv[1:]
    if os.environ.get("PENNYWORT_IN_NAMESPACE") is None:
        os.environ["PENNYWORT_IN_NAMESPACE"] = "yes"
        os.execvp("unshare", ["unshare", "--map-root-user", "--net", sys.executable, __file__, *arguments])
    if arguments[0] == "--no-right":
        return check_no_right(arguments[1])
    if arguments[0] == "--families":
        return check_families(arguments[1])
    if arguments[0] == "--live":
        return check_live(arguments[1])
    return check_cases(arguments[0], arguments[1:])


if __name__ == "__main__":
    sys.exit(main())
