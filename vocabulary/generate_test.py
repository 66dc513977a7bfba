#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The vocabulary's script under test: right rows give the committed outputs, a wrong one is named by file and line."""

import csv
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

HERE = Path(__file__).resolve().parent
NUMBER, NAME, KIND, TYPE, SHORT, MEANING, HEX = range(7)


def lines_of(path):
    with open(path, newline="", encoding="ascii") as file:
        return list(csv.reader(file))


class GenerateTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.root = Path(self.folder.name)
        self.ids = self.root / "ids.csv"
        self.packages = self.root / "packages.csv"
        self.rows = lines_of(HERE / "ids.csv")
        self.package_rows = lines_of(HERE / "packages.csv")

    def line_of(self, name):
        """The line, counted from 1, on which a row stands."""
        return 1 + next(i for i, row in enumerate(self.rows) if row[NAME] == name)

    def row(self, name):
        return self.rows[self.line_of(name) - 1]

    def run_script(self, *options):
        for path, rows in ((self.ids, self.rows), (self.packages, self.package_rows)):
            with open(path, "w", newline="", encoding="ascii") as file:
                csv.writer(file, lineterminator="\n").writerows(rows)
        return subprocess.run(
            [sys.executable, HERE / "generate.py", "--ids", self.ids, "--packages", self.packages, *options],
            capture_output=True,
            text=True,
            check=False,
        )

    def expect_faults(self, *faults):
        """The script fails and says exactly this: (file, line, message)."""
        result = self.run_script("--check")
        self.assertEqual(result.stderr.splitlines(), [f"{path}:{line}: {message}" for path, line, message in faults])
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stdout, "")

    def expect_fault(self, name, message):
        self.expect_faults((self.ids, self.line_of(name), message))

    # ---- outputs

    def test_right_rows_give_the_committed_outputs(self):
        result = self.run_script("--check")
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, "", ""))

    def test_writing_and_checking_agree(self):
        result = self.run_script("--root", str(self.root))
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        written = sorted(str(path.relative_to(self.root)) for path in self.root.rglob("*") if path.is_file())
        self.assertEqual(
            written,
            [
                "docs/vocabulary.md",
                "ids.csv",
                "include/libvoice_ids.h",
                "packages.csv",
                "src/vocabulary_rows.inc",
                "tool/wireshark/kexbus.lua",
                "vocabulary/libvoice_meanings.h",
            ],
        )
        self.assertEqual(self.run_script("--check", "--root", str(self.root)).returncode, 0)

    def test_an_edited_output_is_named_by_its_line(self):
        self.run_script("--root", str(self.root))
        header = self.root / "include/libvoice_ids.h"
        lines = header.read_text().split("\n")
        at = next(i for i, line in enumerate(lines) if "LIBVOICE_SIGNAL_cg_dt " in line)
        wanted, lines[at] = lines[at], lines[at].replace("0x10073000u", "0x10073001u")
        header.write_text("\n".join(lines))
        result = self.run_script("--check", "--root", str(self.root))
        self.assertEqual(result.returncode, 1)
        self.assertEqual(
            result.stderr,
            f'{header}:{at + 1}: expected "{wanted}", found "{lines[at]}"; ' "run vocabulary/generate.py\n",
        )

    def test_a_missing_a_shortened_and_a_lengthened_output_are_named(self):
        self.run_script("--root", str(self.root))
        page = self.root / "docs/vocabulary.md"
        text = page.read_text()
        count = text.count("\n")
        for changed, line, found in (
            (None, 1, 0),
            (text[: text.rindex("\n", 0, -1) + 1], count, count - 1),
            (text + "more\n", count + 1, count + 1),
        ):
            with self.subTest(lines=found):
                if changed is None:
                    page.unlink()
                else:
                    page.write_text(changed)
                result = self.run_script("--check", "--root", str(self.root))
                self.assertEqual(result.returncode, 1)
                self.assertEqual(
                    result.stderr,
                    f"{page}:{line}: expected {count} lines, found {found}; " "run vocabulary/generate.py\n",
                )

    def test_an_edited_row_shows_in_every_output(self):
        row = self.row("LIBVOICE_SIGNAL_cg_dt")
        for column, value, outputs in (
            (SHORT, "dialling tone", ["libvoice_meanings.h", "kexbus.lua"]),
            (MEANING, "The tone to dial at", ["libvoice_ids.h", "libvoice_meanings.h", "vocabulary.md", "kexbus.lua"]),
            (
                NAME,
                "LIBVOICE_SIGNAL_cg_dial",
                ["libvoice_ids.h", "vocabulary_rows.inc", "libvoice_meanings.h", "vocabulary.md", "kexbus.lua"],
            ),
        ):
            row[column] = value
            result = self.run_script("--check")
            self.assertEqual(result.returncode, 1)
            self.assertEqual([Path(line.split(":")[0]).name for line in result.stderr.splitlines()], outputs)

    def test_faults_leave_the_outputs_alone(self):
        self.row("LIBVOICE_EVENT_al_of")[KIND] = "signal"
        self.assertEqual(self.run_script("--root", str(self.root)).returncode, 1)
        self.assertFalse((self.root / "include").exists())

    # ---- wrong rows

    def test_a_row_too_few(self):
        del self.rows[self.line_of("LIBVOICE_SIGNAL_cg_dt") - 1]
        self.expect_faults((self.ids, 265, "264 rows, the vocabulary has 265"))

    def test_a_row_too_many(self):
        row = list(self.row("LIBVOICE_SIGNAL_cg_dt"))
        row[NUMBER], row[NAME] = "0x10073900", "LIBVOICE_SIGNAL_cg_xx"
        self.rows.append(row)
        self.expect_faults((self.ids, 267, "266 rows, the vocabulary has 265"))

    def test_a_number_twice(self):
        first = self.line_of("LIBVOICE_SIGNAL_cg_dt")
        self.row("LIBVOICE_SIGNAL_cg_rt")[NUMBER] = "0x10073000"
        self.expect_fault("LIBVOICE_SIGNAL_cg_rt", f"0x10073000 stands on line {first} too")

    def test_a_name_twice(self):
        first = self.line_of("LIBVOICE_SIGNAL_cg_dt")
        line = self.line_of("LIBVOICE_SIGNAL_cg_rt")
        self.row("LIBVOICE_SIGNAL_cg_rt")[NAME] = "LIBVOICE_SIGNAL_cg_dt"
        self.expect_faults((self.ids, line, f"LIBVOICE_SIGNAL_cg_dt stands on line {first} too"))

    def test_a_number_that_is_none(self):
        for number in ("", "10073000", "0x1007300", "0x100730000", "0x1007300g", "0x1007300a", " 0x10073000"):
            with self.subTest(number=number):
                self.row("LIBVOICE_SIGNAL_cg_dt")[NUMBER] = number
                self.expect_faults(
                    (
                        self.ids,
                        self.line_of("LIBVOICE_SIGNAL_cg_dt"),
                        f'number "{number}" is not 0x and eight upper-case hexadecimal digits',
                    ),
                    (self.ids, 266, "264 rows, the vocabulary has 265"),
                )

    def test_bit_31(self):
        self.row("LIBVOICE_SIGNAL_cg_dt")[NUMBER] = "0x90073000"
        self.expect_fault("LIBVOICE_SIGNAL_cg_dt", "bit 31 is set")

    def test_an_unknown_kind_and_an_unknown_type(self):
        self.row("LIBVOICE_SIGNAL_cg_dt")[KIND] = "sound"
        self.row("LIBVOICE_PARAM_zil_country")[TYPE] = "text"
        self.expect_faults(
            (self.ids, self.line_of("LIBVOICE_SIGNAL_cg_dt"), 'unknown kind "sound"'),
            (self.ids, self.line_of("LIBVOICE_PARAM_zil_country"), 'unknown value type "text"'),
        )

    def test_a_class_that_is_not_the_kinds(self):
        self.row("LIBVOICE_SIGNAL_cg_dt")[NUMBER] = "0x20073000"
        self.expect_fault("LIBVOICE_SIGNAL_cg_dt", "class is 2, a signal has 1")
        self.row("LIBVOICE_SIGNAL_cg_dt")[NUMBER] = "0x30073000"
        self.expect_fault("LIBVOICE_SIGNAL_cg_dt", "class is 3, a signal has 1")

    def test_a_value_type_that_is_not_the_numbers(self):
        self.row("LIBVOICE_PARAM_zil_country")[TYPE] = "integer"
        self.expect_fault("LIBVOICE_PARAM_zil_country", "value type in the number is 2, integer is 1")

    def test_a_signal_with_and_a_parameter_without_a_value(self):
        row = self.row("LIBVOICE_SIGNAL_cg_dt")
        row[NUMBER], row[TYPE] = "0x11073000", "integer"
        self.expect_fault("LIBVOICE_SIGNAL_cg_dt", "a signal with a value type")
        row[NUMBER], row[TYPE] = "0x10073000", "none"
        row = self.row("LIBVOICE_PARAM_zil_country")
        row[NUMBER], row[TYPE] = "0x00FE000A", "none"
        self.expect_fault("LIBVOICE_PARAM_zil_country", "a property without a value type")

    def test_sub_items(self):
        self.row("LIBVOICE_SIGNAL_cg_dt")[NUMBER] = "0x10073001"
        self.expect_fault("LIBVOICE_SIGNAL_cg_dt", "sub-item is 0x01, a signal has 0")
        self.row("LIBVOICE_SIGNAL_cg_dt")[NUMBER] = "0x10073000"
        self.row("LIBVOICE_PARAM_zil_country")[NUMBER] = "0x02FE0000"
        self.expect_fault("LIBVOICE_PARAM_zil_country", "sub-item is 0")

    def test_the_one_irregular_parameter_stays_irregular(self):
        self.row("LIBVOICE_PARAM_zil_dect_property_sw_version")[NUMBER] = "0x22FE0503"
        self.expect_fault(
            "LIBVOICE_PARAM_zil_dect_property_sw_version", "sub-item is not 0 in the one parameter where it is"
        )

    def test_items(self):
        self.row("LIBVOICE_PARAM_zil_country")[NUMBER] = "0x02FE010A"
        self.expect_fault("LIBVOICE_PARAM_zil_country", "item is 0x01, a property has 0")
        self.row("LIBVOICE_PARAM_zil_country")[NUMBER] = "0x02FE000A"
        self.row("LIBVOICE_SIGNAL_cg_dt")[NUMBER] = "0x10070000"
        self.expect_fault("LIBVOICE_SIGNAL_cg_dt", "item is 0, a signal has one")

    def test_a_package_that_is_not_there_or_not_the_names(self):
        self.row("LIBVOICE_SIGNAL_cg_dt")[NUMBER] = "0x10083000"
        self.expect_fault("LIBVOICE_SIGNAL_cg_dt", "no package has the number 0x08")
        self.row("LIBVOICE_SIGNAL_cg_dt")[NUMBER] = "0x10063000"
        self.expect_fault("LIBVOICE_SIGNAL_cg_dt", 'name does not begin with "LIBVOICE_SIGNAL_dd_"')

    def test_a_name_of_another_form(self):
        for name in ("LIBVOICE_EVENT_cg_dt", "SIGNAL_cg_dt", "LIBVOICE_SIGNAL_cg_", "LIBVOICE_SIGNAL_cg_d t", ""):
            with self.subTest(name=name):
                rows = [list(row) for row in self.rows]
                line = self.line_of("LIBVOICE_SIGNAL_cg_dt")
                self.row("LIBVOICE_SIGNAL_cg_dt")[NAME] = name
                self.expect_faults((self.ids, line, 'name does not begin with "LIBVOICE_SIGNAL_cg_"'))
                self.rows = rows

    def test_a_parameter_without_its_signal_or_named_after_another(self):
        self.row("LIBVOICE_PARAM_al_ri_freq")[NUMBER] = "0x11090307"
        self.expect_fault("LIBVOICE_PARAM_al_ri_freq", "no signal has the number 0x10090300")
        line = self.line_of("LIBVOICE_PARAM_al_ri_freq")
        self.row("LIBVOICE_PARAM_al_ri_freq")[:2] = ["0x11090207", "LIBVOICE_PARAM_al_rx_freq"]
        self.expect_faults((self.ids, line, "name does not continue that of LIBVOICE_SIGNAL_al_ri"))

    def test_hex_contents(self):
        cases = (
            ("LIBVOICE_PARAM_al_ri_cad", "", "hex"),
            ("LIBVOICE_PARAM_al_ri_cad", "octets", "hex"),
            ("LIBVOICE_PARAM_al_ri_freq", "words", "integer"),
            ("LIBVOICE_PARAM_al_ri_freq", "x", "integer"),
        )
        for name, content, value_type in cases:
            with self.subTest(name=name, content=content):
                before = self.row(name)[HEX]
                self.row(name)[HEX] = content
                self.expect_fault(name, f'hex content "{content}" of a value of type {value_type}')
                self.row(name)[HEX] = before

    def test_meanings(self):
        row = self.row("LIBVOICE_SIGNAL_cg_dt")
        for short in ("", "one two three four", " dial tone", "dial tone "):
            with self.subTest(short=short):
                row[SHORT] = short
                self.expect_fault("LIBVOICE_SIGNAL_cg_dt", f'short meaning "{short}" is not one to three words')
        row[SHORT] = 'dial "tone"'
        self.expect_fault("LIBVOICE_SIGNAL_cg_dt", "short meaning holds a quote or a backslash")
        row[SHORT] = "dial tone"
        for meaning in ("", " blank", "ends */ here", "a | b"):
            with self.subTest(meaning=meaning):
                row[MEANING] = meaning
                self.expect_fault("LIBVOICE_SIGNAL_cg_dt", "meaning is empty, has outer blanks, or holds */ or |")

    def test_neighbours_with_one_short_meaning(self):
        above = self.rows[self.line_of("LIBVOICE_PARAM_zil_call_stats_tsLastTxRtpInUs") - 2]
        self.row("LIBVOICE_PARAM_zil_call_stats_tsLastTxRtpInUs")[SHORT] = above[SHORT]
        self.expect_fault(
            "LIBVOICE_PARAM_zil_call_stats_tsLastTxRtpInUs",
            f'short meaning "{above[SHORT]}" is that of the row above too',
        )

    def test_columns(self):
        line = self.line_of("LIBVOICE_SIGNAL_cg_dt")
        for columns in (6, 8):
            with self.subTest(columns=columns):
                rows = list(self.rows)
                self.rows[line - 1] = (self.rows[line - 1] + ["more"])[:columns]
                self.expect_faults(
                    (self.ids, line, f"{columns} columns, a row has 7"),
                    (self.ids, 266, "264 rows, the vocabulary has 265"),
                )
                self.rows = rows
        self.rows[0] = self.rows[0][:-1]
        self.expect_faults((self.ids, 1, "columns are not number,name,kind,value type,short,meaning,hex content"))

    def test_each_of_several_faults_is_named(self):
        self.row("LIBVOICE_SIGNAL_cg_rt")[NUMBER] = "0x90073100"
        self.row("LIBVOICE_SIGNAL_cg_dt")[HEX] = "words"
        self.expect_faults(
            (self.ids, self.line_of("LIBVOICE_SIGNAL_cg_dt"), 'hex content "words" of a value of type none'),
            (self.ids, self.line_of("LIBVOICE_SIGNAL_cg_rt"), "bit 31 is set"),
        )

    def test_wrong_packages(self):
        self.package_rows.append(["0x07", "xx", "Something", "somewhere"])
        self.package_rows.append(["0x08", "cg", "Something", "somewhere"])
        self.package_rows.append(["8", "yy", "Something", "somewhere"])
        self.package_rows.append(["0x08", "yy", "", "somewhere"])
        self.package_rows.append(["0x08", "yy", "Something"])
        self.expect_faults(
            (self.packages, 31, "3 columns, a row has 4"),
            (self.packages, 27, "package number 0x07 stands on an earlier line too"),
            (self.packages, 28, 'package name "cg" stands on an earlier line too'),
            (self.packages, 29, 'number "8" is not 0x and two upper-case hexadecimal digits'),
            (self.packages, 30, "name, title or source is empty"),
        )

    def test_a_file_that_is_not_there(self):
        result = subprocess.run(
            [sys.executable, HERE / "generate.py", "--ids", self.root / "none.csv"],
            capture_output=True,
            text=True,
            check=False,
        )
        self.assertEqual(result.returncode, 1)
        self.assertIn(f"{self.root / 'none.csv'}:", result.stderr)


if __name__ == "__main__":
    unittest.main()
