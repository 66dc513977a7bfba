# SPDX-License-Identifier: MIT
"""Media and parameter calls that go wrong, on real processes: descriptors that are none, records of any size, every
wrong argument. After each failing call the process holds what it held before, and its heap does not grow."""

import os
import socket

import pytest

from called_plugins import CHANNEL, LINE, LINE_0, called_channel, called_telephone
from faulty_calls import DSP_FUNCTIONS, ENDPOINT_FUNCTIONS, PLUGIN_FUNCTIONS, faults, set_record, signal_record
from media import PCMU, Pair, connection, is_heap_kept, item, own_address, settled_heap, stream, udp_sockets
from processes import until
from wire import Fd, I32, U32

MOST_DESCRIPTORS = 10  # descriptors that a callback is handed at most
NOT_CONNECTED = "media descriptor is no connected socket"

telephone = pytest.fixture(called_telephone)
channel = pytest.fixture(called_channel)


def media_call(plugin, function, info, files, path=LINE):
    more = [("endpoint_path", "")] if path == CHANNEL and function == "create" else []
    return plugin.call(path, function, [("cnx_info", info), ("filedesc", files), *more, LINE_0])


def check_slots(plugin, mark, count):
    """So many descriptors were handed to a callback, as the library's trace says: places 0, 1, 2 ..., ten at most."""

    def traced():
        return [int(line[3 : line.index("]")]) for line in plugin.plugin.err.since(mark, r"^fd\[\d+\] = \d+ ?$")]

    until("the trace is complete", lambda: len(traced()) >= min(count, MOST_DESCRIPTORS))
    assert traced() == list(range(min(count, MOST_DESCRIPTORS)))


# --- Lists of descriptors


@pytest.mark.parametrize("count", [1, 2, 3, 10, 12, 64])
@pytest.mark.parametrize("path", [LINE, CHANNEL], ids=["line", "channel"])
def test_ten_descriptors_are_taken_and_the_rest_is_closed(request, path, count):
    plugin = request.getfixturevalue("telephone" if path == LINE else "channel")
    mark = plugin.plugin.err.mark()
    answer = media_call(plugin, "create", connection(), plugin.sockets(count), path)
    assert (answer.result, answer.errors) == (True, [])
    plugin.holds(min(count, 2))
    check_slots(plugin, mark, count)
    mark = plugin.plugin.err.mark()
    assert media_call(plugin, "modify", connection(codec=PCMU), plugin.sockets(count), path).result is True
    plugin.holds(min(count, 2))
    check_slots(plugin, mark, count)
    assert plugin.call(path, "destroy", [LINE_0]).result is True
    plugin.holds()


@pytest.mark.parametrize("path", [LINE, CHANNEL], ids=["line", "channel"])
@pytest.mark.parametrize("function", ["create", "modify"])
def test_an_empty_list_fails_without_an_error_entry(request, path, function):
    plugin = request.getfixturevalue("telephone" if path == LINE else "channel")
    answer = media_call(plugin, function, connection(), [], path)
    assert (answer.result, answer.errors) == (False, [])
    plugin.plugin.err.expect("Empty argument filedesc")
    plugin.holds()


def test_three_descriptors_of_a_stream(telephone):
    assert telephone.call("fxs1", "create_ctx", [("ctx_id", U32(7))]).result is True
    for files in (telephone.sockets(2) + [Fd(-1)], telephone.sockets(3)):
        arguments = [
            ("ep_id", I32(0)),
            ("ctx_id", U32(7)),
            ("line_id", U32(1)),
            ("stream_info", stream(2)),
            ("filedesc", files),
        ]
        assert telephone.call("fxs1", "add_stream", arguments).result is True
        telephone.holds(2)
        # The same once more is refused, and the sockets that came with it do not stay.
        assert telephone.call("fxs1", "add_stream", arguments).result is False
        telephone.holds(2)
        assert (
            telephone.call("fxs1", "modify_stream", [("ctx_id", U32(7)), ("stream_info", stream(2, codec=PCMU))]).result
            is True
        )
        assert telephone.call("fxs1", "remove_stream", [("ctx_id", U32(7)), ("stream_id", U32(2))]).result is True
        telephone.holds()
    assert telephone.call("fxs1", "destroy_ctx", [("ctx_id", U32(7))]).result is True
    answer = telephone.call("fxs1", "add_stream", arguments[:-1] + [("filedesc", [])])
    assert (answer.result, answer.errors) == (False, [])
    telephone.holds()


