// SPDX-License-Identifier: MIT
// Implements failing_call.h: the linker sends the system calls here (--wrap).
#include "failing_call.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <unistd.h>

namespace {

const char *chosen; // null: none
int chosen_error;
uint32_t left;

bool fails_now(const char *name) {
    if (chosen == nullptr || left == 0 || strcmp(name, chosen) != 0 || --left > 0)
        return false;
    errno = chosen_error;
    return true;
}

} // namespace

// WRAP_AS(symbol, result, name, parameters with their types, arguments, what it answers when it fails): the linker knows the
// call by its symbol, tests know it by its name.
#define WRAP_AS(symbol, result, name, parameters, arguments, failure)  \
    extern "C" {                                                       \
    result __real_##name parameters __asm__("__real_" symbol);         \
    result __wrap_##name parameters __asm__("__wrap_" symbol);         \
    result __wrap_##name parameters {                                  \
        return fails_now(#name) ? (failure) : __real_##name arguments; \
    }                                                                  \
    }
#define WRAP(result, name, parameters, arguments, failure) WRAP_AS(#name, result, name, parameters, arguments, failure)

// What tells sizes of files has another symbol where a word has 32 bits. Those that take as many arguments as their first
// ones ask for are given all that there can be, as the C library itself takes them.
#if __SIZEOF_POINTER__ == 4
#define WRAP_LARGE(result, name, parameters, arguments, failure) \
    WRAP_AS(#name "64", result, name, parameters, arguments, failure)
#else
#define WRAP_LARGE WRAP
#endif

WRAP(int, accept4, (int fd, sockaddr *address, socklen_t *size, int flags), (fd, address, size, flags), -1)
WRAP(int, chmod, (const char *path, mode_t mode), (path, mode), -1)
WRAP(int, close, (int fd), (fd), -1)
WRAP(int, epoll_wait, (int fd, epoll_event *events, int count, int timeout), (fd, events, count, timeout), -1)
WRAP_LARGE(int, fcntl, (int fd, int command, long argument), (fd, command, argument), -1)
WRAP(int, fchmod, (int fd, mode_t mode), (fd, mode), -1)
WRAP_LARGE(int, fstat, (int fd, struct stat *status), (fd, status), -1)
WRAP_LARGE(int, getrlimit, (__rlimit_resource_t resource, rlimit *limit), (resource, limit), -1)
WRAP(int, getsockopt, (int fd, int level, int name, void *value, socklen_t *size), (fd, level, name, value, size), -1)
WRAP(int, listen, (int fd, int backlog), (fd, backlog), -1)
WRAP(tm *, localtime_r, (const time_t *time, tm *parts), (time, parts), nullptr)
WRAP(ssize_t, read, (int fd, void *to, size_t size), (fd, to, size), -1)
WRAP(ssize_t, recv, (int fd, void *to, size_t size, int flags), (fd, to, size, flags), -1)
WRAP(int, recvmmsg, (int fd, mmsghdr *messages, unsigned count, int flags, timespec *limit),
     (fd, messages, count, flags, limit), -1)
WRAP(ssize_t, recvmsg, (int fd, msghdr *message, int flags), (fd, message, flags), -1)
WRAP(ssize_t, send, (int fd, const void *from, size_t size, int flags), (fd, from, size, flags), -1)
WRAP(int, sendmmsg, (int fd, mmsghdr *messages, unsigned count, int flags), (fd, messages, count, flags), -1)
WRAP(ssize_t, sendmsg, (int fd, const msghdr *message, int flags), (fd, message, flags), -1)
WRAP(ssize_t, sendto, (int fd, const void *from, size_t size, int flags, const sockaddr *to, socklen_t to_size),
     (fd, from, size, flags, to, to_size), -1)
WRAP(int, setsockopt, (int fd, int level, int name, const void *value, socklen_t size), (fd, level, name, value, size),
     -1)
WRAP(int, socket, (int domain, int type, int protocol), (domain, type, protocol), -1)
WRAP(int, timerfd_settime, (int fd, int flags, const itimerspec *setting, itimerspec *before),
     (fd, flags, setting, before), -1)
WRAP(ssize_t, write, (int fd, const void *from, size_t size), (fd, from, size), -1)

// Known by what it asks the kernel for.
extern "C" {
long __real_syscall(long number, long a, long b, long c, long d, long e, long f);
long __wrap_syscall(long number, long a, long b, long c, long d, long e, long f);

long __wrap_syscall(long number, long a, long b, long c, long d, long e, long f) {
    return number == SYS_close_range && fails_now("close_range") ? -1 : __real_syscall(number, a, b, c, d, e, f);
}
}

namespace support {

FailingCall::FailingCall(const char *name, int error, uint32_t n) {
    chosen_error = error;
    left = n;
    chosen = name;
}

FailingCall::~FailingCall() {
    chosen = nullptr;
}

bool FailingCall::has_failed() const {
    return left == 0;
}

} // namespace support
