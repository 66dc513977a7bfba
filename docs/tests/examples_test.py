#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The pages' programs together: the application gives the telephone a dial tone, and notices when it is gone."""

import os
import selectors
import subprocess
import sys
import tempfile
import time
import unittest

APPLICATION, TELEPHONE = sys.argv[1:3]
LIMIT = 20  # seconds


class Program:
    """A running example, its output read line by line."""

    def __init__(self, test, path, environment):
        self.process = subprocess.Popen([path], env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                        stderr=subprocess.PIPE)
        test.addCleanup(self.end)
        self.test = test
        self.rest = b""

    def end(self):
        self.process.kill()
        self.process.communicate()

    def expect(self, line):
        """The next line of standard output is this one."""
        with selectors.DefaultSelector() as selector:
            selector.register(self.process.stdout, selectors.EVENT_READ)
            deadline = time.monotonic() + LIMIT
            while b"\n" not in self.rest:
                if not selector.select(max(0, deadline - time.monotonic())):
                    self.test.fail(f"nothing after {LIMIT} s, expected: {line}")
                data = os.read(self.process.stdout.fileno(), 4096)
                if not data:
                    self.test.fail(f"the end, expected: {line}")
                self.rest += data
        got, _, self.rest = self.rest.partition(b"\n")
        self.test.assertEqual(got.decode(), line)


class Examples(unittest.TestCase):
    def test_dial_tone(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        path = os.path.join(folder.name, "socket")
        environment = dict(os.environ, ZIL_VOIP_IPC_SOCKET=path, ZIL_VOIP_IPC_SOCKET_URI=f"kex://ipc:[{path}]",
                           KEX_TIME_FACTOR="100")  # whoever starts first is met within 100 ms
        application = Program(self, APPLICATION, environment)
        telephone = Program(self, TELEPHONE, environment)
        application.expect("tel.EndPoint.TEL1 is endpoint 0")
        application.expect("TEL1: LIBVOICE_EVENT_al_of")
        telephone.expect("begins LIBVOICE_SIGNAL_cg_dt")
        telephone.process.kill()
        application.expect("tel.EndPoint.TEL1 is gone")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
