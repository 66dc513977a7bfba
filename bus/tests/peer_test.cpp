// SPDX-License-Identifier: MIT
// Connections: their names, their end, and the order in which a host learns of it.
#include "base/trace.h"
#include "served_functions.h"
#include "support/bus_test.h"
#include "support/raw_peer.h"

#include <set>
#include <unistd.h>

using namespace support;
using testing::ElementsAre;

namespace {

class Peer : public TwoBuses {
protected:
    Peer() {
        served::reset();
        served::declare(server);
    }
    ~Peer() override { served::reset(); }
};

int log_own_event(peer_t *peer, int event, void *userdata) {
    served::log.push_back(std::string(static_cast<const char *>(userdata)) + " event " + std::to_string(event) +
                          " of " + peer_processName(peer));
    return 1;
}

void log_any_closed(kex_t *, peer_t *peer, void *userdata) {
    served::log.push_back(std::string(static_cast<const char *>(userdata)) + " closed " + peer_processName(peer));
}

char *userdata(const char *text) {
    return const_cast<char *>(text);
}

void send_note(kex_t *bus, peer_t *peer, uint32_t number) {
    request_t *r = request_create_executeFunction("Probe", "note", 0);
    variant_t value = u32(number);
    request_addParameter(r, "number", &value);
    EXPECT_TRUE(kex_sendRequest(bus, peer, r));
    request_destroy(r);
}

TEST_F(Peer, BothSidesKnowEachOther) {
    EXPECT_STREQ(peer_processName(to_server), "server");
    EXPECT_EQ(peer_processId(to_server), getpid());
    peer_t *caller = nullptr;
    served::probe = [&](function_call_t *call, argument_list_t *, variant_t *) {
        caller = fcall_peer(call);
        fcall_destroy(call);
        return 0;
    };
    request_destroy(call("Probe", "run"));
    EXPECT_STREQ(peer_processName(caller), "client");
    EXPECT_EQ(peer_processId(caller), getpid());
}

TEST_F(Peer, ServerCallsBackThroughTheCallersPeer) {
    served::declare(client);
    served::probe = [&](function_call_t *call, argument_list_t *, variant_t *) {
        send_note(server, fcall_peer(call), 8);
        fcall_destroy(call);
        return 0;
    };
    request_destroy(call("Probe", "run"));
    EXPECT_TRUE(turn_until([] { return !served::log.empty(); }));
    EXPECT_THAT(served::log, ElementsAre("note 8"));
}

TEST_F(Peer, QueuedCallsRunThenItsOwnHandlerThenTheHostsHandler) {
    kex_t *other = kex_create("other");
    peer_t *from_other = connect(other);
    peer_t *seen = nullptr;
    served::probe = [&](function_call_t *call, argument_list_t *, variant_t *) {
        seen = fcall_peer(call);
        EXPECT_TRUE(peer_setEventHandler(seen, PEER_EVENT_CLOSED, userdata("replaced"), log_own_event));
        EXPECT_TRUE(peer_setEventHandler(seen, PEER_EVENT_CLOSED, userdata("own"), log_own_event));
        EXPECT_FALSE(peer_setEventHandler(seen, 5, nullptr, log_own_event)) << "there is no such event";
        fcall_destroy(call);
        return 0;
    };
    kex_onPeerClosed(server, log_any_closed, userdata("any"));
    request_t *r = request_create_executeFunction("Probe", "run", 0);
    ASSERT_TRUE(kex_sendRequest(other, from_other, r));
    request_destroy(r);
    send_note(other, from_other, 1);
    send_note(other, from_other, 2);
    kex_destroy(other); // all of it lies in the socket, the end behind it
    EXPECT_TRUE(turn_until([] { return served::log.size() >= 4; }));
    turn_until_idle();
    EXPECT_THAT(served::log, ElementsAre("note 1", "note 2", "own event 6 of other", "any closed other"));
    ASSERT_NE(seen, nullptr);
    EXPECT_FALSE(peer_setEventHandler(seen, PEER_EVENT_CLOSED, nullptr, log_own_event));
    EXPECT_STREQ(peer_processName(seen), "");
    EXPECT_EQ(peer_processId(seen), 0);
    EXPECT_FALSE(peer_disconnect(seen));
    r = request_create_executeFunction("Probe", "run", 0);
    EXPECT_FALSE(kex_sendRequest(server, seen, r));
    request_destroy(r);
}

TEST_F(Peer, HandlesAreNeverReused) {
    std::set<peer_t *> seen;
    served::probe = [&](function_call_t *call, argument_list_t *, variant_t *) {
        EXPECT_TRUE(seen.insert(fcall_peer(call)).second) << "a closed peer's handle came back";
        fcall_destroy(call);
        return 0;
    };
    for (size_t i = 1; i <= 100; i++) {
        RawPeer raw(socket);
        ASSERT_TRUE(raw.send(hello()));
        ASSERT_TRUE(raw.send(support::call(1, "Probe", "run")));
        ASSERT_TRUE(turn_until([&] { return seen.size() == i; }));
        raw.close();
        turn_until_idle();
    }
}

TEST_F(Peer, ReconnectedPeerComesAfterItsOwnEnd) {
    kex_onPeerClosed(server, log_any_closed, userdata("any"));
    auto first = std::make_unique<RawPeer>(socket);
    first->send(hello("plugin"));
    turn_until_idle();
    // All of this waits at the same time: a last call, the end, a new connection and its first call.
    first->send(Packet(kOneWayCall, 1).text("Probe").text("note").byte(1).text("number").byte(8).word(1));
    first.reset();
    RawPeer second(socket);
    second.send(hello("plugin"));
    second.send(Packet(kOneWayCall, 1).text("Probe").text("note").byte(1).text("number").byte(8).word(2));
    EXPECT_TRUE(turn_until([] { return served::log.size() >= 3; }));
    EXPECT_THAT(served::log, ElementsAre("note 1", "any closed plugin", "note 2"));
}

TEST_F(Peer, WhoeverNeverSaidHelloCausesNoCloseEvent) {
    kex_onPeerClosed(server, log_any_closed, userdata("any"));
    RawPeer(socket).close();
    turn_until_idle();
    EXPECT_THAT(served::log, ElementsAre());
}

TEST_F(Peer, ClosingFromThisSideIsAnEventToo) {
    kex_onPeerClosed(client, log_any_closed, userdata("any"));
    EXPECT_TRUE(peer_setEventHandler(to_server, PEER_EVENT_CLOSED, userdata("own"), log_own_event));
    EXPECT_TRUE(peer_disconnect(to_server));
    EXPECT_THAT(served::log, ElementsAre()) << "in a later turn";
    EXPECT_TRUE(turn_until([] { return served::log.size() == 2; }));
    EXPECT_THAT(served::log, ElementsAre("own event 6 of server", "any closed server"));
}

// The peer closes with our data unread: the kernel reports a reset in front of what it had sent before.
TEST_F(Peer, ResetIsNotTheEndOfWhatCanBeRead) {
    RawPeer raw(socket);
    raw.send(hello());
    turn_until_idle(); // our hello lies unread at the peer
    for (uint32_t i = 1; i <= 3; i++)
        raw.send(Packet(kOneWayCall, i).text("Probe").text("note").byte(1).text("number").byte(8).word(i));
    raw.close();
    EXPECT_TRUE(turn_until([] { return served::log.size() == 3; }));
    EXPECT_THAT(served::log, ElementsAre("note 1", "note 2", "note 3"));
}

TEST_F(Peer, ConnectingChecksTheUri) {
    const std::string uris[] = {"",
                                socket,
                                "kex://ipc:",
                                "kex://ipc:[]",
                                "kex://ipc:[" + socket,
                                "kex://tcp:[" + socket + "]",
                                uri_of(scratch.path("nobody")),
                                uri_of("/" + std::string(107, 'x'))};
    for (const std::string &uri : uris)
        EXPECT_EQ(kex_client_connect(client, uri.c_str()), nullptr) << uri;
    EXPECT_EQ(kex_client_connect(client, nullptr), nullptr);
    EXPECT_EQ(kex_client_connect(nullptr, uri_of(socket).c_str()), nullptr);
}

TEST_F(Peer, NullHandlesAreAnswered) {
    EXPECT_FALSE(peer_setEventHandler(nullptr, PEER_EVENT_CLOSED, nullptr, log_own_event));
    EXPECT_STREQ(peer_processName(nullptr), "");
    EXPECT_EQ(peer_processId(nullptr), 0);
    EXPECT_FALSE(peer_disconnect(nullptr));
    kex_onPeerClosed(nullptr, log_any_closed, nullptr);
}

TEST_F(Peer, ListenerHasNoEventThatEverRuns) {
    peer_t *listener = connection_listenOnIPC(kex_connection(client), scratch.path("second").c_str());
    ASSERT_NE(listener, nullptr);
    EXPECT_TRUE(peer_setEventHandler(listener, PEER_EVENT_CLOSED, userdata("listener"), log_own_event));
    EXPECT_FALSE(peer_setEventHandler(listener, PEER_EVENT_CLOSED + 1, userdata("listener"), log_own_event));
    EXPECT_TRUE(peer_disconnect(listener));
    turn_until_idle();
    EXPECT_THAT(served::log, ElementsAre());
}

TEST_F(Peer, HandlerThatIsSetWhileItsEventRunsIsTooLate) {
    peer_setEventHandler(to_server, PEER_EVENT_CLOSED, nullptr, [](peer_t *peer, int, void *) {
        served::log.push_back(peer_setEventHandler(peer, PEER_EVENT_CLOSED, nullptr, nullptr) ? "taken" : "too late");
        return 1;
    });
    EXPECT_TRUE(peer_disconnect(to_server));
    turn_until_idle();
    EXPECT_THAT(served::log, ElementsAre("too late"));
}

TEST_F(Peer, NamesAreShownAsAscii) {
    std::string name;
    for (int byte = 1; byte < 256; byte += byte < 31 || byte > 127 ? 50 : 1)
        name += static_cast<char>(byte);
    char shown[300];
    const std::string text = bus::printable(shown, sizeof shown, name.data(), name.size());
    ASSERT_EQ(text.size(), name.size());
    for (size_t i = 0; i < name.size(); i++) {
        const unsigned byte = static_cast<unsigned char>(name[i]);
        EXPECT_EQ(text[i], byte >= 32 && byte <= 126 ? name[i] : '?') << byte;
    }
}

// Both wait for their time in one turn.
TEST_F(Peer, ConnectionAndTimerHaveEachTheirTime) {
    RawPeer silent(socket);
    kex_timer_t *timer = kex_timer_create(); // the server's: it was made first
    kex_timer_start(timer, 100000);
    turn_until_idle();
    kex_dispatch(server);
    EXPECT_TRUE(silent.receive().has_value());
    EXPECT_FALSE(silent.is_closed());
    kex_timer_destroy(timer);
}

} // namespace
