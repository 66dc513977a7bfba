#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Runs the benchmark programs of a build and shows what they found: report.py BUILD [--once] bus|library|scale ...

Prints one table with each goal and whether it is met, and writes results.json and chart.svg into BUILD. With --once
every program does everything a single time, without a figure.
"""

import argparse
import json
import os
import platform
import statistics
import subprocess
import sys
from dataclasses import asdict, dataclass
from pathlib import Path

import goals

GOOGLE = [
    "--benchmark_format=json",
    "--benchmark_repetitions=60",
    "--benchmark_min_time=0.002",
    "--benchmark_enable_random_interleaving=true",
]


@dataclass
class Result:
    """One row of the table: ours against one peer, in nanoseconds for each operation."""

    what: str
    peer: str
    ours_least: float
    ours_median: float
    peer_least: float
    peer_median: float
    by_least: float
    by_median: float
    goal: float | None
    is_difference: bool
    is_time: bool

    @property
    def is_met(self):
        # As shown: two places, or whole nanoseconds.
        return self.goal is None or round(self.by_least, 0 if self.is_difference else 2) <= self.goal


def output_of(*command):
    return subprocess.run(command, stdout=subprocess.PIPE, text=True, check=True).stdout


def path_times(program):
    """{path: {by: [ns, ...]}}"""
    times = {}
    for run in json.loads(output_of(program, *GOOGLE))["benchmarks"]:
        if run["run_type"] == "iteration":
            path, by = run["run_name"].split("/")[:2]
            times.setdefault(path, {}).setdefault(by, []).append(run["cpu_time"] / run["operations"])
    return times


def process_times(program, cpus):
    """The same of programs of several processes, which are on one processor or on two."""
    times = {}
    for row in json.loads(output_of(program, "--cpus", str(cpus))):
        times.setdefault(row["path"], {})[row["by"]] = row["ns"]
    return times


def compared(row, times, peer, where="", goal=None):
    ours, theirs = times[row.ours], [0.0] if peer == goals.CLOCK else times[peer]
    figures = [min(ours), statistics.median(ours), min(theirs), statistics.median(theirs)]
    between = (lambda a, b: a - b) if row.is_difference or row.is_time else (lambda a, b: a / b)
    by = [between(figures[0], figures[2]), between(figures[1], figures[3])]
    return Result(row.what + where, peer, *figures, *by, goal, row.is_difference, row.is_time)


def results_of(rows, times, where="", with_goals=True):
    """One result for each peer; the goal against the fastest stands with that one."""
    for row in rows:
        by = times[row.path]
        peers = [peer for peer in row.peers if peer != goals.FASTEST]
        wanted = {peer: row.peers[peer] for peer in peers}
        if goals.FASTEST in row.peers:
            wanted[min(peers, key=lambda peer: min(by[peer]))] = row.peers[goals.FASTEST]
        for peer in peers:
            yield compared(row, by, peer, where, wanted[peer] if with_goals else None)


def duration(ns):
    return f"{ns / goals.MILLISECOND:.2f} ms" if ns >= goals.MILLISECOND else f"{ns / 1000:.0f} us"


def amount(result, value):
    if result.is_time:
        return duration(value)
    return f"{value:+.0f} ns" if result.is_difference else f"{value:.2f}"


def table(results):
    head = ["what", "ours", "peer", "peer's", "least", "median", "goal", ""]
    lines = [head]
    for r in results:
        goal = "" if r.goal is None else amount(r, r.goal)
        met = "" if r.goal is None else "met" if r.is_met else "NOT MET"
        ours, peers = (
            (duration(r.ours_least), "") if r.is_time else (f"{r.ours_least:.1f} ns", f"{r.peer_least:.1f} ns")
        )
        lines.append([r.what, ours, r.peer, peers, amount(r, r.by_least), amount(r, r.by_median), goal, met])
    widths = [max(len(line[column]) for line in lines) for column in range(len(head))]
    sides = "<><>>>><"
    return "\n".join("  ".join(f"{c:{s}{w}}" for c, s, w in zip(line, sides, widths)).rstrip() for line in lines)


def machine():
    """What the figures depend on beside the sources."""
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        models = [line.split(":")[1].strip() for line in file if line.startswith("model name")]
    return {
        "processor": models[0] if models else platform.machine(),
        "processors": os.cpu_count(),
        "kernel": platform.release(),
        "compiler": output_of("c++", "--version").splitlines()[0],
        "load": round(os.getloadavg()[0], 2),
    }


def run_once(programs, names):
    for name in names:
        subprocess.run([programs / f"bench_{name}", "--once"], check=True)


def process_results(program, rows, without_goals=()):
    """On one processor; then on two, where the figures say more about the machine than about the bus."""
    times = process_times(program, 1)
    yield from results_of(rows, times)
    yield from results_of(without_goals, times, with_goals=False)
    if has_two_processors():
        times = process_times(program, 2)
        yield from results_of([*rows, *without_goals], times, ", two processors", with_goals=False)


def has_two_processors():
    return len(os.sched_getaffinity(0)) > 1


def measure(programs, names):
    results = []
    if "library" in names:
        results += results_of(goals.PATHS, path_times(programs / "bench_library_timed"))
    if "bus" in names:
        results += process_results(programs / "bench_bus", goals.BUS)
    if "scale" in names:
        watched = [goals.TAP, *goals.WATCHED]
        rows = ([*goals.SCALE, *watched], []) if has_two_processors() else (goals.SCALE, watched)
        results += process_results(programs / "bench_scale", *rows)
    return results


def main():
    parser = argparse.ArgumentParser(description="Runs the benchmark programs of a build.")
    parser.add_argument("build", type=Path)
    parser.add_argument("names", nargs="+", choices=["bus", "library", "scale"])
    parser.add_argument("--once", action="store_true")
    options = parser.parse_args()
    if options.once:
        run_once(options.build / "bin", options.names)
        return 0
    about = machine()
    print(f"{about['processors']} x {about['processor']}, load {about['load']}, {about['compiler']}")
    results = measure(options.build / "bin", options.names)
    print(table(results))
    counted = [result for result in results if result.goal is not None]
    print(f"{sum(r.is_met for r in counted)} of {len(counted)} goals met")
    write(options.build, about, results)
    return 0


def write(folder, about, results):
    import chart  # of the packages that only the chart needs

    text = json.dumps({"machine": about, "rows": [asdict(result) for result in results]}, indent=1)
    (folder / "results.json").write_text(text + "\n", encoding="utf-8")
    chart.write(folder / "chart.svg", results)
    print(f"Written: {folder}/results.json, {folder}/chart.svg")


if __name__ == "__main__":
    sys.exit(main())
