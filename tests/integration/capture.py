# SPDX-License-Identifier: MIT
"""tshark on the packets of one address, and what it makes of them."""

import os
import re
import shutil
import signal
import socket
import subprocess
from collections import namedtuple

import pytest

from processes import Process, until

DISCARD = 9
UDP_HEAD_BYTES = 8

Packet = namedtuple("Packet", "time source destination version type sequence timestamp ssrc marker payload")
RTP_FIELDS = [
    "frame.time_epoch",
    "udp.srcport",
    "udp.dstport",
    "rtp.version",
    "rtp.p_type",
    "rtp.seq",
    "rtp.timestamp",
    "rtp.ssrc",
    "rtp.marker",
    "rtp.payload",
]


class Capture:
    """tshark on the packets of one address. A packet to the port `discard` shows that all before was seen."""

    def __init__(self, system):
        if not shutil.which("tshark"):
            pytest.skip("tshark is not installed")
        self.address = system.address
        self.file = system.folder / "packets.pcapng"
        environment = {**system.environment, "HOME": str(system.folder)}
        # -P: a line for each packet as well, for us to know how far it has come.
        words = [
            "tshark",
            "-i",
            "lo",
            "-n",
            "-B",
            "16",
            "-f",
            f"udp and host {self.address}",
            "-w",
            self.file,
            "-P",
            "-l",
            "-T",
            "fields",
            "-e",
            "udp.srcport",
            "-e",
            "udp.dstport",
            "-e",
            "udp.length",
        ]
        self.process = Process("tshark", words, environment)
        system.processes.append(self.process)
        self.probes = 0
        # One for all, and kept: no socket of a call is then given a port that a probe came from.
        self.probe = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        until("tshark captures", self.knocks)

    def knocks(self):
        if not self.process.running:
            self.process.wait()
            said = "\n".join(self.process.err.all)
            if re.search("permission|not permitted|no interfaces", said, re.IGNORECASE):
                pytest.skip(f"no right to capture on the loopback: {said}")
            pytest.fail(f"tshark ended: {said}")
        self.knock()
        return self.process.out.since(0, rf"\t{DISCARD}\t")

    def knock(self):
        self.probes += 1
        self.probe.sendto(b"p" * self.probes, (self.address, DISCARD))

    def wait_for(self, here, there, count):
        """So many packets from one port to another."""
        until(
            f"{count} packets from port {here}", lambda: len(self.process.out.since(0, rf"^{here}\t{there}\t")) >= count
        )

    def stop(self):
        """Ends the capture after everything that was sent so far."""
        self.knock()
        self.process.expect(rf"\t{DISCARD}\t{UDP_HEAD_BYTES + self.probes}$")
        self.process.child.send_signal(signal.SIGINT)
        assert self.process.wait() == 0
        self.probe.close()
        assert not re.search(r"[1-9]\d* packets? dropped", "\n".join(self.process.err.all)), "the capture has holes"

    def read(self, ports, *arguments):
        """tshark's output on the capture, with the given ports decoded as RTP and those above them as RTCP."""
        decode = []
        for port in ports:
            decode += ["-d", f"udp.port=={port},rtp", "-d", f"udp.port=={port + 1},rtcp"]
        words = ["tshark", "-n", "-r", self.file, *decode, *arguments]
        environment = {
            "PATH": os.environ.get("PATH", "/usr/bin:/bin"),
            "HOME": str(self.file.parent),
            "LC_ALL": "C.UTF-8",
        }
        return subprocess.run(
            words, env=environment, check=True, capture_output=True, text=True, timeout=60
        ).stdout.splitlines()

    def fields(self, ports, condition, names):
        arguments = ["-Y", condition, "-T", "fields"]
        for name in names:
            arguments += ["-e", name]
        return [row.split("\t") for row in self.read(ports, *arguments)]

    def rtp(self, ports):
        """The RTP packets by the port that sent them."""
        sent = {port: [] for port in ports}
        for row in self.fields(ports, "rtp", RTP_FIELDS):
            packet = Packet(
                float(row[0]),
                int(row[1]),
                int(row[2]),
                int(row[3]),
                int(row[4]),
                int(row[5]),
                int(row[6]),
                row[7],
                row[8] in ("1", "True"),
                bytes.fromhex(row[9]),
            )
            sent[packet.source].append(packet)
        return sent
