"""`Program`: runs the command under attack and says how it ended. `Agent`: the same as a daemon.

Every attack uses these and `require`, which says what must hold. Relies on Linux (/proc) and on Python's standard
library. Processes are ended by their number, and only those that an object here has started.
"""

import json
import os
import pathlib
import re
import resource
import signal
import socket
import subprocess
import time
from typing import NamedTuple


class Fault(Exception):
    """Something that must hold does not. The text says what, with the operands."""


def require(holds, text):
    if not holds:
        raise Fault(text)


class Result(NamedTuple):
    status: int  # exit status, or minus the signal
    out: bytes
    err: str

    def __str__(self):
        return f"status {self.status}, standard output {self.out[-300:]!r}, standard error:\n{self.err[-2000:]}"


def limiter(limits):
    """What a child does before it becomes the program. `limits` maps a constant of `resource` to a number."""

    def limit():
        for name, number in limits.items():
            resource.setrlimit(name, (number, number))

    return limit if limits else None


class Program:
    def __init__(self, path):
        self.path = str(pathlib.Path(path).resolve())

    def run(self, *arguments, given=b"", environment=None, limits=None, seconds=300, out=subprocess.PIPE):
        """Runs the command to its end. A command that takes longer than `seconds` is a fault."""
        line = [self.path, *map(str, arguments)]
        try:
            done = subprocess.run(
                line, input=given, stdout=out, stderr=subprocess.PIPE, timeout=seconds,
                env=os.environ | (environment or {}), preexec_fn=limiter(limits or {}))
        except subprocess.TimeoutExpired:
            raise Fault(f"{' '.join(line)}: no end after {seconds} s") from None
        return Result(done.returncode, done.stdout or b"", done.stderr.decode(errors="backslashreplace"))


def hidden_characters(text):
    """Characters that a terminal obeys or that no reader sees, other than line ends."""
    return [c for c in text if c != "\n" and (ord(c) < 32 or 127 <= ord(c) < 160 or c in "\u200b\u202e\u2066\ufeff")]


TOTALS = re.compile(r"^ACLs: (\d+), rules: (\d+), TCAM entries: (\d+)$", re.MULTILINE)


def totals(text):
    """ACLs, rules and entries that `compile` counts on standard error."""
    found = TOTALS.search(text)
    require(found is not None, f"no line of totals in: {text[-500:]}")
    return tuple(map(int, found.groups()))


class Agent:
    """An agent that is started with the object, and ends with it at the latest."""

    def __init__(self, program, folder, policy, *options, environment=None, limits=None):
        self.program = program
        self.folder = pathlib.Path(folder)
        self.policy = self.folder / "policy.yaml"
        self.socket = str(self.folder / "agent.sock")
        self.errors = self.folder / "agent.err"
        self.options = options
        self.environment = environment or {}
        self.limits = limits or {}
        self.write(policy)
        self.process = None
        self.start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.process.poll() is None:
            self.kill()

    def write(self, policy):
        """Replaces the policy file as users should: written aside and renamed."""
        aside = self.policy.with_suffix(".new")
        aside.write_text(policy)
        aside.rename(self.policy)

    def start(self, seconds=120):
        with open(self.errors, "ab") as errors:
            self.process = subprocess.Popen(
                [self.program.path, "agent", "--socket", self.socket, *map(str, self.options), str(self.policy)],
                stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=errors,
                env=os.environ | self.environment, preexec_fn=limiter(self.limits))
        deadline = time.monotonic() + seconds
        while self.connect(strict=False) is None:
            require(self.process.poll() is None, f"the agent ended with {self.process.returncode}: {self.said()}")
            require(time.monotonic() < deadline, f"the agent does not listen after {seconds} s: {self.said()}")
            time.sleep(0.005)

    def connect(self, strict=True):
        """A connection to the agent; null when there is none and `strict` is not set."""
        client = socket.socket(socket.AF_UNIX)
        try:
            # With a timeout, Python would not wait for room in the queue of the socket.
            client.connect(self.socket)
            client.settimeout(120)
            return client
        except OSError:
            client.close()
            if strict:
                raise
            return None

    def said(self):
        return self.errors.read_text(errors="backslashreplace")[-3000:]

    def ask(self, command, *options, **more):
        return self.program.run(command, "--socket", self.socket, *options, **more)

    def ask_well(self, command, *options, **more):
        result = self.ask(command, *options, **more)
        require(result.status == 0, f"{command} {' '.join(map(str, options))}: {result}\nagent: {self.said()}")
        return result

    def reload(self, policy, *options):
        self.write(policy)
        return self.ask_well("reload", *options)

    def wait(self, seconds=120):
        return self.ask_well("status", "--wait", "--timeout", seconds, seconds=seconds + 60)

    def status(self):
        return json.loads(self.ask_well("status", "--format", "json").out)

    def states(self):
        return [policy["state"] for policy in self.status()["policies"]]

    def kill(self):
        self.process.kill()
        self.process.wait()

    def stop(self):
        self.process.send_signal(signal.SIGTERM)
        require(self.process.wait(timeout=60) == 0, f"the agent ended with {self.process.returncode}: {self.said()}")

    def _stat(self):
        """The fields of /proc/PID/stat behind the name of the program."""
        return pathlib.Path(f"/proc/{self.process.pid}/stat").read_text().rsplit(")", 1)[1].split()

    def seconds(self):
        """Processor time so far."""
        fields = self._stat()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def resident(self):
        """Bytes of memory."""
        return int(self._stat()[21]) * os.sysconf("SC_PAGE_SIZE")

    def descriptors(self):
        return len(os.listdir(f"/proc/{self.process.pid}/fd"))

    def children(self):
        process = self.process.pid
        return pathlib.Path(f"/proc/{process}/task/{process}/children").read_text().split()


def eventually(holds, seconds=30):
    deadline = time.monotonic() + seconds
    while not holds():
        if time.monotonic() > deadline:
            return False
        time.sleep(0.01)
    return True
