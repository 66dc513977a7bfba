# SPDX-License-Identifier: MIT
"""A process that sends calls without end on all its connections: busy_peer.py SOCKET stays|visits single|packed."""

import select
import sys

from wire import RawPeer, call, together

PER_PROCESS = 8  # connections that one process may have
PACKETS_OF_A_VISIT = 1024  # more than a queue takes
LIST, _ = call(1, "kex", "list", [], one_way=True)
NOTHING, _ = call(1, "no such object", "none", [], one_way=True)
PACKETS = {"single": LIST, "packed": together(*[NOTHING] * 64)}  # as many calls as a packet carries


def send_all_the_time(path, packet):
    """What a busy process does: calls without end on all its connections."""
    peers = [RawPeer.connect(path, "busy") for _ in range(PER_PROCESS)]
    for peer in peers:
        peer.socket.setblocking(False)
    print("busy", flush=True)
    while True:
        for ready in select.select([], [peer.socket for peer in peers], [])[1]:
            try:
                for _ in range(64):
                    ready.send(packet)
            except BlockingIOError:
                pass


def come_and_go(path, packet):
    """The same by connections that end as soon as their calls are sent; each keeps its place until they have run."""
    print("busy", flush=True)
    while True:
        with RawPeer.connect(path, hello=False) as visitor:
            visitor.socket.setblocking(False)
            try:
                visitor.say_hello("visitor")
                for _ in range(PACKETS_OF_A_VISIT):
                    visitor.socket.send(packet)
            except (BlockingIOError, BrokenPipeError, ConnectionResetError):
                pass  # as much as it could, or refused: too many of this process are not finished


if __name__ == "__main__":
    {"stays": send_all_the_time, "visits": come_and_go}[sys.argv[2]](sys.argv[1], PACKETS[sys.argv[3]])
