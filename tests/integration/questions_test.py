# SPDX-License-Identifier: MIT
"""What an application asks of a plugin that is ours: one that answers, answers twice or dies before it does; and the
descriptors that it sends there."""

import os

import pytest

from faulty_calls import set_record
from media import item, start_application
from processes import until
from target import struct
from wire import RawPeer, U16, head, reply, text


class Asked:
    """A real application that asks, and a raw plugin that is asked."""

    def __init__(self, system):
        self.application = system.start("asking_application", "asking_application")
        self.application.expect("^ready$")
        self.peer = RawPeer.connect(system.socket)
        assert self.peer.register("raw") is True
        endpoint = [
            ("plugin_name", "raw"),
            ("endpoint_name", "R1"),
            ("endpoint_path", "raw.EndPoint.R1"),
            ("type", U16(1)),
            ("codeclist", b""),
        ]
        assert self.peer.call("VoiceService.VoiceApplication", "register_endpoint", endpoint).result == 0
        self.application.expect("^endpoint 0$")

    def tell(self, command, answer):
        self.application.tell(command)
        return self.application.expect(answer)

    def next(self, function):
        """The next call of a function; what else comes is passed over, so long as it is no media or parameter call."""
        while True:
            packet = self.peer.receive()
            if packet.function == function:
                return packet
            assert packet.function in ("init", ""), packet.function

    def handled(self, count):
        """All questions have ended, each once; the application then ends without anything left."""
        until("all questions have ended", lambda: len(self.application.out.since(0, "^done$")) >= count)
        match = self.tell("handled", r"^handled=(\d+) answered=(\d+) failed=(\d+) twice=(\d+)$")
        self.application.tell("quit")
        assert self.application.wait() == 0, "\n".join(self.application.err.all)
        return tuple(map(int, match.groups()))


@pytest.fixture
def asked(system):
    one = Asked(system)
    yield one
    one.peer.close()


QUESTIONS = 50


def answer_to(packet):
    wanted = item("LIBVOICE_PARAM_zil_ep_id", 0) + item("LIBVOICE_PARAM_tdmc_gain", 5)
    return reply(packet.serial, set_record(len(wanted), wanted))


def test_questions_that_are_answered(asked):
    asked.tell(f"get {QUESTIONS}", f"^sent={QUESTIONS}$")
    for _ in range(QUESTIONS):
        asked.peer.send(answer_to(asked.next("get")))
    assert asked.handled(QUESTIONS) == (QUESTIONS, QUESTIONS, 0, 0)


def test_questions_to_a_peer_that_dies_without_an_answer(asked):
    asked.tell(f"get {QUESTIONS}", f"^sent={QUESTIONS}$")
    for _ in range(QUESTIONS):
        question = asked.next("get")
        # The set: 8 bytes of head, the endpoint's item and an empty item of what is wanted.
        assert len(question.arguments["param_set_request"]) == 28
    asked.peer.close()
    assert asked.handled(QUESTIONS) == (QUESTIONS, 0, QUESTIONS, 0)


def test_questions_to_a_peer_that_dies_before_it_reads_them(asked):
    asked.tell(f"get {QUESTIONS}", f"^sent={QUESTIONS}$")
    asked.peer.close()
    assert asked.handled(QUESTIONS) == (QUESTIONS, 0, QUESTIONS, 0)


