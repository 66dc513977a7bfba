// SPDX-License-Identifier: MIT
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <gtest/gtest.h>

// Two UDP sockets on this machine, connected to each other.
inline void make_udp_pair(int *pair) {
    sockaddr_in address[2] = {};
    for (int i = 0; i < 2; i++) {
        pair[i] = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        address[i].sin_family = AF_INET;
        address[i].sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address[i];
        ASSERT_EQ(bind(pair[i], reinterpret_cast<sockaddr *>(&address[i]), size), 0);
        ASSERT_EQ(getsockname(pair[i], reinterpret_cast<sockaddr *>(&address[i]), &size), 0);
    }
    for (int i = 0; i < 2; i++)
        ASSERT_EQ(connect(pair[i], reinterpret_cast<sockaddr *>(&address[1 - i]), sizeof address[i]), 0);
}