@pytest.mark.parametrize("count", [1, 3, 4, 10, 12, 64])
def test_descriptors_of_a_stream_beyond_the_third_are_closed(telephone, count):
    assert telephone.call("fxs1", "create_ctx", [("ctx_id", U32(7))]).result is True
    for _ in range(3):
        arguments = [
            ("ep_id", I32(0)),
            ("ctx_id", U32(7)),
            ("line_id", U32(1)),
            ("stream_info", stream(2)),
            ("filedesc", telephone.sockets(count)),
        ]
        assert telephone.call("fxs1", "add_stream", arguments).result is True
        telephone.holds(min(count, 2))
        assert telephone.call("fxs1", "add_stream", arguments).result is False
        telephone.holds(min(count, 2))
        assert telephone.call("fxs1", "remove_stream", [("ctx_id", U32(7)), ("stream_id", U32(2))]).result is True
        telephone.holds()


def pipe_to_read():
    reading, writing = os.pipe()
    return reading, [writing]


def pipe_without_a_reader():
    reading, writing = os.pipe()
    os.close(reading)
    return writing, []


def regular_file():
    return os.memfd_create("sound"), []


def tcp_listening():
    listening = socket.create_server((own_address(), 0))
    return listening.detach(), []


def tcp_connected(closed=False):
    with socket.create_server((own_address(), 0)) as listening:
        connected = socket.create_connection(listening.getsockname())
        other = listening.accept()[0]
    if closed:
        other.close()
    return connected.detach(), [] if closed else [other.detach()]


def udp_without_a_peer():
    return socket.socket(socket.AF_INET, socket.SOCK_DGRAM).detach(), []


def local_datagrams():
    one, other = socket.socketpair(socket.AF_UNIX, socket.SOCK_DGRAM)
    return one.detach(), [other.detach()]


def endless_file():
    return os.open("/dev/zero", os.O_RDONLY), []


def path_only():
    return os.open("/", os.O_PATH), []


STRANGE = {
    "pipe_to_read": pipe_to_read,
    "pipe_without_a_reader": pipe_without_a_reader,
    "regular_file": regular_file,
    "tcp_listening": tcp_listening,
    "tcp_connected": tcp_connected,
    "tcp_closed": lambda: tcp_connected(closed=True),
    "udp_without_a_peer": udp_without_a_peer,
    "local_datagrams": local_datagrams,
    "endless_file": endless_file,
    "path_only": path_only,
}


@pytest.mark.parametrize("make", STRANGE.values(), ids=STRANGE.keys())
def test_descriptors_that_are_no_media_socket(telephone, make):
    strange, others = make()
    media_socket, control_socket = telephone.sockets()
    for files in ([Fd(strange)], [Fd(strange), control_socket, Fd(strange)], [media_socket, Fd(strange), Fd(-1)]):
        mark = telephone.plugin.out.mark()
        answer = media_call(telephone, "create", connection(), files)
        assert (answer.result, answer.errors) == (False, [])
        telephone.plugin.out.expect_from(mark, "^1 refuses media: (media|control) descriptor is no connected socket$")
        telephone.holds()
    # In a running call they change nothing.
    assert media_call(telephone, "create", connection(), telephone.sockets()).result is True
    ports = udp_sockets(telephone.plugin)
    for files in ([Fd(strange)], [Fd(-1), Fd(strange)]):
        assert media_call(telephone, "modify", connection(), files).result is False
        telephone.holds(2)
    assert udp_sockets(telephone.plugin) == ports
    telephone.far.sockets[0].settimeout(20)
    assert len(telephone.far.sockets[0].recv(2048)) == 172
    assert telephone.call(LINE, "destroy", [LINE_0]).result is True
    telephone.holds()
    for one in (strange, *others):
        os.close(one)


def test_no_descriptor_at_all_in_the_list(telephone):
    for files in ([Fd(-1)], [Fd(-1)] * 3, [Fd(-1)] * 12, ["x"], [U32(3)], [[telephone.sockets()[0]]], [None]):
        assert media_call(telephone, "create", connection(), files).result is False
        telephone.holds()
    telephone.plugin.out.expect_from(0, f"^1 refuses media: {NOT_CONNECTED}$")


# --- Records of any size


def sized(size, host, ports):
    """Connection information of a size, with the addresses of two free ports where it has room for them."""
    whole = connection((host, ports[0]), (host, ports[1]))
    return whole[:size].ljust(size, b"\0")


