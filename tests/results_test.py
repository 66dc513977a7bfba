#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""tests/results.sh: what a long run counts of the parts that it consists of."""

import subprocess
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
# What ctest writes of two tests of which the program of one is missing: its status alone tells that from a skipped one.
ONE_NOT_RUN = '<testsuite name="x" tests="2" failures="0" disabled="0" skipped="1">\n</testsuite>\n'
ALL_RUN = '<testsuite name="x" tests="2" failures="0" disabled="0" skipped="0">\n</testsuite>\n'
ONE_FAILED = '<testsuite name="x" tests="2" failures="1" disabled="0" skipped="0">\n</testsuite>\n'


def run(command, path):
    """The shell with what long runs share, and a file as its first word."""
    return subprocess.run(
        ["bash", "-euo", "pipefail", "-c", f". cmake/setup.sh; . tests/results.sh; {command}", "run", path],
        cwd=ROOT,
        stdin=subprocess.DEVNULL,
        capture_output=True,
        text=True,
        timeout=30,
        check=False,
    )


class Results(unittest.TestCase):
    def count(self, report, status, not_run=0):
        """The last line of a run of one part, and the run's status."""
        with tempfile.TemporaryDirectory() as folder:
            results = Path(folder) / "results.xml"
            results.write_text(report, encoding="utf-8")
            done = run(f'count here tests "$1" {not_run} 1 {status}; show_table', results)
        return done.stdout.splitlines()[-1], done.returncode

    def test_all_passed(self):
        self.assertEqual(self.count(ALL_RUN, 0), ("2 passed, 0 failed", 0))

    def test_skipped_one_is_no_failure(self):
        self.assertEqual(self.count(ONE_NOT_RUN, 0), ("1 passed, 0 failed", 0))

    def test_program_that_is_missing_is_a_failure(self):
        self.assertEqual(self.count(ONE_NOT_RUN, 8), ("1 passed, 1 failed", 1))

    def test_status_alone_is_a_failure(self):
        self.assertEqual(self.count(ALL_RUN, 8), ("2 passed, 1 failed", 1))

    def test_failure_counts_once(self):
        self.assertEqual(self.count(ONE_FAILED, 8), ("1 passed, 1 failed", 1))

    def test_nothing_that_ran_is_a_failure(self):
        self.assertEqual(self.count("", 0), ("0 passed, 1 failed", 1))

    def not_run(self, command, rows):
        """What the shell says with a list of tests that are not run."""
        with tempfile.TemporaryDirectory() as folder:
            path = Path(folder) / "not_run.txt"
            path.write_text("".join(row + "\n" for row in rows), encoding="utf-8")
            done = run(command, path)
        return done.stdout.splitlines()

    def failures(self, lines):
        """What is shown of ctest's log, and that the run goes on then."""
        with tempfile.TemporaryDirectory() as folder:
            path = Path(folder) / "test.log"
            path.write_text("".join(line + "\n" for line in lines), encoding="utf-8")
            done = run('show_failures "$1"; say goes on', path)
        self.assertEqual(done.stdout, "goes on\n")
        return done.stderr.splitlines()

    def test_of_failures_300_lines_are_shown(self):
        self.assertEqual(self.failures(["wrong"] * 100000), ["wrong"] * 300)

    def test_nothing_is_shown_of_what_passed(self):
        passed = ["Test project /x", "", "      Start  1: a.b", " 1/20 Test  #1: a.b ...   Passed    0.01 sec"]
        self.assertEqual(self.failures(passed), [])

    def test_patterns_of_a_place_and_of_all(self):
        rows = ["# a list", "here | ^a\\. | because", "there | ^b\\. | because", "all | ^c\\.(d|e) | because"]
        self.assertEqual(self.not_run('not_run "$1" here', rows), ["^a\\.|^c\\.(d|e)"])
        self.assertEqual(self.not_run('not_run "$1" nowhere', rows[:3]), ["^$"])

    def test_row_that_fits_no_test_is_a_failure(self):
        look = "not_run_look \"$1\" here $'a.one\\nc.two'; show_table"
        self.assertEqual(self.not_run(look, ["here | ^a\\. | because"])[-1], "0 passed, 0 failed")
        told = self.not_run(look, ["here | ^a\\. | because", "here | ^b\\. | because"])
        self.assertEqual(told[-1], "0 passed, 1 failed")
        self.assertIn("no test ^b\\.", told[1])


if __name__ == "__main__":
    unittest.main()
