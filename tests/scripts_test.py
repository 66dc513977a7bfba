#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""./test and ./demo: what they answer at once, how they show progress, and how two of them share a build tree."""

import os
import re
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

from terminal import Terminal

ROOT = Path(__file__).resolve().parent.parent
SETUP = f'cd "{ROOT}"; . cmake/setup.sh; '
LIMIT = 30


def first_words(name):
    rows = (ROOT / "tests" / name).read_text(encoding="utf-8").splitlines()
    return [row.split()[0] for row in rows if re.match(r"[a-z]", row)]


def suites():
    return first_words("suites.txt")


def long_runs():
    return first_words("long_runs.txt")


class Scripts(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.tree = self.folder / "no tree"

    def run_script(self, *words, **environment):
        """Without its build tree, so that one that builds is noticed."""
        done = subprocess.run(
            [ROOT / words[0], *words[1:]],
            cwd="/",
            env={**os.environ, "VOICE_BUILD_DIR": str(self.tree), **environment},
            stdin=subprocess.DEVNULL,
            capture_output=True,
            text=True,
            timeout=LIMIT,
            check=False,
        )
        self.assertFalse(self.tree.exists(), words)
        return done

    def shell(self, script, **options):
        """What a piece of the shared set-up prints, in a pipe."""
        done = subprocess.run(
            ["bash", "-euo", "pipefail", "-c", SETUP + script],
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
            timeout=LIMIT,
            check=False,
            **options,
        )
        return done.returncode, done.stdout

    def on_a_terminal(self, script, terminal):
        screen = Terminal()
        with screen.start(
            ["bash", "-euo", "pipefail", "-c", SETUP + script],
            env={**os.environ, "TERM": terminal},
            stdin=subprocess.DEVNULL,
            stderr=subprocess.STDOUT,
        ) as process:
            self.assertEqual(process.wait(LIMIT), 0)
        return screen.finish().decode()

    # ------------------------------------------------------------------------------------------------ At once

    def test_list_names_every_suite(self):
        done = self.run_script("test", "--list")
        self.assertEqual(done.returncode, 0)
        named = [row.split()[0] for row in done.stdout.partition("Long runs:")[0].splitlines()]
        self.assertEqual(named, suites() + ["format", "library", "processors", "tidy", "builds"])
        self.assertTrue(all(len(row.split()) > 1 for row in done.stdout.splitlines()), done.stdout)

    def test_what_does_not_exist_is_named(self):
        for words, wanted in [
            (["test", "unti"], "there is no suite 'unti'"),
            (["test", "unit", "a b"], "there is no suite 'a b'"),
            (["test", ""], "there is no suite ''"),
            (["test", "--fast"], "there is no option --fast"),
            (["test", "-k"], "-k needs a name"),
            (["test", "-k", ""], "-k needs a name"),
            (["test", "format", "-k", "AddParam"], "--list and -k are about tests"),
            (["test", "--list", "unit", "tidy"], "--list and -k are about tests"),
            (["test", "--list", "nothing"], "there is no suite 'nothing'"),
            (["demo", "--fast"], "there is no '--fast'"),
            (["demo", "now"], "there is no 'now'"),
            (["bench/run", "buses"], "there is no 'buses'"),
            (["bench/run", "--twice"], "there is no '--twice'"),
            (["bench/run", "heap", "all"], "there is no 'all'"),
            (["bench/run", "memory", "all"], "there is no 'all'"),
            (["bench/run", "sound", "all"], "there is no 'all'"),
            (["bench/run", "size", "arm"], "there is no 'arm'"),
            (["bench/run", "instructions", "all"], "there is no 'all'"),
            (["bench/run", "instructions", "--accept"], "--accept needs a reason"),
            (["bench/run", "instructions", "--accept", "less", "heap"], "there is no 'heap'"),
            (["tests/coverage/run", "--fast"], "there is no '--fast'"),
            (["tests/steady", "--fast"], "unrecognized arguments: --fast"),
            (["tests/steady", "-n", "0"], "-n needs a number from 1"),
        ]:
            with self.subTest(words):
                done = self.run_script(*words)
                self.assertEqual(done.returncode, 2)
                self.assertIn(wanted, done.stderr)
                self.assertIn("usage: ", done.stderr)
                self.assertEqual(done.stdout, "")

    def test_help_names_what_runs_without_a_suite(self):
        text = (ROOT / "test").read_text(encoding="utf-8")
        checks = re.findall(r"^if by_default (\w+)", text, re.M)
        self.assertGreater(len(checks), 1)
        text = self.run_script("test", "--help").stdout
        told = re.search(r"Without one: (.*) and every test but those of bench\.", text).group(1)
        self.assertEqual(told.split(", "), checks)

    def test_help_is_an_answer(self):
        for script in ("test", "demo", "bench/run", "tests/steady"):
            for word in ("--help", "-h"):
                with self.subTest(f"{script} {word}"):
                    done = self.run_script(script, word)
                    self.assertEqual((done.returncode, done.stderr), (0, ""))
                    self.assertRegex(done.stdout, f"^usage: (./)?{script}")

    def test_every_long_run_is_listed_and_explains_itself(self):
        listed = self.run_script("test", "--list").stdout.partition("Long runs:\n")[2]
        self.assertGreater(len(long_runs()), 1)
        self.assertEqual([row.split()[0] for row in listed.splitlines()], long_runs())
        for name in long_runs():
            with self.subTest(name):
                done = self.run_script("test", name, "--help")
                self.assertEqual((done.returncode, done.stderr), (0, ""))
                self.assertRegex(done.stdout, "^usage: ")
                wrong = self.run_script("test", name, "--no-such-option")
                self.assertEqual((wrong.returncode, wrong.stdout), (2, ""))

    def test_long_run_with_a_wrong_option_installs_nothing(self):
        """On a machine where every package is missing."""
        for name, does in {
            "id": "echo 0",
            "dpkg-query": "exit 0",
            "apt-get": f'echo "$@" >>{self.folder}/asked; exit 1',
        }.items():
            (self.folder / name).write_text(f"#!/bin/sh\n{does}\n")
            (self.folder / name).chmod(0o755)
        path = {"PATH": f"{self.folder}:{os.environ['PATH']}"}
        for name in long_runs():
            with self.subTest(name):
                self.assertEqual(self.run_script("test", name, "--no-such-option", **path).returncode, 2)
                self.assertFalse((self.folder / "asked").exists())
        self.assertEqual(self.run_script("test", "kills", "1", **path).returncode, 1)
        self.assertIn(" install ", (self.folder / "asked").read_text(encoding="utf-8"))

    def test_every_test_belongs_to_a_suite(self):
        done = subprocess.run(
            ["ctest", "--test-dir", os.environ["VOICE_BUILD"], "-N"], capture_output=True, text=True, check=True
        )
        names = re.findall(r"^ *Test +#\d+: (\S+)", done.stdout, re.MULTILINE)
        self.assertTrue("scripts.scripts" in names)
        strays = {name for name in names if re.split(r"[./]", name)[0] not in suites()}
        self.assertEqual({name for name in strays if not name.endswith("_NOT_BUILT")}, set())

    def test_every_test_that_a_build_can_have_belongs_to_a_suite(self):
        """Those too that an option leaves out of this build."""
        named = suites()
        self.assertEqual(sorted(set(named)), sorted(named))
        found = set()
        for file in ROOT.rglob("CMakeLists.txt"):
            if not any(part.startswith(("build", ".")) for part in file.relative_to(ROOT).parts):
                text = file.read_text(encoding="utf-8")
                found |= set(re.findall(r"add_test\(NAME (\w+)[./]|TEST_PREFIX \"(\w+)[./]", text))
        found = {one or other for one, other in found}
        self.assertLessEqual({"bench", "unit", "install"}, found)
        self.assertEqual(found - set(named), set())

    # -------------------------------------------------------------------------------------------- Chosen by name

    TESTS = {"unit.A.One": "true", "unit.B.One": "false", "hosts.A.One": "true", "seeds.a/One": "true"}

    def run_chosen(self, *words):
        """./test on a build tree whose tests were built by hand: status, last row, names of those that ran."""
        self.tree.mkdir(exist_ok=True)
        rules = "".join(f"build suite_{name}: phony\n" for name in suites())
        (self.tree / "build.ninja").write_text(f"build all: phony\n{rules}")
        options = "".join(f"VOICE_{name}:BOOL=ON\n" for name in ("TESTS", "HOSTS", "TOOL", "CONFORMANCE", "WERROR"))
        (self.tree / "CMakeCache.txt").write_text(
            f"{options}CMAKE_GENERATOR:INTERNAL=Ninja\nCMAKE_MAKE_PROGRAM:FILEPATH={shutil.which('ninja')}\n"
            f"CMAKE_PROJECT_NAME:STATIC=voice_plugin\nCMAKE_HOME_DIRECTORY:INTERNAL={ROOT}\n"
            f"CMAKE_CACHEFILE_DIR:INTERNAL={self.tree}\n"
        )
        rows = "".join(f"add_test([=[{name}]=] {command})\n" for name, command in self.TESTS.items())
        (self.tree / "CTestTestfile.cmake").write_text(rows + "add_test(unbuilt_NOT_BUILT unbuilt_NOT_BUILT)\n")
        done = subprocess.run(
            [ROOT / "test", *words],
            env={**os.environ, "VOICE_BUILD_DIR": str(self.tree)},
            stdin=subprocess.DEVNULL,
            capture_output=True,
            text=True,
            timeout=LIMIT,
            check=False,
        )
        log = self.tree / "test.log"
        ran = re.findall(r"Test +#\d+: (\S+)", log.read_text()) if log.exists() else []
        log.unlink(missing_ok=True)
        return done, ran

    def test_name_fits_anywhere(self):
        for words, status, wanted in [
            (["unit"], 1, {"unit.A.One", "unit.B.One"}),
            (["unit", "-k", "A"], 0, {"unit.A.One"}),
            (["unit", "-k", "t.A"], 0, {"unit.A.One"}),
            (["unit", "-k", "^unit.A.One$"], 0, {"unit.A.One"}),
            (["unit", "seeds", "-k", "[aA]..?One"], 0, {"unit.A.One", "seeds.a/One"}),
            (["-k", "s.A"], 0, {"hosts.A.One"}),
            (["seeds"], 0, {"seeds.a/One"}),
        ]:
            with self.subTest(words):
                done, ran = self.run_chosen(*words)
                self.assertEqual((set(ran), done.returncode), (wanted, status), done.stderr)
                self.assertRegex(done.stdout, rf"{len(wanted) - status} passed, {status} failed\n$")

    def test_name_of_no_test_is_said(self):
        for words, wanted in [
            (["unit", "-k", "hosts"], "./test: no test of unit has a name that contains 'hosts'"),
            (["-k", "Two"], "./test: no test has a name that contains 'Two'"),
            (["unit", "-k", "["], "./test: no test of unit has a name that contains '['"),
        ]:
            with self.subTest(words):
                done, ran = self.run_chosen(*words)
                self.assertEqual((done.returncode, done.stderr.strip(), ran), (2, wanted, []))
                self.assertNotIn("passed", done.stdout)

    def test_list_of_a_suite_names_its_tests(self):
        done, ran = self.run_chosen("--list", "unit")
        self.assertEqual((done.returncode, done.stdout, ran), (0, "unit.A.One\nunit.B.One\n", []))
        done, ran = self.run_chosen("--list", "-k", "A.One")
        self.assertEqual((done.returncode, done.stdout, ran), (0, "unit.A.One\nhosts.A.One\n", []))

    # ------------------------------------------------------------------------------------------------ Progress

    def shown_command(self):
        """A command that goes on when each of its rows has been looked at, however slow the machine is: looks are quick
        here and counted, and one is over when the next one has begun."""
        looks = self.folder / "looks"
        looks.touch()
        command = self.folder / "command"
        command.write_text(
            f"count() {{ wc -l <'{looks}'; }}\n"
            'for i in 1 2 3; do echo "[$i/3] making"; echo beside; before=$(count)\n'
            "while [ $(count) -lt $((before + 2)) ]; do sleep 0.02; done; done; exit 3\n"
        )
        return (
            f"pause() {{ sleep 0.05; echo >>'{looks}'; }}; "
            f"run_logged '{self.folder}/log' bash '{command}' || echo status $?"
        )

    def test_progress_in_a_pipe(self):
        status, output = self.shell(self.shown_command())
        self.assertEqual(status, 0)
        rows = output.splitlines()
        self.assertIn("  [2/3] making", rows)
        self.assertEqual(rows[-1], "status 3")
        self.assertNotIn("\x1b", output)
        self.assertNotIn("  beside", rows)
        self.assertEqual((self.folder / "log").read_text().splitlines()[::2], [f"[{i}/3] making" for i in (1, 2, 3)])

    def test_progress_on_a_terminal(self):
        shown = self.on_a_terminal(self.shown_command(), "xterm")
        self.assertIn("\r\x1b[K  [2/3] making", shown)
        self.assertTrue(shown.endswith("\r\x1b[Kstatus 3\r\n"), repr(shown))
        self.assertNotIn("\x1b", self.on_a_terminal(self.shown_command(), "dumb"))

    def test_quick_command_shows_nothing(self):
        self.assertEqual(self.shell(f"run_logged '{self.folder}/log' echo done"), (0, ""))

    # ---------------------------------------------------------------------------------------------- Build trees

    def test_second_user_of_a_tree_waits(self):
        script = (
            f"( tree_lock '{self.tree}'; : >'{self.folder}/held'; sleep 1; echo first ) & "
            f"while [ ! -e '{self.folder}/held' ]; do sleep 0.05; done; tree_lock '{self.tree}'; echo second; wait"
        )
        status, output = self.shell(script)
        self.assertEqual(status, 0)
        waiting = f"Waiting for another ./test or ./demo that works in {self.tree}"
        self.assertEqual(output.splitlines(), [waiting, "first", "second"])

    def test_process_that_is_left_behind_does_not_hold_the_tree(self):
        left = f"bash -c 'sleep {LIMIT} >/dev/null 2>&1 & echo $! >{self.folder}/pid'"
        script = (
            f"tree_lock '{self.tree}'; run_logged '{self.folder}/log' {left}; tree_unlock; "
            f"tree_lock '{self.tree}'; kill $(cat '{self.folder}/pid'); echo free"
        )
        self.assertEqual(self.shell(script), (0, "free\n"))

    def test_changed_options_configure_again(self):
        self.tree.mkdir()
        (self.tree / "build.ninja").touch()
        (self.tree / "CMakeCache.txt").write_text("VOICE_TESTS:BOOL=OFF\nCMAKE_CXX_FLAGS:STRING=-O2 -a.c\n")
        for options, wanted in [
            ("", 0),
            ("-DVOICE_TESTS=OFF", 0),
            ("-DVOICE_TESTS=ON", 1),
            ("-DVOICE_TEST=OFF", 1),
            ("-DVOICE_TESTS=OFF '-DCMAKE_CXX_FLAGS=-O2 -a.c'", 0),
            ("'-DCMAKE_CXX_FLAGS=-O2 -abc'", 1),
        ]:
            with self.subTest(options):
                script = f"is_configured '{self.tree}' {options} && echo 0 || echo 1"
                self.assertEqual(self.shell(script), (0, f"{wanted}\n"))

    def test_tree_of_another_generator_is_made_anew(self):
        """As `cmake -S . -B build` makes it where make is installed; this generator needs no other program."""
        project = self.folder / "project"
        project.mkdir()
        (project / "CMakeLists.txt").write_text("cmake_minimum_required(VERSION 3.25)\nproject(p LANGUAGES NONE)\n")
        subprocess.run(
            ["cmake", "-S", project, "-B", self.tree, "-G", "Ninja Multi-Config", "-DVOICE_TOOL=OFF"],
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
            check=True,
        )
        again = f"configure_from '{project}' '{self.tree}' -DVOICE_TESTS=OFF"
        self.assertEqual(self.shell(f"{again}; {again}"), (0, f"Configuring {self.tree}\n"))
        cache = (self.tree / "CMakeCache.txt").read_text(encoding="utf-8")
        self.assertIn("CMAKE_GENERATOR:INTERNAL=Ninja\n", cache)
        self.assertNotIn("VOICE_TOOL", cache)

    def test_tree_without_what_is_needed_gets_it(self):
        """As the guide for plugins makes it, without tool and tests."""
        told = self.folder / "told"
        (self.folder / "cmake").write_text(f'#!/bin/sh\necho "$@" >>"{told}"\nexit 1\n')
        (self.folder / "cmake").chmod(0o755)
        self.tree.mkdir()
        (self.tree / "build.ninja").touch()
        without = {"TOOL": "OFF", "TESTS": "OFF", "HOSTS": "ON"}
        programs = {"TOOL=ON", "HOSTS=ON", "TESTS=OFF"}
        environment = {**os.environ, "VOICE_BUILD_DIR": str(self.tree), "PATH": f"{self.folder}:{os.environ['PATH']}"}
        environment.pop("VOICE_BIN", None)
        for words, options, wanted in [
            (["demo"], without, programs),
            (["demo"], {"TOOL": "ON", "TESTS": "ON", "HOSTS": "ON"}, None),
            (["test", "scripts"], without, {"TOOL=ON", "HOSTS=ON", "TESTS=ON", "CONFORMANCE=ON"}),
            (["test", "faults"], without, programs),
            (["test", "kills", "1"], {}, programs),
        ]:
            with self.subTest(f"{words} {options}"):
                rows = "".join(f"VOICE_{name}:BOOL={value}\n" for name, value in options.items())
                (self.tree / "CMakeCache.txt").write_text("CMAKE_GENERATOR:INTERNAL=Ninja\n" + rows)
                told.unlink(missing_ok=True)
                done = subprocess.run(
                    [ROOT / words[0], *words[1:]],
                    env=environment,
                    stdin=subprocess.DEVNULL,
                    capture_output=True,
                    timeout=LIMIT,
                    check=False,
                )
                self.assertEqual(done.returncode, 1)
                self.assertTrue(told.exists(), "nothing was built")
                first = told.read_text(encoding="utf-8").splitlines()[0]
                if wanted is None:
                    self.assertRegex(first, "^--build ")
                else:
                    self.assertLessEqual({f"-DVOICE_{option}" for option in wanted}, set(first.split()))

    def test_packages_that_cmake_does_not_find_are_named(self):
        """With how to build without them."""
        missing = [f"-DCMAKE_DISABLE_FIND_PACKAGE_{name}=ON" for name in ("fmt", "GTest")]
        done = subprocess.run(
            ["cmake", "-S", ROOT, "-B", self.tree, "-G", "Ninja", *missing],
            capture_output=True,
            text=True,
            timeout=LIMIT,
            check=False,
        )
        self.assertEqual(done.returncode, 1)
        said = " ".join(done.stderr.split())
        self.assertIn("Packages are missing, in Debian: libfmt-dev libgtest-dev libgmock-dev. ", said)
        self.assertIn("-DVOICE_TESTS=OFF -DVOICE_TOOL=OFF builds without voicectl and tests.", said)

    # ------------------------------------------------------------------------------------------------- Packages

    def test_demonstration_needs_no_package_of_the_tests(self):
        _, demo = self.shell("packages build demo")
        _, everything = self.shell("packages build demo tests format tidy builds")
        self.assertEqual(demo.split(), ["cmake", "g++", "libcli11-dev", "libfmt-dev", "ninja-build", "python3"])
        for package in ("clang-format", "clang-tidy", "gcovr", "libgtest-dev", "shellcheck", "tshark"):
            self.assertIn(package, everything.split())

    def test_every_package_stands_in_a_group_that_a_script_installs(self):
        rows = (ROOT / "packages.txt").read_text(encoding="utf-8").splitlines()
        groups = [row[1:-1] for row in rows if row.startswith("[")]
        self.assertEqual(
            groups,
            [
                "build",
                "demo",
                "tests",
                "judges",
                "format",
                "tidy",
                "builds",
                "processors",
                "targets",
                "fuzz",
                "sanitizers",
                "soak",
                "sdbus",
                "bench",
            ],
        )
        scripts = "".join((ROOT / name).read_text(encoding="utf-8") for name in ("test", "demo", "bench/run"))
        runs = re.findall(r"^\w+ *\|[^|]*\|([^|]*)\|", (ROOT / "tests/long_runs.txt").read_text("utf-8"), re.M)
        for group in groups:
            if group not in " ".join(runs).split():
                self.assertRegex(scripts, rf"(install_packages|groups=\(|groups\+=\()[^\n]*\b{group}\b")

    def test_every_test_of_real_processes_runs_on_musl_or_is_named_as_not_run(self):
        run = (ROOT / "tests/targets/run").read_text("utf-8")
        names = re.search(r"^CALLS=.*?{([\w,]+)}.*?^WITH_MUSL=.*?{([\w,]+)}", run, re.M | re.S)
        tried = {name for group in names.groups() for name in group.split(",")}
        rows = (ROOT / "tests/targets/not_run.txt").read_text("utf-8").splitlines()
        patterns = [row.split(" | ")[1] for row in rows if row.startswith("musl ")]
        for file in (ROOT / "tests/integration").glob("*_test.*"):
            name = file.stem.removesuffix("_test")
            is_named = any(re.search(pattern, f"integration.{name}.x") for pattern in patterns)
            self.assertNotEqual(name in tried, is_named, name)

    def test_what_is_not_run_on_sd_bus_is_there_and_has_a_reason(self):
        names = []
        for file in (ROOT / "tests/integration").glob("*_test.*"):
            begin = "integration." + ("" if file.suffix == ".cpp" else file.stem.removesuffix("_test") + ".")
            cases = re.findall(r"^def test_(\w+)|^TEST\w*\((\w+), (\w+)\)", file.read_text("utf-8"), re.M)
            names += [begin + (name or f"{suite}.{case}") for name, suite, case in cases]
        text = (ROOT / "platform/sdbus/tests/not_run.txt").read_text("utf-8")
        self.assertLessEqual(text.count("("), 9, "ctest takes no more, and would run everything")
        for row in (row for row in text.splitlines() if not row.startswith("#")):
            where, pattern, why = row.split(" | ")
            self.assertTrue(where == "sdbus" and why.strip(), row)
            head, _, rest = pattern.partition("(")
            choices, _, tail = rest.partition(")")
            for choice in choices.split("|"):
                one = head + choice + tail
                self.assertTrue(any(re.search(one, name) for name in names), f"no test is named so: {one}")

    def test_one_suite_needs_no_compiler_of_another_target(self):
        _, suite = self.shell("packages build tests")
        _, everything = self.shell("packages build tests processors")
        self.assertEqual([name for name in suite.split() if "g++-" in name or "qemu" in name], [])
        for package in ("g++-i686-linux-gnu", "g++-mips-linux-gnu", "googletest", "qemu-user"):
            self.assertIn(package, everything.split())


if __name__ == "__main__":
    unittest.main()
