#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Checks a shared object from outside: library_test.py CHECK LIBRARY [LIST]. Prints what is wrong, with status 1.

  exports     its names and their kinds are those of LIST
  declared    the functions and variables of the public header are those of LIST; LIBRARY is the header
  debian      its names are those of the package's symbols file LIST
  imports     it needs libc's names and those of LIST
  linkage     what it needs, its name, and what is read-only after load
  relocations its tables need no work at load
"""
import re
import subprocess
import sys
from pathlib import Path

REFERENCE = Path(__file__).resolve().parents[2] / "docs/reference.py"


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def listed(path):
    with open(path, encoding="ascii") as lines:
        return [line.strip() for line in lines if line.strip() and not line.startswith("#")]


def dynamic_symbols(library):
    """name -> (kind, size, section index, value, visibility) of what is defined, and the set of what is not."""
    defined, undefined = {}, set()
    for line in run("readelf", "--dyn-syms", "-W", library).splitlines():
        fields = line.split()
        if len(fields) < 8 or not fields[0].rstrip(":").isdigit():
            continue
        value, size, kind, visibility, section, name = fields[1], fields[2], fields[3], fields[5], fields[6], fields[7]
        if section == "UND":
            undefined.add((name, fields[4]))
        elif section != "ABS" and kind != "SECTION":  # the version's own name; a name for the linker alone
            defined[name.split("@")[0]] = (kind, int(size, 0), section, int(value, 16), visibility)
    return defined, undefined


def both_ways(found, promised, lost, new):
    return [f"{lost}: {name}" for name in sorted(set(promised) - set(found))] + [
        f"{new}: {name}" for name in sorted(set(found) - set(promised))
    ]


def declared(header, path):
    names = run(sys.executable, REFERENCE, "--names", header).splitlines()
    return both_ways(names, listed(path), "listed, but not declared", "declared, but not listed")


def debian(library, path):
    defined, _ = dynamic_symbols(library)
    rows = [line.split()[0].split("@") for line in listed(path) if "@" in line]
    named = [name for name, version in rows if name != version]  # a version is a symbol too
    return both_ways(defined, named, "in the symbols file, but not exported", "exported, but not in the symbols file")


def exports(library, path):
    defined, _ = dynamic_symbols(library)
    expected = dict(reversed(line.split()) for line in listed(path))
    wrong = both_ways(defined, expected, "not exported", "exported, but not listed")
    kinds = {"f": "FUNC", "d": "OBJECT"}
    wrong += [
        f"{name} is {defined[name][0]}, expected {kinds[kind]}"
        for name, kind in expected.items()
        if name in defined and defined[name][0] != kinds[kind]
    ]
    wrong += [
        f"{name} is {entry[4]}, a host could not share it" for name, entry in defined.items() if entry[4] != "DEFAULT"
    ]
    return wrong


def imports(library, path):
    _, undefined = dynamic_symbols(library)
    platform = set(listed(path))
    tolerated = {"_ITM_deregisterTMCloneTable", "_ITM_registerTMCloneTable", "__gmon_start__"}  # weak, the compiler's
    wrong = []
    for name, binding in undefined:
        if "@GLIBC_" in name or name in platform or (name in tolerated and binding == "WEAK"):
            continue
        wrong.append(f"imported, but neither libc's nor the platform's: {name}")
    if not any(name in platform for name, _ in undefined):
        wrong.append("nothing of the platform is imported: is this the library?")
    return wrong


def linkage(library, _):
    dynamic = run("readelf", "-dW", library)
    needed = re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic)
    soname = re.findall(r"\(SONAME\).*\[(.*)\]", dynamic)
    wrong = []
    if needed != ["libc.so.6"]:
        wrong.append(f"needs {needed}, expected libc.so.6 only")
    if soname != ["libvoice_plugin.so.1"]:
        wrong.append(f"soname is {soname}, expected libvoice_plugin.so.1")
    if "NOW" not in dynamic:
        wrong.append("not bound at load: relro is partial")
    for forbidden in ("TEXTREL", "SYMBOLIC", "RPATH", "RUNPATH"):
        if forbidden in dynamic:
            wrong.append(f"{forbidden} in the dynamic section")
    segments = re.findall(r"GNU_RELRO\s+\S+\s+(0x\S+)\s+\S+\s+\S+\s+(0x\S+)", run("readelf", "-lW", library))
    if len(segments) != 1:
        return wrong + ["no relro segment"]
    start, size = (int(word, 16) for word in segments[0])
    defined, _ = dynamic_symbols(library)
    for name in ("libvoice_result_texts", "voice_service_result_texts"):
        if name in defined and not start <= defined[name][3] < start + size:
            wrong.append(f"{name} stays writable")
    return wrong


def relocations(library, _):
    """Tables need no work at load, but for the two of result texts: a look-up table of names would bring hundreds."""
    defined, _ = dynamic_symbols(library)
    tables = [defined[name] for name in ("libvoice_result_texts", "voice_service_result_texts") if name in defined]
    allowed = [(table[3], table[3] + table[1]) for table in tables]
    for line in run("readelf", "-SW", library).splitlines():
        found = re.match(r"\s*\[\s*\d+\]\s+(\S+)\s+\S+\s+([0-9a-f]+)\s+[0-9a-f]+\s+([0-9a-f]+)", line)
        # Where PowerPC has its jumps and its constants' addresses, too.
        if found and found[1] in (".got", ".got.plt", ".got2", ".plt", ".init_array", ".fini_array", ".data"):
            limit = 16 if found[1] == ".data" else 1 << 20  # .data: the handle by which the C runtime knows the object
            allowed.append((int(found[2], 16), int(found[2], 16) + min(int(found[3], 16), limit)))
    wrong = []
    seen = 0
    for line in run("readelf", "-rW", library).splitlines():
        fields = line.split()
        if len(fields) >= 3 and fields[2].startswith("R_"):
            seen += 1
            offset = int(fields[0], 16)
            if not any(start <= offset < end for start, end in allowed):
                wrong.append(f"a relocation at {offset:#x}: {line.strip()}")
    if len(wrong) <= 4:  # the compiler may keep a lone text's address in a constant of its own
        wrong = []
    return wrong if seen else ["no relocations at all: readelf's output was not understood"]


def main():
    check, library, path = (sys.argv[1:] + [None])[:3]
    checks = {
        "exports": exports,
        "declared": declared,
        "debian": debian,
        "imports": imports,
        "linkage": linkage,
        "relocations": relocations,
    }
    wrong = checks[check](library, path)
    for line in wrong:
        print(f"{check}: {line}")
    return 1 if wrong else 0


sys.exit(main())
