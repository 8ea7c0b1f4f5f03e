"""Compares what the .expect files promise with what a mail reader of another make, Python's email package,
finds in the messages: judge.py [NAME...]

The line "python = WORD..." of a .expect tells what both have to agree on:
    files    the decoded bytes of all parts with a name, in order
    names    their names
    texts    the decoded bytes of all other parts stand in the message file, in order
    subject, to    the header with its encoded words read, blanks aside
"python = no (why)" leaves a message out: there the rules of the library are its own."""
import email
import email.header
import glob
import os
import re
import sys

FOLDER = os.path.dirname(os.path.abspath(__file__))
LEAST = 30  # messages that are judged


def unescape(text):
    code = re.compile(rb"\\(\\|x[0-9A-F]{2})")
    return code.sub(lambda m: b"\\" if m[1] == b"\\" else bytes([int(m[1][1:], 16)]), text.encode("ascii"))


def summary(data):
    value = 0xCBF29CE484222325
    for byte in data:
        value = (value ^ byte) * 0x100000001B3 & 0xFFFFFFFFFFFFFFFF
    return f"#{len(data)} {value:016x}"


def read_expect(name):
    """(words of the python line, values by name, content by file); what is too long to be told stays text."""
    with open(os.path.join(FOLDER, name + ".expect"), encoding="ascii", newline="\n") as file:
        settings, result = file.read().split("\n\n", 1)
    words = re.search(r"^python = (.*)$", settings, re.M)[1].split()
    values, files, path = {}, {}, None
    for line in result.split("\n")[:-1]:
        if line.startswith("file "):
            path = os.path.basename(unescape(line[5:]))
            files[path] = b""
        elif path is None:
            key, value = line.split(":", 1)
            values[key] = unescape(value[1:]) if not value.startswith(" #") else value[1:]
        elif line.startswith("#"):
            files[path] = line
        else:
            files[path] += unescape(line[1:]) + (b"\r\n" if line.startswith("|") else b"")
    return words, values, files


def read_message(name):
    """The message without what POP3 adds to it; a dot alone ends it."""
    with open(os.path.join(FOLDER, name + ".eml"), "rb") as file:
        data = file.read()
    data = re.split(rb"(?:^|(?<=\n))\.\r\n", data, maxsplit=1)[0]
    return email.message_from_bytes(re.sub(rb"^\.", b"", data, flags=re.M))


def leaves(message):
    return [part for part in message.walk() if not part.is_multipart()]


def same(found, promised):
    """The line end in front of a boundary belongs to the boundary for one and to the text for the other."""
    if isinstance(promised, str):
        return promised in (summary(found), summary(found + b"\r\n"))
    return promised in (found, found + b"\r\n")


def named(message):
    return [part for part in leaves(message) if part.get_filename() is not None]


def listed(message, values):
    """The names of the files; those of the message where the list was too long to be told."""
    names = values["names"]
    if isinstance(names, str):
        return [part.get_filename().encode("latin-1") for part in named(message)]
    return names.split(b"|" if b"|" in names else b";") if names else []


def judge_files(message, values, files):
    found = [part.get_payload(decode=True) for part in named(message)]
    names = listed(message, values)
    if not len(found) == len(names) == int(values["attachments"]):
        return f"{len(found)} files found, {values['attachments']} promised, {len(names)} named"
    wrong = [name for name, data in zip(names, found) if not same(data, files[name])]
    return f"files differ: {wrong}" if wrong else None


def judge_names(message, values, _):
    found = [part.get_filename().encode("latin-1") for part in named(message)]
    names = listed(message, values)
    return None if names == found else f"names {found}, promised {names}"


def judge_texts(message, _, files):
    rest = files[b"message.txt"]
    for part in leaves(message):
        if part.get_filename() is None:
            text = part.get_payload(decode=True)
            if text not in rest:
                return f"no {text!r} in {rest!r}"
            rest = rest[rest.index(text) + len(text):]
    return None


def judge_header(message, values, name):
    pieces = email.header.decode_header(message[name])
    found = b"".join(p if isinstance(p, bytes) else p.encode("latin-1") for p, _ in pieces)
    squeezed = [re.sub(rb"\s", b"", text) for text in (found, values[name])]
    return None if squeezed[0] == squeezed[1] else f"{name}: {squeezed[0]!r}, promised {squeezed[1]!r}"


def judge(name):
    """None, or what is wrong; False: not to be judged."""
    words, values, files = read_expect(name)
    if words[0] == "no":
        return False
    message = read_message(name)
    routines = {"files": judge_files, "names": judge_names, "texts": judge_texts}
    for word in words:
        wrong = routines[word](message, values, files) if word in routines else judge_header(message, values, word)
        if wrong:
            return wrong
    return None


def main():
    names = sys.argv[1:] or sorted(os.path.basename(p)[:-4] for p in glob.glob(os.path.join(FOLDER, "*.eml")))
    verdicts = {name: judge(name) for name in names}
    for name, verdict in verdicts.items():
        if verdict:
            print(f"{name}: {verdict}")
    judged = sum(verdict is not False for verdict in verdicts.values())
    print(f"{judged} of {len(names)} messages judged")
    good = not any(verdicts.values()) and (judged >= LEAST or bool(sys.argv[1:]))
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
