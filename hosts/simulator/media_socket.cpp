// SPDX-License-Identifier: MIT
// Packets in and out.
#include "media_socket.h"

#include "clock.h"
#include "kex_host.h"

#include <errno.h>
#include <netinet/in.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

namespace {

constexpr uint32_t kMaxPacket = 1500;
constexpr int kPacketsPerTurn = 16;
constexpr uint64_t kSecondNs = 1000000000;
constexpr uint64_t kOldest = 60 * kSecondNs; // an older one has not waited: the clock of the day was set

// The note says the time of day. Only how long ago that was counts: the clock of the day may be set.
uint64_t age_of(msghdr *message) {
    for (cmsghdr *note = CMSG_FIRSTHDR(message); note != nullptr; note = CMSG_NXTHDR(message, note)) {
        timespec came;
        if (note->cmsg_level != SOL_SOCKET || note->cmsg_type != SO_TIMESTAMPNS ||
            note->cmsg_len != CMSG_LEN(sizeof came))
            continue;
        memcpy(&came, CMSG_DATA(note), sizeof came);
        const moment now = moment_of_day();
        const uint64_t then = static_cast<uint64_t>(came.tv_sec) * kSecondNs + static_cast<uint64_t>(came.tv_nsec);
        const uint64_t age = now.seconds * kSecondNs + now.nanoseconds - then;
        return age > kOldest ? 0 : age;
    }
    return 0;
}

// What has woken the loop is no packet, and would wake it again and again: errors that a copy of the socket asks for
// (IP_RECVERR), or that one has shut it down. Then nothing comes any more.
void wake_end(kex_t *bus, int fd) {
    pollfd state = {fd, POLLRDHUP, 0};
    msghdr error = {};
    (void)!recvmsg(fd, &error, MSG_ERRQUEUE | MSG_DONTWAIT);
    if (poll(&state, 1, 0) == 1 && (state.revents & (POLLRDHUP | POLLHUP)) != 0)
        kex_unwatch(bus, fd);
}

} // namespace

bool media_socket_is_usable(int fd) {
    int domain = 0, type = 0;
    socklen_t size = sizeof type;
    sockaddr_storage peer;
    socklen_t peer_size = sizeof peer;
    return getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type == SOCK_DGRAM &&
           getsockopt(fd, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 && (domain == AF_INET || domain == AF_INET6) &&
           getpeername(fd, reinterpret_cast<sockaddr *>(&peer), &peer_size) == 0;
}

void media_socket_begin(int fd) {
    const int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on);
}

// A port that nobody listens on any more shows here as an error; the next packet may come through again.
void media_socket_read(kex_t *bus, int fd, void *userdata,
                       void (*receive)(void *userdata, const uint8_t *bytes, size_t size, uint64_t age)) {
    uint8_t bytes[kMaxPacket];
    alignas(cmsghdr) char notes[64];
    for (int i = 0; i < kPacketsPerTurn; i++) {
        iovec room = {bytes, sizeof bytes};
        msghdr message = {};
        message.msg_iov = &room;
        message.msg_iovlen = 1;
        message.msg_control = notes;
        message.msg_controllen = sizeof notes;
        const ssize_t size = recvmsg(fd, &message, MSG_DONTWAIT);
        if (size < 0 && errno != ECONNREFUSED) {
            if (i == 0)
                wake_end(bus, fd);
            return;
        }
        if (size >= 0)
            receive(userdata, bytes, static_cast<size_t>(size), age_of(&message));
    }
}

bool media_socket_send(int fd, const uint8_t *bytes, size_t size) {
    ssize_t sent = send(fd, bytes, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0 && errno == ECONNREFUSED) // the error of an earlier packet: this one was not tried
        sent = send(fd, bytes, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    return sent == static_cast<ssize_t>(size);
}

void media_socket_close(kex_t *bus, int fd) {
    if (fd < 0)
        return;
    kex_unwatch(bus, fd);
    close(fd);
}
