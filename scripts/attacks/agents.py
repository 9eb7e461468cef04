"""Attacks on a running agent: killed during reloads, and asked by hundreds of clients that behave badly."""

import json
import resource
import threading

from . import policies
from .program import Agent, eventually, require

REQUEST = b'{"command": "%s"}\n'


# ---- Killed ----

def _compiled(program, folder, policy):
    """The ACLs that a policy file becomes, without the rest of the document."""
    file = folder / "expected.yaml"
    file.write_text(policy)
    result = program.run("compile", "--format", "json", file)
    require(result.status == 0, str(result))
    document = json.loads(result.out)
    return document["acls"], document["totals"]["tcamEntries"]


def _reload_and_kill(agent, delay):
    """The result of a reload during which the agent is killed."""
    result = []
    asking = threading.Thread(target=lambda: result.append(agent.ask("reload")))
    asking.start()
    asking.join(delay)
    agent.kill()
    asking.join()
    return result[0]


def _check_cut_reload(result):
    """What a client may say when its agent has gone: all or the reason."""
    if result.status == 0:
        require(result.out.endswith((b" operations\n", b" operation\n")), f"a whole answer: {result}")
    else:
        require(result.status == 3 and result.err, f"3 with a reason: {result}")
        require("agent.sock" in result.err, f"the reason names the socket: {result}")


def kills(attack, count):
    """Kills during reloads: the next agent starts, reads the file, and its ACLs are exactly those of the file; rings stay whole."""
    texts = [policies.SMALL, policies.with_rules(40, 40), policies.many(50, "Ethernet1, Ethernet2"), policies.with_rules(10, 10, 4)]
    expected = [_compiled(attack.program, attack.folder, text) for text in texts]
    ring = attack.folder / "ring"
    answered = 0
    with Agent(attack.program, attack.folder, texts[0], "--capacity", 100_000, environment={"RINGLOG_FILE": str(ring)}) as agent:
        for number in range(count):
            text = texts[number % len(texts)]
            agent.wait()
            agent.write(text)
            result = _reload_and_kill(agent, attack.random.uniform(0.0, 0.3))
            _check_cut_reload(result)
            answered += result.status == 0
            require(agent.policy.read_text() == text, "the policy file is as it was")
            traces = attack.program.run("trace", ring)
            require(traces.status == 0 and not traces.err and traces.out, f"the ring is whole: {traces.status} {traces.err}")
            agent.start()
            agent.wait()
            acls, entries = expected[number % len(texts)]
            status = agent.status()
            require(status["capacity"]["used"] == entries, f"{status['capacity']} instead of {entries} entries")
            shown = json.loads(agent.ask_well("show", "--format", "json").out)["acls"]
            require(_rules(shown) == _rules(acls), "the ACLs are those of the file")
        agent.stop()
    require(0 < answered < count or count < 20, f"{answered} of {count} reloads had ended before the kill: all or none")
    return f"{count} kills, {answered} of them after the answer"


def _rules(acls):
    """ACLs by their keys, in a form that compares what they do."""
    return {acl["aclConfigKey"]: [(index, rule if isinstance(rule, str) else rule.get("name"))
                                  for index, rule in acl["ruleByIndex"].items()] for acl in acls}


# ---- Asked by many ----

class Clients:
    """Connections in threads of their own; what goes wrong in them is collected."""

    def __init__(self, agent):
        self.agent = agent
        self.faults = []
        self.threads = []

    def add(self, behave):
        def run():
            try:
                with self.agent.connect() as client:
                    behave(client)
            except Exception as error:  # whatever it is, it is the attack's finding
                self.faults.append(f"{behave.__name__}: {error!r}")

        self.threads.append(threading.Thread(target=run))
        self.threads[-1].start()

    def end(self):
        for thread in self.threads:
            thread.join()
        require(not self.faults, f"{len(self.faults)} clients have not been served: {self.faults[:5]}")


def _all_of(client):
    parts = []
    while part := client.recv(1 << 16):
        parts.append(part)
    return b"".join(parts)


def _silent(client):
    _all_of(client)  # until the agent needs its place, or its time is up


def _leaving(client):
    client.sendall(REQUEST % b"show")


def _half(client):
    client.sendall(b'{"command": ')


def _rubbish(client):
    client.sendall(bytes(range(256)).replace(b"\n", b"") * 4 + b"\n")
    require(_all_of(client).startswith(b'{"exit":2}\n'), "rubbish is refused")


def _endless(client):
    try:
        for _ in range(100):
            client.sendall(b"x" * 10_000)
    except OSError:
        pass  # the agent has read enough


def _asking(client):
    client.sendall(REQUEST % b"status")
    answer = _all_of(client)
    require(answer.startswith(b'{"exit":0}\nPOLICY') and answer.endswith(b" free\n"), f"a whole status: {answer[:200]!r}")


def _showing(client):
    client.sendall(REQUEST % b"show")
    answer = _all_of(client)
    require(answer.startswith(b'{"exit":0,"marked":true}\n') and answer.endswith(b"\0"), "a whole show text")
    require(answer.count(b"Rule Name:") == 100, "every rule is shown")


BEHAVIOURS = [_silent, _asking, _leaving, _half, _rubbish, _asking, _endless, _showing, _silent, _asking]


def clients(attack, count):
    """Clients at the same time, most of which behave badly: who asks is answered whole, and nothing of them stays behind."""
    with Agent(attack.program, attack.folder, policies.with_rules(10, 10)) as agent:
        agent.wait()
        agent.ask_well("show")
        require(eventually(lambda: not agent.children()), "no child stays")
        before, memory = agent.descriptors(), agent.resident()
        crowd = Clients(agent)
        for number in range(count):
            crowd.add(BEHAVIOURS[number % len(BEHAVIOURS)])
        agent.ask_well("status", seconds=60)  # somebody in need, in the middle of it
        crowd.end()
        require(eventually(lambda: agent.descriptors() == before), f"{agent.descriptors()} descriptors instead of {before}")
        require(eventually(lambda: not agent.children()), f"children {agent.children()} stay")
        grown = agent.resident() - memory
        require(grown < 64 << 20, f"the agent has grown by {grown} bytes")
        agent.stop()
    return f"{count} clients, {sum(BEHAVIOURS[i % len(BEHAVIOURS)] in (_asking, _showing) for i in range(count))} of them asked well"


def few_descriptors_for_clients(attack, count):
    """More clients than the agent has descriptors for: those it can serve are, and afterwards everybody is."""
    with Agent(attack.program, attack.folder, policies.SMALL, limits={resource.RLIMIT_NOFILE: 40}) as agent:
        agent.wait()
        before = agent.descriptors()
        idle = []
        for _ in range(count):
            idle.append(agent.connect())
        used = agent.seconds()
        require(not eventually(lambda: agent.process.poll() is not None, 2), f"the agent ended: {agent.said()}")
        require(agent.seconds() - used < 1, f"the agent is busy with clients that do nothing: {agent.seconds() - used} s")
        for client in idle:
            client.close()
        require(eventually(lambda: agent.descriptors() <= before), f"{agent.descriptors()} descriptors, {before} before")
        agent.ask_well("status")
        agent.stop()
    return f"{count} clients of an agent with 40 descriptors"
