// SPDX-License-Identifier: MIT
// The media socket pair: neighbouring ports on real sockets, each failure, and nothing left open.
#include "generic_fixture.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include "local_sockets.h"

namespace voice_test {
namespace {

const std::string kSockets = "x libvoice_connectMediaSockets@generic: ";

class MediaSockets : public Generic {
protected:
    void expect_failure(const sockaddr_in &local, const sockaddr_in &remote, const std::string &line) {
        const int before = fake::open_descriptors();
        stream_ = control_ = 77;
        EXPECT_EQ(libvoice_connectMediaSockets(&local, &remote, &stream_, &control_), 0);
        EXPECT_EQ(stream_, 77);
        EXPECT_EQ(control_, 77);
        EXPECT_EQ(fake::open_descriptors(), before) << "no socket is left open";
        EXPECT_LOG_WITHOUT_MARKERS(kSockets + line);
    }
    int32_t stream_ = -1, control_ = -1;
};

TEST_F(MediaSockets, ThePairStandsOnNeighbouringPorts) {
    const uint16_t port = free_pair();
    const sockaddr_in local = address(own_host(), port), remote = address("127.0.0.1", 6000);
    const sockaddr_in local_before = local, remote_before = remote;
    ASSERT_EQ(libvoice_connectMediaSockets(&local, &remote, &stream_, &control_), 1);
    EXPECT_EQ(local_port(stream_), port);
    EXPECT_EQ(remote_port(stream_), 6000);
    EXPECT_EQ(local_port(control_), port + 1);
    EXPECT_EQ(remote_port(control_), 6001);
    int type = 0;
    socklen_t length = sizeof(type);
    getsockopt(stream_, SOL_SOCKET, SO_PROTOCOL, &type, &length);
    EXPECT_EQ(type, 17);
    EXPECT_EQ(memcmp(&local, &local_before, sizeof(local)), 0);
    EXPECT_EQ(memcmp(&remote, &remote_before, sizeof(remote)), 0);
    EXPECT_LOG_WITHOUT_MARKERS();
    close(stream_);
    close(control_);
}

TEST_F(MediaSockets, AddressesMayStandAtAnyPlaceOfARecord) {
    const uint16_t port = free_pair();
    const sockaddr_in local = address(own_host(), port), remote = address("127.0.0.1", 6000);
    char record[1 + 2 * sizeof(sockaddr_in)];
    memcpy(record + 1, &local, sizeof(local));
    memcpy(record + 1 + sizeof(local), &remote, sizeof(remote));
    const void *first = record + 1, *second = record + 1 + sizeof(local);
    ASSERT_EQ(libvoice_connectMediaSockets(static_cast<const sockaddr_in *>(first),
                                           static_cast<const sockaddr_in *>(second), &stream_, &control_),
              1);
    EXPECT_EQ(local_port(control_), port + 1);
    EXPECT_EQ(remote_port(control_), 6001);
    close(stream_);
    close(control_);
}

TEST_F(MediaSockets, ANeighbourThatIsTakenFails) {
    const uint16_t port = free_pair();
    const int taken = bound_socket(static_cast<uint16_t>(port + 1));
    expect_failure(address(own_host(), port), address("127.0.0.1", 6000),
                   "failed to bind to local socket - Address already in use");
    close(taken);
}

TEST_F(MediaSockets, ASocketThatIsDescriptorZeroIsClosedTooWhenTheOtherFails) {
    const uint16_t port = free_pair();
    const int taken = bound_socket(static_cast<uint16_t>(port + 1));
    const int input = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    expect_failure(address(own_host(), port), address("127.0.0.1", 6000),
                   "failed to bind to local socket - Address already in use");
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1);
    dup2(input, STDIN_FILENO);
    close(input);
    close(taken);
}

TEST_F(MediaSockets, AFirstPortThatIsTakenFails) {
    const uint16_t port = free_pair();
    const int taken = bound_socket(port);
    expect_failure(address(own_host(), port), address("127.0.0.1", 6000),
                   "failed to bind to local socket - Address already in use");
    close(taken);
}

// Only root may have the first port, and another socket has the second.
TEST_F(MediaSockets, BothBindsAreTriedAndTheErrorOfTheLastOneIsShown) {
    const uid_t user = geteuid();
    const int taken = bound_socket(1024);
    if (taken < 0)
        GTEST_SKIP() << "port 1024 is taken on this machine";
    const sockaddr_in local = address(own_host(), 1023), remote = address("127.0.0.1", 6000);
    const bool ordinary = user != 0 || seteuid(65534) == 0;
    const int probe = bound_socket(1023);
    const int answer = libvoice_connectMediaSockets(&local, &remote, &stream_, &control_);
    if (user == 0 && ordinary) {
        ASSERT_EQ(seteuid(user), 0);
    }
    close(taken);
    if (probe >= 0) {
        close(probe);
        GTEST_SKIP() << "any user may have any port on this machine";
    }
    EXPECT_EQ(answer, 0);
    EXPECT_LOG_WITHOUT_MARKERS(kSockets + "failed to bind to local socket - Address already in use");
}

TEST_F(MediaSockets, AnAddressThatIsNotOursFails) {
    expect_failure(address("192.0.2.1", 5000), address("127.0.0.1", 6000),
                   "failed to bind to local socket - Cannot assign requested address");
}

TEST_F(MediaSockets, ARemoteThatIsRefusedFails) {
    // A broadcast that was not asked for; that of the loopback is there without any route.
    expect_failure(address(own_host(), free_pair()), address("127.255.255.255", 6000),
                   "failed to connect to local socket to remote address - Permission denied");
}

TEST_F(MediaSockets, NoDescriptorsLeftFails) {
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const sockaddr_in local = address(own_host(), free_pair()), remote = address("127.0.0.1", 6000);
    const int lowest = dup(STDERR_FILENO);
    close(lowest);
    for (const int room : {0, 1}) { // for none of the two sockets, and for the first only
        bus().clear_log();
        rlimit tight = before;
        tight.rlim_cur = static_cast<rlim_t>(lowest + room);
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);
        const int answer = libvoice_connectMediaSockets(&local, &remote, &stream_, &control_);
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
        EXPECT_EQ(answer, 0);
        EXPECT_LOG_WITHOUT_MARKERS(kSockets + "failed to create local socket - Too many open files");
        EXPECT_EQ(stream_, -1);
        EXPECT_EQ(control_, -1);
    }
}

