#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The installed manual pages say what the installed programs do: their options, commands and environment."""

import gzip
import re
import subprocess
import tempfile
import unittest

from staged import BIN, HOSTS, LIMIT, MAN, PROGRAMS, SOURCE, clean_environment, run

FOLDERS = {"voicectl": ["tool"], "kex_conformance": ["conformance"]}  # of those that are no hosts
OPTION = re.compile(r"(?<![\w-])--?[a-zA-Z][\w-]*")
VARIABLE = r"(?:(?:ZIL|KEX|LISTEN|NO|NOTIFY|WATCHDOG)_[A-Z_]+|COLUMNS|TERM|TMPDIR)"
MISQUOTED = re.compile("‘[^’]*(?:‘|, )[^’]*’")


def page(program):
    plain = MAN / "man1" / f"{program}.1"
    return plain if plain.exists() else plain.with_suffix(".1.gz")


def source(program):
    packed = page(program)
    return gzip.decompress(packed.read_bytes()).decode() if packed.suffix == ".gz" else packed.read_text()


def lines(program, section):
    """The lines of one section or subsection, up to the next."""
    found = re.search(rf"^\.S[hs] {section}$\n(.*?)(?=^\.S[hs] |\Z)", source(program), re.MULTILINE | re.DOTALL)
    assert found, f"{program}: no section {section}"
    return found[1].splitlines()


def flags(words):
    """The options in a macro line: what stands behind "Fl", "-name" being "--name"."""
    return {f"-{name}" for name in re.findall(r"\bFl (-?[a-zA-Z][\w-]*)", words)}


def macro_words(text, macros):
    """Every word that one of the macros marks as something to type."""
    found = set()
    for line in text:
        for macro in macros:
            for words in re.findall(rf"(?<![\w-]){macro} ([a-z_ ,]+)", line):
                found.update(re.findall(r"[a-z]+", words))
    return found


def variables(*folders):
    found = set()
    for folder in folders:
        for path in (SOURCE / folder).rglob("*.cpp"):
            if "tests" not in path.parts[len(SOURCE.parts) :]:
                found.update(re.findall(f'"({VARIABLE})"', path.read_text()))
    return found


def documented_variables(program):
    return {
        name
        for line in lines(program, "ENVIRONMENT")
        if line.startswith(".It Ev ")
        for name in re.findall(r"[A-Z_]+", line[7:])
    }


def help_of(program):
    """What --help tells, of the subcommands too."""
    usage = run(BIN / program, "--help")
    for subcommand in re.findall(r"^  ([a-z]+) ", usage.partition("Subcommands:")[2], re.MULTILINE):
        usage += run(BIN / program, subcommand, "--help")
    return usage


class Install(unittest.TestCase):
    def setUp(self):
        self.maxDiff = None

    def test_manual_lint(self):
        for program in PROGRAMS:
            with self.subTest(program):
                run("mandoc", "-T", "lint", "-W", "warning", page(program))

    def test_manual_options(self):
        """The options of --help, and no others, each with a paragraph and in the synopsis."""
        for program in PROGRAMS:
            with self.subTest(program):
                usage = help_of(program)
                items = [flags(line) for line in source(program).splitlines() if line.startswith(".It Fl ")]
                self.assertEqual(set().union(*items), set(OPTION.findall(usage)))
                synopsis = set()
                for name in flags("\n".join(lines(program, "SYNOPSIS"))):
                    synopsis |= {name} if name.startswith("--") else {f"-{letter}" for letter in name[1:]}
                self.assertEqual([item for item in items if not item & synopsis], [], "not in the synopsis")

    def test_manual_commands(self):
        """The commands that a host tells when asked for help, and no others."""
        for program in HOSTS:
            with self.subTest(program), tempfile.TemporaryDirectory(prefix="voice-manual-") as folder:
                done = subprocess.run(
                    [BIN / program, "--socket", f"{folder}/bus"],
                    input="help\nquit\n",
                    text=True,
                    stdout=subprocess.PIPE,
                    env=clean_environment(),
                    timeout=LIMIT,
                    check=True,
                )
                answer = "\n".join(line for line in done.stdout.splitlines() if not re.match(r"ok$|ready ", line))
                told = set(re.findall(r"\b[a-z]+\b", answer)) | {"help"}
                documented = lines(program, "Commands")
                self.assertEqual(
                    macro_words([line for line in documented if line.startswith(".It ")], ["Ic", "Cm"]), told
                )

    def test_manual_environment(self):
        """The variables of --help, which are those that the program reads, and no others."""
        for program in PROGRAMS:
            with self.subTest(program):
                read = variables(*FOLDERS.get(program, ["src", "bus/src", "hosts"]))
                self.assertEqual(documented_variables(program), read)
                self.assertEqual(set(re.findall(rf"\b{VARIABLE}\b", help_of(program))), read)

    def test_manual_quotes(self):
        """No quotation inside another one, and none around a list."""
        for wrong in ("‘from, ‘to’’", "‘FXS1, fxs1.FXS1’"):
            self.assertRegex(wrong, MISQUOTED)
        for right in ("‘from’, ‘to’", "‘LIBV=500,SIGNAL=400’"):
            self.assertNotRegex(right, MISQUOTED)
        for program in PROGRAMS:
            with self.subTest(program):
                text = re.sub(".\b", "", run("mandoc", "-T", "utf8", page(program)))
                self.assertEqual(MISQUOTED.findall(text), [])


if __name__ == "__main__":
    unittest.main()
