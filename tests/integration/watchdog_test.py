# SPDX-License-Identifier: MIT
"""Signs of life for a service manager: whoever starts a host can see whether its loop turns."""

import itertools
import os
import resource
import signal
import socket
import time

import pytest

from processes import PATIENCE, QUICK_RETRY, until

LIMIT = 400_000  # microseconds; a sign comes twice in it
PROGRAMS = ["voice_application", "fxs_plugin", "dect_plugin", "fxo_plugin", "dsp_plugin"]


class Manager:
    """The socket of a service manager, and what came there."""

    def __init__(self, address):
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.bind(str(address))
        self.socket.settimeout(PATIENCE)
        name = str(address).replace("\0", "@")
        self.environment = {"NOTIFY_SOCKET": name, "WATCHDOG_USEC": str(LIMIT)}

    def next(self):
        return self.socket.recv(64).decode()

    def waiting(self):
        """What came meanwhile."""
        came = []
        self.socket.setblocking(False)
        try:
            while True:
                came.append(self.socket.recv(64).decode())
        except BlockingIOError:
            self.socket.settimeout(PATIENCE)
            return came

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()


@pytest.mark.parametrize("program", PROGRAMS)
def test_loop_that_turns_is_seen(system, program):
    with Manager(system.folder / "manager") as manager:
        host = system.start(program, program, environment=manager.environment)
        assert manager.next() == "READY=1"
        assert [manager.next() for _ in range(4)] == ["WATCHDOG=1"] * 4
        assert host.terminate() == 0
        assert manager.waiting()[-1] == "STOPPING=1"


def test_name_that_no_file_has(system):
    with Manager(f"\0voice-{os.getpid()}") as manager:
        system.start_application(environment=manager.environment)
        assert [manager.next(), manager.next()] == ["READY=1", "WATCHDOG=1"]


@pytest.mark.parametrize("other", [{"WATCHDOG_PID": "1"}, {"WATCHDOG_USEC": "0"}, {"WATCHDOG_USEC": "soon"}])
def test_nobody_watches(system, other):
    with Manager(system.folder / "manager") as manager:
        application = system.start_application(environment={**manager.environment, **other})
        assert manager.next() == "READY=1"
        assert application.terminate() == 0
        assert manager.next() == "STOPPING=1"


@pytest.mark.parametrize("program", PROGRAMS)
def test_crash_is_seen_by_its_signal(system, program):
    with Manager(system.folder / "manager") as manager:
        host = system.start(program, program, environment=manager.environment)
        assert manager.next() == "READY=1"
        os.kill(host.pid, signal.SIGABRT)
        assert host.wait() == -signal.SIGABRT
        assert "STOPPING=1" not in manager.waiting()


def test_full_table_of_descriptors_takes_no_sign_away(system):
    with Manager(system.folder / "manager") as manager:
        application = system.start_application(environment=manager.environment)
        assert [manager.next(), manager.next()] == ["READY=1", "WATCHDOG=1"]
        application.ask("status")  # it is through with the sign
        held = {int(name) for name in os.listdir(f"/proc/{application.pid}/fd")}
        lowest_free = next(number for number in itertools.count() if number not in held)
        before = resource.prlimit(application.pid, resource.RLIMIT_NOFILE)
        resource.prlimit(application.pid, resource.RLIMIT_NOFILE, (lowest_free, before[1]))
        manager.waiting()  # what came before
        assert [manager.next() for _ in range(3)] == ["WATCHDOG=1"] * 3
        assert application.terminate() == 0
        assert manager.waiting()[-1] == "STOPPING=1"


def test_manager_that_starts_again_is_told(system):
    address = system.folder / "manager"
    with Manager(address) as manager:
        system.start_application(environment=manager.environment)
        assert [manager.next(), manager.next()] == ["READY=1", "WATCHDOG=1"]
    address.unlink()
    with Manager(address) as manager:
        assert manager.next() == "WATCHDOG=1"


def test_manager_that_is_not_there(system):
    application = system.start_application(environment={"NOTIFY_SOCKET": str(system.folder / "nobody")})
    assert application.terminate() == 0


def test_plugin_that_waits_for_a_hanging_application_gives_no_sign(system):
    application = system.start_application()
    application.freeze()
    with Manager(system.folder / "manager") as manager:
        # It waits in its registration, however long: nothing else runs in it meanwhile.
        plugin = system.start_fxs("fxs1", ready=False, environment={**manager.environment, **QUICK_RETRY})
        plugin.err.expect("wait")
        manager.waiting()
        time.sleep(2 * LIMIT / 1e6)
        assert manager.waiting() == []
        application.thaw()
        plugin.expect("^ready ")
        until("its loop turns again", lambda: "WATCHDOG=1" in manager.waiting())
