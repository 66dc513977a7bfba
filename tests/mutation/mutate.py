#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Changes the sources in one small way at a time and tells which changes no test notices.

usage: ./test mutate [--tree NAME] [--sample N] [--seed S] [--list] [FILE ...]

  FILE         all mutants of these sources, instead of a sample of each tree
  --tree NAME  one of src, bus, hosts: only its sources
  --sample N   mutants to try of each tree (300)
  --seed S     of the sample (1)
  --list       names the mutants that would be tried, and tries none

A mutant is dead when a test fails, crashes or does not end. Those that the optimizing compiler makes the same code
of are set aside as equivalent. The rest survives: tests/mutation/survivors.txt gives a reason for each that is
known. Ends with status 1 when one survives that does not stand there. It works on a copy of the tree in
build-mutate/.
"""

import argparse
import collections
import hashlib
import json
import os
import pathlib
import random
import re
import shlex
import signal
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests"))
import reasons  # noqa: E402

WORK = ROOT / os.environ.get("VOICE_BUILD_DIR", "build-mutate")
COPY = WORK / "tree"
BUILD = WORK / "build"
SURVIVORS = pathlib.Path(__file__).with_name("survivors.txt")
BUILD_LIMIT = 300  # seconds
TEST_LIMIT = 10  # times what the test takes on the unchanged tree, and as many seconds on top

# Sources of a tree; the build's list of the tests that are to notice, with what adds one; names of their programs.
TREES = {
    "src": (["src/*.cpp"], ("tests/unit/CMakeLists.txt", "voice_unit_test"), "{}_test"),
    "bus": (["bus/src/*/*.cpp"], ("bus/tests/CMakeLists.txt", "kex_test"), "kex_{}_test"),
    "hosts": (["hosts/common/*.cpp", "hosts/simulator/*.cpp", "hosts/voice_application/*.cpp"], None, "{}"),
}
HOST_TESTS = ["hosts_line_tests", "hosts_tests", "voice_application_tests"]


def run(command, limit, folder=BUILD):
    """Runs a command in a group of its own, which does not outlive it. True: it ended well and in time."""
    process = subprocess.Popen(
        command,
        cwd=folder,
        stdin=subprocess.DEVNULL,
        stdout=subprocess.DEVNULL,
        stderr=subprocess.DEVNULL,
        start_new_session=True,
    )
    try:
        return process.wait(limit) == 0
    except subprocess.TimeoutExpired:
        return False
    finally:
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        process.wait()


def copy_tree():
    """Brings the copy up to date; what has not changed keeps its time, so that it is not compiled again."""
    listed = subprocess.run(
        ["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
        cwd=ROOT,
        capture_output=True,
        check=True,
    )
    names = {name for name in listed.stdout.decode().split("\0") if name and (ROOT / name).is_file()}
    for path in list(COPY.rglob("*")):  # first: where a file was a folder may come
        if path.is_file() and str(path.relative_to(COPY)) not in names:
            path.unlink()
    for name in names:
        target, data = COPY / name, (ROOT / name).read_bytes()
        if not target.is_file() or target.read_bytes() != data:
            target.parent.mkdir(parents=True, exist_ok=True)
            target.write_bytes(data)
            target.chmod((ROOT / name).stat().st_mode)


def configure():
    options = ["-DCMAKE_BUILD_TYPE=Debug", "-DVOICE_WERROR=OFF", "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON"]
    command = ["cmake", "-S", str(COPY), "-B", str(BUILD), "-G", "Ninja", *options]
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)


def build(targets):
    return run(["ninja", *targets], BUILD_LIMIT * 4)


def tests_of(tree):
    _, listed, title = TREES[tree]
    if not listed:
        return HOST_TESTS
    file, function = listed
    names = re.findall(rf"^{function}\((\w+)", (ROOT / file).read_text("utf-8"), re.MULTILINE)
    return [title.format(name) for name in names]


class Tree:
    """One tree of sources with its tests."""

    def __init__(self, name):
        self.name = name
        self.title = TREES[name][2]
        self.files = [str(path.relative_to(ROOT)) for pattern in TREES[name][0] for path in sorted(ROOT.glob(pattern))]
        self.took = {}

    def prepare(self):
        """Builds the unchanged tree, sees its tests pass and takes their times."""
        tests = tests_of(self.name)
        if not build(tests):
            raise SystemExit(f"the unchanged tree cannot be built; try: ninja -C {BUILD} {' '.join(tests)}")
        for test in tests:
            begin = time.monotonic()
            if not self.passes(test, 600):
                raise SystemExit(f"{test} fails on the unchanged tree")
            self.took[test] = time.monotonic() - begin

    @staticmethod
    def passes(test, limit):
        return run([str(BUILD / "bin" / test), "--gtest_brief=1", "--gtest_fail_fast"], limit)

    def order(self, mutant):
        """The tests, that of the source first, then the quick ones."""
        own = self.title.format(pathlib.Path(mutant.file).stem)
        return sorted(self.took, key=lambda test: (test != own, self.took[test]))

    def killer(self, mutant):
        """Which test notices the changed source; "" for none, None when it does not compile."""
        tests = self.order(mutant)
        if not build(tests[:1]):
            return None
        for index, test in enumerate(tests):
            if index == 1 and not build(tests):
                return None
            if not self.passes(test, self.took[test] * TEST_LIMIT + TEST_LIMIT):
                return test
        return ""


def object_hash(file):
    """What the optimizing compiler makes of a source, without what only a debugger reads."""
    for entry in json.loads((BUILD / "compile_commands.json").read_text()):
        if pathlib.Path(entry["file"]) == COPY / file:
            words = [word for word in shlex.split(entry["command"]) if not word.startswith(("-g", "-O", "-fsanitize"))]
            words[words.index("-o") + 1] = str(WORK / "equivalent.o")
            if subprocess.run([*words, "-O2", "-g0"], cwd=entry["directory"], capture_output=True).returncode == 0:
                return hashlib.sha256((WORK / "equivalent.o").read_bytes()).hexdigest()
    return None


def attempt(tree, mutant):
    """One of "dead", "survives", "equivalent", "does not compile", and the test that noticed."""
    path = COPY / mutant.file
    original = path.read_bytes()
    times = path.stat()
    before = None
    path.write_bytes(original[: mutant.begin] + mutant.new.encode() + original[mutant.end :])
    try:
        killer = tree.killer(mutant)
        if killer is None:
            return "does not compile", ""
        if killer:
            return "dead", killer
        after = object_hash(mutant.file)
    finally:
        path.write_bytes(original)
        os.utime(path, ns=(times.st_atime_ns, time.time_ns()))
    before = object_hash(mutant.file)
    return ("equivalent" if before is not None and before == after else "survives"), ""


def known_survivors():
    """Key of each known survivor, with its reason."""
    return dict(reasons.read(SURVIVORS))


def sample(tree, arguments):
    """Mutants in the order in which they are tried, and how many of them count."""
    import mutants  # needs libclang, --help does not

    files = [file for file in tree.files if not arguments.files or file in arguments.files]
    found = [mutant for file in files for mutant in mutants.find(BUILD, COPY, file)]
    if arguments.files:
        return found, len(found)
    random.Random(f"{arguments.seed} {tree.name}").shuffle(found)
    return found, min(arguments.sample, len(found))


def report(counts):
    print(f"{'file':44}{'dead':>6}{'survive':>9}{'known':>7}{'equivalent':>12}{'score':>8}")
    total = collections.Counter()
    for file, count in sorted(counts.items()) + [("all", total)]:
        total.update(count if file != "all" else {})
        tried = count["dead"] + count["survives"]
        score = f"{100 * count['dead'] / tried:.1f} %" if tried else "-"
        print(f"{file:44}{count['dead']:6}{count['survives']:9}{count['known']:7}{count['equivalent']:12}{score:>8}")


def mutate(tree, arguments, known):
    """Tries a tree's mutants. @return how many survive without a reason"""
    found, wanted = sample(tree, arguments)
    if arguments.list:
        for mutant in found[:wanted]:
            print(f"{mutant.file}:{mutant.line}: {mutant.key()}")
        return 0
    tree.prepare()
    counts, unknown, done = collections.defaultdict(collections.Counter), 0, 0
    for mutant in found:
        if done == wanted:
            break
        result, killer = attempt(tree, mutant)
        print(
            f"{result:18}{mutant.file}:{mutant.line} {mutant.operator}: {mutant.old} -> {mutant.new}  {killer}",
            flush=True,
        )
        if result == "does not compile":
            wanted -= 1 if arguments.files else 0
            continue
        done += 1
        counts[mutant.file][result] += 1
        if result == "survives" and mutant.key() in known:
            counts[mutant.file]["known"] += 1
        elif result == "survives":
            unknown += 1
            print(f"    {mutant.key()}")
    print()
    report(counts)
    return unknown


def main():
    parser = argparse.ArgumentParser(
        prog="./test mutate", description=__doc__, formatter_class=argparse.RawTextHelpFormatter
    )
    parser.add_argument("--tree", choices=TREES)
    parser.add_argument("--sample", type=int, default=300)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--list", action="store_true")
    parser.add_argument("files", nargs="*", metavar="FILE")
    arguments = parser.parse_args()
    trees = [Tree(name) for name in TREES if arguments.tree in (None, name)]
    wrong = set(arguments.files) - {file for tree in trees for file in tree.files}
    if wrong:
        parser.error(f"these are no sources of the trees: {' '.join(sorted(wrong))}")
    if arguments.files:
        trees = [tree for tree in trees if set(arguments.files) & set(tree.files)]
    copy_tree()
    configure()
    known = known_survivors()
    unknown = sum(mutate(tree, arguments, known) for tree in trees)
    if unknown:
        print(f"{unknown} survive without a reason in {SURVIVORS.relative_to(ROOT)}")
    return 1 if unknown else 0


if __name__ == "__main__":
    sys.exit(main())
