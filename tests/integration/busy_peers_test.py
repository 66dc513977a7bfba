# SPDX-License-Identifier: MIT
"""Peers that send all they can: whoever else calls something is answered soon, newcomers too.

A second system that nobody disturbs is asked at the same moments: what it takes longer there is the machine's own load.
"""

import statistics
import subprocess
import sys
import time
from pathlib import Path

import pytest
from busy_peer import PER_PROCESS
from processes import System
from wire import RawPeer

LIST = ("kex", "list", [])
BUSY = Path(__file__).with_name("busy_peer.py")


def start_busy_process(path):
    child = subprocess.Popen([sys.executable, str(BUSY), str(path)], stdout=subprocess.PIPE, text=True)
    assert child.stdout.readline() == "busy\n"
    return child


def seconds_of(action):
    begin = time.monotonic()
    action()
    return time.monotonic() - begin


def newcomer_is_answered(path):
    with RawPeer.connect(path, "newcomer") as peer:
        assert peer.call(*LIST).result is not None


@pytest.mark.parametrize("busy", [8, 48])
def test_who_calls_little_waits_little_beside_busy_peers(system, busy):
    system.start_application()
    children = []
    with System() as twin, RawPeer.connect(system.socket) as peer:
        twin.start_application()
        with RawPeer.connect(twin.socket) as other:
            try:
                for _ in range(busy // PER_PROCESS):
                    children.append(start_busy_process(system.socket))
                waits, newcomers, quiet = [], [], []
                for _ in range(40):
                    quiet.append(seconds_of(lambda: other.call(*LIST)))
                    waits.append(seconds_of(lambda: peer.call(*LIST)))
                    newcomers.append(seconds_of(lambda: newcomer_is_answered(system.socket)))
            finally:
                for child in children:
                    child.kill()
                    child.wait()
                    child.stdout.close()
    for name, figures in ("known", waits), ("newcomer", newcomers), ("quiet twin", quiet):
        print(f"{busy} busy, {name}: median {statistics.median(figures):.4f} s, most {max(figures):.4f} s")
    allowed = 0.1 + max(quiet)
    assert statistics.quantiles(waits, n=10)[-1] <= allowed
    assert statistics.quantiles(newcomers, n=10)[-1] <= allowed
