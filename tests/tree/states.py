"""Draws docs/states.md from the state table: each state's number, name, handler and the states that
its handler can go to.

    python3 tests/tree/states.py --write    writes docs/states.md anew
"""
import os
import re
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
FOLDERS = ["frame", "send", "retrieve"]

HEAD = """# States of the driver

Drawn from `frame/state_table.cpp` and the handlers by `tests/tree/states.py --write`; a test compares.
A state that waits or has more of the same work stays where it is. "0" is the end of an operation; every
state can also fail, which ends it too.

| number | name | handler | goes to |
| --- | --- | --- | --- |
"""


def read(path):
    with open(os.path.join(ROOT, path), encoding="utf-8") as file:
        return file.read()


def numbers():
    return {name: int(value) for name, value in re.findall(r"\b(ST_\w+) = (\d+)", read("frame/states.h"))}


def functions():
    """Every routine of the handlers' folders by name, its body and its file."""
    found = {}
    for folder in FOLDERS:
        for name in sorted(os.listdir(os.path.join(ROOT, folder))):
            if not name.endswith(".cpp"):
                continue
            text = read(f"{folder}/{name}")
            for match in re.finditer(r"^[a-z][^\n;{}=]*?\b(\w+)\([^;{}]*?\)\n\{\n(.*?)^\}", text, re.S | re.M):
                found[match[1]] = (match[2], f"{folder}/{name}")
    return found


def rows():
    return re.findall(r"\{ (ST_\w+), \"([^\"]+)\", (\w+) \}", read("frame/state_table.cpp"))


def command_rows():
    """Senders of argument-less commands and the states that read their replies."""
    text = read("send/envelope_states.cpp")
    rows = re.findall(r"\{ (ST_\w+), \"[A-Z]+\", (ST_\w+) \}", text)
    rows += re.findall(r"\{ (ST_\w+), \"[^\"]+\", RYN_\w+, (ST_\w+) \}", read("retrieve/imap_states.cpp"))
    return dict(rows)


def targets(name, bodies, seen):
    """States that a routine can go to, by itself or by a routine that it calls."""
    if name in seen or name not in bodies:
        return set()
    seen.add(name)
    body = bodies[name][0]
    found = set(re.findall(r"\bGo\(ch, (ST_\w+)\)", body))
    found |= set(re.findall(r"\bSend\w*AndGo\([^;]*?(ST_\w+)\)", body, re.S))
    found |= set(re.findall(r"\bNextState = (ST_\w+);", body))
    if re.search(r"\bFinish\(ch\)", body):
        found.add("ST_IDLE")
    for called in re.findall(r"\breturn (?:[^;]*?\? )?(\w+)\(", body) + re.findall(r": (\w+)\(ch\b", body):
        if called not in ("Go", "Finish", "FailState", "Stay", "Wait"):
            found |= targets(called, bodies, seen)
    return found


def draw():
    number = numbers()
    bodies = functions()
    senders = command_rows()
    lines = []
    for state, title, handler in rows():
        goes = {senders[state]} if state in senders else targets(handler, bodies, set())
        ends = ", ".join(str(n) for n in sorted(number[g] for g in goes)) or "-"
        file = bodies[handler][1]
        lines.append(f"| {number[state]} | {title} | `{handler}` in {file} | {ends} |")
    return HEAD + "\n".join(lines) + "\n"


if __name__ == "__main__" and "--write" in sys.argv:
    with open(os.path.join(ROOT, "docs/states.md"), "w", encoding="utf-8") as file:
        file.write(draw())
