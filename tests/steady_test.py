#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""tests/steady: what it counts, and that a run without a report is none that passed."""

import contextlib
import importlib.machinery
import io
import os
import subprocess
import sys
import tempfile
import types
import unittest
from pathlib import Path
from unittest import mock

ROOT = Path(__file__).resolve().parent.parent
REPORT = '<testsuite><testcase name="a" status="run"/></testsuite>'


class Steady(unittest.TestCase):
    """tests/steady, without its build and with a ctest that one of its two sides does without."""

    def run_steady(self, sides_with_report):
        loader = importlib.machinery.SourceFileLoader("steady", str(ROOT / "tests" / "steady"))
        steady = types.ModuleType("steady")
        steady.__file__ = loader.path
        loader.exec_module(steady)

        def run(words, **_):
            results = Path(words[-1])
            if results.parent.name in sides_with_report:
                results.write_text(REPORT, encoding="utf-8")
            return subprocess.CompletedProcess(words, 0)

        with tempfile.TemporaryDirectory() as folder, contextlib.redirect_stdout(io.StringIO()):
            steady.BUILD = Path(folder)
            with (
                mock.patch.object(sys, "argv", ["steady", "-n", "1", "--quiet-machine"]),
                mock.patch.object(os, "sched_setaffinity"),
                mock.patch.object(subprocess, "run", run),
            ):
                return steady.main()

    def test_two_sides_that_pass(self):
        self.assertEqual(self.run_steady({"1", "2"}), 0)

    def test_side_without_a_report_is_no_success(self):
        with self.assertRaises(FileNotFoundError):
            self.run_steady({"1"})


if __name__ == "__main__":
    unittest.main()
