// SPDX-License-Identifier: MIT
// Implements descriptor_kind.h.
#include "base/descriptor_kind.h"

#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#ifndef STATX_TYPE // musl before 1.2.5
#include <linux/stat.h>
#endif

namespace bus {

namespace {

constexpr unsigned kMemoryDevices = 1; // /dev/null and its relatives
constexpr uint64_t kFewBlocks = 128;   // of 512 bytes: to give back more takes time, some 50 ms for 64 MiB

bool option_get(int fd, int option, int &value) {
    socklen_t length = sizeof value;
    return getsockopt(fd, SOL_SOCKET, option, &value, &length) == 0;
}

enum class Closes : uint8_t { at_once, perhaps_late, ask_otherwise };

Closes closes(bool at_once) {
    return at_once ? Closes::at_once : Closes::perhaps_late;
}

// Whoever is no socket is to be asked as a file.
Closes socket_look(int fd) {
    int domain = 0;
    int type = 0;
    if (!option_get(fd, SO_DOMAIN, domain))
        return Closes::ask_otherwise;
    return closes((domain == AF_INET || domain == AF_INET6) && option_get(fd, SO_TYPE, type) && type == SOCK_DGRAM);
}

bool file_ask(int fd, unsigned what, struct statx &status) {
    return syscall(SYS_statx, fd, "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC, what, &status) == 0;
}

// The last close of a file without a name gives back what it holds. Asked of memory only: some file systems of other
// machines write out first what has changed.
bool holds_little(int fd) {
    struct statx status = {};
    return file_ask(fd, STATX_BLOCKS, status) && status.stx_blocks <= kFewBlocks;
}

// A pipe does not: its last close waits for whoever fills the other end from where nothing comes (splice(2)).
bool file_closes_at_once(int fd, const struct statx &status) {
    switch (status.stx_mode & S_IFMT) {
    case S_IFCHR:
        return status.stx_rdev_major == kMemoryDevices;
    case S_IFREG: // in memory: on a disk it waits for what others write there
        return fcntl(fd, F_GET_SEALS) >= 0 && holds_little(fd);
    default:
        return false;
    }
}

// Asks no file system: that could take as long as the close.
Closes file_look(int fd) {
    struct statx status = {};
    if (!file_ask(fd, STATX_TYPE, status))
        return closes(errno == EBADF);
    return S_ISSOCK(status.stx_mode) ? Closes::ask_otherwise : closes(file_closes_at_once(fd, status));
}

} // namespace

// What comes together is mostly of one kind: asked first as the last one was, each costs a system call less.
bool descriptor_closes_at_once(int fd) {
    static bool last_was_file;
    Closes answer = last_was_file ? file_look(fd) : socket_look(fd);
    if (answer == Closes::ask_otherwise) {
        last_was_file = !last_was_file;
        answer = last_was_file ? file_look(fd) : socket_look(fd);
    }
    return answer == Closes::at_once;
}

} // namespace bus
