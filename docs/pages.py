#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Keeps the pages true: what they quote from the tree stands there.

  - A code block that follows '<!-- example: FILE -->' is that file, whole; after '<!-- example: FILE#PART -->' it is
    the part of the file between the lines '/* [PART] */' and '/* [end] */'. FILE is relative to the tree's root.
  - A code span in double quotes (`"Missing argument ctx_id"`) is a string literal of the sources, tests aside.
  - A code span that looks like a name of the system (`libvoice_init`, `kex_sendRequest()`) occurs in the sources.
  - A code span that looks like a file's name (`common/line_driver.h`, `fxs_plugin.cpp`) is the end of a file's path.
  - A code span that looks like a test (`line_plugin_test.InitMayComeTwice`) names a file of tests and a case in it.
  - A relative link leads to a file, and its anchor to a heading there.
  - Pages are ASCII.

  pages.py            bring the code blocks of examples up to date
  pages.py --check    change nothing; report everything that is not so

Every fault is reported as "file:line: message"; the exit status is 1 when there is one, else 0.
"""

import argparse
import collections
import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
GENERATED = {"docs/reference.md", "docs/vocabulary.md"}
SOURCE_FOLDERS = [
    "src",
    "include",
    "helpers",
    "platform",
    "bus",
    "conformance",
    "hosts",
    "tool",
    "vocabulary",
    "docs/examples",
    "bench",
    "tests",
]
NAME = re.compile(
    r"(?:_*libvoice_|LIBVOICE_|VOICE_SERVICE_|VARIANT_|REPLY_|PEER_|ZIL_|KEX_|kex_|zil|variant_|request_"
    r"|reply_|argument_|fcall_|object_|peer_|connection_|voice_plugin_|voice_app_|dsp_plugin_|__[A-Z_a-z])"
    r"\w+$"
)

FILE = re.compile(r"[\w./-]*\w\.(?:h|c|cpp|py|conf|csv|inc|md|map|sh|txt)")

TEST = re.compile(r"\w+_test\.(?!(?:c|cpp|py)$)\w+")


def pages(root):
    found = [root / name for name in ("README.md", "CHANGELOG.md", "CONTRIBUTING.md", "SECURITY.md")]
    found += [root / folder / "README.md" for folder in ("bus", "hosts", "tool", "platform/sdbus")]
    found += sorted((root / "docs").rglob("*.md"))
    return [path for path in found if path.exists()]


def sources(root):
    """The sources as (whether it is a test's or an example's, text)."""
    for folder in SOURCE_FOLDERS:
        for path in sorted((root / folder).rglob("*")):
            if path.suffix in (".c", ".h", ".cpp", ".inc", ".py", ".map") and path.is_file():
                shown = path.relative_to(root)
                aside = bool({"tests", "examples", "bench"} & set(shown.parts))
                yield aside, path.read_text(encoding="utf-8", errors="replace")


def own_files(root):
    """Those of the project, without what is built."""
    for path in root.rglob("*.*"):
        if not path.relative_to(root).parts[0].startswith(("build", ".", "obj-")):
            yield path


def ends_of_path(path, root):
    """The file's path, and each end of it from a folder on: a/b.c, b.c."""
    parts = path.relative_to(root).parts
    return ("/".join(parts[at:]) for at in range(len(parts)))


class Tree:
    """Names and string literals of the sources, and the files."""

    def __init__(self, root):
        self.root = root
        self.files, self.tests = set(), collections.defaultdict(list)
        for path in own_files(root):
            self.files.update(ends_of_path(path, root))
            if path.suffix in (".py", ".c", ".cpp"):
                self.tests[path.stem].append(path)
        self.literals, self.names = set(), set()
        for aside, text in sources(root):
            self.names.update(re.findall(r"\w+", text))
            if aside:
                continue
            joined = re.sub(r'"\s*\n\s*"', "", text)
            self.literals.update(re.findall(r'"((?:\\.|[^"\\\n])*)"', joined))

    def has_test(self, stem, case):
        named = re.compile(rf"\b{case}\b")
        return any(named.search(path.read_text(encoding="utf-8")) for path in self.tests[stem])


