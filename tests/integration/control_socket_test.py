# SPDX-License-Identifier: MIT
"""The control socket of a host that has no descriptor left for whoever waits there."""

import os
import resource
import socket
import time

from processes import until

WATCHED = 2.0  # seconds over which the processor's time is counted
SHARE = 0.05  # of one processor: a loop that goes round and round takes all that it gets, on a busy machine too


def processor_time(pid):
    with open(f"/proc/{pid}/stat", encoding="ascii") as file:
        fields = file.read().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def answer_to(control, command):
    with socket.socket(socket.AF_UNIX) as client:
        client.connect(str(control))  # without a limit: where one is set, a full queue of the listener is an error
        client.settimeout(20)
        client.sendall(command)
        return client.recv(64)


def test_full_table_of_descriptors_costs_no_processor_time(system):
    control = system.folder / "control"
    application = system.start_application("--control", control)
    alone = application.descriptors()
    assert answer_to(control, b"calls\n") == b"ok\n"
    until("the client's descriptor is closed", lambda: application.descriptors() == alone)
    before = resource.prlimit(application.pid, resource.RLIMIT_NOFILE)
    highest = max(int(name) for name in os.listdir(f"/proc/{application.pid}/fd"))
    resource.prlimit(application.pid, resource.RLIMIT_NOFILE, (highest + 1, before[1]))
    held = []
    try:
        # Gaps below the highest one are taken first; then nothing is left.
        for _ in range(highest + 2):
            client = socket.socket(socket.AF_UNIX)
            client.setblocking(False)
            held.append(client)
            try:
                client.connect(str(control))
            except BlockingIOError:
                break
        application.ask("status")
        used, since = processor_time(application.pid), time.monotonic()
        time.sleep(WATCHED)
        share = (processor_time(application.pid) - used) / (time.monotonic() - since)
        assert share < SHARE, f"{share:.0%} of a processor"
        assert application.ask("calls") == ["ok"], "all else goes on"
    finally:
        for client in held:
            client.close()
    resource.prlimit(application.pid, resource.RLIMIT_NOFILE, before)
    assert answer_to(control, b"calls\n") == b"ok\n"
