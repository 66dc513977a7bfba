// SPDX-License-Identifier: MIT
// Handles outlive what they stand for, are never given to another, and need no memory.
#include "calls/handle.h"
#include "support/bus_test.h"
#include "support/raw_peer.h"

#include <malloc.h>
#include <set>

#ifdef __SANITIZE_ADDRESS__ // whose header comes with clang only
extern "C" size_t __sanitizer_get_current_allocated_bytes();
#endif

using namespace support;

namespace {

class Handles : public DescriptorTest {
protected:
    Handles() {
        handles.clear();
        kex_onPeerClosed(
            bus, [](kex_t *, peer_t *peer, void *) { handles.push_back(peer); }, nullptr);
        EXPECT_NE(connection_listenOnIPC(kex_connection(bus), socket.c_str()), nullptr);
    }
    ~Handles() override { kex_destroy(bus); }
    void reconnect(int times) {
        for (int i = 0; i < times; i++) {
            RawPeer raw(socket);
            raw.send(hello());
            turn_until_idle({bus});
            raw.close();
            turn_until_idle({bus});
        }
    }
    // Bytes that are allocated in this process.
    static size_t allocated() {
#ifdef __SANITIZE_ADDRESS__
        return __sanitizer_get_current_allocated_bytes();
#else
        return mallinfo2().uordblks;
#endif
    }

    static inline std::vector<peer_t *> handles;
    ScratchDirectory scratch;
    std::string socket = scratch.path("bus");
    kex_t *bus = kex_create("server");
};

TEST_F(Handles, ThousandsOfReconnectionsLeaveNothing) {
    handles.reserve(4000);
    reconnect(100); // until all tables have their size
    size_t before = allocated();
    reconnect(2000);
    EXPECT_EQ(handles.size(), 2100u);
    EXPECT_LE(allocated(), before + 1024);
}

TEST_F(Handles, NoneIsGivenOutTwice) {
    reconnect(1000);
    std::set<peer_t *> different(handles.begin(), handles.end());
    EXPECT_EQ(different.size(), 1000u);
    EXPECT_EQ(different.count(nullptr), 0u);
}

TEST_F(Handles, OldOnesStandForNothingAlsoWhenTheirPlaceIsTakenAgain) {
    reconnect(1);
    peer_t *old = handles[0];
    reconnect(200);
    std::vector<std::unique_ptr<RawPeer>> raws;
    for (int i = 0; i < 8; i++) {
        raws.push_back(std::make_unique<RawPeer>(socket));
        raws.back()->send(hello());
    }
    turn_until_idle({bus});
    EXPECT_STREQ(peer_processName(old), "");
    EXPECT_EQ(peer_processId(old), 0);
    EXPECT_EQ(peer_disconnect(old), 0);
    EXPECT_EQ(peer_setEventHandler(old, PEER_EVENT_CLOSED, nullptr, nullptr), 0);
    request_t *r = request_create_executeFunction("a", "b", 0);
    EXPECT_EQ(kex_sendRequest(bus, old, r), 0);
    request_destroy(r);
    turn_until_idle({bus});
    for (auto &raw : raws)
        EXPECT_FALSE(raw->is_closed());
}

TEST_F(Handles, ThoseOfABusThatIsGoneStandForNothing) {
    kex_t *gone = kex_create("gone");
    peer_t *listener = connection_listenOnIPC(kex_connection(gone), scratch.path("gone").c_str());
    ASSERT_NE(listener, nullptr);
    peer_t *peer = kex_client_connect(gone, uri_of(socket).c_str());
    ASSERT_NE(peer, nullptr);
    kex_destroy(gone);
    EXPECT_EQ(peer_disconnect(listener), 0);
    EXPECT_EQ(peer_processId(peer), 0);
    turn_until_idle({bus});
}

TEST_F(Handles, ManyAtATimeAreKeptApart) {
    std::vector<kex_t *> buses;
    std::vector<peer_t *> listeners;
    std::set<peer_t *> different;
    for (int i = 0; i < 40; i++) { // more than the table has at first
        buses.push_back(kex_create("one"));
        listeners.push_back(
            connection_listenOnIPC(kex_connection(buses.back()), scratch.path(std::to_string(i)).c_str()));
        different.insert(listeners.back());
    }
    EXPECT_EQ(different.size(), 40u);
    for (peer_t *listener : listeners)
        EXPECT_TRUE(peer_disconnect(listener));
    for (kex_t *one : buses)
        kex_destroy(one);
}

// The places take their turn: after as many handles as there are places an old one's is taken again.
TEST_F(Handles, AnOldOneIsNotItsSuccessor) {
    bus::Calls *const somebody = reinterpret_cast<bus::Calls *>(this); // is only compared
    peer_t *old = bus::handle_create(somebody);
    ASSERT_NE(bus::handle_find(old), nullptr);
    bus::handle_destroy(old);
    EXPECT_EQ(bus::handle_find(old), nullptr);
    constexpr uintptr_t kPlace = 0xFFF;
    peer_t *next = nullptr;
    for (int i = 0; i < 10000; i++) {
        next = bus::handle_create(somebody);
        if ((reinterpret_cast<uintptr_t>(next) & kPlace) == (reinterpret_cast<uintptr_t>(old) & kPlace))
            break;
        bus::handle_destroy(next);
    }
    ASSERT_EQ(reinterpret_cast<uintptr_t>(next) & kPlace, reinterpret_cast<uintptr_t>(old) & kPlace);
    EXPECT_NE(next, old);
    EXPECT_EQ(bus::handle_find(old), nullptr);
    bus::handle_destroy(old); // does nothing
    EXPECT_NE(bus::handle_find(next), nullptr);
    bus::handle_destroy(next);
}

TEST_F(Handles, ThereAreFourThousandAndNinetyFive) {
    bus::Calls *const somebody = reinterpret_cast<bus::Calls *>(this);
    std::vector<peer_t *> made;
    while (peer_t *one = bus::handle_create(somebody))
        made.push_back(one);
    EXPECT_EQ(std::set<peer_t *>(made.begin(), made.end()).size(), made.size());
    EXPECT_EQ(made.size() + 1, 4095u) << "with that of the listener";
    for (peer_t *one : made)
        bus::handle_destroy(one);
    EXPECT_EQ(bus::handle_first(somebody), nullptr);
}

} // namespace
