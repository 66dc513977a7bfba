// SPDX-License-Identifier: MIT
// Whoever taps: how it learns of an end or a refusal, and listeners that send it what no bus would.
#include "support/raw_peer.h"
#include "tap_fixture.h"
#include "value/tap_record.h"
#include <cstring>
#include <memory>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace support;
using testing::HasSubstr;

namespace {

TEST_F(Tap, EndOfTheListenerIsTold) {
    kex_destroy(server);
    server = nullptr;
    kex_tap_record_t record;
    int result = 1;
    while (result == 1)
        result = kex_tap_next(tap, &record);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(kex_tap_next(tap, &record), -1);
}

TEST_F(Tap, RefusedTapSeesWhyAsItsLastRecord) {
    CapturedTrace trace;
    std::vector<std::unique_ptr<RawPeer>> crowd;
    for (int i = 0; i < 6; i++) { // with the client and the first tap: 8 of this process
        crowd.push_back(std::make_unique<RawPeer>(socket));
        crowd.back()->send(hello());
        turn_until_idle();
    }
    kex_tap_t *late = kex_tap_open(uri_of(socket).c_str(), nullptr, 0);
    ASSERT_NE(late, nullptr);
    turn_until_idle();
    kex_tap_record_t record;
    ASSERT_EQ(kex_tap_next(late, &record), 1);
    EXPECT_EQ(line_of(record), "refused > \"its process has 8 connections already\"");
    EXPECT_EQ(kind_of(packet_of(late)), kRefused);
    EXPECT_EQ(kex_tap_next(late, &record), -1);
    kex_tap_close(late);
}

TEST_F(Tap, OpeningSaysWhyItFails) {
    char why[256] = "";
    EXPECT_EQ(kex_tap_open(uri_of(scratch.path("nobody")).c_str(), why, sizeof why), nullptr);
    EXPECT_EQ(why, "cannot tap '" + uri_of(scratch.path("nobody")) + "': No such file or directory");
    EXPECT_EQ(kex_tap_open("nonsense", why, sizeof why), nullptr);
    EXPECT_THAT(why, HasSubstr("Invalid argument"));
    EXPECT_EQ(kex_tap_open(nullptr, why, sizeof why), nullptr);
    strcpy(why, "as before");
    EXPECT_EQ(kex_tap_open("nonsense", why, 0), nullptr);
    EXPECT_STREQ(why, "as before") << "no room";
    EXPECT_EQ(kex_tap_descriptor(nullptr), -1);
    EXPECT_EQ(kex_tap_next(nullptr, nullptr), -1);
    EXPECT_EQ(kex_tap_next(tap, nullptr), -1);
    kex_tap_close(nullptr);
}

TEST_F(Tap, DescriptorIsReadableWhenThereIsARecord) {
    pollfd polled = {kex_tap_descriptor(tap), POLLIN, 0};
    EXPECT_EQ(poll(&polled, 1, 0), 0);
    request_destroy(call("Probe", "note"));
    EXPECT_EQ(poll(&polled, 1, 0), 1);
}

// Instead of the bus's listener: sends a tap what no bus would.
class RogueListener : public DescriptorTest {
protected:
    RogueListener() {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        listener_ = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        EXPECT_EQ(bind(listener_, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        EXPECT_EQ(listen(listener_, 8), 0);
    }
    ~RogueListener() override { close(listener_); }

    // A tap that has connected, and the socket of its listener.
    kex_tap_t *tapped(std::unique_ptr<RawPeer> &listener) {
        kex_tap_t *tap = kex_tap_open(uri_of(path).c_str(), nullptr, 0);
        listener = std::make_unique<RawPeer>(accept(listener_, nullptr, nullptr));
        return tap;
    }
    // A record of a call, around these bytes.
    static Packet record(const std::string &packet) {
        return Packet(kTapRecord)
            .word(KEX_TAP_CALL)
            .word(0)
            .word(0)
            .word(1)
            .word(1)
            .text("from")
            .word(2)
            .word(2)
            .text("to")
            .word(0)
            .text("")
            .text(packet);
    }

    ScratchDirectory scratch;
    std::string path = scratch.path("bus");

private:
    int listener_ = -1;
};

TEST_F(RogueListener, WhatIsNoRecordEndsTheTap) {
    const std::string good = call(7, "Probe", "note").bytes();
    const std::string without_its_argument = Packet(kCall, 7).text("Probe").text("note").byte(1).bytes();
    for (const std::string &sent :
         {std::string("rubbish"), record("rubbish").bytes(), record(good.substr(0, good.size() - 1)).bytes(),
          record(good).bytes() + "x", record(without_its_argument).bytes(),
          Packet(kTapRecord).word(KEX_TAP_CALL).bytes()}) {
        std::unique_ptr<RawPeer> listener;
        kex_tap_t *tap = tapped(listener);
        ASSERT_NE(tap, nullptr);
        ASSERT_TRUE(listener->send(sent));
        kex_tap_record_t shown;
        EXPECT_EQ(kex_tap_next(tap, &shown), -1);
        EXPECT_EQ(kex_tap_next(tap, &shown), -1) << "for ever";
        kex_tap_close(tap);
    }
}

// Its hello has not been read: the kernel tells of the reset in front of what can still be read.
TEST_F(RogueListener, RecordsOfAListenerThatIsGoneAreRead) {
    std::unique_ptr<RawPeer> listener;
    kex_tap_t *tap = tapped(listener);
    ASSERT_NE(tap, nullptr);
    ASSERT_TRUE(listener->send(record(call(7, "Probe", "note").bytes())));
    listener->close();
    kex_tap_record_t shown;
    ASSERT_EQ(kex_tap_next(tap, &shown), 1);
    EXPECT_EQ(line_of(shown), "call from>to #7 Probe.note");
    EXPECT_EQ(kex_tap_next(tap, &shown), -1);
    kex_tap_close(tap);
}

} // namespace
