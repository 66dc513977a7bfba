# shellcheck shell=bash
# Which programs of tests there are, by the build's lists of them: a program may have several files. Sourced from the root of
# the tree.

# unit_test_programs, bus_test_programs: their names, one a row.
unit_test_programs() { sed -n 's/^voice_unit_test(\(\w*\).*/\1_test/p' tests/unit/CMakeLists.txt; }
bus_test_programs() { sed -n 's/^kex_test(\(\w*\).*/kex_\1_test/p' bus/tests/CMakeLists.txt; }
