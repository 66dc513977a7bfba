#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Lists of exceptions: each row has its reason."""

import pathlib
import tempfile
import unittest

import reasons


class Reasons(unittest.TestCase):
    def read(self, text):
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder) / "list"
            path.write_text(text, encoding="utf-8")
            return reasons.read(path)

    def test_rows_and_their_reasons(self):
        self.assertEqual(
            self.read("# a | list\n\na | b\n    why\n\na | b\n    why again\n# c\nc\n    because\n"),
            [("a | b", "why"), ("a | b", "why again"), ("c", "because")],
        )
        self.assertEqual(self.read(""), [])

    def test_rows_without_a_reason_are_refused(self):
        for text, wanted in [
            ("a\nb\n    why\n", "list:2: there is no reason for the row above"),
            ("a\n    why\nb\n", "list: there is no reason for the last row"),
            ("    why\n", "list:1: a reason for what?"),
            ("a\n    why\n    and why\n", "list:3: a reason for what?"),
        ]:
            with self.subTest(text), self.assertRaisesRegex(SystemExit, wanted.replace("?", r"\?") + "$"):
                self.read(text)


if __name__ == "__main__":
    unittest.main()
