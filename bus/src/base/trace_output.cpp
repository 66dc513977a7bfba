// SPDX-License-Identifier: MIT
// Implements trace_output.h.
#include "base/trace_output.h"
#include "base/clock.h"
#include "base/limits.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace bus {

namespace {

struct TraceOutput {
    bool to_system_log;
    const char *system_log;
    char *kept; // messages that wait, each behind its length; made when first needed
    size_t begin;
    size_t end;
    size_t written;    // of the first one
    uint32_t dropped;  // messages that found no room
    bool nobody_there; // the system's log is not read at all: tried more seldom
    pid_t process;     // whose messages they are: a copy of the process must not write them once more
};

TraceOutput output = {false, kSystemLog, nullptr, 0, 0, 0, 0, false, 0};

// ----------------------------------------------------------------------------------------- Writing

// A reader of standard error that went away must not take the process with it: the signal of a broken pipe is held back
// and taken out again.
ssize_t pipe_write(int fd, const char *bytes, size_t length) {
    sigset_t pipe_signal;
    sigset_t before;
    sigset_t pending;
    sigemptyset(&pipe_signal);
    sigaddset(&pipe_signal, SIGPIPE);
    sigpending(&pending);
    const bool was_pending = sigismember(&pending, SIGPIPE) == 1;
    pthread_sigmask(SIG_BLOCK, &pipe_signal, &before);
    const ssize_t written = write(fd, bytes, length);
    const int error = errno;
    const timespec at_once = {};
    if (written < 0 && error == EPIPE && !was_pending)
        sigtimedwait(&pipe_signal, nullptr, &at_once);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = error;
    return written;
}

// A pipe or a terminal is shared with whoever started us, and so are the flags of its descriptor: they are left alone.
// The same file opened once more has flags of its own. Where that is not allowed it is written only while it has room,
// and not more than goes in whole; another process that takes this room in between would still hold us up.
ssize_t shared_write(const char *bytes, size_t length) {
    const int fd = open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) {
        pollfd room = {STDERR_FILENO, POLLOUT, 0};
        if (poll(&room, 1, 0) == 1)
            return pipe_write(STDERR_FILENO, bytes, length < PIPE_BUF ? length : PIPE_BUF);
        errno = EAGAIN;
        return -1;
    }
    const ssize_t written = pipe_write(fd, bytes, length);
    const int error = errno;
    close(fd);
    errno = error;
    return written;
}

ssize_t standard_error_write(const char *bytes, size_t length) {
    struct stat status;
    if (fstat(STDERR_FILENO, &status) != 0)
        return -1;
    if (S_ISSOCK(status.st_mode))
        return send(STDERR_FILENO, bytes, length, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (S_ISFIFO(status.st_mode) || (S_ISCHR(status.st_mode) && isatty(STDERR_FILENO)))
        return shared_write(bytes, length);
    return write(STDERR_FILENO, bytes, length); // a file, or the null device: there is always room
}

// One message is one packet. The C library's syslog() would wait for a reader that is slow.
ssize_t system_log_write(const char *bytes, size_t length) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof address.sun_path, "%s", output.system_log);
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0)
        return -1;
    const ssize_t written = sendto(fd, bytes, length, MSG_DONTWAIT | MSG_NOSIGNAL,
                                   reinterpret_cast<const sockaddr *>(&address), sizeof address);
    const int error = errno;
    close(fd);
    errno = error;
    return written;
}

// How much of it is settled: all of it also when it can never be written.
size_t message_write(const char *bytes, size_t length) {
    ssize_t written;
    do
        written = output.to_system_log ? system_log_write(bytes, length) : standard_error_write(bytes, length);
    while (written < 0 && errno == EINTR);
    if (written >= 0)
        return static_cast<size_t>(written);
    output.nobody_there = output.to_system_log && (errno == ENOENT || errno == ECONNREFUSED);
    const bool later = errno == EAGAIN || errno == ENOBUFS || errno == ENOMEM || errno == EMFILE || errno == ENFILE ||
                       output.nobody_there;
    return later ? 0 : length;
}

// ----------------------------------------------------------------------------------------- Keeping

bool is_empty() {
    return output.begin == output.end;
}

bool message_keep(const char *bytes, size_t length) {
    const size_t needed = sizeof(size_t) + length;
    if (output.kept == nullptr)
        output.kept = static_cast<char *>(malloc(kTraceBuffer));
    if (output.kept == nullptr || needed > kTraceBuffer - (output.end - output.begin))
        return false;
    if (needed > kTraceBuffer - output.end) {
        memmove(output.kept, output.kept + output.begin, output.end - output.begin);
        output.end -= output.begin;
        output.begin = 0;
    }
    memcpy(output.kept + output.end, &length, sizeof length);
    memcpy(output.kept + output.end + sizeof length, bytes, length);
    output.end += needed;
    output.process = getpid();
    return true;
}

// In place of what found no room. In the form of this file's messages, since it is one.
size_t loss_write(char *to, size_t size) {
    const int length = snprintf(to, size, "%sKEX     - [!]%u trace messages were dropped: nobody took them%s",
                                output.to_system_log ? "<12>" : "", output.dropped, output.to_system_log ? "" : "\n");
    return static_cast<size_t>(length);
}

// True: nothing has been lost, or that has been told.
bool loss_keep() {
    char message[128];
    if (output.dropped == 0)
        return true;
    if (!message_keep(message, loss_write(message, sizeof message)))
        return false;
    output.dropped = 0;
    return true;
}

} // namespace

void trace_output_begin(bool to_system_log) {
    free(output.kept);
    output = {to_system_log, output.system_log, nullptr, 0, 0, 0, 0, false, 0};
}

void trace_output_set_system_log(const char *path) {
    output.system_log = path;
}

void trace_output_flush() {
    if (!is_empty() && output.process != getpid())
        trace_output_begin(output.to_system_log);
    while (!is_empty()) {
        size_t length;
        memcpy(&length, output.kept + output.begin, sizeof length);
        const char *message = output.kept + output.begin + sizeof length;
        output.written += message_write(message + output.written, length - output.written);
        if (output.written < length)
            return;
        output.begin += sizeof length + length;
        output.written = 0;
        if (is_empty()) {
            output.begin = output.end = 0;
            loss_keep();
        }
    }
}

void trace_output_put(const char *message, size_t length) {
    trace_output_flush();
    size_t written = 0;
    if (is_empty() && output.dropped == 0)
        written = message_write(message, length);
    if (written < length && (!loss_keep() || !message_keep(message + written, length - written)))
        output.dropped++;
}

uint64_t trace_output_retry() {
    if (is_empty())
        return 0;
    return output.nobody_there ? kTraceRetryNobody : kTraceRetry;
}

void trace_output_end(uint64_t nanoseconds) {
    const uint64_t end = clock_monotonic() + nanoseconds;
    trace_output_flush();
    while (!is_empty() && !output.nobody_there && clock_monotonic() < end) {
        poll(nullptr, 0, 5);
        trace_output_flush();
    }
}

namespace {

// A program that ends without ending its bus, too.
__attribute__((destructor)) void process_end() {
    if (!is_empty() && output.process == getpid())
        trace_output_end(kTraceExitLimit);
}

} // namespace

} // namespace bus