@pytest.mark.parametrize(
    "size, outcome",
    [
        (0, "refused"),
        (1, "refused"),
        (703, "taken"),
        (704, "taken"),
        (705, "no sockets"),
        (735, "no sockets"),
        (736, "opened"),
        (737, "opened"),
        (70_000, "opened"),
    ],
)
def test_connection_information_of_any_size(telephone, size, outcome):
    free, other = Pair(telephone.host), Pair(telephone.host)
    ports = free.port, other.port
    free.close()
    other.close()
    info = sized(size, telephone.host, ports)
    answer = media_call(telephone, "create", info, telephone.sockets())
    assert (answer.result, answer.errors) == (outcome in ("taken", "opened"), [])
    if outcome == "refused":
        telephone.plugin.expect("^1 refuses media: media record (of another version|lacks codec or packet time)$")
    elif outcome == "no sockets":
        telephone.plugin.err.expect("Failed to create and connect to media sockets")
    if answer.result:
        # What came as descriptors is not looked at where there are addresses, and is closed.
        near = telephone.near.port, telephone.far.port
        media_ports = near if outcome == "taken" else ports
        until(
            "its sockets are there",
            lambda: udp_sockets(telephone.plugin)
            == [(media_ports[0], media_ports[1]), (media_ports[0] + 1, media_ports[1] + 1)],
        )
        telephone.holds(2)
        # A change has descriptors in every size.
        assert media_call(telephone, "modify", info, telephone.sockets()).result is True
        telephone.holds(2)
        assert media_call(telephone, "modify", info, [Fd(-1)] * 3).result is True
        assert telephone.call(LINE, "modify", [("cnx_info", info), LINE_0]).errors == [
            (196640, "Missing mandatory argument", "filedesc")
        ]
        assert telephone.call(LINE, "destroy", [LINE_0]).result is True
    telephone.holds()


@pytest.mark.parametrize("size", [0, 1, 704, 705, 736, 70_000])
def test_connection_information_of_a_channel(channel, size):
    info = connection().ljust(size, b"\0")[:size]
    taken = size >= 704
    assert media_call(channel, "create", info, channel.sockets(), CHANNEL).result is taken
    channel.holds(2 if taken else 0)
    assert media_call(channel, "modify", info, channel.sockets(), CHANNEL).result is taken
    assert channel.call(CHANNEL, "destroy", [LINE_0]).result is taken
    channel.holds()


def test_channels_whose_media_failed_leave_room_for_others(channel):
    for number in range(40):  # more than there are channels
        name = f"X{number}"
        assert channel.call("dsp1.DSPPlugin.DSP.D1", "createDspChannel", [("name", name)]).result is True
        path = f"dsp1.DSPPlugin.DSP.D1.DSP_CHANNEL.{name}"
        arguments = [("cnx_info", connection()), ("filedesc", [Fd(-1)]), ("endpoint_path", ""), LINE_0]
        assert channel.call(path, "create", arguments).result is False
    assert media_call(channel, "create", connection(), channel.sockets(), CHANNEL).result is True
    channel.holds(2)


@pytest.mark.parametrize("length", [39, 40])
def test_name_of_a_channel_has_room_for_39_characters(channel, length):
    name = "x" * length
    path = f"dsp1.DSPPlugin.DSP.D1.DSP_CHANNEL.{name}"
    assert channel.call("dsp1.DSPPlugin.DSP.D1", "createDspChannel", [("name", name)]).result is True
    create = [("cnx_info", connection()), ("filedesc", channel.sockets()), ("endpoint_path", ""), LINE_0]
    assert channel.call(path, "create", create).result is (length == 39)
    channel.holds(2 if length == 39 else 0)
    if length == 40:
        channel.plugin.expect(f"^channel {name} refuses media: a channel's name has at most 39 characters$")


# --- Every argument wrong, with descriptors in the same call


def with_descriptors(plugin, arguments):
    """The same call with real descriptors wherever there is a list, and in an argument that nobody knows."""
    real = plugin.sockets() + [Fd(-1)]
    given = [
        (name, real if isinstance(good, list) and good == [Fd(-1)] and name == "filedesc" else good)
        for name, good in arguments
    ]
    return [*given, ("unknown", plugin.sockets())]


def other_faults(functions):
    """Each argument once there without a value, once empty, once far too long."""
    for function, arguments in functions.items():
        for index, (name, kind, good, _) in enumerate(arguments):
            worse = {"without_a_value": None}
            if kind == "text":
                worse |= {"empty": "", "too_long": "x" * 60_000}
            elif kind == "bytes":
                worse |= {"empty": b"", "short": b"\x01\x02\x03", "long": b"\xff" * 70_000}
            elif kind == "list":
                worse |= {"empty": []}
            for what, item_ in worse.items():
                given = [
                    (other, item_ if place == index else one) for place, (other, _, one, _) in enumerate(arguments)
                ]
                yield f"{function}-{name}-{what}", function, given


# What succeeds although an argument is odd, or changes the state of the plugin: no fault.
NO_FAULTS = ("exit", "init", "create_ctx", "createDsp", "createDspChannel")


