"""Attacks by policy files: damaged ones, which must be accepted or refused and nothing in between."""

import json
import re

from . import policies
from .program import Fault, hidden_characters, require, totals


def _placed(line, file):
    """Whether a line of standard error says where in the file something is, or that the whole file is meant."""
    return re.match(rf"( {{3}})?{re.escape(str(file))}(:\d+:\d+)?: \S", line) is not None


def _check_refused_file(file, compiled, document):
    lines = compiled.err.splitlines()
    require(compiled.out == b"", "a file that cannot be used prints no ACL")
    require(lines and all(_placed(line, file) for line in lines), "each finding has its place")
    findings = json.loads(document.out)["findings"]
    require(findings, "the document of a refused file has findings")
    for finding in findings:
        require(finding["file"] == str(file) and finding["code"] and finding["text"], f"a whole finding: {finding}")


def _check_used_file(file, compiled, document, checked):
    count = totals(compiled.err)
    rest = [line for line in compiled.err.splitlines() if not line.startswith("ACLs: ")]
    refusals = [line for line in rest if re.match(r"\S.* ipv[46]: \S", line)]
    require((compiled.status == 1) == bool(refusals), "1 is the exit status when a policy is refused, and only then")
    require(all(_placed(line, file) for line in rest if line not in refusals), "no other message without a place")
    # Every refusal has the place of what is concerned behind it.
    for number, line in enumerate(rest):
        if line in refusals:
            require(number + 1 < len(rest) and rest[number + 1].startswith("   "), f"a place behind '{line}'")
    whole = json.loads(document.out)
    require(whole["totals"]["tcamEntries"] == count[2], "JSON and text have the same totals")
    require(sum(len(acl["ruleByIndex"]) for acl in whole["acls"]) == count[2], "JSON has every entry")
    require(len(whole["refused"]) == len(refusals), "JSON has every refusal")
    entries = json.loads(checked.out)["totals"]["entries"]
    require(entries == count[2], f"check counts {entries} entries, compile {count[2]}")


def _check_file(program, file):
    """Returns the exit status, and the entries of a file that can be used."""
    compiled = program.run("compile", file)
    document = program.run("compile", "--format", "json", file)
    checked = program.run("check", "--format", "json", file)
    results = (compiled, document, checked)
    try:
        for result in results:
            require(result.status in (0, 1, 2), "the exit status blames the file or nobody")
            require(result.status == compiled.status, "every command says the same of the file")
            require(not hidden_characters(result.err), "messages have no characters that cannot be seen")
            require(result.status != 2 or result.err, "a file is not refused without a word")
        if compiled.status == 2:
            _check_refused_file(file, compiled, document)
            return 2, None
        _check_used_file(file, compiled, document, checked)
        return compiled.status, totals(compiled.err)[2]
    except (Fault, KeyError, ValueError) as error:
        raise Fault(f"{file}: {error}\n" + "\n".join(map(str, results))) from None


def damaged_files(attack, count):
    """Damaged policy files: accepted whole or refused with places; text, JSON and check agree; no crash, no hang."""
    texts = [path.read_bytes() for path in sorted((attack.source / "examples").glob("*.yaml"))
             if path.stat().st_size < 20_000]
    texts += [path.read_bytes() for path in sorted((attack.source / "tests/fuzz/corpus/PolicyFile").iterdir())]
    seen = {0: 0, 1: 0, 2: 0}
    for number in range(count):
        file = attack.folder / f"{number}.yaml"
        file.write_bytes(policies.damaged(attack.random, texts))
        status, _ = _check_file(attack.program, file)
        seen[status] += 1
        file.unlink()  # those that find something stay
    require(min(seen.values()) > 0, f"damage was too strong or too weak to show anything: {seen}")
    return f"{count} files: {seen[0]} accepted, {seen[1]} with refused policies, {seen[2]} refused"


def cut_files(attack, count):
    """Files that were cut while they were written: with `expect`, none passes that comes to less than the whole."""
    whole = (attack.source / "examples/twenty-services.yaml").read_text()
    whole = re.sub(r"^expect:.*\n", "", whole, flags=re.MULTILINE)
    file = attack.folder / "cut.yaml"
    file.write_text(whole)
    status, entries = _check_file(attack.program, file)
    require(status == 0, "the example compiles")
    whole = f"expect: {{ rules: {entries} }}\n" + whole
    passed = 0
    for number in range(count):
        length = len(whole) * number // count
        file.write_text(whole[:length])
        status, found = _check_file(attack.program, file)
        require(status == 2 or found == entries, f"the first {length} bytes pass with {found} of {entries} entries")
        passed += status != 2
    file.write_text(whole)
    require(_check_file(attack.program, file) == (0, entries), "the whole file passes")
    return f"{count} beginnings of a file, {passed} of them as good as the whole"
