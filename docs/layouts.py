#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Writes docs/layouts.md from the numbers that tests/abi/layout*.c hold every target to.

  layouts.py            write the page
  layouts.py --check    change nothing; report when the page is another, or when a structure or a member of a public
                        header stands in none of these files

The exit status is 1 when something is wrong, else 0.
"""

import argparse
import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
PAGE = ROOT / "docs/layouts.md"
NUMBERS = ["tests/abi/layout.c", "tests/abi/layout_hosts.c"]
HEADERS = [
    "include/libvoice_plugin.h",
    "platform/kex.h",
    "bus/include/kex_host.h",
    "bus/include/kex_tap.h",
    "helpers/include/voice_records.h",
    "helpers/include/voice_start.h",
]
INTRODUCTION = """# Layouts

*How large is a structure, and where do its members stand?* In bytes, on targets with 64-bit and with 32-bit pointers;
one number where they agree. The compiler's natural layout on Linux, whatever the byte order. Each number is written
down in `tests/abi/layout.c` and `tests/abi/layout_hosts.c`, which the tests compile for the target of the build; this
page is made of them by `docs/layouts.py`.

Records that travel between processes have one number everywhere: their pointer word has 32 bits on every host
([why](decisions/0003-pointer-word.md)). "i386" stands where that target differs from others of its width: it aligns a
64-bit number to 4 bytes.

| structure | bytes | members, each with its offset |
|---|---|---|
"""


def shown(number):
    """N(32, 28) as "32, 32-bit: 28"; a plain number as it stands."""
    if found := re.fullmatch(r"N3\((\d+), (\d+), (\d+)\)", number):
        return f"{found[1]} (32-bit {found[2]}, i386 {found[3]})"
    if found := re.fullmatch(r"N\((\d+), (\d+)\)", number):
        return found[1] if found[1] == found[2] else f"{found[1]} (32-bit {found[2]})"
    return str(int(number))


def written(texts):
    """structure -> (size, member -> offset), as the files say."""
    found = {}
    number = r"(\w+\([\d, ]+\)|\d+)"
    for text in texts:
        for kind, name, member, value in re.findall(
            rf"^(SIZE|AT|CALLBACK)\((\w+), (?:(\w+), )?{number}\);", text, re.M
        ):
            size, members = found.setdefault(name, ["", {}])
            if kind == "SIZE":
                found[name][0] = value
            elif kind == "CALLBACK":
                members[member] = f"N({8 * int(value)}, {4 * int(value)})"
            else:
                members[member] = value
    return found


def declared(text):
    """structure -> members of a header."""
    text = re.sub(r"/\*.*?\*/", "", text, flags=re.S)
    found = {}
    for body, name in re.findall(r"typedef struct \w+ \{(.*?)\} (\w+);", text, re.S):
        pointers = re.findall(r"\(\*(\w+)\)\(", body)
        body = re.sub(r"\(\*\w+\)\(.*?\);", "", body, flags=re.S)
        found[name] = pointers + re.findall(r"(\w+)(?:\[[^]]*\])?;", body)
    return found


def faults(headers, numbers):
    for name, members in headers.items():
        if name not in numbers or not numbers[name][0]:
            yield f"{name}: its size is written down nowhere"
            continue
        for member in members:
            if member not in numbers[name][1]:
                yield f"{name}: the offset of {member} is written down nowhere"


def page(numbers, headers):
    rows = []
    for name, (size, members) in numbers.items():
        if name in headers:  # the others are of the tests
            places = ", ".join(f"`{member}` {shown(offset)}" for member, offset in members.items())
            rows.append(f"| `{name}` | {shown(size)} | {places} |\n")
    return INTRODUCTION + "".join(rows)


def main():
    parser = argparse.ArgumentParser(description="Writes docs/layouts.md.")
    parser.add_argument("--check", action="store_true")
    options = parser.parse_args()
    numbers = written((ROOT / name).read_text(encoding="utf-8") for name in NUMBERS)
    headers = {}
    for name in HEADERS:
        headers.update(declared((ROOT / name).read_text(encoding="utf-8")))
    wrong = [] if len(headers) > 20 else ["the headers were not understood"]
    wrong += list(faults(headers, numbers))
    text = page(numbers, headers)
    if not options.check:
        PAGE.write_text(text, encoding="utf-8")
    elif PAGE.read_text(encoding="utf-8") != text:
        wrong.append("docs/layouts.md is out of date: run docs/layouts.py")
    for line in wrong:
        print(line)
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
