#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The platform functions that bind-your-own-bus.md lists are those that the built library imports: no more, no less."""

import re
import subprocess
import sys
import unittest
from pathlib import Path

NM, LIBRARY = sys.argv[1:3]
PLATFORM = r"(argument|connection|fcall|kex|object|peer|reply|request|variant)_|zilTrace"
PAGE = Path(__file__).resolve().parent.parent / "bind-your-own-bus.md"


class Imports(unittest.TestCase):
    def test_page_lists_what_the_library_imports(self):
        symbols = subprocess.run(
            [NM, "--dynamic", "--undefined-only", LIBRARY], capture_output=True, text=True, check=True
        ).stdout.split()
        imported = {name for name in symbols if re.match(PLATFORM, name)}
        section = PAGE.read_text(encoding="utf-8").split("## What the library imports")[1].split("\n## ")[0]
        rows = [row for row in section.split("\n") if row.startswith("|")]
        listed = set(re.findall(r"`(\w+)`", "\n".join(rows)))
        self.assertGreater(len(imported), 40)
        self.assertEqual(sorted(listed), sorted(imported))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
