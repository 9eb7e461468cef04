"""Attacks by size: a million rules, ten thousand policies. What is asked for is whole, and nobody waits."""

import json
import pathlib
import select
import socket
import subprocess
import sys
import threading
import time

from . import policies
from .program import Agent, eventually, require

LONGEST_GAP = 0.1  # seconds in which an event loop must come round

# Sleeps 10 ms again and again until its standard input ends, and prints the longest time between two rounds.
METRONOME = """
import select, sys, time
longest, last = 0, time.monotonic()
while not select.select([sys.stdin], [], [], 0.01)[0]:
    now = time.monotonic()
    longest, last = max(longest, now - last), now
print(longest)
"""


class Watchdog:
    """Receives the agent's signs of life, one in 10 ms, and keeps the longest time without one.

    A metronome beside it tells how long this machine kept a process waiting that has nothing else to do.
    """

    def __init__(self, folder):
        self.path = str(pathlib.Path(folder) / "notify")
        self.environment = {"NOTIFY_SOCKET": self.path, "WATCHDOG_USEC": "20000"}
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        # The kernel's time of each message: this process may be late itself.
        self.socket.setsockopt(socket.SOL_SOCKET, 35, 1)  # SO_TIMESTAMPNS
        self.socket.settimeout(0.2)
        self.socket.bind(self.path)
        self.longest, self.signs, self.ended = 0.0, 0, False
        self.metronome = self.receiving = None

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.ended = True
        if self.receiving is not None:
            self.receiving.join()
            self.metronome.kill()
            self.metronome.wait()
        self.socket.close()

    def begin(self):
        while select.select([self.socket], [], [], 0)[0]:
            self._time()  # signs from before
        self.metronome = subprocess.Popen([sys.executable, "-c", METRONOME], stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.receiving = threading.Thread(target=self._receive)
        self.receiving.start()

    def end(self):
        """The longest gap of the agent and that of the metronome, in seconds."""
        self.ended = True
        self.receiving.join()
        machine, _ = self.metronome.communicate()
        require(self.signs > 10, f"only {self.signs} signs of life")
        return self.longest, float(machine)

    def _time(self):
        try:
            _, more, _, _ = self.socket.recvmsg(64, 128)
        except TimeoutError:
            return None
        stamp = more[0][2]
        return int.from_bytes(stamp[:8], "little") + int.from_bytes(stamp[8:16], "little") / 1e9

    def _receive(self):
        last = None
        while not self.ended:
            now = self._time()
            if now is not None:
                self.signs += 1
                self.longest = max(self.longest, now - last if last is not None else 0)
                last = now


def _count(program, agent, word, *arguments):
    """How often an answer holds `word`; the answer is read piece by piece, because it may have gigabytes."""
    process = subprocess.Popen([program.path, "show", "--socket", agent.socket, *arguments], stdout=subprocess.PIPE)
    found, size, rest = 0, 0, b""
    while piece := process.stdout.read(1 << 20):
        size += len(piece)
        piece = rest + piece
        found += piece.count(word)
        rest = piece[-(len(word) - 1):]
    process.wait()
    return process.returncode, found, size, rest


def _leave(agent):
    with agent.connect() as client:
        client.sendall(b'{"command": "show"}\n')
        client.recv(1 << 16)


def many_rules(attack, count):
    """Many rules shown, as text and as JSON: whole, while status is answered; the loop stands still for 100 ms at most."""
    sources = 250
    classes = max(1, count // 50_000)
    each = count // classes // sources
    rules = classes * each * sources
    with Watchdog(attack.folder) as watchdog, Agent(
            attack.program, attack.folder, policies.with_rules(sources, each, classes), "--capacity", rules,
            environment=watchdog.environment) as agent:
        agent.wait()
        watchdog.begin()
        shown = []
        showing = threading.Thread(target=lambda: shown.append(_count(attack.program, agent, b"Rule Name:")))
        showing.start()
        slowest = 0.0
        while showing.is_alive():
            began = time.monotonic()
            agent.ask_well("status")
            slowest = max(slowest, time.monotonic() - began)
            time.sleep(0.05)
        showing.join()
        status, found, text_size, end = shown[0]
        require((status, found) == (0, rules), f"status {status}, {found} of {rules} rules in the text, which ends in {end!r}")
        status, found, size, end = _count(attack.program, agent, b'"ruleFilter"', "--format", "json")
        require((status, found) == (0, rules), f"status {status}, {found} of {rules} rules in JSON, which ends in {end!r}")
        require(end.endswith(b"}\n"), f"the JSON ends in {end!r}")
        _leave(agent)
        require(eventually(lambda: not agent.children(), 5), "the work for a client that left goes on")
        gap, machine = watchdog.end()
        require(gap <= LONGEST_GAP + machine, f"{gap:.3f} s without a sign of life; the machine's own gaps: {machine:.3f} s")
        require(slowest < 2 + machine, f"a status took {slowest:.1f} s")
        agent.stop()
    return (f"{rules} rules, {text_size >> 20} MiB of text, {size >> 20} MiB of JSON; longest gap {gap * 1000:.0f} ms, "
            f"of the machine {machine * 1000:.0f} ms; slowest status {slowest * 1000:.0f} ms")


def many_policies(attack, count):
    """Many policies: all are programmed, changed and removed, and the processor time grows with their number only."""
    allowed = max(0.5, 5 * count / 10_000)
    with Agent(attack.program, attack.folder, policies.many(count), "--capacity", 2 * count) as agent:
        agent.wait()
        programmed = agent.seconds()
        _check_states(agent, count, "programmed", 2 * count)
        require(programmed <= allowed, f"{programmed:.1f} s of processor time for {count} policies, {allowed:.1f} are allowed")
        before = agent.seconds()
        agent.reload(policies.many(count, "Ethernet1, Ethernet2"))
        agent.wait()
        _check_states(agent, count, "programmed", 2 * count)
        changed = agent.seconds() - before
        require(changed <= 2 * allowed, f"{changed:.1f} s of processor time to change {count} policies")
        agent.reload("policies: []\n", "--allow-empty")
        require(eventually(lambda: agent.status()["capacity"]["used"] == 0, 60), "removed policies take no room")
        _check_states(agent, count, "removed", 0)
        agent.stop()
    return f"{count} policies: {programmed:.1f} s of processor time to program, {changed:.1f} s to change"


def _check_states(agent, count, state, entries):
    status = json.loads(agent.ask_well("status", "--format", "json").out)
    states = [policy["state"] for policy in status["policies"]]
    require(states == [state] * count, f"{states.count(state)} of {count} policies are {state}")
    require(status["capacity"]["used"] == entries, f"{status['capacity']}, {entries} entries are expected")
