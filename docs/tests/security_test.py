#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Every row of security.md's tables names a test that holds it. That these tests exist is pages.py's to check."""

import re
import unittest
from pathlib import Path

PAGE = Path(__file__).resolve().parent.parent / "security.md"
TEST = r"`\w+_test\.\w+`"


def tables(text):
    """Each table as its rows of cells; the first is its head."""
    for block in re.findall(r"(?:^\|.*\n)+", text, re.M):
        yield [[cell.strip() for cell in row.strip("|").split(" | ")] for row in block.strip().split("\n")]


def rows_without_a_test(text):
    """Rows below a head that ends with "test" whose last cell is not a list of tests, by their first cells."""
    for head, _, *rows in tables(text):
        if head[-1] == "test":
            yield from (row[:2] for row in rows if not re.fullmatch(rf"{TEST}(?:, {TEST})*", row[-1].strip(" |")))


class Security(unittest.TestCase):
    def test_each_row_has_a_test(self):
        text = PAGE.read_text(encoding="utf-8")
        self.assertEqual(list(rows_without_a_test(text)), [])
        with_tests = [rows for rows in tables(text) if rows[0][-1] == "test"]
        self.assertGreaterEqual(len(with_tests), 6)
        self.assertGreaterEqual(sum(len(rows) - 2 for rows in with_tests), 40)

    def test_limits_are_in_such_tables(self):
        text = PAGE.read_text(encoding="utf-8")
        for title in ("Limits of library and hosts", "Limits of the bundled bus"):
            section = text.split(f"## {title}\n")[1].split("\n## ")[0]
            self.assertEqual({tuple(rows[0][-1:]) for rows in tables(section)}, {("test",)}, title)

    def test_row_without_a_test_is_noticed(self):
        head = "| what | test |\n|---|---|\n"
        self.assertEqual(list(rows_without_a_test(head + "| a | `b_test.C`, `d_test.e_f` |\n")), [])
        for cell in ("", "none", "`b_test.C`, later", "`b.C`"):
            self.assertEqual(len(list(rows_without_a_test(f"{head}| a | {cell} |\n"))), 1, cell)


if __name__ == "__main__":
    unittest.main()