TEST_F(MediaSockets, TheLargestPortWrapsToZero) {
    const int probe = bound_socket(65535);
    if (probe < 0)
        GTEST_SKIP() << "port 65535 is taken on this machine";
    close(probe);
    const sockaddr_in local = address(own_host(), 65535), remote = address("127.0.0.1", 6000);
    ASSERT_EQ(libvoice_connectMediaSockets(&local, &remote, &stream_, &control_), 1);
    EXPECT_EQ(local_port(stream_), 65535);
    EXPECT_NE(local_port(control_), 0) << "port 0 lets the system choose";
    EXPECT_EQ(remote_port(control_), 6001);
    close(stream_);
    close(control_);
}

TEST_F(MediaSockets, PortZeroPutsTheControlFlowOnPortOne) {
    const int probe = bound_socket(1);
    const int refused = errno; // not everybody may have port 1
    const sockaddr_in local = address(own_host(), 0), remote = address("127.0.0.1", 6000);
    if (probe < 0) {
        expect_failure(local, remote, "failed to bind to local socket - " + std::string(strerror(refused)));
        return;
    }
    close(probe);
    ASSERT_EQ(libvoice_connectMediaSockets(&local, &remote, &stream_, &control_), 1);
    EXPECT_NE(local_port(stream_), 0);
    EXPECT_EQ(local_port(control_), 1);
    close(stream_);
    close(control_);
}

} // namespace
} // namespace voice_test
