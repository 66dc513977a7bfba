#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""How large the library is on a target, and of what: size.py TARGET=LIBRARY ... [--files TARGET=FOLDER ...]

LIBRARY is libvoice_plugin.so at -Os, FOLDER the object files it was linked from. Goals are those of a gateway: code,
constants and what the loader relocates once; unwind tables beside that; relocations, which cost time at each start;
memory of each process beyond the exported tables.
"""

import argparse
import re
import subprocess
import sys
from dataclasses import dataclass
from pathlib import Path

COUNTED = (".text", ".rodata", ".data.rel.ro")
UNWIND = (".eh_frame", ".eh_frame_hdr", ".ARM.exidx", ".ARM.extab")
KIB = 1024
GOALS = {"amd64": 66, "i386": 68, "mips": 80, "powerpc": 78, "armhf": 56}
GOAL_UNWIND, GOAL_RELOCATIONS, GOAL_WRITABLE = 2 * KIB, 60, 512
FORMAT_HEAD, FORMAT_TAIL = b"%s%-7.7s%s - %s[%s]%s%s", b"%s - %s(%s@%s:%d)%s"
TEXT = re.compile(rb"[\t\n\x20-\x7e]{3,}\0")


@dataclass
class Sizes:
    """Bytes, but for the relocations."""

    sections: dict
    counted: int
    unwind: int
    relocations: int
    writable: int
    formats: int
    frames: int  # of the formats: what each repeats before and behind its text
    names: int
    texts: int

    @property
    def tables(self):
        return self.sections.get(".rodata", 0) - self.formats - self.names - self.texts


def output_of(*command):
    return subprocess.run(command, stdout=subprocess.PIPE, text=True, check=True).stdout


def sections_of(path):
    """{section: bytes}, of an object file or a library."""
    sizes = {}
    for line in output_of("size", "-A", path).splitlines():
        words = line.split()
        if len(words) == 3 and words[1].isdigit():
            sizes[words[0]] = sizes.get(words[0], 0) + int(words[1])
    return sizes


def writable_of(library):
    """Writable bytes that stay writable, without the exported arrays: what each process has of its own."""
    total = exported = 0
    indices = set()
    # The rows of segments name the sections that the loader makes read-only once it has relocated them.
    segments = output_of("readelf", "-lW", library)
    relro = re.findall(r"^  ([A-Z_]+) +0x", segments, re.M).index("GNU_RELRO")
    sealed = re.search(rf"^ +{relro:02} +(.*)$", segments, re.M)[1].split()
    for line in output_of("readelf", "-SW", library).splitlines():
        found = re.match(r" *\[ *(\d+)\] (\S+) +\w+ +\S+ \S+ (\w+) \w+ +(\w*W\w*) ", line)
        if found and found[2] not in (*sealed, ".got"):  # MIPS fills its table of addresses as it goes
            indices.add(found[1])
            total += int(found[3], 16)
    for line in output_of("readelf", "--dyn-syms", "-W", library).splitlines():
        words = line.split()
        if len(words) >= 8 and words[3] == "OBJECT" and words[6] in indices:
            exported += int(words[2], 0)
    return total - exported


def constants_of(library):
    """The bytes of .rodata."""
    row = re.search(r"\.rodata +\w+ +\S+ (\w+) (\w+)", output_of("readelf", "-SW", library))
    with open(library, "rb") as file:
        file.seek(int(row[1], 16))
        return file.read(int(row[2], 16))


def measure(library):
    sections = sections_of(library)
    texts = TEXT.findall(constants_of(library))
    formats = [text for text in texts if text.startswith(FORMAT_HEAD[:12])]
    names = [text for text in texts if text.startswith(b"LIBVOICE_")]
    frame = len(FORMAT_HEAD) + len(FORMAT_TAIL) + 1
    return Sizes(
        sections=sections,
        counted=sum(sections.get(name, 0) for name in COUNTED),
        unwind=sum(sections.get(name, 0) for name in UNWIND),
        relocations=len(re.findall(r"R_\w+_RELATIVE|R_MIPS_REL32", output_of("readelf", "-rW", library))),
        writable=writable_of(library),
        formats=sum(map(len, formats)),
        frames=frame * len(formats),
        names=sum(map(len, names)),
        texts=sum(map(len, texts)) - sum(map(len, formats)) - sum(map(len, names)),
    )


def files_of(folder):
    """{source file: bytes of what is counted}, before the linker merges and drops."""
    sizes = {}
    for path in Path(folder).rglob("*.o"):
        sections = sections_of(path)
        counted = [size for name, size in sections.items() if re.match(r"\.(text|rodata|data\.rel\.ro)\b", name)]
        sizes[path.name.removesuffix(".o")] = sum(counted)
    return sizes


def kib(size):
    return f"{size / KIB:.1f}"


def met(is_met):
    return "" if is_met else " !"


def table(targets):
    """Rows of the whole, a column for each target."""
    rows = [
        ("size, KiB (goal)", lambda t, s: f"{kib(s.counted)} ({GOALS[t]})" + met(s.counted <= GOALS[t] * KIB)),
        ("  code", lambda t, s: kib(s.sections.get(".text", 0))),
        ("  trace formats", lambda t, s: kib(s.formats)),
        ("    of it frames", lambda t, s: kib(s.frames)),
        ("  names of identifiers", lambda t, s: kib(s.names)),
        ("  other texts", lambda t, s: kib(s.texts)),
        ("  tables, alignment", lambda t, s: kib(s.tables)),
        ("  relocated constants", lambda t, s: kib(s.sections.get(".data.rel.ro", 0))),
        ("texts and names alone", lambda t, s: kib(s.formats + s.names + s.texts)),
        ("unwind tables, KiB (2)", lambda t, s: kib(s.unwind) + met(s.unwind <= GOAL_UNWIND)),
        ("relative relocations (60)", lambda t, s: f"{s.relocations}" + met(s.relocations <= GOAL_RELOCATIONS)),
        ("writable beside arrays, bytes (512)", lambda t, s: f"{s.writable}" + met(s.writable <= GOAL_WRITABLE)),
    ]
    lines = [["", *targets]] + [[name, *(cell(t, s) for t, s in targets.items())] for name, cell in rows]
    return aligned(lines)


def file_table(by_target):
    files = sorted({file for sizes in by_target.values() for file in sizes})
    lines = [["bytes of each file", *by_target]]
    lines += [[file, *(str(sizes.get(file, "")) for sizes in by_target.values())] for file in files]
    return aligned(lines)


def aligned(lines):
    first = max(len(line[0]) for line in lines)
    return "\n".join(f"{line[0]:{first}}" + "".join(f"{cell:>14}" for cell in line[1:]) for line in lines)


def pairs(words):
    return dict(word.split("=", 1) for word in words)


def main():
    parser = argparse.ArgumentParser(description="How large the library is, and of what.")
    parser.add_argument("libraries", nargs="+", metavar="TARGET=LIBRARY")
    parser.add_argument("--files", nargs="*", default=[], metavar="TARGET=FOLDER")
    options = parser.parse_args()
    print(table({target: measure(library) for target, library in pairs(options.libraries).items()}))
    print("\n! beyond the goal")
    if options.files:
        print("\n" + file_table({target: files_of(folder) for target, folder in pairs(options.files).items()}))
    return 0


if __name__ == "__main__":
    sys.exit(main())
