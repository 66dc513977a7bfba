// SPDX-License-Identifier: MIT
// A listener that refuses whoever connects: it is not asked again and again as fast as both sides can.
#include "support/bus_test.h"
#include "support/raw_peer.h"
#include "support/scratch.h"

#include <mutex>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

using namespace support;
using testing::HasSubstr;

namespace {

// Listens without the bus, and answers each connection at once with one packet, from a thread: who connects may wait for it.
class Doorman {
public:
    Doorman(const std::string &path, std::string answer) : answer_(std::move(answer)) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        fd_ = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        EXPECT_EQ(bind(fd_, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        EXPECT_EQ(listen(fd_, 8), 0);
        thread_ = std::thread([this] { run(); });
    }
    ~Doorman() {
        shutdown(fd_, SHUT_RDWR);
        thread_.join();
        close(fd_);
    }

    // The first packet of each connection that said something.
    std::vector<std::string> heard() {
        std::lock_guard lock(mutex_);
        return heard_;
    }

private:
    void run() {
        for (int fd = accept(fd_, nullptr, nullptr); fd >= 0; fd = accept(fd_, nullptr, nullptr)) {
            send(fd, answer_.data(), answer_.size(), MSG_NOSIGNAL);
            char packet[256];
            ssize_t size;
            do // a reset is told in front of what can still be read
                size = recv(fd, packet, sizeof packet, 0);
            while (size < 0 && errno == ECONNRESET);
            if (size > 0) {
                std::lock_guard lock(mutex_);
                heard_.emplace_back(packet, static_cast<size_t>(size));
            }
            close(fd);
        }
    }

    std::string answer_;
    int fd_ = -1;
    std::mutex mutex_;
    std::vector<std::string> heard_;
    std::thread thread_;
};

class Welcome : public testing::Test {
protected:
    ~Welcome() override { kex_destroy(client); }

    peer_t *connect() { return kex_client_connect(client, uri_of(path).c_str()); }
    // Connects, and waits until the peer has closed.
    void be_turned_away() {
        static int closed;
        closed = 0;
        peer_t *peer = connect();
        ASSERT_NE(peer, nullptr);
        peer_setEventHandler(peer, PEER_EVENT_CLOSED, nullptr, [](peer_t *, int, void *) { return ++closed; });
        ASSERT_TRUE(turn_until({client}, [] { return closed == 1; }));
    }

    CapturedTrace trace;
    ScratchDirectory scratch;
    std::string path = scratch.path("bus");
    kex_t *client = kex_create("client");
};

TEST_F(Welcome, ListenerThatRefusesAgainCountsAsNone) {
    Doorman doorman(path, Packet(kRefused).text("not you").bytes());
    be_turned_away();
    EXPECT_THAT(trace.text(), HasSubstr("refused this process: not you"));
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(connect(), nullptr);
    EXPECT_THAT(trace.text(), HasSubstr("'" + uri_of(path) + "' still refuses this process"));
}

TEST_F(Welcome, ListenerOfAnotherByteOrderCountsAsNoneAtTheSecondTime) {
    Doorman doorman(path, hello("listener").set(2, '?').bytes());
    be_turned_away();
    EXPECT_EQ(connect(), nullptr);
}

// Whoever watches the listener may have come after the first time.
TEST_F(Welcome, ListenerThatRefusesAgainHearsWhoItWas) {
    Doorman doorman(path, hello("listener").set(2, '?').bytes());
    be_turned_away();
    EXPECT_EQ(connect(), nullptr);
    ASSERT_TRUE(turn_until({client}, [&] { return doorman.heard().size() == 2; }));
    EXPECT_EQ(doorman.heard()[0], hello("client").bytes());
    EXPECT_EQ(doorman.heard()[1], hello("client").bytes());
}

TEST_F(Welcome, ListenerThatHasChangedItsMindIsConnectedTo) {
    {
        Doorman doorman(path, Packet(kRefused).text("not now").bytes());
        be_turned_away();
    }
    ASSERT_EQ(unlink(path.c_str()), 0);
    Doorman doorman(path, hello("listener").bytes());
    be_turned_away(); // with a hello first, so that it counts as a connection
    EXPECT_NE(connect(), nullptr);
}

TEST_F(Welcome, ListenerThatTakesItsTimeIsConnectedTo) {
    {
        Doorman doorman(path, Packet(kRefused).text("not now").bytes());
        be_turned_away();
    }
    ASSERT_EQ(unlink(path.c_str()), 0);
    kex_t *listener = kex_create("listener");
    ASSERT_NE(connection_listenOnIPC(kex_connection(listener), path.c_str()), nullptr);
    EXPECT_NE(connect(), nullptr) << "it says hello in its next turn only";
    kex_destroy(listener);
}

TEST_F(Welcome, ListenerThatHangsUpAtOnceCountsAsNoneAtTheSecondTime) {
    Doorman doorman(path, "");
    be_turned_away();
    EXPECT_EQ(connect(), nullptr);
}

TEST_F(Welcome, ListenerThatAnswersAsATapIsRefused) {
    Doorman doorman(path, Packet(kTapHello).text("tap").bytes());
    be_turned_away();
    EXPECT_THAT(trace.text(), HasSubstr("refused: a tap answered"));
}

} // namespace
