"""Attacks by shortage: no room on the disk, no descriptors. Nothing old is lost, and no result lies."""

import os
import re
import resource
import shutil
import subprocess

from . import policies
from .program import Agent, Result, eventually, limiter, require

ADVICE = re.compile(r"RINGLOG_FILE=\S+ ignored: [^;]+; .*\. Traces stay in memory\n")


def _make_ring(attack):
    ring = attack.folder / "ring"
    result = attack.program.run("check", attack.example, environment={"RINGLOG_FILE": str(ring)})
    require(result.status == 0 and ring.stat().st_size > 1 << 20, f"a ring to lose: {result}")
    return ring


def _check_ring(attack, result, plain, ring, old, what):
    """The command did its work; the ring is the old one and the message says why, or it is a new one. Returns whether new."""
    require((result.status, result.out) == (plain.status, plain.out), f"{what}: the result is another one: {result}")
    message = result.err.removesuffix(plain.err)
    if message:
        require(ADVICE.fullmatch(message), f"{what}: the message has no advice: {message}")
        require(ring.read_bytes() == old, f"{what}: the old ring is lost, and the message is {message}")
        return False
    traces = attack.program.run("trace", ring)
    require(traces.status == 0 and traces.out and not traces.err, f"{what}: a new ring that cannot be read: {traces.err}")
    require(ring.read_bytes() != old, f"{what}: neither a new ring nor a word")
    return True


