#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The command line of kex_conformance: what is chosen, what is refused, and the status."""

import os
import re
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

PROGRAM, LIBRARY = sys.argv[1], sys.argv.pop(2)
del sys.argv[1]
LIMIT = 100
FEW = ["--only", "variants.copied,bytes.1"]  # alone, and with a second process


def run(*words, folder=None, place=None):
    environment = {**os.environ, "TMPDIR": folder} if folder is not None else None
    return subprocess.run(
        [Path(PROGRAM).absolute(), *map(str, words)],
        capture_output=True,
        text=True,
        timeout=LIMIT,
        check=False,
        env=environment,
        cwd=place,
    )


def ran(output):
    return re.findall(r"^(?:not )?ok \d+ - (\S+)", output, re.MULTILINE)


class Options(unittest.TestCase):
    def expect_refused(self, done, why):
        self.assertEqual((done.returncode, ran(done.stdout)), (2, []), done.stderr)
        self.assertRegex(done.stderr, why)

    def expect_ran(self, done, *checks):
        self.assertEqual((done.returncode, ran(done.stdout)), (0, list(checks)), done.stdout + done.stderr)

    def test_checks_groups_and_patterns(self):
        self.expect_ran(run(*FEW, LIBRARY), "variants.copied", "bytes.1")
        self.expect_ran(run(*FEW, "--alone", LIBRARY), "variants.copied")
        self.expect_ran(run("--only", "bytes.102*", LIBRARY), "bytes.1023", "bytes.1024", "bytes.1025")
        names = [line.split()[0] for line in run("--list", "--only", "texts").stdout.splitlines()]
        self.assertGreater(len(names), 3)
        self.assertEqual({name.split(".")[0] for name in names}, {"texts"})

    def test_nothing_checked_is_no_success(self):
        self.expect_refused(run("--only", "nobody", LIBRARY), "no check is called nobody")
        for empty in ("", ",", ",,"):
            self.expect_refused(run("--only", empty, LIBRARY), "--only names no check")
        self.expect_refused(run("--only", "order", "--alone", LIBRARY), "no check is left")

    def test_wrong_use(self):
        self.expect_refused(run(), "one library is wanted")
        self.expect_refused(run(LIBRARY, LIBRARY), "one library is wanted")
        self.expect_refused(run(""), "one library is wanted")
        self.expect_refused(run("--nonsense", LIBRARY), "nonsense")
        for time in ("0", "3601", "-1", "1s", "", "99999999999999999999"):
            self.expect_refused(run("--timeout", time, LIBRARY), "no time from 1 to 3600")

    def test_what_cannot_be_loaded(self):
        done = run("/nowhere/libkex.so")
        self.assertEqual((done.returncode, ran(done.stdout)), (2, []))
        self.assertRegex(done.stdout, r"(?m)^Bail out! /nowhere/libkex\.so: ")

    def test_name_is_one_of_this_folder(self):
        """Not one of the system's libraries, however it is called."""
        done = run("libc.so.6")
        self.assertEqual((done.returncode, ran(done.stdout)), (2, []))
        self.assertRegex(done.stdout, r"(?m)^Bail out! \./libc\.so\.6: ")
        self.expect_ran(run(*FEW, Path(LIBRARY).name, place=Path(LIBRARY).parent), "variants.copied", "bytes.1")

    def test_expected_failures(self):
        with tempfile.TemporaryDirectory() as folder:
            path = Path(folder, "expected")
            for text, why in (
                ("nobody it is no check\n", ":1: no check is called so"),
                ("# a comment\n\nbytes.1\n", ":3: no reason is given"),
                ("bytes.1 it is too long\n" * 65, ":65: too many lines"),
            ):
                path.write_text(text)
                self.expect_refused(run("--expect", path, LIBRARY), why)
            self.expect_refused(run("--expect", Path(folder, "missing"), LIBRARY), "No such file")
            path.write_text("bytes.1 it holds here\n")
            done = run("--expect", path, *FEW, LIBRARY)
            self.assertEqual(done.returncode, 1, done.stdout)
            self.assertRegex(done.stdout, r"(?m)^not ok 2 - bytes\.1$")
            self.assertIn("it holds, although it is expected to fail", done.stdout)

    def test_folder(self):
        with tempfile.TemporaryDirectory() as parent:
            self.expect_ran(run(*FEW, LIBRARY, folder=parent), "variants.copied", "bytes.1")
            self.assertEqual(os.listdir(parent), [], "what the checks made is gone")
            # As long as a socket's address lets it be: what fails is the folder, not the bus.
            longest = Path(parent, "x" * (107 - len("/kex-XXXXXX/missing/bus") - len(parent) - 1))
            longest.mkdir()
            self.expect_ran(
                run("--only", "listening", LIBRARY, folder=longest), *ran(run("--only", "listening", LIBRARY).stdout)
            )
            self.expect_refused(run(*FEW, LIBRARY, folder=f"{longest}x"), "File name too long")
            self.expect_refused(run(*FEW, LIBRARY, folder=f"{parent}/missing"), "No such file")


if __name__ == "__main__":
    unittest.main()
