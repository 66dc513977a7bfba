#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The functions that bind-your-own-bus.md lists are those that the built library and hosts import: no more, no less."""

import re
import subprocess
import sys
import unittest
from pathlib import Path

NM, LIBRARY, *HOSTS = sys.argv[1:]
ROOT = Path(__file__).resolve().parents[2]
PAGE = (ROOT / "docs" / "bind-your-own-bus.md").read_text(encoding="utf-8")
NAME = r"(?:argument|connection|fcall|kex|object|peer|reply|request|variant)_\w+|zilTraceZ?"


def imported(*files):
    """The functions of a bus that the files leave undefined."""
    done = subprocess.run([NM, "--dynamic", "--undefined-only", *files], capture_output=True, text=True, check=True)
    return set(re.findall(rf" U ({NAME})(?:@|$)", done.stdout, re.MULTILINE))


def declared():
    """The functions of the two headers of the contract."""
    text = "".join((ROOT / "platform" / name).read_text(encoding="utf-8") for name in ("kex.h", "ziltrace.h"))
    text = re.sub(r"/\*.*?\*/", "", text, flags=re.DOTALL)
    return set(re.findall(rf"^[a-z].*?\b({NAME})\((?!\*)", text, re.MULTILINE)) - {"kex_function_t"}


def table(heading):
    """The names in each column of the section's table."""
    section = PAGE.split(f"## {heading}\n")[1].split("\n## ")[0]
    rows = [row.strip("|").split("|") for row in section.split("\n") if row.startswith("|")]
    return [set(re.findall(r"`(\w+)`", " ".join(column))) for column in zip(*rows)]


class Imports(unittest.TestCase):
    def setUp(self):
        self.maxDiff = None
        self.core, self.hosts, self.contract = imported(LIBRARY), imported(*HOSTS), declared()

    def test_contract(self):
        _, library, hosts, neither = table("1. Which functions")
        self.assertEqual(sorted(library), sorted(self.core))
        self.assertEqual(sorted(hosts), sorted(self.hosts & self.contract - self.core))
        self.assertEqual(sorted(neither), sorted(self.contract - self.core - self.hosts))
        self.assertIn(f"\n{len(self.core)} functions are what the library needs.", PAGE)

    def test_start_up(self):
        self.assertEqual(sorted(table("2. How a host begins")[0]), sorted(self.hosts - self.contract))

    def test_kit_knows_the_contract(self):
        rows = (ROOT / "conformance" / "src" / "functions.inc").read_text(encoding="utf-8")
        self.assertEqual(sorted(re.findall(r"^(?:PLATFORM|TRACE)\((\w+)\)", rows, re.MULTILINE)), sorted(self.contract))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
