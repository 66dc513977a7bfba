# SPDX-License-Identifier: MIT
"""Reads lists of exceptions: what is one, and in the row below it, indented, why."""

import pathlib


def read(path):
    """Pairs of what and why. Empty rows and those that begin with # say nothing."""
    found, what = [], None
    for number, row in enumerate(pathlib.Path(path).read_text(encoding="utf-8").splitlines(), 1):
        if not row.strip() or row.startswith("#"):
            continue
        if row.startswith(" ") == (what is None):
            fault = "there is no reason for the row above" if what else "a reason for what?"
            raise SystemExit(f"{path}:{number}: {fault}")
        if what is None:
            what = row.strip()
        else:
            found.append((what, row.strip()))
            what = None
    if what is not None:
        raise SystemExit(f"{path}: there is no reason for the last row")
    return found
