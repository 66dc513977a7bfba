# SPDX-License-Identifier: MIT
"""Media of the simulated telephones, seen from outside: addresses, sockets, packets and records."""

import os
import re
import socket
from pathlib import Path

from processes import own_address
from target import struct

# How media sockets come to be: opened by the application and handed over, or opened in the plugin from addresses.
FORMS = {"descriptors": [], "addresses": ["--convert-media"]}

PCMU, PCMA = 0, 8  # codec numbers, and payload types alike
FRAME_MS = 20
FRAME_BYTES = 160
CNX_INFO_BYTES = 704
STREAM_INFO_BYTES = 712
# Freed blocks that the C library keeps at hand would count as allocated.
EXACT_HEAP = {"GLIBC_TUNABLES": "glibc.malloc.tcache_count=0"}
FIRST_PORT, LAST_PORT = 30000, 30199

STATISTICS = re.compile(
    r"line=(?P<line>\d) tx=(?P<tx>\d+) rx=(?P<rx>\d+) lost=(?P<lost>\d+) discarded=(?P<discarded>\d+) "
)
REPORT = re.compile(
    r"^stats call=(?P<call>\d+) line=(?P<line>\d+) tx=(?P<tx>\d+) txbytes=(?P<txbytes>\d+) rx=(?P<rx>\d+) "
    r"rxbytes=(?P<rxbytes>\d+) lost=(?P<lost>\d+) discarded=(?P<discarded>\d+)"
)

_IDS = (Path(__file__).resolve().parents[2] / "include" / "libvoice_ids.h").read_text()


def identifier(name):
    """The number of a signal, event or parameter, from the public header."""
    return int(re.search(rf"\b{name}\b\D*?(0x[0-9A-Fa-f]+)", _IDS).group(1), 16)


def start_application(system, *words, ports=(FIRST_PORT, LAST_PORT)):
    """The application with media on an address of its own."""
    system.address = own_address()
    plan = system.folder / "plan.conf"
    plan.write_text(f"address {system.address}\nports {ports[0]}-{ports[1]}\n")
    return system.start_application("--config", plan, *words)


def numbers(match):
    """The named figures of a match, as numbers."""
    return {name: int(figure) for name, figure in match.groupdict().items()}


def udp_sockets(process):
    """Local and remote port of each UDP socket that a process holds."""
    ports = {}
    for row in Path(f"/proc/{process.pid}/net/udp").read_text().splitlines()[1:]:
        fields = row.split()
        ports[f"socket:[{fields[9]}]"] = tuple(int(end.rpartition(":")[2], 16) for end in fields[1:3])
    return sorted(ports[target] for target in open_files(process) if target in ports)


def open_files(process):
    """What each descriptor of a process stands for."""
    folder = f"/proc/{process.pid}/fd"
    targets = []
    for name in os.listdir(folder):
        try:
            targets.append(os.readlink(f"{folder}/{name}"))
        except FileNotFoundError:
            pass
    return targets


def held(process):
    """The kinds of what a process keeps open. The clock of all sound is made with the first sound and stays."""
    return sorted(target.partition(":")[0] for target in open_files(process) if "timerfd" not in target)


def heap(process):
    """Bytes that a host has allocated."""
    answer = process.ask("memory")
    return next(int(line.partition("=")[2]) for line in answer if line.startswith("memory heap="))


def settled_heap(process):
    """The same without what still waits for the end of a turn of the loop."""
    return min(heap(process) for _ in range(10))


def is_heap_kept(process, before):
    """
    Whether a heap is what it was. The C library may hand out a block that is 16 bytes larger than asked, where the rest
    would be too small to be a block: four such rests may be there. What is lost by each of ten calls is far more.
    """
    rests = 4 * 16
    return settled_heap(process) - before <= rests


def item(name, value):
    """One item of a parameter buffer; a value is a word or bytes."""
    raw = value if isinstance(value, bytes) else struct.pack("=i", value)
    return struct.pack("=II", identifier(name), len(raw)) + raw + bytes(-len(raw) % 4)


def items(buffer):
    """The words of a parameter buffer by identifier."""
    found = {}
    at = 0
    while at < len(buffer):
        number, length = struct.unpack_from("=II", buffer, at)
        found[number] = struct.unpack_from("=I", buffer, at + 8)[0] if length == 4 else buffer[at + 8 : at + 8 + length]
        at += 8 + (length + 3 & ~3)
    return found


def description(codec=PCMA, payload=None, mode=3):
    """Version, length and the items that both media records share."""
    payload = codec if payload is None else payload
    words = {
        "stream_mode": mode,
        "upstream_codec": codec,
        "upstream_ptime": FRAME_MS,
        "upstream_payload": payload,
        "downstream_codec": codec,
        "downstream_ptime": FRAME_MS,
        "downstream_payload": payload,
    }
    buffer = b"".join(item(f"LIBVOICE_PARAM_sdp_{name}", word) for name, word in words.items())
    return struct.pack("=II", 1, len(buffer)) + buffer.ljust(CNX_INFO_BYTES - 8, b"\0")


def address(host, port):
    """An IPv4 socket address, as a record carries it."""
    return struct.pack("=H", socket.AF_INET) + struct.pack("!H4s8x", port, socket.inet_aton(host))


def connection(local=None, remote=None, **wanted):
    """Connection information; with two addresses in its longer form."""
    return description(**wanted) + (address(*local) + address(*remote) if local else b"")


def stream(number, mode=3, **wanted):
    """Stream information."""
    return struct.pack("=II", number, mode) + description(mode=mode, **wanted)


class Pair:
    """A media socket and its control socket, on neighbouring ports that were free."""

    def __init__(self, host):
        while True:
            self.sockets = [socket.socket(socket.AF_INET, socket.SOCK_DGRAM) for _ in range(2)]
            self.sockets[0].bind((host, 0))
            self.port = self.sockets[0].getsockname()[1]
            try:
                self.sockets[1].bind((host, self.port + 1))
                break
            except (OSError, OverflowError):
                self.close()
        self.host = host

    @classmethod
    def at(cls, host, port):
        """The pair at a given port."""
        pair = cls.__new__(cls)
        pair.host, pair.port = host, port
        pair.sockets = [socket.socket(socket.AF_INET, socket.SOCK_DGRAM) for _ in range(2)]
        for place, one in enumerate(pair.sockets):
            one.bind((host, port + place))
        return pair

    def connect(self, other):
        for place, one in enumerate(self.sockets):
            one.connect((other.host, other.port + place))
        return self

    def filenos(self):
        return [one.fileno() for one in self.sockets]

    def close(self):
        for one in self.sockets:
            one.close()


def rtp(sequence, timestamp, payload_type=PCMA, source=0x1234, payload=b"\xd5" * FRAME_BYTES):
    return struct.pack("!BBHII", 0x80, payload_type, sequence & 0xFFFF, timestamp & 0xFFFFFFFF, source) + payload
