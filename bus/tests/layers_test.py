#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Who knows whom in bus/src: includes and calls, held against the rules below.

    layers_test.py [--objects build/bus/CMakeFiles/kex.dir]   checks; what breaks a rule is told with file and line
    layers_test.py --table                                    prints which folder and which file includes which
    layers_test.py --graph [--objects ...]                    prints which file calls which, as text
    layers_test.py --dot [--objects ...] | dot -Tsvg          the same as a drawing
    layers_test.py --self-test                                breaks each rule on a copy and expects to be told
"""

import argparse
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

SOURCE = pathlib.Path(__file__).resolve().parents[1] / "src"
OBJECTS = SOURCE.parents[1] / "build/bus/CMakeFiles/kex.dir"

# What the files of a folder may include and call besides their own folder: folders, or single files.
LAYERS = {
    "base": [],
    "value": ["base"],
    "loop": ["base"],
    "transport": ["base", "value", "loop"],
    "calls": ["base", "value", "loop", "transport"],
    "bus": ["base", "value", "loop", "transport", "calls"],
    "tap_client": ["base", "value", "transport/socket.h", "transport/socket.cpp"],
}
# Files that may less than their folder: the client of a tap uses them too.
NARROWER = {"transport/socket.h": ["base"], "transport/socket.cpp": ["base", "transport/socket.h"]}
# The public headers come in at one place, which makes what they declare visible.
PUBLIC = {"base/contract.h": {"kex.h", "kex_host.h", "kex_tap.h", "ziltrace.h"}}
# The rest is libc's. Of the C++ library only what needs nothing of it when the program runs.
CPP_HEADERS = {"initializer_list"}
# Words that only these folders or files may use.
WORDS = [
    (re.compile(r"\bstruct kex\b"), ["bus/bus.cpp"], "the whole bus is known to bus.cpp only"),
    (re.compile(r"\bepoll_(create1?|ctl|wait)\b"), ["loop/loop.cpp"], "epoll is known to the loop only"),
    (re.compile(r"\bclock_gettime\b"), ["base"], "clocks are read in one place"),
    (
        re.compile(r"\b(put|get)_(head|bytes|number|byte|word|long|text|value)\b|\breader_at\b"),
        ["value"],
        "the parts of a message are known to value only",
    ),
]

INCLUDE = re.compile(r'\s*#\s*include\s+(["<])([^">]+)[">]')


def may_use(name, other, allowed):
    return other in allowed or other.split("/")[0] in allowed


def rules_for(name):
    folder = name.split("/")[0]
    return NARROWER.get(name, LAYERS.get(folder, []) + [folder])


def includes_of(path):
    for number, line in enumerate(path.read_text().splitlines(), 1):
        found = INCLUDE.match(line)
        if found:
            yield number, found[1] == "<", found[2]


def files_of(source):
    return sorted(path for path in source.rglob("*") if path.suffix in (".h", ".cpp"))


def problem_of_include(name, source, is_system, other):
    if is_system:
        if other.endswith(".h") or other in CPP_HEADERS:
            return None
        return f"<{other}> is of the C++ library"
    if other in PUBLIC.get(name, ()):
        return None
    if not (source / other).is_file():
        return f'"{other}" is no file of bus/src'
    if may_use(name, other, rules_for(name)) or other == name.replace(".cpp", ".h"):
        return None
    return f'"{other}" is none of what {name if name in NARROWER else name.split("/")[0]} may include'


def check_sources(source):
    """Everything that breaks a rule, as "file:line: what"."""
    problems = []
    for path in files_of(source):
        name = path.relative_to(source).as_posix()
        if name.split("/")[0] not in LAYERS:
            problems.append(f"{name}:1: there is no such layer")
            continue
        for number, is_system, other in includes_of(path):
            problem = problem_of_include(name, source, is_system, other)
            if problem:
                problems.append(f"{name}:{number}: {problem}")
        for number, line in enumerate(path.read_text().splitlines(), 1):
            for word, allowed, why in WORDS:
                if word.search(line.split("//")[0]) and not may_use(name, name, allowed):
                    problems.append(f"{name}:{number}: {why}")
    return problems


def parse_nm(text):
    """The global symbols that an object defines, and those that it needs, from what "nm -P" prints."""
    defines, needs = set(), set()
    for line in text.splitlines():
        symbol, kind = line.split()[:2]
        if kind == "U":
            needs.add(symbol)
        elif kind.isupper() and kind not in "WV":
            defines.add(symbol)
    return defines, needs


def calls_between(symbols):
    """For each object the others that define what it needs. `symbols`: object to (defines, needs)."""
    owner = {symbol: name for name, (defines, _) in symbols.items() for symbol in defines}
    return {
        name: sorted({owner[symbol] for symbol in needs if symbol in owner} - {name})
        for name, (_, needs) in sorted(symbols.items())
    }


def read_calls(objects, nm):
    symbols = {}
    for path in sorted(pathlib.Path(objects).rglob("*.o")):
        name = path.relative_to(objects).as_posix().removeprefix("src/").removesuffix(".o")
        if (SOURCE / name).exists():  # else the object is an old one
            text = subprocess.run([nm, "-P", path], stdout=subprocess.PIPE, text=True, check=True).stdout
            symbols[name] = parse_nm(text)
    if not symbols:
        sys.exit(f"layers: there are no objects in {objects}: build the target kex first")
    return calls_between(symbols)


def find_circle(graph):
    """One circle as a list of names, or none."""
    done, way = set(), []

    def visit(name):
        if name in way:
            return way[way.index(name) :] + [name]
        if name in done:
            return None
        way.append(name)
        for other in graph.get(name, ()):
            circle = visit(other)
            if circle:
                return circle
        done.add(way.pop())
        return None

    for name in graph:
        circle = visit(name)
        if circle:
            return circle
    return None


def check_calls(graph):
    problems = [
        f"{name}: calls {other}, which it may not know"
        for name, others in graph.items()
        for other in others
        if not may_use(name, other, rules_for(name))
    ]
    circle = find_circle(graph)
    if circle:
        problems.append("a circle of calls: " + " -> ".join(circle))
    return problems


def print_table(source):
    names = {path.relative_to(source).as_posix(): path for path in files_of(source)}
    of_file = {
        name: sorted({other for _, _, other in includes_of(path) if other in names}) for name, path in names.items()
    }
    folders = list(LAYERS)
    print("Files of the folder on the left that include one of the folder above:\n")
    print(f"{'':12}" + "".join(f"{folder:>12}" for folder in folders))
    for folder in folders:
        counts = [
            sum(
                any(other.startswith(target + "/") for other in others)
                for name, others in of_file.items()
                if name.startswith(folder + "/")
            )
            for target in folders
        ]
        print(f"{folder:12}" + "".join(f"{count or '-':>12}" for count in counts))
    print()
    for name, others in of_file.items():
        print(f"{name:28} {' '.join(others)}")


def print_graph(graph):
    for name, others in graph.items():
        print(f"{name:28} {' '.join(others) or '-'}")
    print("\ncircle: " + " -> ".join(find_circle(graph) or ["none"]))


def print_dot(graph):
    print("digraph calls {\n    rankdir=BT; node [shape=box];")
    for folder in LAYERS:
        names = " ".join(f'"{name}";' for name in graph if name.startswith(folder + "/"))
        print(f'    subgraph "cluster_{folder}" {{ label="{folder}"; {names} }}')
    for name, others in graph.items():
        for other in others:
            print(f'    "{name}" -> "{other}";')
    print("}")


# Each breaks one rule: the file, the line that is put in front of its third, and what must be told about it.
BREACHES = [
    ("base/list.h", '#include "loop/task.h"', '"loop/task.h" is none of what base may include'),
    ("value/wire.cpp", '#include "loop/loop.h"', '"loop/loop.h" is none of what value may include'),
    ("loop/loop.cpp", '#include "value/wire.h"', '"value/wire.h" is none of what loop may include'),
    ("transport/tap.cpp", '#include "calls/call.h"', '"calls/call.h" is none of what transport may include'),
    ("transport/socket.h", '#include "loop/loop.h"', '"loop/loop.h" is none of what transport/socket.h may include'),
    ("calls/call.cpp", '#include "bus/environment.h"', '"bus/environment.h" is none of what calls may include'),
    (
        "tap_client/tap_client.cpp",
        '#include "transport/connection.h"',
        '"transport/connection.h" is none of what tap_client may include',
    ),
    ("calls/peer.h", '#include "kex_host.h"', '"kex_host.h" is no file of bus/src'),
    ("calls/peer.cpp", "#include <string>", "<string> is of the C++ library"),
    ("calls/wait.cpp", "struct kex {};", "the whole bus is known to bus.cpp only"),
    ("transport/send.cpp", "int fd = epoll_create1(0);", "epoll is known to the loop only"),
    ("loop/timer.cpp", "int r = clock_gettime(0, 0);", "clocks are read in one place"),
    ("transport/tap.cpp", "void f() { wire::put_word(w, 1); }", "the parts of a message are known to value only"),
    ("other/new.cpp", "", "there is no such layer"),
]


def self_test():
    failures = []

    def expect(what, got, wanted):
        if got != wanted:
            failures.append(f"{what}: {got} instead of {wanted}")

    for name, line, wanted in BREACHES:
        with tempfile.TemporaryDirectory(prefix="layers-") as folder:
            copy = pathlib.Path(folder) / "src"
            shutil.copytree(SOURCE, copy)
            path = copy / name
            path.parent.mkdir(exist_ok=True)
            lines = path.read_text().splitlines() if path.exists() else []
            path.write_text("\n".join(lines[:2] + [line] + lines[2:]) + "\n")
            expect(name, check_sources(copy), [f"{name}:{3 if lines else 1}: {wanted}"])
    nm = "f T 0 1a\ng U\ninline_one W 0 2\nlocal d 0 4\nprintf U\n"
    expect("nm", parse_nm(nm), ({"f"}, {"g", "printf"}))
    graph = calls_between(
        {"loop/a.cpp": ({"f"}, {"g", "printf"}), "loop/b.cpp": ({"g"}, {"h"}), "loop/c.cpp": ({"h"}, set())}
    )
    expect("no circle", check_calls(graph), [])
    graph["loop/c.cpp"] = ["loop/a.cpp"]
    expect("a circle", check_calls(graph), ["a circle of calls: loop/a.cpp -> loop/b.cpp -> loop/c.cpp -> loop/a.cpp"])
    expect(
        "upward",
        check_calls({"loop/a.cpp": ["calls/b.cpp"], "calls/b.cpp": []}),
        ["loop/a.cpp: calls calls/b.cpp, which it may not know"],
    )
    return failures


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--objects", default=OBJECTS, help="the folder of kex's object files (%(default)s)")
    parser.add_argument("--nm", default="nm")
    modes = parser.add_mutually_exclusive_group()
    for mode in ("--table", "--graph", "--dot", "--self-test"):
        modes.add_argument(mode, action="store_true")
    options = parser.parse_args()
    if options.table:
        return print_table(SOURCE)
    if options.self_test:
        problems = self_test()
    else:
        graph = read_calls(options.objects, options.nm)
        if options.graph:
            return print_graph(graph)
        if options.dot:
            return print_dot(graph)
        problems = check_sources(SOURCE) + check_calls(graph)
    return "\n".join(problems) or None


if __name__ == "__main__":
    sys.exit(main())
