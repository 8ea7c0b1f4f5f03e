"""Draws docs/reference.md from include/ryn32.h, with the texts of frame/status.cpp and the widths of
frame/params_ops.cpp, and tests that nothing in the header lacks its description. Tests too that the
code in docs/guide.md stands in the examples.

    python3 tests/tree/reference.py --write    writes docs/reference.md anew
    python3 tests/tree/reference.py            compares; what a test runs
"""
import glob
import os
import re
import sys
import textwrap

import states

WIDTH = 110
TITLE = """# Reference

Drawn from `include/ryn32.h` by `tests/tree/reference.py --write`; a test compares. [guide.md](guide.md) tells
how the operations work together.
"""
# What a parameter takes: by how it is stored, or by its routine.
RANGES = {
    "CHANNEL_BYTE": "8 bits", "PROCESS_BYTE": "8 bits", "CHANNEL_PORT": "0 to 65535",
    "CHANNEL_WORD": "32 bits", "PROCESS_WORD": "32 bits", "SetCommandGap": "ms, cut at 536870911",
    "SetReplyTimeout": "ms, cut at 536870911", "SetMessageType": "0 to 31", "SetAutoCallDriver": "0, 1",
    "SetAttachNumbering": "32 bits with a sign", "SetMaxLineLength": "32 bits",
    "SetBlockingConnect": "flag", "SetExpungeOnClose": "flag", "SetShowSecrets": "flag",
    "SetMailerHeader": "odd, even", "SetConnectAttempts": "1 to 20", "SetUnderscoreToSpace": "flag",
    "SetInert1002": "any", "SetBothMailerHeaders": "flag, 8 bits", "SetWriteHeaders": "flag, 8 bits",
    "SetDriverDelay": "ms, 8 bits"}
HEADINGS = ["Returns", "Errors", "Owner", "Files", "Note"]

faults = []


def want(condition, fault):
    if not condition:
        faults.append(fault)
    return condition


# --- reading the header ---

def comment_lines(comment):
    lines = [re.sub(r"^ \*( |$)", "", line) for line in comment[2:-2].strip(" ").split("\n")]
    return [line.rstrip() for line in lines]


def join(lines):
    return " ".join(" ".join(lines).split())


def tokens(text):
    """The header's comments, defines and prototypes in their order."""
    pattern = (r"#define (?P<name>\w+) +(?P<value>\(?-?\d+\)?)(?: +/\* (?P<told>[^\n]*?) \*/)?"
               r"|/\*(?P<comment>.*?)\*/|(?P<prototype>RYN_API int32_t \w+\([^;]*\);)")
    for found in re.finditer(pattern, text.replace("\\\n", " "), re.S):
        yield found


def read_header():
    """Sections in their order: title, introduction, operations, codes. The first one is the file's
    own comment."""
    sections, last = [], ""
    for found in tokens(states.read("include/ryn32.h")):
        if comment := found["comment"]:
            last = "/*" + comment + "*/"
            if comment.startswith(" --- ") or not sections:
                sections.append({"head": last, "operations": [], "codes": []})
        elif found["prototype"]:
            sections[-1]["operations"].append((found["prototype"], last))
        elif found["name"]:
            told = found["told"] or ""
            alone = join(comment_lines(last)) if last != sections[-1]["head"] else ""
            if not told and alone.startswith(("The most", "What rynDriver", "A name that")):
                told = alone
            value = int(found["value"].strip("()"))
            sections[-1]["codes"].append((found["name"], value, told))
    return sections


def section_text(section):
    """Title and introduction of a section's comment."""
    text = join(comment_lines(section["head"])).strip("- ")
    title, mark, rest = re.match(r"([^.:]*)([.:]?)\s*(.*)", text, re.S).groups()
    if mark == ":":
        rest = rest[:1].upper() + rest[1:] + "."
    return title.strip("- "), re.sub(r"[ -]+$", "", rest)


def split_arguments(lines, names, operation):
    """Argument names and what is told of them, in the header's order."""
    rows = []
    for line in lines:
        begins = re.match(r"  (\w+(?:, \w+)*)(?: {2,}|:\s)(.*)", line)
        if begins and all(name in names for name in begins[1].split(", ")):
            rows.append([begins[1], begins[2]])
        elif want(rows, f"{operation}: a line of arguments names none: {line}"):
            rows[-1][1] += " " + line.strip()
    out = []
    for told, text in rows:
        pieces = re.split(r";  (\w+(?:, \w+)*): ", text)
        out.append((told, join([pieces[0]])))
        out += [(pieces[i], join([pieces[i + 1]])) for i in range(1, len(pieces), 2)]
    named = {name for told, _ in out for name in told.split(", ")}
    named |= {name for name in names for _, text in out if re.search(name + " (bytes|chars)", text)}
    if "channel" in names and "channel" not in named:
        out.insert(0, ("channel", "number of an attached channel"))
        named.add("channel")
    want(named == set(names), f"{operation}: arguments without a description: {set(names) - named}")
    return out


