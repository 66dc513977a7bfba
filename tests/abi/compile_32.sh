#!/bin/sh
# SPDX-License-Identifier: MIT
# Compiles the layout for 32-bit targets with every compiler found; status 77 (skipped) when there is none.
# usage: compile_32.sh CC FILE INCLUDE...
cc=$1 file=$2
shift 2
tried=0
for target in "$cc -m32" i686-linux-gnu-gcc mips-linux-gnu-gcc powerpc-linux-gnu-gcc arm-linux-gnueabihf-gcc; do
    echo '#include <stdint.h>' | $target -x c -fsyntax-only - 2>/dev/null || continue
    echo "with $target"
    tried=1
    $target -std=c11 -Wall -Wextra -Wpedantic -Werror -fsyntax-only "$@" "$file" || exit 1
done
[ "$tried" = 1 ] || { echo "no compiler for a 32-bit target (gcc-multilib or a cross compiler)"; exit 77; }
