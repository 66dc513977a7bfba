#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The hosts' sources use nothing of a C++ library: gateways have none, and with musl none is there to compile with."""

import pathlib
import re
import unittest

HOSTS = pathlib.Path(__file__).resolve().parents[1]
CPP_HEADERS = {"initializer_list"}  # the compiler's own
INCLUDE = re.compile(r"^\s*#\s*include\s*<([^>.]+)>", re.MULTILINE)


def cpp_headers(text):
    """Of what is included in angle brackets, what has no ending: the C++ library's headers."""
    return set(INCLUDE.findall(text)) - CPP_HEADERS


class Headers(unittest.TestCase):
    def test_hosts_use_no_cpp_library(self):
        sources = [path for ending in ("cpp", "h") for path in HOSTS.rglob(f"*.{ending}")]
        shipped = [path for path in sources if "tests" not in path.relative_to(HOSTS).parts]
        self.assertGreater(len(shipped), 50)
        found = {path.name: names for path in shipped if (names := cpp_headers(path.read_text(encoding="utf-8")))}
        self.assertEqual(found, {})

    def test_header_of_the_cpp_library_is_seen(self):
        text = "#include <stdlib.h>\n# include <atomic>\n#include <initializer_list>\n"
        self.assertEqual(cpp_headers(text), {"atomic"})


if __name__ == "__main__":
    unittest.main()
