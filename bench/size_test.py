#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""What is said of a library's size, held against a library that is made for it."""

import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parent))
import size  # noqa: E402

SOURCE = """
#include <stddef.h>
int exported[100];
static int own[25];
static const char *const relocated[] = {"one text", "another text"};
const char *text(size_t i) { own[i % 25]++; return relocated[i % 2]; }
const char *name(void) { return "LIBVOICE_EVENT_al_of"; }
const char *format(void) { return "%s%-7.7s%s - %s[%s]%s%sgone%s - %s(%s@%s:%d)%s"; }
"""


class Library(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.folder.cleanup)
        root = Path(cls.folder.name)
        (root / "one.c").write_text(SOURCE, encoding="utf-8")
        options = ["-fPIC", "-Os", "-Wl,-z,relro,-z,now", "-fno-asynchronous-unwind-tables"]
        subprocess.run(["cc", *options, "-c", "one.c", "-o", "one.c.o"], cwd=root, check=True)
        subprocess.run(["cc", *options, "-shared", "one.c.o", "-o", "one.so"], cwd=root, check=True)
        cls.root, cls.sizes = root, size.measure(root / "one.so")

    def test_code_and_constants_count(self):
        sections = self.sizes.sections
        self.assertEqual(self.sizes.counted, sum(sections[name] for name in (".text", ".rodata", ".data.rel.ro")))
        self.assertGreater(sections[".text"], 0)

    def test_texts_are_told_apart(self):
        self.assertEqual(self.sizes.names, len("LIBVOICE_EVENT_al_of") + 1)
        self.assertEqual(self.sizes.frames, self.sizes.formats - len("gone"))
        self.assertEqual(self.sizes.texts, len("one text") + len("another text") + 2)

    def test_only_what_is_a_process_s_own_counts_as_writable(self):
        self.assertGreaterEqual(self.sizes.writable, 25 * 4)
        self.assertLess(self.sizes.writable, 25 * 4 + 100)

    def test_each_address_of_a_constant_is_a_relocation(self):
        self.assertGreaterEqual(self.sizes.relocations, 2)

    def test_files_are_named_by_their_source(self):
        files = size.files_of(self.root)
        self.assertEqual(list(files), ["one.c"])
        self.assertGreater(files["one.c"], 0)

    def test_what_is_beyond_its_goal_is_marked(self):
        shown = size.table({"amd64": self.sizes})
        self.assertNotIn("!", shown)
        self.sizes.relocations, before = 61, self.sizes.relocations
        try:
            self.assertRegex(size.table({"amd64": self.sizes}), r"relative relocations \(60\) +61 !")
        finally:
            self.sizes.relocations = before


if __name__ == "__main__":
    unittest.main()
