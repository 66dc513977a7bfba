#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Files of tests are named by one pattern, and tests/README.md names each of them, in one row of a table of files."""

import collections
import re
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
OTHER_PATTERN = re.compile(r"^(tests?_.*|.*_tests|.*Test)\.(py|c|cpp)$")


def may_hold_tests(path):
    return not path.parts[0].startswith(("build", ".", "obj-")) and "bus/tests/support" not in path.as_posix()


def sources(root):
    """Sources below the root that may hold tests. What stands in a folder "support" helps them."""
    found = [path.relative_to(root) for suffix in ("py", "c", "cpp") for path in root.rglob(f"*.{suffix}")]
    return sorted(path for path in found if may_hold_tests(path))


def named_twice(page):
    """Files that two rows of one table are about, of those tables whose rows begin with files."""
    for table in re.findall(r"^\| file \|.*\n\|[-|]+\n((?:\|.*\n)+)", page, re.MULTILINE):
        cells = [row.split(" | ")[0] for row in table.splitlines()]
        counts = collections.Counter(stem for cell in cells for stem in re.findall(r"`(\w+_test)`", cell))
        yield from sorted(stem for stem, count in counts.items() if count > 1)


def problems(root):
    page = (root / "tests" / "README.md").read_text(encoding="utf-8")
    named = set(re.findall(r"`(?:[\w./]+/)?(\w+_test)(?:\.py|\.cpp)?`", page))
    files = sources(root)
    found = {path.stem for path in files if path.stem.endswith("_test")}
    yield from (f"{path}: files of tests are called <stem>_test" for path in files if OTHER_PATTERN.match(path.name))
    yield from (f"tests/README.md does not name {stem}" for stem in sorted(found - named))
    yield from (f"tests/README.md names {stem}, which is not there" for stem in sorted(named - found))
    yield from (f"tests/README.md has two rows of {stem}" for stem in named_twice(page))


class Readme(unittest.TestCase):
    def test_every_file_is_named(self):
        self.assertGreater(len([path for path in sources(ROOT) if path.stem.endswith("_test")]), 50)
        self.assertEqual(list(problems(ROOT)), [])

    def test_faults_are_noticed(self):
        with tempfile.TemporaryDirectory() as folder:
            root = Path(folder)
            (root / "tests").mkdir()
            rows = "| `here_test` | a |\n| `there` | b |\n| `here_test` | c |\n"
            (root / "tests" / "README.md").write_text(f"`gone_test`\n\n| file | what |\n|---|---|\n{rows}", "utf-8")
            for name in ("here_test.py", "test_old.cpp", "new_test.cpp", "helper.py"):
                (root / "tests" / name).touch()
            self.assertEqual(
                list(problems(root)),
                [
                    "tests/test_old.cpp: files of tests are called <stem>_test",
                    "tests/README.md does not name new_test",
                    "tests/README.md names gone_test, which is not there",
                    "tests/README.md has two rows of here_test",
                ],
            )


if __name__ == "__main__":
    unittest.main()
