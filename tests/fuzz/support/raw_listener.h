// SPDX-License-Identifier: MIT
// A listener without the bus's code, on the path of socket_path().
#ifndef FUZZ_RAW_LISTENER_H
#define FUZZ_RAW_LISTENER_H

#include "packets.h"
#include "require.h"

#include <memory>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace fuzz {

class RawListener {
public:
    RawListener() : fd_(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        constexpr int kBacklog = 8;
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        socket_path().copy(address.sun_path, sizeof address.sun_path - 1);
        unlink(address.sun_path);
        require(bind(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0, "the path can be bound");
        require(listen(fd_, kBacklog) == 0, "the socket listens");
    }
    ~RawListener() { close(fd_); }
    RawListener(const RawListener &) = delete;
    RawListener &operator=(const RawListener &) = delete;

    // The next connection; null: none waits.
    std::unique_ptr<support::RawPeer> accept() {
        const int accepted = accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        return accepted < 0 ? nullptr : std::make_unique<support::RawPeer>(accepted);
    }

private:
    int fd_;
};

} // namespace fuzz

#endif
