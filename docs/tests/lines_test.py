#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""No file of the project holds what a merge has left behind."""

import re
import subprocess
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
# Seven of one sign at the begin of a line. Those of equals signs stand between two others, and may underline a heading.
MARK = re.compile(r"([<>|])\1{6}( |$)")


def files(root):
    """What git tracks; in an unpacked archive, all but build trees."""
    listed = subprocess.run(["git", "ls-files", "-z"], cwd=root, capture_output=True, check=False)
    if listed.returncode == 0 and listed.stdout:
        return [root / name for name in listed.stdout.decode().split("\0") if name]
    found = (path for path in root.rglob("*") if not path.relative_to(root).parts[0].startswith(("build", ".", "obj-")))
    return [path for path in found if path.is_file()]


def texts(root):
    """Each text file with its lines. One with a NUL byte is none."""
    for path in sorted(files(root)):
        content = path.read_bytes() if path.is_file() else b"\0"  # deleted and not committed
        if b"\0" not in content:
            yield path.relative_to(root), content.decode(errors="replace").split("\n")


def problems(root):
    for path, lines in texts(root):
        for number, line in enumerate(lines, 1):
            if MARK.match(line):
                yield f"{path}:{number}: left by a merge"


class Lines(unittest.TestCase):
    def test_no_merge_is_left_half_done(self):
        self.assertGreater(len(list(texts(ROOT))), 300)
        self.assertEqual(list(problems(ROOT)), [])

    def test_faults_are_noticed(self):
        half_done = "a\n" + "<" * 7 + " HEAD\nb\n" + "=" * 7 + "\nc\n" + ">" * 7 + " 1234567 (subject)\n"
        for tracked in (False, True):
            with self.subTest(tracked=tracked), tempfile.TemporaryDirectory() as folder:
                root = Path(folder)
                for name, content in {
                    "docs/page.md": half_done,
                    "docs/fine.md": "Heading\n=======\n    <<<<<<< shown\n<<<<<<<<\n",
                    "docs/picture": "\0\n" + half_done,
                    "build/page.md": half_done,
                }.items():
                    (root / name).parent.mkdir(exist_ok=True)
                    (root / name).write_text(content, encoding="utf-8")
                if tracked:
                    subprocess.run(["git", "init", "-q"], cwd=root, check=True)
                    subprocess.run(["git", "add", "docs"], cwd=root, check=True)
                self.assertEqual(
                    list(problems(root)), ["docs/page.md:2: left by a merge", "docs/page.md:6: left by a merge"]
                )


if __name__ == "__main__":
    unittest.main()
