#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Runs a whole voice system for a long time, with accidents and strangers, and looks all the time whether all is well.

usage: ./test soak [MINUTES] [--seed S] [--part N] [--actions N] [--chart FILE]

  MINUTES       for so long (10)
  --seed S      of the choice of actions (by the clock)
  --part N      only the first or the second part
  --actions N   so many actions of each part, however long they take
  --chart FILE  where the chart goes (soak.svg in the build tree)

The application, eight plugins of all four kinds with 32 lines, two watchers and two strangers run. By chance lines
call each other with media, hold, confer, change codecs, call and are called over the exchange, with caller display;
processes are killed (kill -9), also in the middle of a call, stand still, leave and come back; strangers break the
rules. In the first part (two fifths of the time) the application lives, in the second one it is killed, too. Time
between two attempts of a plugin to connect runs four hundred times as fast. The next action begins when all that the
last one causes has happened. After each one this must hold:

  - application and plugins agree on plugins, endpoints and their numbers, and on which lines and calls are busy;
  - each event that a user caused has come once, in order, with its number (tests/soak/record.py tells how);
  - who was killed is back, and the next call of its lines works;
  - strangers are refused with a reason, or answered as they should be.

Every 40 actions all hang up: then no media port is open, each process has the descriptors that it had at first, and
the application its objects and a report of all media that ended. Who lives for three minutes does not grow by more than
128 KiB a minute after the first one. At the end no socket is left, nor a lock that is held.

The seed is printed first; it makes the same actions again. What fails says its action and how to run up to it, and ends
the run with status 1.
"""

import argparse
import collections
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from run import PARTS, Failed, Run  # noqa: E402
from samples import Samples  # noqa: E402
from processes import default_bin  # noqa: E402


def parse_arguments():
    parser = argparse.ArgumentParser(prog="./test soak", add_help=False)
    parser.add_argument("-h", "--help", action="store_true")
    parser.add_argument("minutes", type=float, nargs="?", default=10)
    parser.add_argument("--seed", type=int, default=int(time.time()))
    parser.add_argument("--part", type=int, choices=PARTS)
    parser.add_argument("--actions", type=int)
    parser.add_argument("--chart", type=Path, default=default_bin().parent / "soak.svg")
    return parser.parse_args()


def run_part(part, arguments, samples, figures):
    """Whether all held."""
    end = float("inf") if arguments.actions else time.monotonic() + arguments.minutes * 60 * PARTS[part]
    run = Run(part, arguments.seed, samples)
    try:
        figures.update(run.run(end, arguments.actions))
    except Failed as failure:
        problem, actions, said = failure.args
        replay = f"./test soak --seed {arguments.seed} --part {part} --actions {run.number}"
        print(f"{said}\n\n{problem}\n{actions}\nagain: {replay}", flush=True)
        return False
    print(f"part {part}: {run.number} actions", flush=True)
    return True


def table(figures, name):
    return sorted((row, number) for (found, row), number in figures.items() if found == name)


def report(figures, samples):
    print(f"\n{'action':20}{'number':>8}{'seconds each':>14}")
    for action, number in table(figures, "actions"):
        print(f"{action:20}{number:8}{figures['seconds', action] / number:14.2f}")
    for name, title in (("what", "in all"), ("kills", "killed"), ("strangers", "what strangers were told")):
        print(f"\n{title:68}{'number':>8}")
        for row, number in table(figures, name):
            print(f"{row[:66]:68}{number:8}")
    print(f"{'kills':68}{sum(number for _, number in table(figures, 'kills')):8}\n")
    print("\n".join(samples.rows()))


def main():
    arguments = parse_arguments()
    if arguments.help:
        print(__doc__.partition("\n\n")[2])
        return 0
    print(f"seed {arguments.seed}", flush=True)
    samples, figures, begin = Samples(), collections.Counter(), time.monotonic()
    parts = [arguments.part] if arguments.part else list(PARTS)
    held = all(run_part(part, arguments, samples, figures) for part in parts)
    report(figures, samples)
    if samples.lives:
        import chart  # here, so that --help and wrong words need none of its packages

        chart.write(arguments.chart, samples)
        print(f"\nchart: {arguments.chart}")
    growing = samples.growing()
    print("\n".join(growing))
    print(
        f"seed {arguments.seed}: {'all held' if held and not growing else 'FAILED'}, {time.monotonic() - begin:.0f} s"
    )
    return 0 if held and not growing else 1


if __name__ == "__main__":
    sys.exit(main())
