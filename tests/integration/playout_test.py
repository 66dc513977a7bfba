# SPDX-License-Identifier: MIT
"""What is heard of a stream with losses, duplicates, swapped neighbours and late packets, sample by sample: a telephone
against GStreamer's jitter buffer, which gets the same packets at the same moments and waits as long."""

import random
import shutil
import socket
import subprocess
import time
from pathlib import Path

import pytest

import recordings
from faulty_calls import FakeApplication, set_record
from media import FRAME_BYTES, FRAME_MS, Pair, connection, item, own_address, rtp
from processes import Process, until
from wire import Fd, U32

PACKETS = 150
FRAME_SAMPLES = 160
WAIT_MS = 60
LATE_MS = 200  # comes after its time, whoever waits
TRIALS = 8  # in which a machine without time may stop one of the two
NEEDED = ("udpsrc", "rtpjitterbuffer", "rtppcmadepay", "alawdec")


def alaw_decoded(code):
    """ITU-T G.711, by the standard's table of segments."""
    code ^= 0x55
    segment, step = code >> 4 & 7, code & 15
    value = (step << 4) + 8 if segment == 0 else ((step << 4) + 0x108) << segment - 1
    return value if code & 0x80 else -value


def payloads(seed):
    """Noise, so that no frame is like another one."""
    chance = random.Random(seed)
    return [bytes(chance.randrange(256) for _ in range(FRAME_BYTES)) for _ in range(PACKETS)]


def schedule(frames, seed):
    """When each packet is sent, in ms, and the packets that are lost or too late."""
    chance = random.Random(seed)
    sent, missing = [], set()
    for place, payload in enumerate(frames):
        packet = rtp(place + 1000, place * FRAME_SAMPLES + 5000, payload=payload)
        fate = chance.randrange(100) if 10 < place < PACKETS - 20 else 99
        at = place * FRAME_MS + chance.uniform(0, 8)
        if fate < 6:
            missing.add(place)
        elif fate < 9:
            missing.add(place)
            sent.append((at + LATE_MS, packet))
        elif fate < 15:
            sent.append((at + FRAME_MS + 8, packet))  # behind its neighbour
        else:
            sent.append((at, packet))
        if 15 <= fate < 20:
            sent.append((at + chance.uniform(0, 30), packet))  # twice
    return sorted(sent), missing


class Telephone(FakeApplication):
    """One that waits for as long as the other does, and is recorded."""

    def __init__(self, system):
        super().__init__(system, "fxs1", "fxs_plugin", "--lines", "1")
        self.file = system.folder / "telephone.wav"

    def ask(self, function, arguments):
        return self.peer.call("fxs1.EndPoint.FXS1", function, arguments, answer=self.answer).result

    def set(self, name, value):
        items = item("LIBVOICE_PARAM_zil_ep_id", 0) + item(f"LIBVOICE_PARAM_{name}", value)
        assert self.ask("set", [("param_set_params", set_record(len(items), items))]) is True
        self.plugin.expect(f"^1 param {name}={value}$")

    def start(self, pair):
        self.set("ajb_enabjb", 0)
        self.set("ajb_jitnom", WAIT_MS)
        files = [Fd(number) for number in pair.filenos()]
        wanted = [("ep_line_id", U32(0)), ("filedesc", files), ("cnx_info", connection(mode=2))]
        assert self.ask("create", wanted) is True
        self.plugin.ask(f"1 record {self.file}")

    def stop(self):
        assert self.ask("destroy", [("ep_line_id", U32(0))]) is True
        self.plugin.ask("1 record off")
        return recordings.read(self.file)[0]


