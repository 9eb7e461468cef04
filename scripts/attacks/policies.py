"""Texts of policy files for attacks: one class or many rules, one policy or thousands, and damaged ones. Relies on nothing."""

import re

SMALL = """\
policies:
  - name: web
    interfaces: { ipv4: [Ethernet1] }
    classes: [{ name: all, actions: [sample-all], ipv4: {} }]
"""


def with_rules(sources, destinations, classes=1):
    """A policy of `classes` classes with sources * destinations rules each.

    Odd ports have no common block, so that each makes a rule of its own.
    """
    source = ", ".join(str(1 + 2 * port) for port in range(sources))
    destination = ", ".join(str(1 + 2 * port) for port in range(destinations))
    rows = []
    for number in range(classes):
        rows.append(
            f"      - {{ name: c{number}, actions: [sample-all], ipv4: {{ destination: [10.0.{number}.0/24], protocols: "
            f"[{{ protocol: udp, ports: [{{ source: [{source}], destination: [{destination}] }}] }}] }} }}\n")
    return "policies:\n  - name: large\n    interfaces: { ipv4: [Ethernet1] }\n    classes:\n" + "".join(rows)


def many(count, interfaces="Ethernet1"):
    """`count` policies of two rules each."""
    return "policies:\n" + "".join(
        f"  - {{ name: p{number}, interfaces: {{ ipv4: [{interfaces}] }}, "
        "classes: [{ name: all, actions: [sample-all], ipv4: {} }] }\n" for number in range(count))


# ---- Damage ----

TOKENS = [
    b"*", b"&a ", b"<<: ", b"!!binary ", b"? ", b"- ", b": ", b"{", b"}", b"[", b"]", b"\"", b"'", b"|\n", b"%YAML 9\n", b"---\n",
    b"...\n", b"\t", b"\x00", b"\x1b[2J", b"\r", b"\xff", b"\xe2\x80\xae", b"\xe2\x80\x8b", b"\xef\xbb\xbf", b"~", b"null",
    b"policies:", b"both:", b"expect: { rules: 1 }\n", b"sample: { rate: 3 }", b"drop", b"0.0.0.0/0", b"::/0", b"1-65535",
    b"18446744073709551616", b"-1", b"0x", b"1e9", b"9" * 80]
NUMBERS = [b"0", b"1", b"-1", b"65535", b"65536", b"4294967296", b"99999999999999999999", b"0x10000", b"010", b"1.5"]


def _at(random, text):
    return random.randrange(len(text) + 1)


def _cut(random, text):
    return text[:_at(random, text)]


def _drop_lines(random, text):
    lines = text.splitlines(keepends=True)
    first = random.randrange(len(lines) or 1)
    return b"".join(lines[:first] + lines[first + random.randrange(1, 4):])


def _repeat_lines(random, text):
    lines = text.splitlines(keepends=True)
    first = random.randrange(len(lines) or 1)
    return b"".join(lines[:first] + lines[first:first + random.randrange(1, 6)] * 2 + lines[first + 1:])


def _indent(random, text):
    lines = text.splitlines(keepends=True)
    number = random.randrange(len(lines) or 1)
    lines[number:number + 1] = [random.choice([b" ", b"  ", b"      "]) + line for line in lines[number:number + 1]]
    return b"".join(lines)


def _flip(random, text):
    changed = bytearray(text)
    for _ in range(random.randrange(1, 6)):
        if changed:
            changed[random.randrange(len(changed))] = random.randrange(256)
    return bytes(changed)


def _insert(random, text):
    at = _at(random, text)
    return text[:at] + random.choice(TOKENS) + text[at:]


def _renumber(random, text):
    places = list(re.finditer(rb"\d+", text))
    if not places:
        return text
    place = random.choice(places)
    return text[:place.start()] + random.choice(NUMBERS) + text[place.end():]


def _exchange_words(random, text):
    places = list(re.finditer(rb"[A-Za-z][\w-]*", text))
    if len(places) < 2:
        return text
    first, second = sorted(random.sample(places, 2), key=lambda place: place.start())
    return (text[:first.start()] + second.group() + text[first.end():second.start()] + first.group() + text[second.end():])


DAMAGES = [_cut, _drop_lines, _repeat_lines, _indent, _flip, _insert, _renumber, _exchange_words]


def damaged(random, texts):
    """One of `texts` with one to three damages, or the beginning of one before the end of another."""
    text = random.choice(texts)
    if random.random() < 0.1:
        return _cut(random, text) + random.choice(texts)[_at(random, text):]
    for _ in range(random.choice([1, 1, 2, 3])):
        text = random.choice(DAMAGES)(random, text)
    return text
