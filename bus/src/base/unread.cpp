// SPDX-License-Identifier: MIT
// Implements unread.h.
#include "base/unread.h"
#include "base/first_byte.h"
#include "base/limits.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

namespace bus {

namespace {

enum class Next : uint8_t { nothing, plain, with_descriptors };

void credentials_ask(int fd, int on) {
    setsockopt(fd, SOL_SOCKET, SO_PASSCRED, &on, sizeof on);
}

// Looks at the next packet, which stays where it is. True: it brings something that is not bytes.
bool packet_brings_more(int fd, ssize_t &size) {
    FirstByte first;
    size = recvmsg(fd, first_byte_prepare(first), MSG_PEEK | MSG_DONTWAIT);
    if (size < 0 && errno == ECONNRESET) // reported once, in front of what can still be read
        size = recvmsg(fd, first_byte_prepare(first), MSG_PEEK | MSG_DONTWAIT);
    return size >= 0 && (first.message.msg_flags & MSG_CTRUNC) != 0;
}

// Of a socket that does not ask for credentials and gets nothing any more.
Next packet_look(int fd) {
    ssize_t size;
    if (packet_brings_more(fd, size))
        return Next::with_descriptors;
    if (size > 0)
        return Next::plain;
    credentials_ask(fd, 1);
    const bool is_empty_packet = packet_brings_more(fd, size);
    credentials_ask(fd, 0);
    return is_empty_packet ? Next::plain : Next::nothing;
}

// Without descriptors it needs no time.
void plain_packet_drop(int fd) {
    FirstByte first;
    const ssize_t size = recvmsg(fd, first_byte_prepare(first), MSG_DONTWAIT);
    (void)size; // it was there
}

// How many descriptors lie in the queue of a local socket, of which the kernel tells nobody else. False: it does not
// tell.
bool descriptors_count(int fd, long &count) {
    constexpr char kField[] = "scm_fds:";
    char path[48];
    char text[512];
    snprintf(path, sizeof path, "/proc/self/fdinfo/%d", fd);
    const int info = open(path, O_RDONLY | O_CLOEXEC);
    if (info < 0)
        return false;
    const ssize_t size = read(info, text, sizeof text - 1);
    close(info);
    text[size > 0 ? size : 0] = '\0';
    const char *field = strstr(text, kField);
    if (field == nullptr)
        return false;
    count = strtol(field + sizeof kField - 1, nullptr, 10);
    return true;
}

} // namespace

bool unread_is_harmless(int fd) {
    shutdown(fd, SHUT_RDWR);
    Next next = packet_look(fd);
    long descriptors;
    if (next == Next::plain && descriptors_count(fd, descriptors))
        return descriptors == 0;
    for (uint32_t i = 0; next == Next::plain && i < kMaxUnread; i++) {
        plain_packet_drop(fd);
        next = packet_look(fd);
    }
    return next == Next::nothing;
}

void unread_show(int fd) {
    credentials_ask(fd, 1);
}

} // namespace bus
