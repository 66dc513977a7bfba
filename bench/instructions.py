#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Counts the instructions of each path inside the library and the bus, and compares them with bench/instructions.csv:

  instructions.py BUILD                        shows both; status 1 when a path takes over 3 % more
  instructions.py BUILD --accept "REASON"      writes the new counts; the reason stays beside each that rose so much

Counted by valgrind's callgrind in a build of ./bench/run: they repeat, whatever else the machine does. They hold for
one compiler on one processor family; elsewhere they are shown and nothing fails.
"""

import argparse
import csv
import platform
import subprocess
import sys
import tempfile
from pathlib import Path

TABLE = Path(__file__).resolve().parent / "instructions.csv"
LIMIT = 1.03
COUNTED = ("libvoice_plugin.so", "libkex.so")
PROGRAMS = [["bench_library", "--counts"], ["bench_bus_counts", "--callgrind"]]


def counted_in(text):
    """(name of the dump, instructions in the counted objects) of one dump."""
    name, total, is_counted, is_inclusive = "", 0, False, False
    for line in text.splitlines():
        if line.startswith("desc: Trigger: Client Request: "):
            name = line.removeprefix("desc: Trigger: Client Request: ")
        elif line.startswith("ob="):
            is_counted = any(counted in line for counted in COUNTED)
        elif line.startswith("calls="):
            is_inclusive = True  # the next row counts what was called
        elif line[:1].isdigit():
            if is_counted and not is_inclusive:
                total += int(line.split()[1])
            is_inclusive = False
    return name, total


def count(build):
    """{path: instructions for each operation}"""
    found = {}
    for program in PROGRAMS:
        with tempfile.TemporaryDirectory() as folder:
            options = ["--tool=callgrind", "--compress-strings=no", "--compress-pos=no"]
            out = f"--callgrind-out-file={folder}/out"
            subprocess.run(["valgrind", "-q", *options, out, build / "bin" / program[0], *program[1:]], check=True)
            for dump in Path(folder).iterdir():
                name, instructions = counted_in(dump.read_text(encoding="utf-8", errors="replace"))
                if name:
                    path, operations = name.split(" / ")
                    found[path] = instructions / int(operations)
    return found


def compiler():
    version = subprocess.run(["c++", "-dumpfullversion"], stdout=subprocess.PIPE, text=True, check=True).stdout.strip()
    return f"g++ {version} {platform.machine()}"


def read_table(path):
    """(compiler, {path: (instructions, reason)})"""
    with open(path, encoding="utf-8", newline="") as file:
        rows = list(csv.DictReader(file))
    counts = {row["path"]: (float(row["instructions"]), row["reason"]) for row in rows if row["path"] != "compiler"}
    return next(row["instructions"] for row in rows if row["path"] == "compiler"), counts


def write_table(path, by, counts):
    with open(path, "w", encoding="utf-8", newline="") as file:
        writer = csv.writer(file, lineterminator="\n")
        writer.writerow(["path", "instructions", "reason"])
        writer.writerow(["compiler", by, ""])
        for name in sorted(counts):
            writer.writerow([name, f"{counts[name][0]:.1f}", counts[name][1]])


def compare(known, found):
    """Rows (path, known or None, found or None, whether it is one that fails)."""
    for path in sorted(known | found):
        was = known[path][0] if path in known else None
        now = found.get(path)
        yield path, was, now, was is None or now is None or round(now, 1) > was * LIMIT


def accepted(known, found, reason):
    """What the table becomes: a count that rose beyond the limit has the reason beside it, the others keep theirs."""
    counts = {}
    for path, now in found.items():
        was, before = known.get(path, (now, ""))
        counts[path] = (now, reason if round(now, 1) > was * LIMIT else before)
    return counts


def shown(number):
    return "-" if number is None else f"{number:.1f}"


def main():
    parser = argparse.ArgumentParser(description="Counts instructions.")
    parser.add_argument("build", type=Path)
    parser.add_argument("--accept", metavar="REASON")
    options = parser.parse_args()
    by, known = read_table(TABLE)
    found = count(options.build)
    failures = 0
    print(f"{'path':34}{'known':>10}{'now':>10}{'':9}")
    for path, was, now, fails in compare(known, found):
        failures += fails
        change = f"{(now / was - 1) * 100:+.1f} %" if was and now else ""
        reason = f"  ({known[path][1]})" if path in known and known[path][1] else ""
        print(f"{path:34}{shown(was):>10}{shown(now):>10}{change:>9}{'  MORE' if fails else ''}{reason}")
    if options.accept is not None:
        write_table(TABLE, compiler(), accepted(known, found, options.accept))
        print(f"Written: {TABLE}")
        return 0
    if compiler() != by:
        print(f"The table was made by {by}, this is {compiler()}: nothing fails.")
        return 0
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