def test_questions_to_a_peer_that_dies_half_way(asked):
    asked.tell(f"get {QUESTIONS}", f"^sent={QUESTIONS}$")
    questions = [asked.next("get") for _ in range(QUESTIONS)]
    for question in questions[::2]:
        asked.peer.send(answer_to(question))
    asked.peer.close()
    assert asked.handled(QUESTIONS) == (QUESTIONS, QUESTIONS // 2, QUESTIONS // 2, 0)


def test_questions_that_are_answered_twice(asked):
    asked.tell("get 3", "^sent=3$")
    for _ in range(3):
        question = asked.next("get")
        asked.peer.send(answer_to(question))
        asked.peer.send(answer_to(question))
    assert asked.handled(3) == (3, 3, 0, 0)


def test_questions_that_are_refused_or_answered_with_nothing(asked):
    asked.tell("get 2", "^sent=2$")
    first, second = asked.next("get"), asked.next("get")
    error = b"\x01" + struct.pack("=I", 196640) + text("Missing mandatory argument") + text("param_set_request")
    asked.peer.send(head(4, first.serial) + error + b"\x00")
    asked.peer.send(reply(second.serial, None))
    assert asked.handled(2) == (2, 1, 1, 0)


def test_question_that_breaks_the_peer_off(asked):
    asked.tell("get 2", "^sent=2$")
    asked.peer.send(head(4, asked.next("get").serial) + b"\x01")  # a reply cut off: the connection is closed for it
    assert asked.handled(2) == (2, 0, 2, 0)


def test_questions_to_a_peer_that_is_gone_already(asked):
    asked.peer.close()
    asked.application.expect("^closed$")
    asked.tell(f"get {QUESTIONS}", "^sent=0$")  # none is sent, so none is handled
    asked.tell("forget", "^forgotten$")
    asked.tell("get 1", "^sent=0$")
    assert asked.handled(0) == (0, 0, 0, 0)


def test_application_that_leaves_with_questions_open(asked):
    asked.tell(f"get {QUESTIONS}", f"^sent={QUESTIONS}$")
    assert asked.handled(0) == (0, 0, 0, 0)
    until("they are ended on the way out", lambda: len(asked.application.out.since(0, "^done$")) == QUESTIONS)


def test_question_to_a_telephone_that_is_killed_is_ended_once(system):
    application = start_application(system)
    telephone = system.start_fxs("fxs1")
    application.ask("get 101 tdmc_gain")
    application.expect("^param 101 tdmc_gain=0$")
    telephone.freeze()
    application.ask("get 101 tdmc_gain")
    telephone.kill()
    application.expect(r"^param (101|\?): no answer$")
    application.expect("^plugin fxs1 lost$")
    assert len(application.out.since(0, ": no answer$")) == 1


def test_parameter_of_236_bytes_is_sent_and_of_237_is_not(asked):
    asked.tell("set 236", "^set=1$")
    sent = asked.next("set").arguments["param_set_params"]
    endpoint, value = item("LIBVOICE_PARAM_zil_ep_id", 0), item("LIBVOICE_PARAM_zil_ep_dispname", b"x" * 236)
    assert sent[4:] == struct.pack("=I", len(endpoint + value)) + endpoint + value
    assert len(sent) == 8 + 256
    asked.tell("set 237", "^set=0$")
    asked.application.err.expect("param_set_add failed")
    # Nothing was sent for it: the next that comes is the next that was asked for.
    asked.tell("set 0", "^set=1$")
    assert asked.next("set").arguments["param_set_params"][8:] == endpoint + item("LIBVOICE_PARAM_zil_ep_dispname", b"")


@pytest.mark.parametrize("function", ["create", "modify"])
def test_three_descriptors_travel_in_their_order(asked, function):
    names = ["/dev/null", "/dev/zero", "/dev/full"]
    asked.tell(f"{function} {' '.join(names)}", "^media=0$")
    packet = asked.next(function)
    assert list(packet.arguments) == ["ep_line_id", "filedesc", "cnx_info"]
    assert len(packet.arguments["cnx_info"]) == 704
    assert [os.fstat(one).st_rdev for one in packet.descriptors] == [os.stat(name).st_rdev for name in names]
    asked.tell(f"{function} none /dev/zero none", "^media=0$")
    packet = asked.next(function)
    assert [one >= 0 for one in packet.arguments["filedesc"]] == [False, True, False]
    assert [os.fstat(one).st_rdev for one in packet.descriptors] == [os.stat("/dev/zero").st_rdev]


@pytest.mark.parametrize("place", range(3))
def test_a_closed_descriptor_fails_its_call_alone(asked, place):
    words = ["/dev/null"] * 3
    words[place] = "closed"
    before = asked.application.descriptors()
    asked.tell(f"create {' '.join(words)}", "^media=5$")
    asked.application.err.expect("Failed to send request")
    assert asked.application.descriptors() == before
    asked.tell("set 4", "^set=1$")
    asked.next("set")  # and no "create" before it
    asked.application.tell("quit")
    assert asked.application.wait() == 0, "\n".join(asked.application.err.all)
