// SPDX-License-Identifier: MIT
// What reading costs: the system calls of this program's bus are counted (see CMakeLists.txt).
#include "served_functions.h"
#include "support/bus_test.h"
#include "support/raw_peer.h"

#include <memory>
#include <sys/resource.h>
#include <sys/socket.h>

using namespace support;

namespace {

int reads;

} // namespace

extern "C" {
ssize_t __real_recvmsg(int fd, msghdr *message, int flags);
ssize_t __wrap_recvmsg(int fd, msghdr *message, int flags);
int __real_recvmmsg(int fd, mmsghdr *messages, unsigned count, int flags, timespec *timeout);
int __wrap_recvmmsg(int fd, mmsghdr *messages, unsigned count, int flags, timespec *timeout);

ssize_t __wrap_recvmsg(int fd, msghdr *message, int flags) {
    reads++;
    return __real_recvmsg(fd, message, flags);
}
int __wrap_recvmmsg(int fd, mmsghdr *messages, unsigned count, int flags, timespec *timeout) {
    reads++;
    return __real_recvmmsg(fd, messages, count, flags, timeout);
}
}

namespace {

class Receive : public DescriptorTest {
protected:
    Receive() {
        served::reset();
        bus = kex_create("server");
        served::declare(bus);
        EXPECT_NE(connection_listenOnIPC(kex_connection(bus), socket.c_str()), nullptr);
    }
    ~Receive() override {
        raws.clear();
        kex_destroy(bus);
        served::reset();
    }
    RawPeer &connect() {
        raws.push_back(std::make_unique<RawPeer>(socket));
        raws.back()->send(hello());
        turn_until_idle({bus});
        return *raws.back();
    }
    // Reads of one turn.
    int reads_of_a_turn() {
        reads = 0;
        kex_dispatch(bus);
        return reads;
    }

    ScratchDirectory scratch;
    std::string socket = scratch.path("bus");
    kex_t *bus;
    std::vector<std::unique_ptr<RawPeer>> raws;
};

TEST_F(Receive, ConnectionThatWasReadyOnceIsNotReadAgain) {
    for (int i = 0; i < 5; i++)
        connect();
    for (auto &raw : raws)
        ASSERT_TRUE(raw->send(Packet(kOneWayCall, 1).text("Probe").text("note").byte(0)));
    turn_until_idle({bus});
    for (int turn = 0; turn < 3; turn++)
        EXPECT_EQ(reads_of_a_turn(), 0) << "nobody has sent anything";
    ASSERT_TRUE(raws[2]->send(Packet(kOneWayCall, 1).text("Probe").text("note").byte(0)));
    EXPECT_EQ(reads_of_a_turn(), 1) << "one has";
    EXPECT_EQ(reads_of_a_turn(), 0);
}

TEST_F(Receive, NewcomerCostsNoReadOfTheOthers) {
    for (int i = 0; i < 5; i++)
        connect();
    RawPeer newcomer(socket);
    EXPECT_EQ(reads_of_a_turn(), 0);
    newcomer.send(hello());
    EXPECT_EQ(reads_of_a_turn(), 1);
}

TEST_F(Receive, ManyPacketsComeInLargeBatches) {
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit enough = {2400, limit.rlim_max};
    if (setrlimit(RLIMIT_NOFILE, &enough) != 0)
        GTEST_SKIP() << "the process may not have so many descriptors";
    RawPeer &raw = connect();
    constexpr int kPackets = 128;
    for (int i = 0; i < kPackets; i++)
        ASSERT_TRUE(raw.send(Packet(kOneWayCall, 1).text("Probe").text("note").byte(0)));
    reads = 0;
    turn_until_idle({bus});
    EXPECT_EQ(served::log.size(), static_cast<size_t>(kPackets));
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_LE(reads, kPackets / 8 + 8) << "eight at a time, once it is known that there are many";
}

} // namespace
