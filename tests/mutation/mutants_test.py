#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The mutants of a source: each operator finds its places, and only these."""

import pathlib
import tempfile
import unittest

import mutants


class Mutants(unittest.TestCase):
    def found(self, text):
        with tempfile.TemporaryDirectory() as folder:
            (pathlib.Path(folder) / "source.cpp").write_text(text, encoding="utf-8")
            return mutants.Finder(pathlib.Path(folder), "source.cpp", ["-std=c++20"]).mutants

    def changes(self, text):
        return {(mutant.operator, mutant.old, mutant.new) for mutant in self.found(text)}

    def test_each_operator_finds_its_place(self):
        for text, wanted in [
            (
                "void f(bool &b, int i, int j) { b = i < j; }",
                {("relation", "<", "<="), ("statement", "b = i < j", "(void)0")},
            ),
            (
                "int f(int i) { return i - 3; }",
                {("arithmetic", "-", "+"), ("constant", "3", "(3 + 1)"), ("result", "i - 3", "(i - 3) + 1")},
            ),
            ("bool f(bool a, bool b) { return a && b; }", {("logic", "&&", "||"), ("result", "a && b", "!(a && b)")}),
            (
                "unsigned f(unsigned i, unsigned j) { return i & j; }",
                {("bits", "&", "|"), ("result", "i & j", "(i & j) + 1")},
            ),
            ("void f(int i) { while (i) i++; }", {("condition", "i", "!(i)"), ("step", "++", "--")}),
            ("void g(); void f(bool b) { if (b) g(); }", {("condition", "b", "!(b)"), ("statement", "g()", "(void)0")}),
            (
                "void f(int &i) { i += 2; }",
                {("step", "+=", "-="), ("constant", "2", "(2 + 1)"), ("statement", "i += 2", "(void)0")},
            ),
            ("char *f(char *p) { return p; }", {("result", "p", "nullptr")}),
            ("constexpr bool on = true;", {("constant", "true", "false")}),
        ]:
            with self.subTest(text):
                self.assertEqual(self.changes(text), wanted)

    def test_what_only_declares_or_asserts_is_left_alone(self):
        self.assertEqual(self.changes("enum e { one = 1 };\nstatic_assert(1 < 2);\nint f(int i);\n"), set())

    def test_what_a_macro_makes_is_left_alone(self):
        text = "void g(int);\n#define SAY(what) do { g(what); } while (0)\nvoid f() {\n    SAY(1);\n}\n"
        self.assertEqual({row for row in self.changes(text) if row[0] == "condition"}, set())

    def test_a_change_replaces_just_what_it_names(self):
        text = "int f(int i) { return i * 4; }"
        for mutant in self.found(text):
            with self.subTest(mutant.operator):
                self.assertEqual(text[mutant.begin : mutant.end], mutant.old)

    def test_the_key_names_the_function_and_the_row(self):
        mutant = next(
            each for each in self.found("int f(int i) {\n    return i * 4;\n}\n") if each.operator == "arithmetic"
        )
        self.assertEqual(mutant.key(), "source.cpp | f | arithmetic | * -> / | return i * 4;")


if __name__ == "__main__":
    unittest.main()
