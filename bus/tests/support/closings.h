// SPDX-License-Identifier: MIT
// What closes as slowly as its sender chose, and a fixture whose bus has none of it left at the end.
#ifndef BUS_TESTS_CLOSINGS_H
#define BUS_TESTS_CLOSINGS_H

#include "base/closer.h"
#include "base/limits.h"
#include "served_bus.h"
#include "served_functions.h"

#include <chrono>
#include <fcntl.h>
#include <memory>
#include <netinet/in.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace support {

constexpr int kLinger = 3; // seconds

// A stream socket whose last close waits for a reader that does not read.
class Lingering {
public:
    explicit Lingering(int seconds = kLinger) {
        int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        int small = 4096;
        setsockopt(listener, SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
        EXPECT_EQ(bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        EXPECT_EQ(listen(listener, 1), 0);
        getsockname(listener, reinterpret_cast<sockaddr *>(&address), &length);
        fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
        EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        reader_ = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        close(listener);
        std::string block(64 * 1024, 'x');
        while (::send(fd, block.data(), block.size(), MSG_DONTWAIT | MSG_NOSIGNAL) > 0)
            ;
        linger on = {1, seconds};
        setsockopt(fd, SOL_SOCKET, SO_LINGER, &on, sizeof on);
    }
    Lingering(const Lingering &) = delete;
    // Resets it: whoever closes waits no longer.
    ~Lingering() {
        forget();
        close(reader_);
    }
    void forget() {
        if (fd >= 0)
            close(fd);
        fd = -1;
    }
    int fd;

private:
    int reader_;
};

using Stuck = std::vector<std::unique_ptr<Lingering>>;

// A local socket in whose queue a lingering one lies: its last close waits, whoever looks at it.
inline int lingering_pair(Lingering &one) {
    int pair[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair), 0);
    RawPeer sender(pair[0]);
    EXPECT_TRUE(sender.send("x", {one.fd}));
    one.forget();
    return pair[1];
}

inline Packet call_with_descriptor(const std::string &function) {
    return Packet(kOneWayCall, 1).text("Probe").text(function).byte(1).text("fd").byte(18).word(0).word(1);
}

class Closer : public ServedBus {
protected:
    Closer() : ServedBus("victim") {}
    ~Closer() override {
        kex_destroy(bus);
        bus = nullptr;
        wait_for_closings();
    }
    static void wait_for_closings() {
        auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (bus::closings_pending() > 0 && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        EXPECT_EQ(bus::closings_pending(), 0u);
    }
    // As many closings as there are threads for them, each of which waits until it is reset or so long.
    static Stuck all_closers_stuck(int seconds = kLinger) {
        Stuck stuck;
        for (uint32_t i = 0; i < bus::kMaxClosers; i++) {
            stuck.push_back(std::make_unique<Lingering>(seconds));
            const int slow = lingering_pair(*stuck.back());
            bus::foreign_descriptor_close(slow);
            for (int k = 0; k < 20000 && fcntl(slow, F_GETFD) != -1; k++) // a thread has it then, and no child of ours
                usleep(1000);
        }
        return stuck;
    }
    // One that would close at once, but waits behind those.
    static void closing_add() { bus::foreign_descriptor_close(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)); }
    std::chrono::steady_clock::duration time_of_settling() {
        auto begin = std::chrono::steady_clock::now();
        turn_until_idle({bus});
        return std::chrono::steady_clock::now() - begin;
    }
    // How many the bus asks for. One that is busy takes thousands.
    int turns_within(std::chrono::milliseconds time) {
        pollfd wanted = {kex_pollDescriptor(bus), POLLIN, 0};
        auto end = std::chrono::steady_clock::now() + time;
        int turns = 0;
        for (; std::chrono::steady_clock::now() < end; turns++) {
            poll(&wanted, 1, static_cast<int>(time.count()));
            kex_dispatch(bus);
        }
        return turns;
    }
};

} // namespace support

#endif
