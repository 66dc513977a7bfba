#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The command line of kex_conformance, what it prints and how it ends."""

import fcntl
import os
import re
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

PROGRAM, BUS = sys.argv[1:3]
PAGE = Path(__file__).parents[2] / "docs" / "bind-your-own-bus.md"
LIMIT = 60


def run(*words, **environment):
    done = subprocess.run(
        [PROGRAM, *words],
        env={**os.environ, **environment},
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        text=True,
        timeout=LIMIT,
        check=False,
    )
    return done.returncode, done.stdout, done.stderr


def identifiers(*words):
    return [line.split()[0] for line in run("--list", *words)[1].splitlines()]


class Kit(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="kex-kit-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def expected(self, text, name="expected.txt"):
        path = self.folder / name
        path.write_text(text, encoding="utf-8")
        return str(path)

    def test_wrong_use(self):
        for words, why in (
            ([], "one library is wanted"),
            ([BUS, BUS], "one library is wanted"),
            ([""], "one library is wanted"),
            (["--only", "order,nonsense", BUS], "no check is called nonsense"),
            *((["--only", empty, BUS], "--only names no check") for empty in ("", ",", ",,")),
            (["--only", "order", "--alone", BUS], "no check is left"),
            *(
                (["--timeout", time, BUS], f"no time from 1 to 3600: {time}")
                for time in ("0", "3601", "-1", "1s", "", "99999999999999999999")
            ),
            (["--nonsense", BUS], "unrecognized option"),
            (["--only"], "requires an argument"),
            (["--expect", "/nowhere", BUS], "/nowhere: No such file"),
            (["--expect", str(self.folder), BUS], f"{self.folder}: Is a directory"),
            (["--expect", self.expected("order.nonsense why\n"), BUS], "expected.txt:1: no check is called so"),
            (["--expect", self.expected("# why\n\norder.one_way\n", "two.txt"), BUS], "two.txt:3: no reason is given"),
            (["--expect", self.expected("bytes.1 it is too long\n" * 65, "long.txt"), BUS], ":65: too many lines"),
        ):
            with self.subTest(words):
                status, output, error = run(*words)
                self.assertEqual((status, output), (2, ""))
                self.assertIn(why, error)

    def test_nothing_to_load(self):
        text = self.folder / "text.so"
        text.write_text("no library", encoding="utf-8")
        for library in ("/nowhere/libkex.so.1", str(text)):
            status, output, _ = run(library)
            self.assertEqual(status, 2)
            self.assertRegex(output, rf"\nBail out! {re.escape(library)}: .+\n$")

    def test_name_in_this_folder(self):
        """A name without a folder is a file's, as for any program, and not that of an installed library."""
        os.symlink(Path(BUS).resolve(), self.folder / "libmybus.so")
        before = os.getcwd()
        self.addCleanup(os.chdir, before)
        program = Path(PROGRAM).absolute()  # a link to what starts the emulator, where there is one
        os.chdir(self.folder)
        done = subprocess.run([program, "--only", "symbols", "libmybus.so"], capture_output=True, check=False)
        self.assertEqual(done.returncode, 0)
        done = subprocess.run([program, "libc.so.6"], capture_output=True, text=True, check=False)
        self.assertEqual(done.returncode, 2)
        self.assertRegex(done.stdout, r"\nBail out! \./libc\.so\.6: ")

    def test_choice(self):
        everything = identifiers()
        self.assertEqual(identifiers("--only", "bytes"), [name for name in everything if name.startswith("bytes.")])
        self.assertEqual(identifiers("--only", "order.one_way,bytes.1"), ["order.one_way", "bytes.1"])
        self.assertEqual(identifiers("--only", "bytes.102*"), ["bytes.1023", "bytes.1024", "bytes.1025"])
        self.assertNotIn("order.one_way", identifiers("--alone"))
        self.assertIn("timers.once", identifiers("--alone"))

    def test_report(self):
        status, output, error = run("--only", "variants.zero_filled,waits.late_reply", BUS)
        self.assertEqual((status, error), (0, ""))
        self.assertEqual(
            output.splitlines(),
            [
                "TAP version 13",
                "1..2",
                "ok 1 - variants.zero_filled",
                "  ---",
                "  level: MUST",
                '  sentence: "A zero-filled variant is valid (an empty text)."',
                '  saw: "type: 0; text: \\"\\""',
                "  ...",
                "ok 2 - waits.late_reply # SKIP only with --long",
                "# 2 checks: 1 hold, 0 do not, 1 left out",
            ],
        )

    def test_report_that_cannot_be_written(self):
        """Whoever reads nothing must not take it for a bus that keeps the contract; and nothing is run for nobody."""
        for words in (["--only", "symbols,order", BUS], ["--list"], ["--help"], ["--version"]):
            with self.subTest(words=words), open("/dev/full", "w", encoding="utf-8") as full:
                done = subprocess.run(
                    [PROGRAM, *words], stdout=full, stderr=subprocess.PIPE, text=True, timeout=LIMIT, check=False
                )
                said = "kex_conformance: standard output cannot be written: No space left on device\n"
                self.assertEqual((done.returncode, done.stderr), (2, said))

    def test_expected_failure_that_holds(self):
        words = ["--only", "bytes.0,bytes.1", BUS]
        status, output, _ = run("--expect", self.expected("bytes.1  cannot be\n"), *words)
        self.assertEqual(status, 1)
        self.assertIn("\nnot ok 2 - bytes.1\n  ---\n  level: MUST\n", output)
        self.assertIn('why: "it holds, although it is expected to fail"', output)
        self.assertIn("# 2 checks: 1 hold, 1 do not\n# bytes.1\n", output)

    def test_no_folder(self):
        status, output, error = run("--only", "bytes.0", BUS, TMPDIR=str(self.folder / "missing"))
        self.assertEqual((status, output), (2, ""))
        self.assertRegex(error, r"a check cannot be started in \S+/missing/\S+: No such file or directory")

    def test_folder_with_the_longest_name(self):
        """As long as a socket's address lets it be: what fails is the folder, not the bus."""
        longest = self.folder / ("x" * (107 - len("/kexcheck-XXXXXX/missing/bus") - len(str(self.folder)) - 1))
        longest.mkdir()
        self.assertEqual(run("--only", "listening", BUS, TMPDIR=str(longest))[0], 0)
        status, output, error = run("--only", "bytes.0", BUS, TMPDIR=f"{longest}x")
        self.assertEqual((status, output), (2, ""))
        self.assertIn("File name too long", error)

    def test_leaves_nothing(self):
        status, _, _ = run("--only", "listening,texts", BUS, TMPDIR=str(self.folder))
        self.assertEqual((status, list(self.folder.iterdir())), (0, []))

    def test_killed_one_leaves_its_folder_to_the_next(self):
        """But not a folder that is in use, that is new, or that another program has named so."""
        left, used, new = (self.folder / f"kexcheck-{name * 6}" for name in "abc")
        other = self.folder / "kexcheck-abcdefg"
        for folder in (left, used, new, other):
            (folder / "missing").mkdir(parents=True)
            (folder / "bus").touch()
        for folder in (left, used, other):
            os.utime(folder, (0, 0))
        holder = os.open(used, os.O_RDONLY)
        self.addCleanup(os.close, holder)
        fcntl.flock(holder, fcntl.LOCK_EX)
        self.assertEqual(run("--only", "bytes.0", BUS, TMPDIR=str(self.folder))[0], 0)
        self.assertEqual(sorted(self.folder.iterdir()), sorted([used, new, other]))

    def test_page(self):
        """The steps of the page prove everything, once; what it shows is what is printed."""
        page = PAGE.read_text(encoding="utf-8")
        steps = re.findall(r"^Prove it: `kex_conformance --only ([a-z,]+) ", page, re.MULTILINE)
        groups = list(dict.fromkeys(name.split(".")[0] for name in identifiers()))
        self.assertEqual(sorted(",".join(steps).split(",")), sorted(groups))
        shown = page.split("```\n$ kex_conformance libkex.so.1\n")[1].split("```")[0]
        printed = run("--only", "symbols.imports", BUS)[1].replace("\n1..1\n", f"\n1..{len(identifiers())}\n")
        self.assertEqual(shown, printed.split("# 1 checks")[0])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
