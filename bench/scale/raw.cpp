// SPDX-License-Identifier: MIT
// The least that so many processes need: a SOCK_SEQPACKET socket each, and one epoll loop in every process. What more processes
// cost here is the machine's, whose caches have to serve all of them.
#include "raw.h"

#include <cstdint>

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "../support/program.h"

namespace {

constexpr size_t kBytes = 180; // of a signal or an event on the bus

int loop_open(const std::vector<int> &fds) {
    const int loop = epoll_create1(EPOLL_CLOEXEC);
    for (const int fd : fds) {
        epoll_event event = {};
        event.events = EPOLLIN;
        event.data.fd = fd;
        if (epoll_ctl(loop, EPOLL_CTL_ADD, fd, &event) != 0)
            die("epoll_ctl");
    }
    return loop;
}

void packet_take(int loop) {
    epoll_event event = {};
    uint8_t packet[kBytes];
    if (epoll_wait(loop, &event, 1, -1) != 1 || recv(event.data.fd, packet, sizeof packet, 0) <= 0)
        _exit(0);
}

void packet_send(int fd) {
    const uint8_t packet[kBytes] = {};
    if (send(fd, packet, sizeof packet, MSG_NOSIGNAL) < 0)
        _exit(0);
}

[[noreturn]] void plugin_serve(int fd) {
    const int loop = loop_open({fd});
    for (;;) {
        packet_take(loop);
        packet_send(fd);
    }
}

[[noreturn]] void application_serve(const std::vector<int> &fds, int orders, int words) {
    const int loop = loop_open(fds);
    uint32_t count;
    while (read(orders, &count, sizeof count) == sizeof count) {
        for (uint32_t i = 0; i < count; ++i) {
            packet_send(fds[i % fds.size()]);
            packet_take(loop);
        }
        if (write(words, "w", 1) != 1)
            break;
    }
    _exit(0);
}

} // namespace

RawWorld::RawWorld(int plugins, bool on_two_cpus) {
    std::vector<int> fds;
    int orders[2];
    int words[2];
    for (int i = 0; i < plugins; ++i) {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
            die("socketpair");
        fds.push_back(ends[0]);
        processes_.push_back(child_start([&] { plugin_serve(ends[1]); }, on_two_cpus));
        close(ends[1]);
    }
    if (pipe(orders) != 0 || pipe(words) != 0)
        die("pipe");
    processes_.push_back(child_start([&] { application_serve(fds, orders[0], words[1]); }, false));
    for (const int fd : fds)
        close(fd);
    close(orders[0]);
    close(words[1]);
    orders_ = orders[1];
    words_ = words[0];
}

RawWorld::~RawWorld() {
    for (const pid_t process : processes_)
        child_kill(process);
    close(orders_);
    close(words_);
}

void RawWorld::exchange(uint32_t count) {
    char byte;
    if (write(orders_, &count, sizeof count) != sizeof count || read(words_, &byte, 1) != 1)
        die("raw sockets");
}
