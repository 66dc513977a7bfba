# SPDX-License-Identifier: MIT
"""The target of the programs under test, where it is not this machine's: records and packets that tests write and read
are in the target's byte order. For what travels in another order of its own, take the module struct."""

import os
import struct as own
import subprocess
import sys

BYTE_ORDER = os.environ.get("VOICE_BYTE_ORDER", sys.byteorder)  # "little" or "big"


def is_instrumented(program):
    """Whether it was built for ./test sanitize: it has an allocator of its own, and takes some four times as long."""
    return "libasan" in subprocess.run(["ldd", program], capture_output=True, text=True).stdout


class struct:
    """The module struct, where a form's "=" stands for the target's byte order in place of this machine's."""

    @staticmethod
    def form(text):
        return text.replace("=", "<" if BYTE_ORDER == "little" else ">")

    @staticmethod
    def pack(form, *values):
        return own.pack(struct.form(form), *values)

    @staticmethod
    def unpack(form, data):
        return own.unpack(struct.form(form), data)

    @staticmethod
    def unpack_from(form, data, at=0):
        return own.unpack_from(struct.form(form), data, at)

    @staticmethod
    def calcsize(form):
        return own.calcsize(struct.form(form))
