#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""How much memory an idle plugin has beyond a C program that does nothing: memory.py PROGRAMS

PROGRAMS is the folder with the programs of bench/memory. The plugin has registered a line with an application, which
has answered its event with a signal; then it is idle. Pages are counted as the kernel does (smaps): those that are
resident, and of them those that are the process's own and written to. The kernel maps pages of files sixteen at a time,
and where these begin depends on chance (ASLR): of several starts the one in the middle is shown, with the least and the
most of all. Ends with status 1 when its figures do not meet a goal.
"""

import argparse
import os
import re
import subprocess
import sys
import tempfile
import time
from pathlib import Path

GOALS = {"Rss": 450, "Private_Dirty": 64}  # KiB
TITLES = {"Rss": "resident", "Private_Dirty": "private, written to"}
PATIENCE = 30  # seconds, until the application listens. Not before: the plugin would try again after 10.
HEAD = re.compile(r"^[0-9a-f]+-[0-9a-f]+ \S+ \S+ \S+ \d+ *(.*)$")
FIELD = re.compile(r"^(\w+): +(\d+) kB$")


def regions(text, program):
    """{what is mapped: {field: KiB}} of an smaps file. The process's own program is called so."""
    sizes = {}
    for line in text.splitlines():
        head, field = HEAD.match(line), FIELD.match(line)
        if head:
            path = head[1]
            name = "program" if path == program else Path(path).name if path.startswith("/") else path
            into = sizes.setdefault(re.sub(r"(\.so)[.\d]*$", r"\1", name) or "not named", dict.fromkeys(GOALS, 0))
        elif field and field[1] in GOALS:
            into[field[1]] += int(field[2])
    return sizes


STARTS = 9


def total(sizes, field):
    return sum(one[field] for one in sizes.values())


def more_of(idle, plugin, field):
    return total(plugin, field) - total(idle, field)


def middle(starts):
    """The start with the median of resident pages, of (idle, plugin) of several; from least to most of each field."""
    ordered = sorted(starts, key=lambda start: more_of(*start, "Rss"))
    ranges = {field: [more_of(*start, field) for start in starts] for field in GOALS}
    return ordered[len(ordered) // 2], {field: f"{min(all_)} to {max(all_)}" for field, all_ in ranges.items()}


def table(starts):
    """Rows of what is mapped, then the sum, of what the plugin has more."""
    (idle, plugin), ranges = middle(starts)
    lines = [["KiB more than a C program has", *TITLES.values()]]
    nothing = dict.fromkeys(GOALS, 0)
    for name in sorted({*idle, *plugin}):
        more = [plugin.get(name, nothing)[field] - idle.get(name, nothing)[field] for field in GOALS]
        if any(more):
            lines.append([name, *map(str, more)])
    sums = {field: more_of(idle, plugin, field) for field in GOALS}
    met = {field: "met" if sums[field] <= goal else "NOT MET" for field, goal in GOALS.items()}
    lines.append(["all (goal)", *(f"{sums[field]} ({goal}, {met[field]})" for field, goal in GOALS.items())])
    lines.append([f"of {len(starts)} starts", *ranges.values()])
    widths = [max(len(line[column]) for line in lines) for column in range(len(lines[0]))]
    sides = "<>>"
    shown = "\n".join("  ".join(f"{c:{s}{w}}" for c, s, w in zip(line, sides, widths)) for line in lines)
    return shown, "NOT MET" not in met.values()


class Started:
    """A program, until its block ends."""

    def __init__(self, path, settings):
        self.path = os.path.realpath(path)
        self.process = subprocess.Popen([self.path], stdout=subprocess.PIPE, text=True, env=settings)

    def wait_idle(self):
        if self.process.stdout.readline() != "idle\n":
            raise RuntimeError(f"{self.path} does not become idle")
        return self

    def regions(self):
        text = Path(f"/proc/{self.process.pid}/smaps").read_text(encoding="utf-8")
        return regions(text, self.path)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.communicate()


def pages_write_back(programs):
    """What a linker has just written counts as a process's own until it is on the disk."""
    for path in [*programs.glob("bench_idle*"), *programs.parent.glob("lib/*.so*")]:
        with path.open("rb") as file:
            os.fsync(file.fileno())


def wait_for(path):
    end = time.monotonic() + PATIENCE
    while not path.exists():
        if time.monotonic() > end:
            raise RuntimeError(f"nobody listens at {path}")
        time.sleep(0.01)


def measure(programs):
    """What the program that does nothing has mapped, and what the plugin has, of several starts."""
    pages_write_back(programs)
    with tempfile.TemporaryDirectory() as folder:
        path = Path(folder, "socket")
        settings = {"ZIL_VOIP_IPC_SOCKET": str(path), "ZIL_VOIP_IPC_SOCKET_URI": f"kex://ipc:[{path}]"}
        with Started(programs / "bench_idle_application", settings):
            wait_for(path)
            return [start(programs, settings) for _ in range(STARTS)]


def start(programs, settings):
    nothing, plugin = Started(programs / "bench_idle", {}), Started(programs / "bench_idle_plugin", settings)
    with nothing, plugin:
        return nothing.wait_idle().regions(), plugin.wait_idle().regions()


def main():
    parser = argparse.ArgumentParser(description="Memory of an idle plugin, beyond that of a C program.")
    parser.add_argument("programs", type=Path)
    shown, is_good = table(measure(parser.parse_args().programs))
    print(shown)
    return 0 if is_good else 1


if __name__ == "__main__":
    sys.exit(main())
