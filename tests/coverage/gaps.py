# SPDX-License-Identifier: MIT
"""usage: gaps.py COVERAGE FOLDER EXCEPTIONS

Names each line below FOLDER that is not run or has a branch that is not taken, as COVERAGE tells (JSON of gcovr), and
compares them with EXCEPTIONS: a row "file | line" for each, and why below it. Ends with status 1 when they differ. What
is run in some runs and not in others has "by chance: " in front of its row.
"""

import collections
import json
import pathlib
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests"))
import reasons  # noqa: E402

BY_CHANCE = "by chance: "


def missed(coverage, root=ROOT):
    """Number, text and fault of each such line, by file."""
    for file in coverage["files"]:
        text = (root / file["file"]).read_text(encoding="utf-8").splitlines()
        for line in file["lines"]:
            branches = sum(branch["count"] == 0 for branch in line["branches"])
            if line.get("gcovr/noncode") or (line["count"] > 0 and branches == 0):
                continue
            what = "not run" if line["count"] == 0 else f"{branches} of {len(line['branches'])} branches not taken"
            yield file["file"], line["line_number"], text[line["line_number"] - 1].strip(), what


def known(path, folder, by_chance=False):
    """What the list of exceptions has below a folder, as missed() names it: rows without the mark, or those with it."""
    found = collections.Counter()
    for what, _ in reasons.read(path):
        file, text = what.removeprefix(BY_CHANCE).split(" | ", 1)
        if what.startswith(BY_CHANCE) == by_chance and file.startswith(folder):
            found[file, text] += 1
    return found


def differences(found, expected, by_chance):
    """Sentences about what is in one of them only."""
    for file, text in sorted((found - expected - by_chance).elements()):
        yield f"no known exception: {file}: {text}"
    for file, text in sorted((expected - found).elements()):
        yield f"an exception, but it is run: {file}: {text}"


def main():
    coverage, folder, exceptions = sys.argv[1:]
    found = collections.Counter()
    for file, number, text, what in missed(json.loads(pathlib.Path(coverage).read_text(encoding="utf-8"))):
        found[file, text] += 1
        print(f"{file}:{number}: {what}: {text}")
    wrong = list(differences(found, known(exceptions, folder), known(exceptions, folder, by_chance=True)))
    print("\n".join(wrong))
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