def full_disk(attack, count):
    """A disk that is full at each write of a ring, and of a result: the old ring stays, results that are cut end with 3."""
    ring = _make_ring(attack)
    old = ring.read_bytes()
    plain = attack.program.run("compile", attack.example)
    taken = 0
    limits = [len(old) * number // count for number in range(count)] + [len(old) - 1, len(old)]
    for limit in limits:
        result = attack.program.run("compile", attack.example, environment={"RINGLOG_FILE": str(ring)},
                                    limits={resource.RLIMIT_FSIZE: limit})
        new = _check_ring(attack, result, plain, ring, old, f"files of {limit} bytes at most")
        require(new == (limit >= len(old)), f"files of {limit} bytes at most: the ring is {'new' if new else 'old'}")
        taken += new
        ring.write_bytes(old)
    mounted = _full_file_systems(attack, ring, old, plain, count)
    cut = _cut_results(attack, plain, count)
    return f"{len(limits)} limits of the file's size, {mounted} full file systems, {cut} cut results"


# Mounts a file system of $1 KiB at $2 with the old ring $3 in it, and runs the rest. Nobody else sees the file system.
ON_SMALL_DISK = """
mount -t tmpfs -o size="$1"k none "$2" && cp "$3" "$2/ring" || exit 77
folder=$2 old=$3
shift 3
RINGLOG_FILE=$folder/ring "$@" || exit
cmp -s "$folder/ring" "$old" || cat "$folder/ring" >"$old.new"
"""


def _full_file_systems(attack, ring, old, plain, count):
    """As many sizes as may be mounted; 0 where this user may not mount."""
    folder = attack.folder / "disk"
    folder.mkdir()
    if not shutil.which("unshare") or subprocess.run(
            ["unshare", "--mount", "true"], stderr=subprocess.DEVNULL).returncode != 0:
        return 0
    # The old ring is shorter than the new one, so that the new one needs room.
    short = attack.folder / "short"
    short.write_bytes(old[:700 * 1024])
    new_ring = attack.folder / "short.new"
    news = 0
    sizes = [704 + (len(old) // 1024 + 64 - 704) * number // count for number in range(count + 1)]
    for size in sizes:
        done = subprocess.run(
            ["unshare", "--mount", "sh", "-c", ON_SMALL_DISK, "sh", str(size), folder, short, attack.program.path, "compile",
             attack.example], capture_output=True)
        result = Result(done.returncode, done.stdout, done.stderr.decode())
        require(result.status != 77, f"cannot mount: {result.err}")
        if new_ring.exists():
            new_ring.replace(ring)
        else:
            shutil.copy(short, ring)
        news += _check_ring(attack, result, plain, ring, short.read_bytes(), f"a disk of {size} KiB")
    require(0 < news < len(sizes), f"{news} of {len(sizes)} disks had room: all or none")
    return len(sizes)


def _cut_results(attack, plain, count):
    """Results that are written to a file that becomes full."""
    target = attack.folder / "result"
    for form in (["compile"], ["compile", "--format", "json"], ["compile", "--format", "list"], ["check"], ["types"]):
        arguments = form + ([] if form == ["types"] else [attack.example])
        whole = len(attack.program.run(*arguments).out)
        for number in range(count):
            limit = whole * number // count
            with open(target, "wb") as out:
                result = attack.program.run(*arguments, out=out, limits={resource.RLIMIT_FSIZE: limit})
            require(result.status == 3 and "standard output" in result.err, f"{form}, {limit} of {whole} bytes: {result}")
        with open("/dev/full", "wb") as out:
            result = attack.program.run(*arguments, out=out)
        require(result.status == 3 and "standard output" in result.err, f"{form} to a full device: {result}")
    return 5 * (count + 1)


def few_descriptors(attack, count):
    """Descriptors limited from 3 to 20: whole results, or 3 with what to do; an agent starts or says why not."""
    ring = _make_ring(attack)
    capture = attack.folder / "capture"
    capture.write_bytes(bytes.fromhex("d4c3b2a1020004000000000000000000ffff000065000000"))
    commands = [
        ["compile", attack.example], ["compile", "--format", "json", attack.example],
        ["compile", "--format", "list", attack.example], ["check", attack.example],
        ["explain", attack.example, "--packet", "tcp 10.1.2.3:1025 > 192.0.2.1:443 flags=syn"],
        ["explain", attack.example, "--pcap", capture], ["trace", ring], ["types"], ["help"]]
    runs, short = 0, 0
    with Agent(attack.program, attack.folder, policies.SMALL) as agent:
        agent.wait()
        commands += [[command, "--socket", agent.socket] for command in ("status", "show", "trace-levels")]
        for command in commands:
            plain = attack.program.run(*command)
            require(plain.status == 0, str(plain))
            for limit in range(3, 3 + count):
                result = attack.program.run(*command, limits={resource.RLIMIT_NOFILE: limit})
                short += _check_short(command, limit, result, plain)
                runs += 1
        agent.stop()
    require(0 < short < runs, f"{short} of {runs} commands had too few descriptors: all or none")
    return f"{runs} commands, {short} of them refused; {_short_agents(attack, count)}"


def _check_short(command, limit, result, plain):
    """Whether the command was refused."""
    what = f"{command} with {limit} descriptors: {result}"
    if result.status == 0:
        require(result.out == plain.out and result.err == plain.err, what)
        return False
    # 127: the run-time loader could not open the libraries, and says so itself.
    require(result.status == 3 or (result.status == 127 and limit <= 3), what)
    require(result.out == b"" or result.status == 3, what)
    require("ulimit -n" in result.err or result.status == 127 and "shared libraries" in result.err, f"no advice: {what}")
    return True


def _short_agents(attack, count):
    started = 0
    limits = list(range(3, 3 + count)) + [22, 25, 28, 32, 40]
    for limit in limits:
        folder = attack.folder / f"agent-{limit}"
        folder.mkdir()
        socket = folder / "s"
        file = folder / "policy.yaml"
        file.write_text(policies.SMALL)
        errors = folder / "errors"
        with open(errors, "wb") as stream:
            process = subprocess.Popen(
                [attack.program.path, "agent", "--socket", str(socket), str(file)], stdin=subprocess.DEVNULL,
                stdout=subprocess.DEVNULL, stderr=stream, preexec_fn=limiter({resource.RLIMIT_NOFILE: limit}))
        try:
            require(eventually(lambda: process.poll() is not None or "listening" in errors.read_text()),
                    f"an agent with {limit} descriptors neither begins nor ends: {errors.read_text()}")
            if process.poll() is None:
                started += 1
                status = attack.program.run("status", "--wait", "--socket", socket)
                require(status.status == 0 and b" programmed " in status.out, f"{limit} descriptors: {status}")
                process.terminate()
                require(process.wait(60) == 0, f"an agent with {limit} descriptors ended with {process.returncode}")
            else:
                _check_short(["agent"], limit, Result(process.returncode, b"", errors.read_text()), Result(0, b"", ""))
                require(not socket.exists(), f"{limit} descriptors: an agent that did not begin leaves a socket")
        finally:
            if process.poll() is None:
                process.kill()
                process.wait()
    require(0 < started < len(limits), f"{started} of {len(limits)} agents started: all or none")
    return f"{len(limits)} agents, {started} of them started"