def read_operation(prototype, comment):
    """Name, prototype, purpose, arguments and the texts behind the headings."""
    name = re.search(r"\w+(?=\()", prototype)[0]
    inside = prototype[prototype.index("(") + 1:prototype.rindex(")")]
    names = [] if inside == "void" else [re.search(r"(\w+)$", part)[1] for part in inside.split(",")]
    lines = comment_lines(comment)
    want(lines[0].startswith(name + ": "), f"{name}: the comment in front of it is another's")
    parts, part = {"purpose": [lines[0][len(name) + 2:]], "arguments": []}, "purpose"
    for line in lines[1:]:
        heading = re.match(r"(\w+)  +(.*)", line)
        if heading and heading[1] in HEADINGS:
            part = heading[1]
            parts[part] = [heading[2]]
            continue
        if line.startswith("  ") and part == "purpose":
            part = "arguments"
        parts[part].append(line)
    want(parts["purpose"][0], f"{name}: no purpose")
    want("Returns" in parts, f"{name}: no Returns")
    parts["arguments"] = split_arguments(parts["arguments"], names, name)
    return {"name": name, "prototype": re.sub(r"\n {8}", "\n", prototype.replace("RYN_API ", "")), **parts}


# --- writing ---

def marked(text, links=True):
    """Markdown of a text of the header: codes as code, operations as links, the rest as it stands."""
    def replace(found):
        word = found[0]
        if word[-1].isalnum() and not links:
            return word
        if re.fullmatch(r"ryn[A-Z]\w*", word):
            return f"[`{word}`](#{word.lower()})"
        if re.match(r"RYN_\w|DRIVER_", word):
            return f"`{word}`"
        return "\\" + word
    return re.sub(r"\bryn[A-Z]\w+|\bRYN_\w+|\bDRIVER_NOT_YET|[\\*_<>\[\]|]", replace, text)


def paragraph(text, head=""):
    return "\n".join(textwrap.wrap(head + marked(text), WIDTH, break_long_words=False,
                                   break_on_hyphens=False)) + "\n"


def item(text):
    return "\n".join(textwrap.wrap("- " + text, WIDTH, subsequent_indent="  ",
                                   break_long_words=False, break_on_hyphens=False)) + "\n"


def table(heads, rows):
    out = "| " + " | ".join(heads) + " |\n|" + " --- |" * len(heads) + "\n"
    return out + "".join("| " + " | ".join(str(cell) for cell in row) + " |\n" for row in rows)


def sentence(text):
    return text[:1].upper() + text[1:] + ("" if text.endswith(".") else ".")


def draw_operation(op):
    out = [f"### {op['name']}\n", paragraph(sentence(join(op["purpose"]))),
           f"```c\n{op['prototype']}\n```\n"]
    arguments = "".join(item(", ".join(f"`{name}`" for name in told.split(", ")) + ": " + marked(text))
                        for told, text in op["arguments"])
    if arguments:
        out.append(arguments)
    for heading in HEADINGS:
        if heading in op:
            out.append(paragraph(sentence(join(op[heading])), f"**{heading}:** "))
    return "\n".join(out)


def number_kinds():
    """What stores each parameter of rynIntegerParam: a width, or a routine."""
    text = states.read("frame/params_ops.cpp")
    found = dict(re.findall(r"IN_(?:CHANNEL|PROCESS)\((RYN_\w+), (\w+),", text))
    found.update(re.findall(r"BY_ROUTINE\((RYN_\w+), (\w+)\)", text))
    return found


def draw_numbers(codes):
    kinds, rows = number_kinds(), []
    for name, value, told in codes:
        found = re.match(r"(the same as \d+)|(channel and process|channel|process)(?: \[(.*?)\])?: (.*)", told)
        if not want(found and kinds.get(name) in RANGES, f"{name}: no scope, or no range"):
            continue
        scope, start, text = (found[2], found[3], found[4]) if found[2] else ("", None, found[1])
        rows.append((value, f"`{name}`", scope, marked(start or ""), RANGES[kinds[name]], marked(text)))
    return table(["code", "name", "holds for", "start value", "takes", "meaning"], rows)


def draw_texts(codes):
    rows = []
    for name, value, told in codes:
        found = re.match(r"(?:(channel|process)(?:, (\d+)(?: in all)?)?(?: \[\"(.*?)\"\])?(, not empty)?[:.] )?(.*)", told)
        text = sentence(found[5])
        want(not text.startswith("Stored"), f"{name}: no meaning")
        rows.append((value, f"`{name}`", found[1] or "", found[2] or "", "refused" if found[4] else "taken",
                     (f"Starts as `{found[3]}`. " if found[3] else "") + marked(text)))
    return table(["code", "name", "holds for", "chars", "empty text", "meaning; result"], rows)


def status_texts():
    text = re.sub(r"\s+", " ", states.read("frame/status.cpp"))
    return {name: re.sub(r"X{9,}", "...", told) for name, told in re.findall(r"\{ (RYN_\w+), \"([^\"]*)\" \}", text)}