def example(root, reference):
    name, _, part = reference.partition("#")
    path = root / name
    if not path.exists():
        return None
    text = path.read_text(encoding="utf-8")
    if part:
        match = re.search(r"^\s*/\* \[" + re.escape(part) + r"\] \*/\n(.*?)^\s*/\* \[end\] \*/", text, re.S | re.M)
        if not match:
            return None
        rows = match.group(1).rstrip("\n").split("\n")
        margin = min((len(row) - len(row.lstrip()) for row in rows if row.strip()), default=0)
        return "\n".join(row[margin:] for row in rows) + "\n"
    return text


def slug(heading):
    return re.sub(r"[^\w -]", "", heading.strip().lower().replace("`", "")).replace(" ", "-")


def headings(path):
    return {slug(row.lstrip("#")) for row in path.read_text(encoding="utf-8").split("\n") if row.startswith("#")}


def check_prose(tree, path, number, row, fault):
    for span in re.findall(r"`([^`]+)`", row):
        quoted = re.fullmatch(r'"((?:\\.|[^"\\])*)"', span)
        name = span.removesuffix("()")
        if quoted and quoted.group(1) not in tree.literals:
            fault(number, f"no source has the text {span}")
        elif NAME.fullmatch(name) and name not in tree.names:
            fault(number, f"no source has the name {name}")
        elif TEST.fullmatch(span) and not tree.has_test(*span.split(".")):
            fault(number, f"no such test: {span}")
        elif FILE.fullmatch(span) and span.removeprefix("../") not in tree.files:
            fault(number, f"no such file: {span}")
    for target in re.findall(r"\]\(([^)\s]+)\)", re.sub(r"`[^`]*`", "", row)):
        if re.match(r"[a-z]+:", target):
            continue
        file, _, anchor = target.partition("#")
        linked = (path.parent / file).resolve() if file else path
        if not linked.exists():
            fault(number, f"link to {target}: no such file")
        elif anchor and linked.suffix == ".md" and anchor not in headings(linked):
            fault(number, f"link to {target}: no such heading")


def check_page(tree, path, faults):
    """Reports what is not so, and returns the page with its examples as they are in the files."""
    shown = path.relative_to(tree.root)

    def fault(number, message):
        faults.append(f"{shown}:{number}: {message}")

    out = []
    rows = path.read_text(encoding="utf-8").split("\n")
    wanted, fence, number = None, "", 0
    while number < len(rows):
        row = rows[number]
        number += 1
        out.append(row)
        if not row.isascii():
            fault(number, "not ASCII")
        if fence:
            if row.strip() == fence:
                fence = ""
            continue
        if row.startswith("```"):
            if wanted is None:
                fence = "```"
                continue
            start = number
            while number < len(rows) and rows[number] != "```":
                number += 1
            held = "\n".join(rows[start:number]) + "\n"
            text = example(tree.root, wanted)
            if text is None:
                fault(start, f"no such example: {wanted}")
                text = held
            elif text != held:
                faults.append(f"{shown}:{start}: differs from {wanted}; run docs/pages.py")
            out.extend(text.rstrip("\n").split("\n"))
            out.append("```")
            number += 1
            wanted = None
            continue
        mark = re.fullmatch(r"<!-- example: (\S+) -->", row)
        if mark:
            wanted = mark.group(1)
        elif row.strip() and wanted is not None:
            fault(number, f"no code block follows the mark of {wanted}")
            wanted = None
        if str(shown) not in GENERATED:
            check_prose(tree, path, number, row, fault)
    return "\n".join(out)


def main():
    options = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    options.add_argument("--check", action="store_true", help="change nothing")
    options.add_argument("--root", type=Path, default=ROOT, help="the tree (for the script's own test)")
    arguments = options.parse_args()
    tree = Tree(arguments.root.resolve())
    faults = []
    for path in pages(tree.root):
        text = check_page(tree, path, faults)
        if not arguments.check:
            path.write_text(text, encoding="utf-8")
    if not arguments.check:
        faults = [fault for fault in faults if "; run docs/pages.py" not in fault]
    for fault in faults:
        print(fault, file=sys.stderr)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
