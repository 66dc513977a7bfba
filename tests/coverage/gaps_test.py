#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""What is not run is compared with the exceptions in both directions, and each exception names a line that is there."""

import collections
import pathlib
import tempfile
import unittest

import gaps

EXCEPTIONS = pathlib.Path(__file__).with_name("exceptions.txt")


def line(number, count, *branches, noncode=False):
    return {
        "line_number": number,
        "count": count,
        "branches": [{"count": taken} for taken in branches],
        "gcovr/noncode": noncode,
    }


class Gaps(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)

    def test_lines_and_branches_that_are_missed(self):
        (self.root / "a.cpp").write_text("one();\n  if (two)\nthree();\n// four\nfive();\n", encoding="utf-8")
        lines = [line(1, 3), line(2, 3, 3, 0), line(3, 0), line(4, 0, noncode=True), line(5, 1, 1, 1)]
        self.assertEqual(
            list(gaps.missed({"files": [{"file": "a.cpp", "lines": lines}]}, self.root)),
            [("a.cpp", 2, "if (two)", "1 of 2 branches not taken"), ("a.cpp", 3, "three();", "not run")],
        )

    def test_exceptions_of_one_folder(self):
        path = self.root / "list"
        path.write_text("a/b.cpp | x | y\n    why\nb/c.cpp | z\n    why\na/b.cpp | x | y\n    why\n", encoding="utf-8")
        self.assertEqual(gaps.known(path, "a/"), {("a/b.cpp", "x | y"): 2})
        path.write_text("by chance: a/b.cpp | x\n    why\na/b.cpp | y\n    why\n", encoding="utf-8")
        self.assertEqual(gaps.known(path, "a/"), {("a/b.cpp", "y"): 1})
        self.assertEqual(gaps.known(path, "a/", by_chance=True), {("a/b.cpp", "x"): 1})

    def test_differences_in_both_directions(self):
        found = collections.Counter({("a", "twice"): 2, ("a", "new"): 1})
        expected = collections.Counter({("a", "twice"): 1, ("a", "old"): 1})
        self.assertEqual(
            list(gaps.differences(found, expected, collections.Counter())),
            [
                "no known exception: a: new",
                "no known exception: a: twice",
                "an exception, but it is run: a: old",
            ],
        )
        self.assertEqual(list(gaps.differences(found, found, collections.Counter())), [])

    def test_what_is_run_by_chance_may_be_run_or_not(self):
        chance = collections.Counter({("a", "line"): 1})
        for found in ({}, {("a", "line"): 1}):
            self.assertEqual(list(gaps.differences(collections.Counter(found), collections.Counter(), chance)), [])
        twice = collections.Counter({("a", "line"): 2})
        self.assertEqual(list(gaps.differences(twice, collections.Counter(), chance)), ["no known exception: a: line"])

    def test_every_exception_names_a_line_that_is_there(self):
        rows = gaps.known(EXCEPTIONS, "") + gaps.known(EXCEPTIONS, "", by_chance=True)
        self.assertGreater(len(rows), 0)
        for (file, text), count in rows.items():
            with self.subTest(file=file, line=text):
                lines = [row.strip() for row in (gaps.ROOT / file).read_text(encoding="utf-8").splitlines()]
                self.assertGreaterEqual(lines.count(text), count)


if __name__ == "__main__":
    unittest.main()