def draw_statuses(codes, operations):
    texts, rows = status_texts(), []
    for name, value, told in codes:
        if name == "RYN_ERR_BAD_UTF8":
            shown = marked(told)
        else:
            want(texts.get(name) == told, f"{name}: '{told}' in the header, '{texts.get(name)}' in the table")
            shown = marked(texts.get(name, ""), links=False)
        by = [op["name"] for op in operations if re.search(name + r"\b", join(op.get("Errors", [])))]
        rows.append((value, f"`{name}`", shown, ", ".join(f"[`{each}`](#{each.lower()})" for each in by)))
    note = ("Under \"named by\" stand the operations whose Errors have the status by its name. Where Errors refer "
            "to another operation, to the driver or to the network, its statuses can come too.")
    return paragraph(note) + "\n" + table(["status", "name", "text", "named by"], rows)


def draw_rules(section):
    """The paragraphs of the header's own comment; those with a title of their own are marked."""
    out, lines = [], comment_lines(section["head"])
    for block in "\n".join(lines).split("\n\n")[1:]: # behind the line that names the file
        text = join([block])
        found = re.match(r"([A-Z]\w+)\. (.*)", text)
        titled = found and found[1] not in ("Texts",)
        out.append(paragraph(found[2], f"**{found[1]}.** ") if titled else paragraph(text))
    return "\n".join(out)


def is_status(section):
    return any(name.startswith("RYN_ERR_") for name, _, _ in section["codes"])


def draw_codes(section, title, intro, operations):
    draw = {"rynIntegerParam": draw_numbers, "rynStringParam": draw_texts}.get(title.split()[-1])
    codes = section["codes"]
    for name, _, told in codes:
        want(told, f"{name}: no description")
    if is_status(section):
        body = draw_statuses(codes, operations)
    elif draw:
        body = draw(codes)
    else:
        body = table(["code", "name", "meaning"],
                     [(value, f"`{name}`", marked(sentence(told))) for name, value, told in codes])
    heading = "Status codes" if is_status(section) else title
    return f"## {heading}\n\n" + (paragraph(intro) + "\n" if intro else "") + body


def anchor(title):
    return re.sub(r"[^\w -]", "", title.lower()).replace(" ", "-")


def draw():
    sections = read_header()
    first, rest = sections[0], sections[1:]
    groups = [(*section_text(each), [read_operation(*op) for op in each["operations"]])
              for each in rest if each["operations"]]
    operations = [op for group in groups for op in group[2]]
    body = ["## Rules for all operations\n\n" + draw_rules(first)]
    for title, intro, found in groups:
        body.append(f"## {title}\n\n" + (paragraph(intro) + "\n" if intro else "") +
                    "\n".join(draw_operation(op) for op in found))
    body += [draw_codes(each, *section_text(each), operations) for each in rest if each["codes"]]
    body.append("## Other numbers\n\n" + table(["name", "value", "meaning"], [
        (f"`{name}`", value, marked(told)) for name, value, told in first["codes"]]))
    for name, _, told in first["codes"]:
        want(told, f"{name}: no description")
    contents = []
    for part in body:
        title = re.match(r"## (.*)", part)[1]
        contents.append(f"- [{title}](#{anchor(title)})\n")
        names = re.findall(r"^### (\w+)", part, re.M)
        if names:
            contents.append("  " + "\n  ".join(textwrap.wrap(", ".join(
                f"[{name}](#{name.lower()})" for name in names), WIDTH - 2, break_on_hyphens=False)) + "\n")
    header = states.read("include/ryn32.h")
    codes = {name for each in sections for name, _, _ in each["codes"]} | {"RYN32_H", "RYN_API"}
    unread = set(re.findall(r"^#define (\w+)", header, re.M)) ^ codes
    want(not unread, f"of the defines these were not read: {unread}")
    total = len(re.findall(r"^RYN_API ", header, re.M))
    want(len(operations) == total, f"{len(operations)} operations were read, the header has {total}")
    return TITLE + "\n" + "".join(contents) + "\n" + "\n".join(body)


# --- the guide ---

def check_guide():
    """Each piece of code in the guide stands in an example, line for line, at whatever indentation."""
    def stripped(text):
        return "\n" + "\n".join(line.strip() for line in text.strip().split("\n")) + "\n"

    paths = glob.glob(os.path.join(states.ROOT, "examples/*"))
    sources = [stripped(states.read(path)) for path in paths if path.endswith((".c", ".h", ".py"))]
    fences = re.findall(r"^```(?:c|python)\n(.*?)^```", states.read("docs/guide.md"), re.S | re.M)
    want(fences, "docs/guide.md shows no code")
    for fence in fences:
        want(any(stripped(fence) in source for source in sources), "docs/guide.md: in no example:\n" + fence)


def main():
    drawn = draw()
    if "--write" in sys.argv:
        with open(os.path.join(states.ROOT, "docs/reference.md"), "w", encoding="utf-8") as file:
            file.write(drawn)
    else:
        want(states.read("docs/reference.md") == drawn,
             "docs/reference.md is not what the header says: python3 tests/tree/reference.py --write")
        check_guide()
    print("\n".join(faults))
    sys.exit(1 if faults else 0)


if __name__ == "__main__":
    main()
