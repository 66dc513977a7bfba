// SPDX-License-Identifier: MIT
// UDP ports for tests that run side by side: each process has a loopback address of its own, and takes ports that the
// system hands to nobody by itself. So a port that was found free is still free when the library binds it.
#ifndef LOCAL_SOCKETS_H
#define LOCAL_SOCKETS_H

#include <arpa/inet.h>
#include <cerrno>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace voice_test {

// 127.0.0.0/8 is this machine's whole; no two running processes share a number.
inline std::string own_host() {
    const unsigned process = static_cast<unsigned>(getpid());
    return "127." + std::to_string(1 + (process >> 16 & 63)) + "." + std::to_string(process >> 8 & 255) + "." +
           std::to_string(process & 255);
}

inline sockaddr_in address(const std::string &host, uint16_t port) {
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(port);
    EXPECT_EQ(inet_pton(AF_INET, host.c_str(), &a.sin_addr), 1) << host;
    return a;
}

// A socket on a port of the own address, or -1 with errno saying why.
inline int bound_socket(uint16_t port) {
    const int s = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_in a = address(own_host(), port);
    if (bind(s, reinterpret_cast<const sockaddr *>(&a), sizeof(a)) == 0)
        return s;
    const int error = errno;
    close(s);
    errno = error;
    return -1;
}

inline uint16_t port_of(int s, int (*ask)(int, sockaddr *, socklen_t *)) {
    sockaddr_in a{};
    socklen_t length = sizeof(a);
    EXPECT_EQ(ask(s, reinterpret_cast<sockaddr *>(&a), &length), 0);
    return ntohs(a.sin_port);
}

inline uint16_t local_port(int s) {
    return port_of(s, getsockname);
}
inline uint16_t remote_port(int s) {
    return port_of(s, getpeername);
}

// A port of the own address that is free together with the next one up; below those that a bind to 0 gives.
inline uint16_t free_pair() {
    for (uint16_t port = 20000; port < 30000; port = static_cast<uint16_t>(port + 2)) {
        const int one = bound_socket(port), two = bound_socket(static_cast<uint16_t>(port + 1));
        if (one >= 0)
            close(one);
        if (two >= 0)
            close(two);
        if (one >= 0 && two >= 0)
            return port;
    }
    ADD_FAILURE() << "no two neighbouring ports are free on " << own_host();
    return 0;
}

} // namespace voice_test

#endif
