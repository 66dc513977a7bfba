#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Runs fuzz targets for so many seconds of processor time each and prints what they did as a table.

Each target starts from its seeds and from what earlier runs found worth keeping (WORK/<target>/corpus). What breaks it
is written to WORK/<target>/findings, and the table's last column counts it.
"""

import argparse
import os
import re
import signal
import subprocess
import sys
import tempfile
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

HERE = Path(__file__).resolve().parent
INPUT_SECONDS = 60  # one input that takes longer by the clock is a finding; the machine may be busy
MEMORY_MB = 2048  # so is one that makes the process larger
PATIENCE = 40  # times the processor time asked for: the machine may have other things to do
TICKS = os.sysconf("SC_CLK_TCK")


def processor_seconds(process_id):
    """User and system time of a process; None when it is gone."""
    try:
        fields = Path(f"/proc/{process_id}/stat").read_text(encoding="ascii").rpartition(")")[2].split()
    except OSError:
        return None
    return (int(fields[11]) + int(fields[12])) / TICKS


def last_number(pattern, text):
    found = re.findall(pattern, text)
    return int(found[-1]) if found else 0


class Run:
    """One target, from its start to its end."""

    def __init__(self, target, program, work, seconds):
        self.target = target
        self.seconds = seconds
        self.spent = 0.0
        self.log = work / target / "log"
        self.findings = work / target / "findings"
        corpus = work / target / "corpus"
        for folder in (corpus, self.findings):
            folder.mkdir(parents=True, exist_ok=True)
        self.before = set(self.findings.iterdir())
        self.command = [
            str(program),
            f"-timeout={INPUT_SECONDS}",
            f"-report_slow_units={INPUT_SECONDS}",
            "-max_len=4096",
            "-len_control=20",
            f"-rss_limit_mb={MEMORY_MB}",
            f"-artifact_prefix={self.findings}/",
            f"-dict={HERE / 'words.dict'}",
            "-print_final_stats=1",
            "-reload=0",
            "-close_fd_mask=1",
            str(corpus),
            str(HERE / "corpus" / target),
        ]

    def run(self):
        # Sockets stand there: a program that is stopped does not clean up.
        with tempfile.TemporaryDirectory(prefix="fuzz-") as folder:
            self.run_in(folder)
        return self

    def run_in(self, folder):
        deadline = time.monotonic() + 60 + PATIENCE * self.seconds
        environment = dict(os.environ, ZIL_TRACE_LEVEL="0", TMPDIR=folder)
        with self.log.open("wb") as log:
            # A program that is asked to stop ends in order and writes its figures.
            with subprocess.Popen(
                self.command, stdin=subprocess.DEVNULL, stdout=log, stderr=log, env=environment
            ) as process:
                while process.poll() is None:
                    spent = processor_seconds(process.pid)
                    self.spent = spent if spent is not None else self.spent
                    if self.spent >= self.seconds or time.monotonic() > deadline:
                        process.send_signal(signal.SIGUSR1)
                        self.finish(process)
                    time.sleep(0.5)
                self.status = process.returncode

    def finish(self, process):
        try:
            process.wait(INPUT_SECONDS)
        except subprocess.TimeoutExpired:
            process.kill()

    def new_findings(self):
        return sorted(set(self.findings.iterdir()) - self.before)

    def is_good(self):
        return self.status == 0 and not self.new_findings() and self.executions() > 0

    def text(self):
        return self.log.read_text(encoding="utf-8", errors="replace")

    def executions(self):
        return last_number(r"number_of_executed_units: (\d+)", self.text()) or last_number(
            r"(?m)^#(\d+)\s", self.text()
        )

    def row(self):
        text = self.text()
        rate = self.executions() / self.spent if self.spent else 0
        return [
            self.target,
            f"{self.spent:.0f}",
            str(self.executions()),
            f"{rate:.0f}",
            str(last_number(r" cov: (\d+)", text)),
            str(last_number(r" ft: (\d+)", text)),
            str(len(self.new_findings())) if self.status == 0 or self.new_findings() else f"ended with {self.status}",
        ]


HEAD = ["target", "CPU s", "executions", "per s", "edges", "features", "findings"]


def table(rows):
    widths = [max(len(row[column]) for row in rows) for column in range(len(HEAD))]
    for row in rows:
        cells = [cell.ljust(width) if i == 0 else cell.rjust(width) for i, (cell, width) in enumerate(zip(row, widths))]
        print("  ".join(cells).rstrip())


def explain(run):
    """What a failed run says: the sanitizer's or the target's own words, and how to see it again."""
    lines = run.text().splitlines()
    telling = re.compile(r"does not hold|ERROR: |runtime error|SUMMARY|ALARM|Test unit written")
    for line in [line for line in lines if telling.search(line)][:6] or lines[-6:]:
        print(f"  {line}")
    for finding in run.new_findings():
        print(f"  again: {run.command[0]} {finding}")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--programs", type=Path, required=True, help="folder with fuzz_<target>")
    parser.add_argument("--work", type=Path, required=True, help="folder for what is found")
    parser.add_argument("--seconds", type=float, required=True, help="processor time for each target")
    parser.add_argument("--jobs", type=int, default=1)
    parser.add_argument("targets", nargs="+")
    options = parser.parse_args()

    runs = [Run(name, options.programs / f"fuzz_{name}", options.work, options.seconds) for name in options.targets]
    with ThreadPoolExecutor(options.jobs) as pool:
        done = list(pool.map(Run.run, runs))
    table([HEAD] + [run.row() for run in done])
    failed = [run for run in done if not run.is_good()]
    for run in failed:
        print(f"\n{run.target} failed; its log is {run.log}")
        explain(run)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
