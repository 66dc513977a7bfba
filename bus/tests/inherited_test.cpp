// SPDX-License-Identifier: MIT
// Sockets that a service manager has opened for the process.
#include "support/child.h"
#include "support/listening.h"
#include "support/raw_peer.h"

#include <chrono>
#include <fcntl.h>
#include <functional>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace support;
using testing::HasSubstr;

namespace {

TEST_F(Listen, InheritedSocketIsUsed) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    socket.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_TRUE(holds_in_child([&] {
        // As a service manager leaves it: the socket is descriptor 3, after one that is something else.
        int fd = ::socket(AF_UNIX, SOCK_SEQPACKET, 0);
        bool good = bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 && ::listen(fd, 4) == 0;
        good &= fcntl(STDERR_FILENO, F_DUPFD, 3) >= 3;
        dup2(STDERR_FILENO, 3);
        dup2(fd, 4);
        setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
        setenv("LISTEN_FDS", "2", 1);
        kex_t *own = kex_create("activated");
        good &= listen(own, socket) != nullptr;
        good &= (fcntl(4, F_GETFD) & FD_CLOEXEC) != 0;
        good &= access((socket + ".lock").c_str(), F_OK) != 0; // it is not ours to lock
        kex_t *caller = kex_create("caller");
        peer_t *peer = kex_client_connect(caller, uri_of(socket).c_str());
        good &= turn_until({own, caller}, [&] { return std::string(peer_processName(peer)) == "activated"; });
        kex_destroy(caller);
        kex_destroy(own);
        good &= access(socket.c_str(), F_OK) == 0; // nor to remove
        return good;
    }));
}

// The same of a child that begins with what a service manager would have left it.
bool holds_when_activated(const std::string &count, const std::function<bool()> &body) {
    return holds_in_child([&] {
        setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
        setenv("LISTEN_FDS", count.c_str(), 1);
        return body();
    });
}

TEST_F(Listen, ImpossibleNumbersOfInheritedSocketsAreRefusedWithASentence) {
    for (const char *count :
         {"2000000000", "2147483647", "4294967296", "99999999999999999999", "-1", "x", "1x", "", " 1"}) {
        CapturedTrace trace;
        auto begin = std::chrono::steady_clock::now();
        EXPECT_TRUE(holds_when_activated(count, [&] { return listen(bus, socket) != nullptr; }))
            << "it makes its own: " << count;
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5)) << count;
        EXPECT_THAT(trace.text(), HasSubstr("LISTEN_FDS is not a number of descriptors that this process can have"))
            << count;
    }
}

TEST_F(Listen, SocketsOfAnotherProcessAreNotInherited) {
    for (const char *process : {"1", "x", ""}) {
        EXPECT_TRUE(holds_when_activated("1", [&] {
            setenv("LISTEN_PID", process, 1);
            dup2(listen_without_lock(), 3); // looks right
            CapturedTrace trace;
            return listen(bus, socket) == nullptr &&
                   trace.text().find("another process listens there already") != std::string::npos;
        })) << process;
        unlink(socket.c_str());
    }
}

TEST_F(Listen, OnlyTheSocketThatListensAtThePathIsInherited) {
    EXPECT_TRUE(holds_when_activated("5", [&] {
        const int right = listen_without_lock();
        const std::string path = socket;
        socket = scratch.path("elsewhere");
        const int elsewhere = listen_without_lock();
        socket = path;
        const int silent = ::socket(AF_UNIX, SOCK_SEQPACKET, 0);
        int ends[2];
        if (pipe(ends) != 0)
            return false;
        const int stream = ::socket(AF_UNIX, SOCK_STREAM, 0);
        const int from[] = {fcntl(ends[0], F_DUPFD, 20), fcntl(silent, F_DUPFD, 20), fcntl(elsewhere, F_DUPFD, 20),
                            fcntl(stream, F_DUPFD, 20), fcntl(right, F_DUPFD, 20)};
        for (int i = 0; i < 5; i++)
            dup2(from[i], 3 + i);
        kex_t *own = kex_create("activated");
        bool good = listen(own, socket) != nullptr && (fcntl(7, F_GETFD) & FD_CLOEXEC) != 0;
        for (int fd : {3, 4, 5, 6})
            good &= (fcntl(fd, F_GETFD) & FD_CLOEXEC) == 0;
        good &= access((socket + ".lock").c_str(), F_OK) != 0;
        kex_destroy(own);
        return good;
    }));
}

TEST_F(Listen, DescriptorsThatAreNotOpenAreNotLookedAt) {
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(holds_when_activated(std::to_string(limit.rlim_cur), [&] { return listen(bus, socket) != nullptr; }));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
}

TEST_F(Listen, InheritedSocketThatAnotherProcessHoldsIsLetGo) {
    EXPECT_TRUE(holds_when_activated("1", [&] {
        int held = listen_without_lock(); // the service manager keeps it
        if (dup2(held, 3) != 3)
            return false;
        kex_t *own = kex_create("activated");
        peer_t *listener = listen(own, socket);
        bool good = listener != nullptr && peer_disconnect(listener) && fcntl(3, F_GETFD) < 0;
        RawPeer raw(socket); // reaches the socket, which is not ours any more
        for (int i = 0; i < 3; i++)
            good &= kex_dispatch(own) == 0;
        pollfd quiet = {kex_pollDescriptor(own), POLLIN, 0};
        good &= raw.connected() && poll(&quiet, 1, 0) == 0;
        kex_destroy(own);
        return good;
    }));
}

} // namespace
