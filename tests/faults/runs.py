# SPDX-License-Identifier: MIT
"""What the programs share that try one fault after the other: words of their command line, and trials side by side."""

import argparse
import concurrent.futures


def parser_of(name):
    """For `./test NAME`; -h shows the program's own text."""
    parser = argparse.ArgumentParser(prog=f"./test {name}", add_help=False)
    parser.add_argument("-h", "--help", action="store_true")
    return parser


def parse(parser, text, *numbers):
    """The arguments. Numbers are that of the fault, `numbers`, the seed of a choice by chance, and how many trials run
    at a time. None: they ask for the program's text, which has been shown."""
    for name, default in [("number", None), *((other, None) for other in numbers), ("seed", 1), ("jobs", 2)]:
        parser.add_argument(f"--{name}", type=int, default=default)
    arguments = parser.parse_args()
    if arguments.help:
        print(text.partition("\n\n")[2])
        return None
    return arguments


def side_by_side(jobs, trial, points):
    """Of each trial, as it ends: its point, and what it gave. `trial` takes the words of a point."""
    with concurrent.futures.ProcessPoolExecutor(jobs) as pool:
        futures = {pool.submit(trial, *point): point for point in points}
        for future in concurrent.futures.as_completed(futures):
            yield futures[future], future.result()
