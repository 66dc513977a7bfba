#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""What is said of an idle plugin's memory, from made-up maps; with a folder of programs, that it can be looked at."""

import sys
import unittest
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parent))
import memory  # noqa: E402

PROGRAMS = Path(sys.argv.pop()) if len(sys.argv) == 2 else None
SMAPS = """\
55d0c0000000-55d0c0001000 r--p 00000000 fe:01 1234                       /build/bin/telephone
Size:                  4 kB
Rss:                   4 kB
Private_Dirty:         0 kB
VmFlags: rd mr mw me
55d0c0003000-55d0c0004000 rw-p 00003000 fe:01 1234                       /build/bin/telephone
Rss:                   4 kB
Private_Dirty:         4 kB
7f0000000000-7f0000010000 r-xp 00000000 fe:01 77                         /build/lib/libkex.so.1.0.0
Rss:                  64 kB
Private_Dirty:         0 kB
7f0000020000-7f0000030000 rw-p 00000000 00:00 0
Rss:                  12 kB
Private_Dirty:        12 kB
7ffc00000000-7ffc00021000 rw-p 00000000 00:00 0                          [stack]
Rss:                  16 kB
Private_Dirty:        16 kB
"""


class Maps(unittest.TestCase):
    def test_pages_are_counted_by_what_is_mapped(self):
        found = memory.regions(SMAPS, "/build/bin/telephone")
        self.assertEqual(found["program"], {"Rss": 8, "Private_Dirty": 4})
        self.assertEqual(found["libkex.so"], {"Rss": 64, "Private_Dirty": 0})
        self.assertEqual(found["not named"], {"Rss": 12, "Private_Dirty": 12})
        self.assertEqual(found["[stack]"], {"Rss": 16, "Private_Dirty": 16})

    def test_only_what_is_more_is_shown_with_its_goal(self):
        idle = {"[stack]": {"Rss": 16, "Private_Dirty": 16}}
        plugin = {"[stack]": {"Rss": 16, "Private_Dirty": 16}, "[heap]": {"Rss": 451, "Private_Dirty": 64}}
        shown, is_good = memory.table([(idle, plugin)])
        self.assertNotIn("[stack]", shown)
        self.assertRegex(shown.splitlines()[-2], r"^all \(goal\) +451 \(450, NOT MET\) +64 \(64, met\)$")
        self.assertFalse(is_good)
        plugin["[heap]"]["Rss"] = 450
        self.assertTrue(memory.table([(idle, plugin)])[1])

    def test_the_start_in_the_middle_is_shown(self):
        starts = [({}, {"libc.so": {"Rss": pages, "Private_Dirty": 4}}) for pages in (500, 100, 300)]
        lines = memory.table(starts)[0].splitlines()
        self.assertRegex(lines[1], r"^libc.so +300 +4$")
        self.assertRegex(lines[-1], r"^of 3 starts +100 to 500 +4 to 4$")


class Programs(unittest.TestCase):
    @unittest.skipUnless(PROGRAMS, "no folder of programs is given")
    def test_an_idle_plugin_can_be_looked_at(self):
        idle, plugin = memory.measure(PROGRAMS)[0]
        self.assertIn("libkex.so", plugin)
        self.assertNotIn("libkex.so", idle)
        self.assertGreater(memory.total(plugin, "Rss"), memory.total(idle, "Rss"))


if __name__ == "__main__":
    unittest.main()
