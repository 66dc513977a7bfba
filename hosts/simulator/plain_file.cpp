// SPDX-License-Identifier: MIT
// Opening files.
#include "plain_file.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr unsigned kNewFileMode = 0600; // what is said on telephones is nobody else's concern

const char *kind_wrong(const struct stat *status, file_kind wanted) {
    if (S_ISREG(status->st_mode) || (S_ISFIFO(status->st_mode) && wanted == FILE_PLAIN_OR_PIPE))
        return nullptr;
    if (S_ISDIR(status->st_mode))
        return "is a folder";
    if (S_ISFIFO(status->st_mode) || S_ISSOCK(status->st_mode))
        return "is a pipe or a socket, not a file";
    return "is a device, not a file";
}

} // namespace

const char *plain_file_open(const char *path, int flags, file_kind wanted, int *fd) {
    struct stat status;
    const char *wrong = stat(path, &status) == 0 ? kind_wrong(&status, wanted) : nullptr;
    if (wrong != nullptr)
        return wrong;
    *fd = open(path, flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, kNewFileMode);
    if (*fd < 0)
        return errno == ENXIO ? "is a pipe that nobody reads: start its reader first" : strerror(errno);
    wrong = fstat(*fd, &status) == 0 ? kind_wrong(&status, wanted) : strerror(errno); // another one by now
    if (wrong != nullptr)
        close(*fd);
    return wrong;
}

// A file system without locks keeps nobody off.
bool plain_file_lock(int fd) {
    return flock(fd, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK;
}
