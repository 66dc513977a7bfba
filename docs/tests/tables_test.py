#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Tables of promises: each row of security.md, survive.md and the page of the binding on sd-bus names a test that holds
it, each limit and each result code stands in one. That these tests exist is pages.py's to check.

The guide for plugins lists all signals and events of voice_application, the page of the hosts what they print, and the
first page what a build needs."""

import json
import re
import unittest
from pathlib import Path

DOCS = Path(__file__).resolve().parent.parent
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


def page(name):
    return (DOCS / name).read_text(encoding="utf-8")


class Tables(unittest.TestCase):
    def test_each_row_has_a_test(self):
        for name, least_tables, least_rows in (
            ("security.md", 6, 40),
            ("survive.md", 4, 30),
            ("../platform/sdbus/README.md", 1, 15),
        ):
            with self.subTest(name):
                self.assertEqual(list(rows_without_a_test(page(name))), [])
                with_tests = [rows for rows in tables(page(name)) if rows[0][-1] == "test"]
                self.assertGreaterEqual(len(with_tests), least_tables)
                self.assertGreaterEqual(sum(len(rows) - 2 for rows in with_tests), least_rows)

    def test_limits_are_in_such_tables(self):
        for title in ("Limits of library and hosts", "Limits of the bundled bus"):
            section = page("security.md").split(f"## {title}\n")[1].split("\n## ")[0]
            self.assertEqual({tuple(rows[0][-1:]) for rows in tables(section)}, {("test",)}, title)

    def test_each_result_code_is_in_one(self):
        header = (DOCS.parent / "include" / "libvoice_plugin.h").read_text(encoding="utf-8")
        codes = set(re.findall(r"^ +((?:LIBVOICE|VOICE_SERVICE)_ERR_\w+) = ", header, re.M))
        self.assertGreaterEqual(len(codes), 20)
        section = page("survive.md").split("## Result codes\n")[1].split("\n## ")[0]
        named = {code for rows in tables(section) for row in rows for code in re.findall(r"`(\w+_ERR_\w+)`", row[0])}
        self.assertEqual(sorted(codes - named), [])

    def test_guide_lists_what_the_application_says_and_understands(self):
        """Each signal, event and parameter of its sources, and no other."""
        section = page("write-a-plugin.md").split("## What voice_application understands\n")[1].split("\n## Param")[0]
        names = r"LIBVOICE_(?:SIGNAL|EVENT|PARAM)_[a-z]\w+"
        listed = {name for rows in tables(section) for row in rows[2:] for name in re.findall(names, "".join(row))}
        sources = sorted((DOCS.parent / "hosts" / "voice_application").glob("*.cpp"))
        used = {name for path in sources for name in re.findall(names, path.read_text(encoding="utf-8"))}
        digits = {name for name in listed if re.fullmatch("LIBVOICE_EVENT_dd_d[0-9a-dso]", name)}
        self.assertGreaterEqual(len(digits), 6)
        kinds = ("LIBVOICE_SIGNAL", "LIBVOICE_EVENT")
        self.assertEqual(
            {name for name in listed - digits if name.startswith(kinds)},
            {name for name in used if name.startswith(kinds)},
        )
        carried = {name for name in used if name.startswith("LIBVOICE_PARAM") and "_call_stats_" not in name}
        elsewhere = {name for name in carried if "_sdp_" in name}  # in connection information
        told = set(re.findall(names, section))
        self.assertEqual(carried - elsewhere - told, set())

    def test_each_line_that_a_host_prints_is_on_its_page(self):
        """Its constant words, as far as the first colon: behind one stands a reason."""
        text = re.sub(r"\s+", " ", page("../hosts/README.md"))
        lines = []
        for path in sorted((DOCS.parent / "hosts").rglob("*.cpp")):
            if "tests" not in path.parts:
                joined = re.sub(r'"\s*\n\s*"', "", path.read_text(encoding="utf-8"))
                lines += re.findall(r'\bsay\("((?:\\.|[^"\\])*)"', joined)
        self.assertGreaterEqual(len(lines), 50)
        for line in sorted(set(lines)):
            words = re.split(r"%[-.0-9*]*[a-z]+|%%", line.replace('\\"', '"').split(": ")[0])
            with self.subTest(line):
                self.assertEqual([word for word in words if len(word.strip()) > 3 and word.strip() not in text], [])

    def test_first_page_says_what_a_build_needs(self):
        """The least version of CMake, and presets of other processors that nothing tries."""
        text = re.sub(r"\s+", " ", page("../README.md").split("Without the scripts: ")[1].split("\n\n")[0])
        least = re.search(r"cmake_minimum_required\(VERSION ([\d.]+)\)", page("../CMakeLists.txt")).group(1)
        self.assertIn(f"CMake {least}", text)
        presets = json.loads(page("../CMakePresets.json"))["configurePresets"]
        others = {preset["name"] for preset in presets if preset.get("inherits") == "target"}
        tried = re.search(r"^ALL=\((.*)\)", page("../tests/targets/run"), re.M).group(1)
        self.assertLessEqual({"mips", "musl"}, others)
        told = re.search(r"`\./test targets` tries all but ([^.;]*)", text)
        self.assertEqual(others - set(tried.split()), set(re.findall(r"`(\w+)`", told.group(1))))

    def test_row_without_a_test_is_noticed(self):
        head = "| what | test |\n|---|---|\n"
        self.assertEqual(list(rows_without_a_test(head + "| a | `b_test.C`, `d_test.e_f` |\n")), [])
        for cell in ("", "none", "`b_test.C`, later", "`b.C`"):
            self.assertEqual(len(list(rows_without_a_test(f"{head}| a | {cell} |\n"))), 1, cell)


if __name__ == "__main__":
    unittest.main()
