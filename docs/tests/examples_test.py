#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The pages' programs at work: with each other, with the hosts, and set up wrongly."""

import os
import selectors
import signal
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

BIN = Path(sys.argv[1])
LIMIT = 20  # seconds


class Program:
    """A running program, its output read row by row. Its standard error, mostly traces, stays aside."""

    def __init__(self, test, environment, name, *arguments, traces=subprocess.DEVNULL):
        self.process = subprocess.Popen(
            [BIN / name, *arguments], env=environment, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=traces
        )
        test.addCleanup(self.end)
        self.test = test
        self.rest = b""

    def end(self):
        self.process.kill()
        self.process.communicate()

    def type(self, line):
        self.process.stdin.write(line.encode() + b"\n")
        self.process.stdin.flush()

    def next_line(self, expected):
        with selectors.DefaultSelector() as selector:
            selector.register(self.process.stdout, selectors.EVENT_READ)
            deadline = time.monotonic() + LIMIT
            while b"\n" not in self.rest:
                if not selector.select(max(0, deadline - time.monotonic())):
                    self.test.fail(f"nothing after {LIMIT} s, expected: {expected}")
                data = os.read(self.process.stdout.fileno(), 4096)
                if not data:
                    self.test.fail(f"the end, expected: {expected}")
                self.rest += data
        got, _, self.rest = self.rest.partition(b"\n")
        return got.decode()

    def expect(self, *lines):
        """The next lines of standard output are these."""
        for line in lines:
            self.test.assertEqual(self.next_line(line), line)

    def find(self, line):
        """This line comes, after any others."""
        while self.next_line(line) != line:
            pass

    def find_part(self, text):
        """A line with this text comes, after any others."""
        while text not in self.next_line(text):
            pass

    def terminate(self):
        self.process.terminate()
        self.test.assertEqual(self.process.wait(LIMIT), 0)


