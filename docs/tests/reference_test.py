#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""What docs/reference.py understands of a header, and that it notices every kind of name without a comment."""

import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

SCRIPT = Path(__file__).resolve().parent.parent / "reference.py"


class Reference(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def run_on(self, text, *options):
        """Runs the script on one header; returns the exit status, the faults without the path, and the page."""
        header = self.folder / "a.h"
        header.write_text("#ifndef A_H\n#define A_H\n" + text + "#endif\n", encoding="utf-8")
        page = self.folder / "a.md"
        run = subprocess.run(
            [sys.executable, SCRIPT, "--output", page, *options, header], capture_output=True, text=True, check=False
        )
        self.output = run.stdout
        faults = [line.replace(f"{header}:", "") for line in run.stderr.splitlines()]
        return run.returncode, faults, page.read_text(encoding="utf-8") if page.exists() else ""

    def assert_fault(self, text, fault):
        status, faults, page = self.run_on(text)
        self.assertEqual((status, faults, page), (1, [fault], ""))

    def assert_page_holds(self, text, *parts):
        status, faults, page = self.run_on(text)
        self.assertEqual((status, faults), (0, []))
        for part in parts:
            self.assertIn(part, page)

    def test_function_without_comment(self):
        self.assert_fault(
            "/** Told. */\nint told(void);\nint untold(int a, void (*handler)(int b));\n",
            "5: function untold has no doc comment",
        )

    def test_function_over_two_lines_is_reported_at_its_first(self):
        self.assert_fault("int untold(int a,\n           int b);\n", "3: function untold has no doc comment")

    def test_inline_function_without_comment(self):
        self.assert_fault(
            "static inline int untold(int a)\n{\n    int b = a;\n    return b;\n}\n",
            "3: function untold has no doc comment",
        )

    def test_variable_without_comment(self):
        self.assert_fault("extern const char *const texts[10];\n", "3: variable texts has no doc comment")

    def test_type_without_comment(self):
        self.assert_fault("typedef struct thing thing_t;\n", "3: type thing_t has no doc comment")

    def test_struct_without_comment(self):
        self.assert_fault(
            "typedef struct thing {\n    int a; /**< Told. */\n} thing_t;\n", "3: struct thing_t has no doc comment"
        )

    def test_field_without_comment(self):
        self.assert_fault(
            "/** Told. */\ntypedef struct thing {\n    int a; /**< Told. */\n    char b[4];\n} thing_t;\n",
            "6: field b has no doc comment",
        )

    def test_function_pointer_field_without_comment(self):
        self.assert_fault(
            "/** Told. */\ntypedef struct thing {\n    int (*slot)(int a);\n} thing_t;\n",
            "5: field slot has no doc comment",
        )

    def test_enumerator_without_comment(self):
        self.assert_fault(
            "/** Told. */\nenum kind {\n    KIND_A = 1, /**< Told. */\n    KIND_B = 2,\n};\n",
            "6: enumerator KIND_B has no doc comment",
        )

    def test_last_enumerator_without_comma_and_comment(self):
        self.assert_fault(
            "/** Told. */\nenum kind {\n    KIND_A = 1, /**< Told. */\n    KIND_B = 2\n};\n",
            "6: enumerator KIND_B has no doc comment",
        )

    def test_enum_without_comment(self):
        self.assert_fault("enum kind {\n    KIND_A = 1, /**< Told. */\n};\n", "3: enum kind has no doc comment")

    def test_macro_without_comment(self):
        self.assert_fault("#define LIMIT 3\n", "3: macro LIMIT has no doc comment")

    def test_empty_comment_is_none(self):
        self.assert_fault("/** */\nint untold(void);\n", "4: function untold has no doc comment")

    def test_comment_describes_one_declaration_only(self):
        self.assert_fault("/** Told. */\nint told(void);\nint untold(void);\n", "5: function untold has no doc comment")

    def test_group_ends_at_a_blank_line(self):
        self.assert_fault(
            "/* Both of these. */\nint a(void);\nint b(void);\n\nint untold(void);\n",
            "7: function untold has no doc comment",
        )

    def test_section_is_no_description(self):
        self.assert_fault(
            "/* ---------------- Section\n * Words. */\nint untold(void);\n", "5: function untold has no doc comment"
        )

    def test_remark_behind_a_declaration_describes_nothing_else(self):
        self.assert_fault(
            "/** Told. */\nint told(void); /* a remark */\nint untold(void);\n", "5: function untold has no doc comment"
        )

    def test_all_faults_are_reported(self):
        _, faults, _ = self.run_on("int a(void);\n#define B 1\n")
        self.assertEqual(faults, ["3: function a has no doc comment", "4: macro B has no doc comment"])

    def test_what_needs_no_comment(self):
        status, faults, _ = self.run_on(
            "struct elsewhere;\n#define GUARDED\n#define HELPER(n) n\n"
            '#ifdef __cplusplus\nextern "C" {\n#endif\n#ifdef __cplusplus\n}\n#endif\n'
        )
        self.assertEqual((status, faults), (0, []))

    def test_section_group_and_tables(self):
        self.assert_page_holds(
            "/* ---------------- Numbers\n * Words about numbers. */\n\n"
            "/* Both answer yes. */\nint first(void);\nint second(int a); /**< Only this. */\n\n"
            "#define LIMIT 3 /**< How many. */\n/** A kind. */\n"
            "enum kind {\n    KIND_A = 1, /**< The | first. */\n};\n",
            "### Numbers\n\nWords about numbers.\n",
            "#### `first`, `second`",
            "int first(void);\nint second(int a); /* Only this. */\n```\n\nBoth answer yes.",
            "| `LIMIT` | `3` | How many. |",
            "| `KIND_A` | 1 | The \\| first. |",
        )

    def test_parameters_and_drawings(self):
        self.assert_page_holds(
            "/**\n * Adds.\n *\n *     +---+\n *     | a |\n *     +---+\n *\n"
            " * @param a  one word\n *           more\n"
            " * @return yes\n */\nint add(int a);\n",
            "Adds.\n\n```text\n+---+\n| a |\n+---+\n```",
            "- `a`: one word more\n- returns: yes",
        )

    def test_names_are_those_of_functions_and_variables_to_link_with(self):
        status, names, _ = self.run_on(
            "#define LIMIT 3\ntypedef int number_t;\nint first(void);\nextern int second[LIMIT];\n"
            "static inline int third(void) { return 3; }\nstruct thing { int a; };\n",
            "--names",
        )
        self.assertEqual((status, names), (0, []))
        self.assertEqual(self.output, "f first\nd second\n")

    def test_a_header_that_does_not_compile(self):
        self.assert_fault("/** Told. */\nint told(unheard_of a);\n", "4: unknown type name 'unheard_of'")

    def test_attributes_and_pointers_to_functions_in_fields(self):
        self.assert_page_holds(
            "#define WIDE(n) __attribute__((aligned(n)))\n/** A thing. */\ntypedef struct thing {\n"
            "    WIDE(8) int a[2]; /**< Both. */\n    /** Runs\n     * late. */\n    int (*run)(int a,\n"
            "               int b);\n} thing_t;\n",
            "#### `thing_t`",
            "| `WIDE(8) int a[2]` | Both. |",
            "| `int (*run)(int a, int b)` | Runs late. |",
        )

    def test_check_reports_where_a_page_differs(self):
        text = "/** Told. */\nint told(void);\n"
        self.run_on(text)
        self.assertEqual(self.run_on(text, "--check")[:2], (0, []))
        status, faults, _ = self.run_on(text.replace("Told", "Said"), "--check")
        self.assertEqual(status, 1)
        self.assertRegex(faults[0], r"a\.md:\d+: differs from the headers; run docs/reference\.py")


if __name__ == "__main__":
    unittest.main()