def failing_calls(functions):
    for case in faults(functions):
        function, arguments, error = case.values
        yield case.id, function, arguments, error
    for case, function, arguments in other_faults(functions):
        if function not in NO_FAULTS or case.endswith("without_a_value"):
            yield case, function, arguments, None


def run_failing_calls(plugin, objects, check):
    for path, functions in objects.items():
        for case, function, arguments, error in failing_calls(functions):
            answer = plugin.call(path, function, with_descriptors(plugin, arguments))
            if check:
                # An event is always answered with true.
                assert answer.result in (False, None) or function == "event", case
                assert error is None or answer.errors == [error], case
                plugin.holds()


@pytest.mark.parametrize("kind", ["telephone", "channel"])
def test_every_wrong_argument_leaves_descriptors_and_heap_as_they_were(request, kind):
    plugin = request.getfixturevalue(kind)
    objects = {"fxs1": PLUGIN_FUNCTIONS, LINE: ENDPOINT_FUNCTIONS} if kind == "telephone" else DSP_FUNCTIONS
    run_failing_calls(plugin, objects, check=True)
    heap = settled_heap(plugin.plugin)
    for _ in range(10):
        run_failing_calls(plugin, objects, check=False)
    plugin.holds()
    assert is_heap_kept(plugin.plugin, heap)


def good_calls(plugin, path):
    """All that a line or channel can be asked for, once."""
    create = [("cnx_info", connection()), ("filedesc", plugin.sockets(3)), ("endpoint_path", "x"), LINE_0]
    yield path, "create", create
    yield path, "modify", [("cnx_info", connection(codec=PCMU)), ("filedesc", [Fd(-1)] * 3), LINE_0]
    yield path, "signal", [("signal", signal_record())]
    yield path, "destroy", [LINE_0]
    if path == CHANNEL:
        return
    wanted = item("LIBVOICE_PARAM_zil_ep_id", 0) + item("LIBVOICE_PARAM_tdmc_gain", b"")
    gain = item("LIBVOICE_PARAM_zil_ep_id", 0) + item("LIBVOICE_PARAM_tdmc_gain", 3)
    yield path, "get", [("param_set_request", set_record(len(wanted), wanted))]
    yield path, "set", [("param_set_params", set_record(len(gain), gain))]
    yield "fxs1", "create_ctx", [("ctx_id", U32(1))]
    yield "fxs1", "add_stream", [
        ("ep_id", I32(0)),
        ("ctx_id", U32(1)),
        ("line_id", U32(0)),
        ("stream_info", stream(1)),
        ("filedesc", plugin.sockets(3)),
    ]
    yield "fxs1", "modify_stream", [("ctx_id", U32(1)), ("stream_info", stream(1, codec=PCMU))]
    yield "fxs1", "remove_stream", [("ctx_id", U32(1)), ("stream_id", U32(1))]
    yield "fxs1", "destroy_ctx", [("ctx_id", U32(1))]


@pytest.mark.parametrize("kind, path", [("telephone", LINE), ("channel", CHANNEL)], ids=["line", "channel"])
def test_good_calls_leave_descriptors_and_heap_as_they_were(request, kind, path):
    plugin = request.getfixturevalue(kind)
    for turn in range(100):
        for target, function, arguments in good_calls(plugin, path):
            answer = plugin.call(target, function, arguments)
            assert answer.errors == [], function
            assert isinstance(answer.result, bytes) if function == "get" else answer.result is True, function
        if turn == 0:
            heap = settled_heap(plugin.plugin)
    plugin.holds()
    assert is_heap_kept(plugin.plugin, heap)


@pytest.mark.parametrize("length", [235, 236, 237, 1000])
def test_plugin_takes_parameter_sets_of_any_length(telephone, length):
    """The sender's limit of 236 bytes is no limit of the receiver."""
    name = item("LIBVOICE_PARAM_zil_ep_id", 0) + item("LIBVOICE_PARAM_zil_ep_dispname", b"n" * (length - 1) + b"\0")
    answer = telephone.call(LINE, "set", [("param_set_params", set_record(len(name), name))])
    assert (answer.result, answer.errors) == (True, [])
    telephone.plugin.expect('^1 param zil_ep_dispname="n{50}"$')
    wanted = item("LIBVOICE_PARAM_zil_ep_id", 0) + item("LIBVOICE_PARAM_zil_ep_dispname", b"")
    result = telephone.call(LINE, "get", [("param_set_request", set_record(len(wanted), wanted))]).result
    assert result[8:] == item("LIBVOICE_PARAM_zil_ep_id", 0) + item("LIBVOICE_PARAM_zil_ep_dispname", b"n" * 50 + b"\0")
