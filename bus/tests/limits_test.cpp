// SPDX-License-Identifier: MIT
// The table of limits on what one message may hold: what is as large as that passes, what is larger by one is refused.
#include "served_functions.h"
#include "support/served_bus.h"
#include "transport/spare.h"

#include <memory>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace support;
using testing::HasSubstr;

namespace {

class Limits : public ServedBus {
protected:
    Limits() : ServedBus("victim") {}

    // Why it is refused; "" when its function has run.
    std::string refusal_of(const Packet &packet, size_t descriptors = 0) {
        CapturedTrace trace;
        RawPeer raw(socket);
        EXPECT_TRUE(raw.send(hello()));
        turn_until_idle({bus});
        const size_t before = served::log.size();
        EXPECT_TRUE(raw.send(packet, std::vector<int>(descriptors, STDIN_FILENO)));
        turn_until_idle({bus});
        const std::string why = raw.refusal();
        EXPECT_EQ(served::log.size(), before + (why.empty() ? 1 : 0));
        return why;
    }
    static Packet note_with(uint8_t arguments) { return Packet(kCall, 1).text("Probe").text("note").byte(arguments); }
    static Packet one_argument() { return note_with(1).text("a"); }
};

TEST_F(Limits, ArgumentsOfACall) {
    for (uint8_t count : {64, 65}) {
        Packet packet = note_with(count);
        for (uint8_t i = 0; i < count; i++)
            packet.text("a").byte(255);
        EXPECT_EQ(refusal_of(packet), count == 64 ? "" : "too many arguments");
    }
}

TEST_F(Limits, ValuesOfAMessage) {
    for (uint32_t count : {4095u, 4096u}) { // and the list itself
        const Packet packet = one_argument().byte(13).word(count).raw(std::string(count, '\xFF'));
        EXPECT_EQ(refusal_of(packet), count == 4095 ? "" : "too many values");
    }
}

TEST_F(Limits, BytesOfAnArray) {
    for (uint32_t length : {96u * 1024, 96u * 1024 + 1}) {
        const Packet packet = one_argument().byte(19).text(std::string(length, 'x'));
        EXPECT_EQ(refusal_of(packet), length == 96 * 1024 ? "" : "a byte array is too long");
    }
}

TEST_F(Limits, ListsInsideLists) {
    for (int depth : {4, 5}) {
        Packet packet = one_argument();
        for (int i = 0; i < depth; i++)
            packet.byte(13).word(i + 1 < depth ? 1 : 0);
        EXPECT_EQ(refusal_of(packet), depth == 4 ? "" : "lists are nested too deep");
    }
}

TEST_F(Limits, DescriptorsOfAMessage) {
    for (uint32_t count : {64u, 65u}) {
        Packet packet = one_argument().byte(13).word(count);
        for (uint32_t i = 0; i < count; i++)
            packet.byte(18).word(i).word(7);
        EXPECT_EQ(refusal_of(packet, count), count == 64 ? "" : "too many descriptors");
    }
}

TEST_F(Limits, ErrorItemsOfAReply) {
    for (uint8_t count : {64, 65}) {
        CapturedTrace trace;
        RawPeer raw(socket);
        raw.send(hello());
        Packet packet = Packet(kReply, 1).byte(count);
        for (uint8_t i = 0; i < count; i++)
            packet.word(1).text("d").text("i");
        raw.send(packet.byte(0));
        turn_until_idle({bus});
        EXPECT_EQ(raw.refusal(), count == 64 ? "" : "too many error items");
    }
}

TEST_F(Limits, BytesOfAPacket) {
    const size_t text = 128 * 1024 - (Packet(one_argument()).byte(0).text("").bytes().size());
    EXPECT_EQ(refusal_of(one_argument().byte(0).text(std::string(text, 'x'))), "");
    EXPECT_EQ(refusal_of(one_argument().byte(0).text(std::string(text + 1, 'x'))), "the packet is too large");
}

TEST_F(Limits, BytesOfAPath) {
    const std::string longest(255, 'p');
    EXPECT_NE(kex_declareObject(bus, longest.c_str(), nullptr), nullptr);
    EXPECT_EQ(kex_declareObject(bus, (longest + "p").c_str(), nullptr), nullptr);
}

TEST_F(Limits, BytesKeptOfAProcessName) {
    for (size_t length : {63u, 64u}) {
        CapturedTrace trace;
        RawPeer raw(socket);
        raw.send(hello(std::string(length, 'n')));
        raw.send("?");
        turn_until_idle({bus});
        EXPECT_THAT(trace.text(), HasSubstr("'" + std::string(63, 'n') + "' (process "));
    }
}

// A quarter of the table, and 256 of a large one.
TEST_F(Limits, DescriptorsKeptForTheHost) {
    const struct {
        rlim_t size;
        int kept;
    } rows[] = {{160, 40}, {1024, 256}, {4096, 256}};
    for (const auto &row : rows) {
        const TableSize table(row.size);
        if (!table.made())
            GTEST_SKIP() << "the process may not have so many descriptors";
        const int first = static_cast<int>(row.size) - row.kept;
        EXPECT_TRUE(bus::spare_is_hosts(first)) << row.size;
        EXPECT_FALSE(bus::spare_is_hosts(first - 1)) << row.size;
    }
}

// A thousand of them wait in the queue while the host waits for something else; one more breaks the peer off.
TEST_F(Limits, CallsThatAreNotRunYet) {
    for (size_t calls : {1023u, 1024u}) {
        CapturedTrace trace;
        RawPeer raw(socket);
        raw.send(hello());
        request_t *r = request_create_executeFunction("Theirs", "slow", 0);
        ASSERT_TRUE(kex_sendRequest(bus, peer_of(raw, bus), r));
        const timeval at_once = {0, 0};
        for (size_t i = 0; i < calls; i++) {
            while (!raw.send(Packet(kOneWayCall, 1).text("Probe").text("note").byte(0)))
                kex_waitForReply(bus, r, &at_once);
        }
        for (int i = 0; i < 40; i++)
            EXPECT_FALSE(kex_waitForReply(bus, r, &at_once));
        const bool broken_off = trace.text().find("it sent too much") != std::string::npos;
        EXPECT_EQ(broken_off, calls == 1024) << calls;
        request_destroy(r);
        turn_until_idle({bus});
    }
}

// Those that the bus makes itself count too, whoever listens.
TEST_F(Limits, ConnectionsOfABus) {
    CapturedTrace trace;
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const std::string path = scratch.path("others");
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int listener = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listener, 128), 0);
    for (int i = 0; i < 64; i++)
        ASSERT_NE(kex_client_connect(bus, uri_of(path).c_str()), nullptr) << i;
    EXPECT_EQ(trace.text(), "");
    EXPECT_EQ(kex_client_connect(bus, uri_of(path).c_str()), nullptr);
    EXPECT_THAT(trace.text(), HasSubstr("there are too many connections"));
    close(listener);
}

} // namespace