class Stranger:
    """GStreamer on a port of its own."""

    def __init__(self, system):
        for name in NEEDED:
            if not shutil.which("gst-launch-1.0") or subprocess.run(["gst-inspect-1.0", "--exists", name]).returncode:
                pytest.skip(f"gstreamer's {name} is not installed (gstreamer1.0-tools, gstreamer1.0-plugins-good)")
        self.file = system.folder / "stranger.raw"
        self.address = (system.address, 40000)
        caps = "application/x-rtp,media=audio,clock-rate=8000,encoding-name=PCMA,payload=8"
        words = (
            f"udpsrc address={system.address} port={self.address[1]} caps={caps} ! rtpjitterbuffer latency={WAIT_MS}"
        )
        words += f" ! rtppcmadepay ! alawdec ! audio/x-raw,format=S16LE ! filesink location={self.file} buffer-mode=2"
        self.process = Process("gstreamer", ["gst-launch-1.0", "-q", *words.split()], system.environment)
        system.processes.append(self.process)
        until("it listens", self.listens)

    def listens(self):
        assert self.process.running
        packed = socket.inet_aton(self.address[0])[::-1].hex().upper()
        return f"{packed}:{self.address[1]:04X}" in Path("/proc/net/udp").read_text()

    def stop(self):
        self.process.terminate()
        samples = recordings.array.array("h", self.file.read_bytes()[: self.file.stat().st_size // 2 * 2])
        if recordings.sys.byteorder == "big":
            samples.byteswap()
        return samples


def is_frame(samples, at, frame):
    """Whether a frame stands there; the edges beside something made up may be softened."""
    equal = sum(a == b for a, b in zip(samples[at : at + FRAME_SAMPLES], frame))
    return equal >= FRAME_SAMPLES * 3 // 4


def begin_of(samples, frame):
    """Where the first frame begins."""
    first = recordings.array.array("h", frame).tobytes()
    at = samples.tobytes().find(first)
    assert at >= 0 and at % 2 == 0, "the first frame was not played"
    return at // 2


def in_place(samples, frames):
    """Frames at their time: so many samples behind the first as their RTP time says."""
    begin = begin_of(samples, frames[0])
    return {k for k, frame in enumerate(frames) if is_frame(samples, begin + k * FRAME_SAMPLES, frame)}


def in_order(samples, frames):
    """Frames behind one another, whatever was left out between them."""
    at, found = begin_of(samples, frames[0]), set()
    for k, frame in enumerate(frames):
        if is_frame(samples, at, frame):
            found.add(k)
            at += FRAME_SAMPLES
    return found


def trial(system, seed):
    """Frames that the telephone played in place, those that the other one played in order, and what was missing."""
    coded = payloads(seed)
    frames = [[alaw_decoded(code) for code in payload] for payload in coded]
    sent, missing = schedule(coded, seed)
    stranger, telephone = Stranger(system), Telephone(system)
    near, far = Pair(system.address), Pair(system.address)
    telephone.start(near.connect(far))
    far.connect(near)
    other = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    begin = time.monotonic()
    for when, packet in sent:
        time.sleep(max(0, begin + when / 1000 - time.monotonic()))
        other.sendto(packet, stranger.address)
        far.sockets[0].send(packet)
    size = telephone.file.stat().st_size
    until("the rest is played", lambda: telephone.file.stat().st_size > size + 32000 * 0.5)
    mine, theirs = in_place(telephone.stop(), frames), in_order(stranger.stop(), frames)
    for one in (telephone, near, far, other):
        one.close()
    system.forget(telephone.plugin)
    system.socket.unlink()
    return mine, theirs, missing


def test_as_many_frames_are_in_place_as_gstreamer_plays(system):
    system.address = own_address()
    for seed in range(1, TRIALS + 1):
        mine, theirs, missing = trial(system, seed)
        print(f"seed {seed}: {PACKETS} frames, {len(missing)} lost or late; in place {len(mine)}, there {len(theirs)}")
        assert len(missing) > 5
        assert not mine & missing
        if len(mine) >= len(theirs):
            return
    raise AssertionError(f"{len(mine)} frames in place, GStreamer has {len(theirs)}")
