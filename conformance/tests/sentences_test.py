#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Each check proves a sentence that stands in a header, by an identifier of its own."""

import pathlib
import re
import subprocess
import sys
import unittest

PROGRAM = sys.argv.pop()
SOURCE = pathlib.Path(__file__).parents[2]
HEADERS = ["platform/kex.h", "platform/ziltrace.h", "bus/include/kex_host.h"]


def words(text):
    """Comments as running text: without their stars, on one line, in small letters."""
    text = re.sub(r"/\*\*<|/\*\*?|\*/", " ", text)
    text = re.sub(r"^\s*\* ?", "", text, flags=re.MULTILINE)
    return " ".join(text.split()).lower()


class Sentences(unittest.TestCase):
    def setUp(self):
        self.maxDiff = None
        listed = subprocess.run([PROGRAM, "--list"], stdout=subprocess.PIPE, text=True, check=True).stdout
        self.rows = [line.split(maxsplit=2) for line in listed.splitlines()]

    def test_as_in_header(self):
        text = words("\n".join((SOURCE / name).read_text() for name in HEADERS))
        self.assertEqual([row for row in self.rows if words(row[2]) not in text], [])

    def test_rows(self):
        identifiers = [row[0] for row in self.rows]
        self.assertGreaterEqual(len(identifiers), 90)
        self.assertEqual(len(identifiers), len(set(identifiers)))
        self.assertEqual([row for row in self.rows if row[1] not in ("MUST", "SHOULD")], [])
        self.assertEqual([name for name in identifiers if not re.fullmatch(r"[a-z]+\.[a-z0-9_]+", name)], [])


if __name__ == "__main__":
    unittest.main()
