#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The golden records say the same in both byte orders, and every record and kind of packet is among them."""

import re
import sys
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
RECORDS = Path(__file__).with_name("records.txt")
LIBRARY = ["signal", "event", "parameter-set", "parameter-buffer", "codec-record", "data-block"]


def records():
    """name -> order -> tokens: hexadecimal numbers, and texts in quotes."""
    found = {}
    for line in RECORDS.read_text(encoding="ascii").splitlines():
        if head := re.match(r"\[([\w-]+)\] \S", line):
            rows = found.setdefault(head[1], {})
        elif row := re.match(r"(little|big   )? *(.*)", line):
            if line.startswith("#") or not line:
                continue
            if row[1]:
                tokens = rows.setdefault(row[1].strip(), [])
            tokens += re.findall(r'"[^"]*"|[0-9A-F]+', row[2])
    return found


def turned(token):
    """A number as it lies in memory in the other byte order."""
    return bytes.fromhex(token)[::-1].hex().upper()


class Golden(unittest.TestCase):
    def test_both_orders_hold_the_same_numbers_and_texts(self):
        for name, rows in records().items():
            with self.subTest(name):
                self.assertEqual(sorted(rows), ["big", "little"])
                wanted = ['"B"' if t == '"l"' else t if t[0] == '"' else turned(t) for t in rows["little"]]
                self.assertEqual(rows["big"], wanted)

    def test_every_record_and_kind_of_packet_is_there(self):
        layout = (ROOT / "bus/src/value/layout.h").read_text(encoding="utf-8")
        kinds = re.findall(r"^    k(\w+) = (\d+),$", layout, re.MULTILINE)
        self.assertGreater(len(kinds), 8)
        found = records()
        together = found.pop("packet")
        self.assertEqual(together["little"].count('"k"'), 2, "several messages in one packet")
        packets = {rows["little"][3]: name for name, rows in found.items() if rows["little"][0] == '"k"'}
        self.assertEqual(sorted(packets), sorted(f"{int(number):02X}" for _, number in kinds))
        self.assertEqual(sorted(found), sorted(LIBRARY + list(packets.values())))


if __name__ == "__main__":
    sys.exit(unittest.main())
