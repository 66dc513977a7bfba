#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Compares what libkex.so exports with what its headers declare, both ways, and checks that it needs libc alone.

usage: exports_test.py NM READELF LIBRARY HEADER...
"""
import re
import subprocess
import sys


def declared(headers):
    names = set()
    for path in headers:
        with open(path, encoding="utf-8") as file:
            text = re.sub(r"/\*.*?\*/", "", file.read(), flags=re.S)
        # A prototype begins at the line's start, ends with a semicolon and is no typedef or macro.
        for statement in re.findall(
            r"^(?!typedef|#)[a-z][^;{}#]*?\);|^(?!typedef|#)[a-z][^;{}#]*?\)\s*ZIL_PRINTF[^;]*;", text, flags=re.M
        ):
            names.add(re.match(r"[^(]*?(\w+)\s*\(", statement).group(1))
    return names


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def main():
    nm, readelf, library, *headers = sys.argv[1:]
    lines = output(nm, "-D", "--defined-only", library).splitlines()
    exported = {line.split()[2].split("@")[0] for line in lines if line.split()[1] != "A"}
    promised = declared(headers)
    problems = [f"declared but not exported: {name}" for name in sorted(promised - exported)]
    problems += [f"exported but not declared: {name}" for name in sorted(exported - promised)]
    if len(promised) < 70:
        problems.append(f"only {len(promised)} prototypes were found: the headers are not read right")
    needed = re.findall(r"NEEDED.*\[(.*)\]", output(readelf, "-d", library))
    allowed = re.compile(r"(libc\.so|ld-linux|libdl\.so|ld-musl|libc\.musl)")
    problems += [f"needs {name}" for name in needed if not allowed.match(name)]
    for problem in problems:
        print(problem)
    return 1 if problems else 0


sys.exit(main())