class Examples(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        path = os.path.join(folder.name, "socket")
        self.environment = dict(
            os.environ, ZIL_VOIP_IPC_SOCKET=path, ZIL_VOIP_IPC_SOCKET_URI=f"kex://ipc:[{path}]", KEX_TIME_FACTOR="100"
        )  # whoever starts first is met within 100 ms

    def start(self, name, *arguments, traces=subprocess.DEVNULL, **variables):
        return Program(self, dict(self.environment, **variables), name, *arguments, traces=traces)

    def test_dial_tone(self):
        application = self.start("tone_giver")
        telephone = self.start("telephone")
        application.expect("tel.EndPoint.TEL1 is endpoint 0", "TEL1: LIBVOICE_EVENT_al_of")
        telephone.expect("begins LIBVOICE_SIGNAL_cg_dt")
        telephone.process.kill()
        application.expect("tel.EndPoint.TEL1 is gone")

    def test_intercom(self):
        """Two of the simulated telephones hear each other by the media that the application sets up."""
        intercom = self.start("intercom")
        telephones = self.start("fxs_plugin", "--name", "fxs1", KEX_TIME_FACTOR="1")
        intercom.expect("FXS1 has the gain -3", "FXS2 has the gain -3")
        telephones.find("ready country=DE lines=2")
        telephones.type("1 off")
        telephones.find("1 plays dial-tone")
        telephones.type("2 off")
        intercom.expect("FXS1 and FXS2 talk")
        telephones.find("2 hears 1000Hz")  # what telephone 1 says
        telephones.type("1 on")
        telephones.find("2 plays busy-tone")
        heard = sorted(intercom.next_line("statistics of both") for _ in range(2))
        self.assertEqual(heard[1], "FXS2 has received speech")
        self.assertRegex(heard[0], "^FXS1 has received (speech|nothing)$")
        telephones.process.kill()

    def test_intercom_with_a_telephone_without_media(self):
        """Its rejection ends the call: who talked to it hears that, and the next call is as good as the first."""
        intercom = self.start("intercom")
        telephones = self.start("fxs_plugin", "--name", "fxs1", KEX_TIME_FACTOR="1")
        telephones.find("ready country=DE lines=2")
        telephones.type("1 off")
        telephones.find("1 plays dial-tone")
        telephone = self.start("telephone")
        intercom.find("FXS1 and TEL1 talk")
        intercom.find("TEL1: no media here")
        telephones.find("1 plays busy-tone")
        telephones.type("1 on")
        telephones.type("2 off")
        telephones.find("2 plays dial-tone")
        telephones.type("1 off")
        intercom.find("FXS2 and FXS1 talk")
        telephones.find("1 hears 1040Hz")  # what telephone 2 says
        telephone.process.kill()

    def test_intercom_with_two_telephones_of_one_name(self):
        """The second one waits until the first is gone: neither takes the other's line along."""
        intercom = self.start("intercom")
        telephone = self.start("telephone")
        telephone.expect("begins LIBVOICE_SIGNAL_cg_dt")
        second = self.start("telephone", traces=subprocess.STDOUT)
        second.find_part("Plugin registration failed. Trying again in 10s.")
        telephone.process.kill()
        second.find("begins LIBVOICE_SIGNAL_cg_dt")
        second.process.kill()
        intercom.process.kill()

    def test_echo(self):
        """The driver of the guide under the real application: called by a telephone, it says back what that says."""
        application = self.start("voice_application", KEX_TIME_FACTOR="1")
        application.expect(f"ready socket={self.environment['ZIL_VOIP_IPC_SOCKET']} country=DE")
        echo = self.start("echo_plugin", KEX_TIME_FACTOR="1")
        echo.expect("ECHO1 registered", "ECHO2 registered")
        telephones = self.start("fxs_plugin", "--name", "fxs1", KEX_TIME_FACTOR="1")
        telephones.find("ready country=DE lines=2")
        telephones.type("1 off")
        telephones.find("1 plays dial-tone")
        telephones.type("1 dial 301")
        echo.expect("ECHO1 echoes")
        telephones.find("1 hears 1000Hz")  # its own voice
        application.type("set 301 tdmc_ec 1")
        telephones.find("1 hears silence")
        application.type("get 301 tdmc_ec")
        application.find("param 301 tdmc_ec=1")
        application.type("set 301 tdmc_ec 0")
        telephones.find("1 hears 1000Hz")
        application.type("codec 101 PCMU")
        echo.expect("ECHO1 echoes")
        telephones.type("1 on")
        echo.expect("ECHO1 silent")
        application.find("line 301 idle")
        echo.terminate()
        application.find("plugin echo3 left")

    def test_echo_comes_back(self):
        """The application is killed in a call and started again: the lines are there again."""
        application = self.start("voice_application", "--no-stdin", KEX_TIME_FACTOR="1")
        application.expect(f"ready socket={self.environment['ZIL_VOIP_IPC_SOCKET']} country=DE")
        echo = self.start("echo_plugin")
        echo.expect("ECHO1 registered", "ECHO2 registered")
        application.process.kill()
        application.process.wait(LIMIT)
        again = self.start("voice_application", "--no-stdin", KEX_TIME_FACTOR="1")
        echo.expect("ECHO1 registered", "ECHO2 registered")
        again.find("endpoint 1 echo3.ECHO2 number=302 codecs=PCMA,PCMU")
        echo.terminate()
        again.find("plugin echo3 left")

    def test_channels(self):
        """The DSP plugin of the page: the application makes channels in it, gives them media and another codec."""
        application = self.start("voice_application", KEX_TIME_FACTOR="1")
        channels = self.start("channels")
        application.find("plugin dsp1 registered")
        application.type("dsp dsp1")
        channels.expect("D1C1 has media, codec 8", "D1C2 has media, codec 8", "D1C1 begins LIBVOICE_SIGNAL_cg_rt")
        application.find("dsp dsp1 signal D1C1: true")
        application.type("dsp dsp1 codec PCMU")
        channels.expect("D1C1 has media, codec 0", "D1C2 has media, codec 0")
        application.type("dsp dsp1 destroy")
        channels.expect("D1C1 has no media", "D1C2 has no media")

    def test_echo_leaves_an_application_that_hangs(self):
        """SIGTERM ends the driver of the guide also where its leave is not answered, or a registration waits."""
        application = self.start("voice_application", "--no-stdin", KEX_TIME_FACTOR="1")
        application.find_part("ready ")
        registered = self.start("echo_plugin")
        registered.find("ECHO2 registered")
        application.process.send_signal(signal.SIGSTOP)
        registered.terminate()
        waiting = self.start("echo_plugin", KEX_TIME_FACTOR="1", traces=subprocess.STDOUT)
        waiting.find_part("to answer 'register_plugin'")
        waiting.terminate()

    def test_no_application(self):
        """Nobody to take leave of: it ends at once."""
        echo = self.start("echo_plugin", traces=subprocess.STDOUT)
        echo.find_part("Can't connect to")
        echo.terminate()

    def test_second_application(self):
        """One that cannot listen says so, and ends."""
        self.start("voice_application", "--no-stdin").find_part("ready ")
        second = self.start("tone_giver", traces=subprocess.STDOUT)
        second.find_part("tone_giver: cannot listen at the path that ZIL_VOIP_IPC_SOCKET names")
        self.assertEqual(second.process.wait(LIMIT), 1)

    def test_no_folder(self):
        second = self.start("intercom", traces=subprocess.STDOUT, ZIL_VOIP_IPC_SOCKET="/nonexistent/socket")
        second.find_part("intercom: cannot listen at the path that ZIL_VOIP_IPC_SOCKET names")
        self.assertEqual(second.process.wait(LIMIT), 1)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
