#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Writes from the vocabulary what two of the peers are made of: names_input.py FOLDER.

names_switch.inc is the cases of a switch over all numbers, names.gperf the input of gperf.
"""
import csv
import sys
from pathlib import Path

IDS = Path(__file__).resolve().parents[2] / "vocabulary/ids.csv"
GPERF_HEAD = """%struct-type
%language=ANSI-C
%readonly-tables
%compare-lengths
%define lookup-function-name gperf_row
%{
#include <stdint.h>
#include <string.h>
#include "peers.h"
%}
struct gperf_row { const char *name; uint32_t number; };
%%
"""
GPERF_TAIL = """%%
uint32_t name_by_gperf(const char *name) {
    const struct gperf_row *row = gperf_row(name, strlen(name));
    return row ? row->number : 0xFFFFFFFFu;
}
"""


def main():
    folder = Path(sys.argv[1])
    with open(IDS, encoding="ascii", newline="") as file:
        rows = [(row["number"], row["name"]) for row in csv.DictReader(file)]
    cases = "".join(f'case {number}u:\n    return "{name}";\n' for number, name in rows)
    keys = "".join(f"{name}, {number}u\n" for number, name in rows)
    (folder / "names_switch.inc").write_text(cases, encoding="ascii")
    (folder / "names.gperf").write_text(GPERF_HEAD + keys + GPERF_TAIL, encoding="ascii")


if __name__ == "__main__":
    main()
