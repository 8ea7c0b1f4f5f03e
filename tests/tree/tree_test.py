"""What holds for the tree as a whole: layers, banned routines, the public face, documents that must
not drift. Each case runs alone:  tree_test.py CASE LIBRARY COMPILER"""
import os
import re
import subprocess
import sys
import tempfile

import states

ROOT = states.ROOT
LIBRARY = ["frame", "transport", "send", "codec"]
SYSTEM_HEADERS = re.compile(
    r"#include <(unistd|sys/|netinet|arpa|poll|fcntl|pthread|sched|signal|netdb|windows|winsock)")
ERROR_NUMBERS = re.compile(r"#include <c?errno")
SYSTEM_QUESTIONS = re.compile(r"#\s*(?:if|ifdef|ifndef|elif).*\b(_WIN32|__linux__|__unix__|__APPLE__|_MSC_VER)")
BANNED = re.compile(r"\b(strcpy|strcat|sprintf|vsprintf|strtok|atoi|atol|gets|strncpy|strncat)\(")
LONGEST_FUNCTION = 100  # lines; tables only may be longer
LONGEST_FILE = 800      # lines


def sources(*folders):
    for folder in folders:
        for base, _, names in os.walk(os.path.join(ROOT, folder)):
            for name in sorted(names):
                if name.endswith((".cpp", ".h")):
                    yield os.path.relpath(os.path.join(base, name), ROOT)


def complain(findings):
    for finding in findings:
        print(finding)
    return not findings


def matches(pattern, *folders):
    return [f"{path}: {found[0]}" for path in sources(*folders) for found in pattern.finditer(states.read(path))]


def case_system_stays_in_platform(library, compiler):
    return complain(matches(SYSTEM_HEADERS, *LIBRARY, "host") + matches(ERROR_NUMBERS, *LIBRARY) + matches(SYSTEM_QUESTIONS, *LIBRARY, "host", "include"))


def case_layers_hold(library, compiler):
    """Pure codec files include nothing of ours; vSocks know no channel; only the state table knows all
    protocols; the host sees the public header."""
    wrong = []
    include = re.compile(r'#include "([^"]+)"')
    for path in sources(*LIBRARY, "host"):
        for found in include.findall(states.read(path)):
            folder = path.split("/")[0]
            if folder == "codec" and not path.endswith("_ops.cpp") and not found.startswith(("codec/", "include/")):
                wrong.append(f"{path} includes {found}")
            if re.match(r"transport/v(sock|stream)\.", path) and found == "frame/channel.h":
                wrong.append(f"{path} includes {found}")
            if found.startswith("platform/") and found != "platform/platform.h":
                wrong.append(f"{path} includes {found}")
            if found.endswith("_states.h") and path.replace(".cpp", ".h") != found and path != "frame/state_table.cpp":
                wrong.append(f"{path} includes {found}")
            if folder == "host" and "/" in found and found != "include/ryn32.h":
                wrong.append(f"{path} includes {found}")
    return complain(wrong)


def case_banned_routines(library, compiler):
    return complain(matches(BANNED, *LIBRARY, "platform", "host"))


def case_state_changes_are_plain(library, compiler):
    """Go takes a plain ST_ name, so that a search finds every way into a state."""
    loose = re.compile(r"\bGo\(ch, (?!ST_\w+\)|row->Reader\)|next\))[^)]*\)")
    return complain(matches(loose, "frame", "send"))


def case_functions_fit_on_a_screen(library, compiler):
    lengths = []
    long_files = []
    for path in sources(*LIBRARY, "platform", "host"):
        text = states.read(path)
        if path.endswith(".cpp") and text.count("\n") > LONGEST_FILE:
            long_files.append(f"{path}: {text.count(chr(10))} lines")
        for found in re.finditer(r"^[a-z][^\n;{}=]*?\b(\w+)\([^;{}]*?\)\n\{\n(.*?)^\}", text, re.S | re.M):
            lengths.append((found[2].count("\n"), f"{found[1]} in {path}"))
    lengths.sort(reverse=True)
    for length, name in lengths[:10]:
        print(f"{length:4d} lines: {name}")
    return complain(long_files) and lengths[0][0] <= LONGEST_FUNCTION


def header_operations():
    return sorted(re.findall(r"^RYN_API int32_t (ryn\w+)\(", states.read("include/ryn32.h"), re.M))


def case_exports_are_the_header(library, compiler):
    listing = subprocess.run(["nm", "-D", "--defined-only", library], check=True, capture_output=True, text=True)
    exported = sorted(line.split()[2] for line in listing.stdout.splitlines())
    declared = header_operations()
    missing = [f"declared and not exported: {name}" for name in declared if name not in exported]
    extra = [f"exported and not declared: {name}" for name in exported if name not in declared]
    print(len(declared), "operations")
    return complain(missing + extra) and len(declared) > 0


def case_operations_are_documented(library, compiler):
    text = states.read("include/ryn32.h")
    wrong = []
    for name in header_operations():
        comment = re.search(r"/\* " + name + r": .*?\*/\s*RYN_API int32_t " + name, text, re.S)
        if comment is None or " * Returns  " not in comment[0]:
            wrong.append(f"{name}: no comment with Returns in front of it")
    return complain(wrong)


def case_header_stands_alone(library, compiler):
    """The header compiles as C of 1989 with the types of stdint.h, and as C++."""
    folder = os.path.join(ROOT, "include")
    with tempfile.TemporaryDirectory() as place:
        for name, options in (("a.c", ["-std=c89"]), ("a.c", ["-std=c99"]), ("a.cpp", ["-std=c++11"])):
            source = os.path.join(place, name)
            with open(source, "w", encoding="utf-8") as file:
                file.write('#include "ryn32.h"\nint main(void) { return (int)rynRelease() - 1; }\n')
            language = ["-x", "c++"] if name.endswith("pp") else ["-x", "c"]
            command = [compiler, *language, *options, "-pedantic", "-Wall", "-Wextra", "-Werror", f"-I{folder}",
                       "-c", source, "-o", os.path.join(place, "a.o")]
            subprocess.run(command, check=True)
    return True


def case_states_are_drawn(library, compiler):
    if states.draw() == states.read("docs/states.md"):
        return True
    print("docs/states.md is not what the state table says: python3 tests/tree/states.py --write")
    return False


def case_loads_without_a_runtime(library, compiler):
    """A host in any language loads the library with nothing but the C library beside it."""
    listing = subprocess.run(["readelf", "-d", library], check=True, capture_output=True, text=True)
    needed = re.findall(r"NEEDED.*\[(.*)\]", listing.stdout)
    allowed = re.compile(r"^(libc|libm|ld-linux.*|libpthread)\.so")
    sanitized = any("san" in name for name in needed)
    return sanitized or complain([f"needs {name}" for name in needed if not allowed.match(name)])


def case_loading_does_no_work(library, compiler):
    """One entry in .init_array is the C runtime's own; a second one would be a constructor of ours."""
    listing = subprocess.run(["readelf", "-d", library], check=True, capture_output=True, text=True)
    if "san" in "".join(re.findall(r"NEEDED.*\[(.*)\]", listing.stdout)):
        return True
    size = re.search(r"INIT_ARRAYSZ\)\s+(\d+)", listing.stdout)
    print("initialisers:", size[1] if size else 0, "bytes")
    return size is None or int(size[1]) <= 8


def main():
    case, library, compiler = sys.argv[1:]
    sys.exit(0 if globals()["case_" + case](library, compiler) else 1)


if __name__ == "__main__":
    main()
