#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Runs the tests of calls and media on libkex over sd-bus, with the programs as they are built for the bundled bus.
Those that this bus cannot run stand in left_out.txt."""

import os
import subprocess
import sys
from pathlib import Path

HERE = Path(__file__).resolve().parent
INTEGRATION = HERE.parents[2] / "tests" / "integration"


def left_out():
    rows = [line.split("|")[0].strip() for line in (HERE / "left_out.txt").read_text().splitlines() if line[:1] != "#"]
    return [word for row in rows for word in ("--deselect", f"tests/integration/{row}")]


def main():
    if len(sys.argv) < 2:
        sys.exit("usage: calls.py FOLDER [WORD ...]: the folder of libkex.so.1, and words for pytest")
    folder, *words = sys.argv[1:]
    environment = dict(os.environ, LD_LIBRARY_PATH=folder, VOICE_TEST_WITHOUT_TAP="1", PYTHONDONTWRITEBYTECODE="1")
    tests = [str(INTEGRATION / name) for name in ("calls_test.py", "media_test.py")]
    command = [sys.executable, "-m", "pytest", "-q", "-p", "no:cacheprovider", *left_out(), *tests, *words]
    return subprocess.run(command, env=environment, cwd=HERE.parents[2]).returncode


if __name__ == "__main__":
    sys.exit(main())
