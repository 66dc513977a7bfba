#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Each known survivor is a change that the sources still have room for."""

import os
import pathlib
import unittest

import mutants
import mutate


class Survivors(unittest.TestCase):
    def test_every_row_is_a_mutant(self):
        known = mutate.known_survivors()
        self.assertGreater(len(known), 0)
        sources = {file for tree in mutate.TREES for file in mutate.Tree(tree).files}
        found = {}
        for row in known:
            file = row.split(" | ")[0]
            with self.subTest(row):
                self.assertIn(file, sources)
                if file not in found:
                    build = pathlib.Path(os.environ["VOICE_BUILD"])
                    found[file] = {mutant.key() for mutant in mutants.find(build, mutate.ROOT, file)}
                self.assertIn(row, found[file])


if __name__ == "__main__":
    unittest.main()
