// SPDX-License-Identifier: MIT
// A fixture for those who listen at a path, and what others may have left there.
#ifndef BUS_TESTS_LISTENING_H
#define BUS_TESTS_LISTENING_H

#include "bus_test.h"

#include <sys/socket.h>
#include <sys/un.h>

namespace support {

// Two buses that listen nowhere yet, and a path to listen at.
class Listen : public DescriptorTest {
protected:
    ~Listen() override {
        for (kex_t *one : {bus, second})
            kex_destroy(one);
    }
    peer_t *listen(kex_t *on, const std::string &path) {
        return connection_listenOnIPC(kex_connection(on), path.c_str());
    }
    // A socket that somebody listens on without the bus's rules; -1: it cannot be made.
    int listen_without_lock() {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        socket.copy(address.sun_path, sizeof address.sun_path - 1);
        int fd = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        bool listens = bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 && ::listen(fd, 1) == 0;
        return listens ? fd : -1;
    }
    // A socket whose listener has died.
    void leave_stale_socket() {
        int fd = listen_without_lock();
        ASSERT_GE(fd, 0);
        close(fd);
    }

    ScratchDirectory scratch;
    std::string socket = scratch.path("bus");
    kex_t *bus = kex_create("first");
    kex_t *second = kex_create("second");
};

} // namespace support

#endif
