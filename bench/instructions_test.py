#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""How counts of instructions are read from callgrind's dumps and compared with the table."""

import sys
import tempfile
import unittest
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parent))
import instructions  # noqa: E402

DUMP = """# callgrind format
desc: Trigger: Client Request: buffer add / 800
events: Ir
summary: 1000

ob=/b/bin/bench_library
fn=main
0 14
cob=/b/lib/libvoice_plugin.so.1
cfn=libvoice_add_param
calls=100 0
0 700
ob=/b/lib/libvoice_plugin.so.1
fn=libvoice_add_param
0 300
cob=/lib/libc.so.6
cfn=memcpy
calls=100 0
0 400
0 20
ob=/b/lib/libkex.so.1
fn=kex_sendRequest
12 5
ob=/lib/libc.so.6
fn=memcpy
0 400
"""


class Dumps(unittest.TestCase):
    def test_only_what_library_and_bus_run_themselves_counts(self):
        self.assertEqual(instructions.counted_in(DUMP), ("buffer add / 800", 325))

    def test_the_end_of_the_program_is_no_path(self):
        text = DUMP.replace("Client Request: buffer add / 800", "Program termination")
        self.assertEqual(instructions.counted_in(text)[0], "")


class Table(unittest.TestCase):
    def failing(self, known, found):
        return [row[0] for row in instructions.compare(known, found) if row[3]]

    def test_over_three_per_cent_more_fails(self):
        known = {"add": (100.0, ""), "find": (100.0, ""), "walk": (100.0, "")}
        self.assertEqual(self.failing(known, {"add": 103.0, "find": 103.2, "walk": 20.0}), ["find"])

    def test_a_path_on_one_side_only_fails(self):
        self.assertEqual(self.failing({"add": (1.0, "")}, {"find": 1.0}), ["add", "find"])

    def test_an_accepted_rise_keeps_its_reason(self):
        known = {"add": (100.0, ""), "find": (50.0, "a check of lengths")}
        first = instructions.accepted(known, {"add": 120.0, "find": 49.0, "walk": 7.0}, "a check of ends")
        self.assertEqual(
            first, {"add": (120.0, "a check of ends"), "find": (49.0, "a check of lengths"), "walk": (7.0, "")}
        )
        with tempfile.TemporaryDirectory() as folder:
            path = Path(folder) / "table.csv"
            instructions.write_table(path, "g++ 12 any", first)
            self.assertEqual(instructions.read_table(path), ("g++ 12 any", first))

    def test_the_table_that_is_kept_can_be_read(self):
        by, counts = instructions.read_table(instructions.TABLE)
        self.assertRegex(by, r"^g\+\+ \d+\.\d+\.\d+ \w+$")
        self.assertGreater(len(counts), 15)


if __name__ == "__main__":
    unittest.main()
