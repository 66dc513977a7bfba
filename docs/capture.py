#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Puts the output of real runs into the pages: runs ./demo, and one call under `voicectl watch`.

A code block that follows '<!-- output: NAME -->' is replaced; nothing else of a page is touched.

  capture.py demo         README.md: what ./demo prints
  capture.py call BIN     docs/read-a-call.md: a call between two telephones; BIN is the folder of the built programs
"""

import contextlib
import os
import re
import subprocess
import sys
import tempfile
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent


def put(page, outputs):
    path = ROOT / page
    text = path.read_text(encoding="utf-8")
    for name, output in outputs.items():
        if not output.strip():
            sys.exit(f"{page}: no output for {name}")
        rows = "".join(row.rstrip() + "\n" for row in output.split("\n")[:-1])
        text, count = re.subn(
            rf"(<!-- output: {name} -->\n\n?```\w+\n).*?(```\n)",
            lambda m, rows=rows: m[1] + rows + m[2],
            text,
            flags=re.S,
        )
        if count != 1:
            sys.exit(f"{page}: {count} blocks follow the mark of {name}")
    path.write_text(text, encoding="utf-8")


def demo():
    run = subprocess.run(
        [ROOT / "demo"], env=dict(os.environ, NO_COLOR="1"), capture_output=True, text=True, check=False
    )
    if run.returncode != 0:
        sys.exit(f"./demo failed:\n{run.stdout[-2000:]}{run.stderr[-2000:]}")
    rows = run.stdout.split("\n")

    def at(beginning):
        return next(i for i, row in enumerate(rows) if row.startswith(beginning))

    put("README.md", {"demo": "\n".join(["...", *rows[at("2. ") : at("3. ") - 1], "", "...", *rows[at("Summary") :]])})


def call(folder):
    folder = Path(folder).resolve()
    with tempfile.TemporaryDirectory() as scratch, contextlib.ExitStack() as programs:
        socket = f"{scratch}/s"

        def start(name, *arguments, **options):
            program = subprocess.Popen(
                [folder / name, *arguments],
                stdin=subprocess.PIPE,
                stdout=subprocess.PIPE,
                stderr=subprocess.PIPE,
                text=True,
                **options,
            )
            programs.callback(program.kill)
            return program

        application = start("voice_application", "--socket", socket, "--no-stdin")
        application.stdout.readline()  # it listens
        watchers = {
            name: start("voicectl", "watch", "--socket", socket, *filters)
            for name, filters in {
                "call": ("-k", "al", "-k", "cg"),
                "registration": ("-f", "register_plugin", "-f", "init", "-f", "register_endpoint"),
                "media": ("-f", "create", "-f", "destroy"),
                "json": ("-k", "al", "-n", "1", "--json"),
            }.items()
        }
        for watcher in watchers.values():
            watcher.stderr.readline()  # it watches
        plugin = start("fxs_plugin", "--socket", socket, "--name", "fxs1", env=dict(os.environ, ZIL_TRACE_LEVEL="400"))
        for command, pause in (("1 off", 1), ("1 dial 102", 1), ("2 off", 3), ("1 on", 1.5), ("2 on", 1), ("quit", 1)):
            time.sleep(pause)  # the pace of a person: these pages show its times
            plugin.stdin.write(command + "\n")
            plugin.stdin.flush()
        traces = plugin.communicate(timeout=20)[1]
        time.sleep(1)
        for watcher in watchers.values():
            watcher.terminate()
        outputs = {name: watcher.communicate(timeout=20)[0] for name, watcher in watchers.items()}
        outputs["traces"] = "".join(traces.splitlines(keepends=True)[:15])
    put("docs/read-a-call.md", outputs)


if __name__ == "__main__":
    if sys.argv[1:] == ["demo"]:
        demo()
    elif len(sys.argv) == 3 and sys.argv[1] == "call":
        call(sys.argv[2])
    else:
        sys.exit(__doc__)
