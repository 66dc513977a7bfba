# SPDX-License-Identifier: MIT
"""Media sockets that a plugin opens itself, and ports that are taken."""

import os
import socket
from pathlib import Path

import pytest

from called_plugins import LINE, LINE_0, Plugin, called_telephone
from dialling import ring, start_telephones, talk
from media import FORMS, Pair, address, connection, held, own_address, start_application, udp_sockets
from target import struct

BIND, CONNECT = "failed to bind to local socket - ", "failed to connect to local socket to remote address - "

telephone = pytest.fixture(called_telephone)


def can_bind(host, port):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        try:
            probe.bind((host, port))
        except OSError:
            return False
    return True


def socket_create(plugin, local, remote):
    info = connection()[:704] + local + remote
    return plugin.call(LINE, "create", [("cnx_info", info), LINE_0])


def check_no_sockets(plugin, local, remote, why):
    mark = plugin.plugin.err.mark()
    answer = socket_create(plugin, local, remote)
    assert (answer.result, answer.errors) == (False, [])
    plugin.plugin.err.expect_from(mark, why)
    plugin.plugin.err.expect_from(mark, "Failed to create and connect to media sockets")
    plugin.holds()


def test_local_ports_that_are_taken(telephone):
    remote = address(telephone.host, telephone.far.port)
    check_no_sockets(telephone, address(telephone.host, telephone.near.port), remote, BIND + "Address already in use")
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as neighbour:
        free = Pair(telephone.host)
        free.close()
        neighbour.bind((telephone.host, free.port + 1))
        check_no_sockets(telephone, address(telephone.host, free.port), remote, BIND + "Address already in use")
    assert socket_create(telephone, address(telephone.host, free.port), remote).result is True
    telephone.holds(2)


def test_addresses_that_cannot_be(telephone):
    free = Pair(telephone.host)
    free.close()
    here, there = address(telephone.host, free.port), address(telephone.host, telephone.far.port)
    strange = struct.pack("=H", 99) + there[2:]
    check_no_sockets(telephone, address("192.0.2.1", free.port), there, BIND + "Cannot assign requested address")
    check_no_sockets(telephone, strange, there, BIND + "Address family not supported by protocol")
    check_no_sockets(telephone, here, strange, CONNECT + "Address family not supported by protocol")
    check_no_sockets(telephone, b"\xff" * 16, b"\xff" * 16, BIND)
    # The broadcast address may not be connected to without asking for it.
    check_no_sockets(
        telephone, address("0.0.0.0", free.port), address("255.255.255.255", 4000), CONNECT + "Permission denied"
    )


def test_local_port_0_where_port_1_is_taken(telephone):
    """Port 0 lets the system choose, but the control socket then wants port 1."""
    if not can_bind(telephone.host, 1):
        pytest.skip("no right to bind port 1: see the next test")
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as first:
        first.bind((telephone.host, 1))
        check_no_sockets(
            telephone,
            address(telephone.host, 0),
            address(telephone.host, telephone.far.port),
            BIND + "Address already in use",
        )
    assert (
        socket_create(telephone, address(telephone.host, 0), address(telephone.host, telephone.far.port)).result is True
    )
    telephone.holds(2)
    (control, _), (media_port, _) = udp_sockets(telephone.plugin)
    assert control == 1 and media_port > 1


def test_local_port_0_where_port_1_may_not_be_bound(system):
    if int(Path("/proc/sys/net/ipv4/ip_unprivileged_port_start").read_text()) < 2:
        pytest.skip("everybody may bind port 1 here")
    words = [system.bin / "fxs_plugin"]
    if os.geteuid() == 0:
        words = ["/usr/bin/setpriv", "--bounding-set=-net_bind_service", "--inh-caps=-net_bind_service", *words]
    telephone = Plugin(system, "fxs1", *words, "--lines", "1")
    check_no_sockets(
        telephone, address(telephone.host, 0), address(telephone.host, telephone.far.port), BIND + "Permission denied"
    )
    telephone.close()


def test_ports_that_others_took_are_passed_over(system):
    held_ports = [socket.socket(socket.AF_INET, socket.SOCK_DGRAM) for _ in range(3)]
    for one, port in zip(held_ports, (30000, 30003, 30008)):  # media, control, media
        one.bind((own_address(), port))
    start_application(system, ports=(30000, 30011))
    first, second = start_telephones(system)
    talk(first, "201", second)
    first.expect("^1 talking line=0 codec=PCMA ports=30004->30006$")
    second.expect("^1 talking line=0 codec=PCMA ports=30006->30004$")
    for one in held_ports:
        one.close()


@pytest.mark.parametrize("form", FORMS)
def test_a_call_without_a_free_port_ends_and_the_next_one_finds_some(system, form):
    taken = Pair.at(own_address(), 30002)
    application = start_application(system, *FORMS[form], ports=(30000, 30003))
    first, second = start_telephones(system, *FORMS[form])
    before = [held(process) for process in (application, first, second)]
    ring(first, "201", second)
    second.ask("1 off")
    application.expect("^call 1 101->201 ended: no media ports left$")
    first.expect("^1 plays busy-tone$")
    second.expect("^1 plays busy-tone$")
    assert [held(process) for process in (application, first, second)] == before
    first.ask("1 on")
    second.ask("1 on")
    application.expect("^line 201 idle$")
    taken.close()
    talk(first, "201", second)
    first.expect("^1 talking line=0 codec=PCMA ports=(30000->30002|30002->30000)$")
