#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""That docs/pages.py notices every way in which a page can go wrong."""

import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

SCRIPT = Path(__file__).resolve().parent.parent / "pages.py"


class Pages(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        self.write("src/a.c", 'int libvoice_thing(void) { trace("two "\n      "parts"); return say("one\\n"); }\n')
        self.write("docs/examples/e.c", "int a;\n/* [part] */\n    int b;\n/* [end] */\n")

    def write(self, name, text):
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")
        return path

    def run_on(self, page, *options):
        path = self.write("docs/p.md", page)
        run = subprocess.run(
            [sys.executable, SCRIPT, "--root", self.root, *options], capture_output=True, text=True, check=False
        )
        return run.returncode, run.stderr.splitlines(), path.read_text(encoding="utf-8")

    def assert_fault(self, page, fault):
        self.assertEqual(self.run_on(page, "--check"), (1, [fault], page))

    def assert_fine(self, page):
        self.assertEqual(self.run_on(page, "--check"), (0, [], page))

    def test_text_and_names_of_the_sources(self):
        self.assert_fine('`"two parts"`, `"one\\n"`, `libvoice_thing()`, `anything else`\n')

    def test_text_that_no_source_has(self):
        self.assert_fault('a\n`"two part"`\n', 'docs/p.md:2: no source has the text "two part"')

    def test_text_that_only_a_test_has(self):
        self.write("tests/t.c", 'char *t = "tested";\n')
        self.assert_fault('`"tested"`\n', 'docs/p.md:1: no source has the text "tested"')

    def test_name_that_no_source_has(self):
        self.assert_fault("`libvoice_thin`\n", "docs/p.md:1: no source has the name libvoice_thin")

    def test_file_that_is_there_by_the_end_of_its_path(self):
        self.write("hosts/common/line.h", "")
        self.assert_fine("`line.h`, `common/line.h`, `hosts/common/line.h`, `../hosts/common/line.h`\n")

    def test_file_that_is_nowhere(self):
        self.write("hosts/common/line.h", "")
        self.write("build/common/made.h", "")
        for name in ("lines.h", "simulator/line.h", "ine.h", "made.h"):
            with self.subTest(name):
                self.assert_fault(f"`{name}`\n", f"docs/p.md:1: no such file: {name}")

    def test_tests(self):
        self.write("hosts/tests/line_test.cpp", "TEST_F(Line, IsThere) {}\n")
        self.assert_fine("`line_test.IsThere`, `line_test.cpp`\n")
        for name in ("line_test.IsTher", "lines_test.IsThere"):
            with self.subTest(name):
                self.assert_fault(f"`{name}`\n", f"docs/p.md:1: no such test: {name}")

    def test_pages_of_the_parts(self):
        for folder in ("bus", "hosts", "tool"):
            with self.subTest(folder):
                page = self.write(f"{folder}/README.md", "[x](no.md)\n")
                self.assertEqual(self.run_on("", "--check")[1], [f"{folder}/README.md:1: link to no.md: no such file"])
                page.unlink()

    def test_pages_of_the_root(self):
        for name in ("README.md", "CHANGELOG.md", "CONTRIBUTING.md", "SECURITY.md"):
            with self.subTest(name):
                page = self.write(name, "[x](no.md)\n")
                self.assertEqual(self.run_on("", "--check")[1], [f"{name}:1: link to no.md: no such file"])
                page.unlink()

    def test_link_to_nowhere(self):
        self.assert_fault("[x](no.md)\n", "docs/p.md:1: link to no.md: no such file")

    def test_link_to_a_missing_heading(self):
        self.assert_fault(
            "# Here it is\n[x](#here-it-is) [y](p.md#there)\n", "docs/p.md:2: link to p.md#there: no such heading"
        )

    def test_example_that_equals_its_file_and_part(self):
        self.assert_fine("<!-- example: docs/examples/e.c#part -->\n```c\nint b;\n```\n")

    def test_example_that_differs(self):
        page = "<!-- example: docs/examples/e.c#part -->\n\n```c\nint c;\n```\nend\n"
        self.assert_fault(page, "docs/p.md:3: differs from docs/examples/e.c#part; run docs/pages.py")
        self.assertEqual(self.run_on(page), (0, [], page.replace("int c;", "int b;")))

    def test_example_without_a_file(self):
        self.assert_fault("<!-- example: docs/no.c -->\n```c\n```\n", "docs/p.md:2: no such example: docs/no.c")

    def test_example_without_a_part(self):
        self.assert_fault(
            "<!-- example: docs/examples/e.c#no -->\n```c\n```\n", "docs/p.md:2: no such example: docs/examples/e.c#no"
        )

    def test_mark_without_a_block(self):
        self.assert_fault(
            "<!-- example: docs/examples/e.c -->\nwords\n",
            "docs/p.md:2: no code block follows the mark of docs/examples/e.c",
        )

    def test_not_ascii(self):
        self.assert_fault("caf\u00e9\n", "docs/p.md:1: not ASCII")


if __name__ == "__main__":
    unittest.main()
