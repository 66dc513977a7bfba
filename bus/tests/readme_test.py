#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Checks that the programs shown in a page are the ones that are compiled.

usage: readme_test.py PAGE PROGRAM...
"""
import sys


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


page = read(sys.argv[1])
stale = [path for path in sys.argv[2:] if f"```c\n{read(path)}```\n" not in page]
for path in stale:
    print(f"{sys.argv[1]}: its copy of {path} differs from the file")
sys.exit(1 if stale else 0)
