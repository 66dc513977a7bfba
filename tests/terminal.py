# SPDX-License-Identifier: MIT
"""A terminal for a process to write to, whatever the test itself runs on."""

import fcntl
import os
import pty
import struct
import subprocess
import termios
import threading
import unittest

LIMIT = 20  # seconds from the process's end to the last that it wrote


class Terminal:
    """One terminal for one process. A test that makes one is skipped where there are none."""

    def __init__(self, columns=80):
        try:
            self._ours, self._theirs = pty.openpty()
        except OSError as problem:
            raise unittest.SkipTest(f"no terminal here: {problem}") from None
        fcntl.ioctl(self._theirs, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
        self.written = b""  # so far
        self._reader = threading.Thread(target=self._read, daemon=True)

    def start(self, words, **options):
        """The process with its standard output here; stderr=STDOUT for both."""
        process = subprocess.Popen(words, stdout=self._theirs, **options)
        os.close(self._theirs)
        self._reader.start()
        return process

    def _read(self):
        try:
            while part := os.read(self._ours, 65536):
                self.written += part
        except OSError:  # so a terminal ends when nobody has its other side
            pass
        os.close(self._ours)

    def finish(self):
        """All that was written, once the process has ended."""
        self._reader.join(LIMIT)
        return self.written
