# SPDX-License-Identifier: MIT
"""An application whose bus never rests, for whoever taps it."""

import contextlib
import socket
import threading

from target import struct
from wire import RawListener, RawPeer, TAP_HELLO, TAP_RECORD, call, head, text, together

EVENT, WATCHING = 4, 9  # kinds of records
SO_SNDBUFFORCE = 32
LISTENER = ("voice_application", 100, 0)  # name, process, connection
PEER = ("fxs_plugin", 200, 1)


def tap_record(kind, message=b""):
    """From the peer to the listener."""
    ends = b"".join(struct.pack("=iI", process, number) + text(name) for name, process, number in (PEER, LISTENER))
    body = struct.pack("=Iq", kind, 1_700_000_000_000_000_000) + ends
    return head(TAP_RECORD) + (body + struct.pack("=I", 0) + text("") + struct.pack("=I", len(message)) + message)


def records_send(peer, first):
    """One event, then what takes longer to read than to send, without a pause, until the watcher leaves."""
    idle, _ = call(2, "VoiceService.VoiceApplication", "idle", [("list", [None] * 4000)], one_way=True)
    more = tap_record(EVENT, idle)
    with contextlib.suppress(PermissionError):  # with it, some seconds may lie between two sends
        peer.socket.setsockopt(socket.SOL_SOCKET, SO_SNDBUFFORCE, 16 * 1024 * 1024)
    with contextlib.suppress(BrokenPipeError, ConnectionResetError):
        peer.send(together(tap_record(WATCHING), first))
        while True:
            peer.send(more)


@contextlib.contextmanager
def restless_bus(path):
    """Listens there, for one tap."""
    event, _ = call(1, "VoiceService.VoiceApplication", "event", [("plugin_name", "fxs1")], one_way=True)

    def serve():
        with RawPeer(listener.socket.accept()[0]) as peer:
            assert peer.socket.recv(4096)[3] == TAP_HELLO
            records_send(peer, tap_record(EVENT, event))

    with RawListener(path) as listener:
        server = threading.Thread(target=serve)
        server.start()
        yield
        server.join()
