#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""docs/layouts.py understands headers and numbers, and notices what is written down nowhere."""

import sys
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent))
import layouts  # noqa: E402

HEADER = """
/** typedef struct none { int a; } none_t; */
typedef struct one {
    uint32_t used;       /**< in use; or not */
    char name[NAME + 1]; /**< text */
    void *data;
} one_t;
typedef struct two {
    int32_t (*first)(const one_t *, uint32_t);
    void (*second)(struct peer *peer,
                   int event);
} two_t;
"""
NUMBERS = """
SIZE(one_t, N(32, 28));
AT(one_t, used, 0);
AT(one_t, name, 4);
AT(one_t, data, N3(24, 24, 20));
SIZE(two_t, N(16, 8));
CALLBACK(two_t, first, 0);
CALLBACK(two_t, second, 1);
"""


class Layouts(unittest.TestCase):
    def faults(self, numbers):
        return list(layouts.faults(layouts.declared(HEADER), layouts.written([numbers])))

    def test_members_of_structures_are_found(self):
        self.assertEqual(layouts.declared(HEADER), {"one_t": ["used", "name", "data"], "two_t": ["first", "second"]})

    def test_page_shows_each_number(self):
        rows = layouts.page(layouts.written([NUMBERS]), layouts.declared(HEADER)).splitlines()[-2:]
        self.assertEqual(
            rows,
            [
                "| `one_t` | 32 (32-bit 28) | `used` 0, `name` 4, `data` 24 (32-bit 24, i386 20) |",
                "| `two_t` | 16 (32-bit 8) | `first` 0, `second` 8 (32-bit 4) |",
            ],
        )

    def test_what_is_missing_is_named(self):
        self.assertEqual(self.faults(NUMBERS), [])
        for row, fault in [
            ("SIZE(one_t, N(32, 28));", "one_t: its size is written down nowhere"),
            ("AT(one_t, name, 4);", "one_t: the offset of name is written down nowhere"),
            ("CALLBACK(two_t, second, 1);", "two_t: the offset of second is written down nowhere"),
        ]:
            with self.subTest(row):
                self.assertEqual(self.faults(NUMBERS.replace(row, "")), [fault])


if __name__ == "__main__":
    unittest.main()
