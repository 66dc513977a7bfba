/* SPDX-License-Identifier: MIT */
/*
 * Preloaded into a program: lets one system call or allocation fail, the n-th of its kind. No other of its calls is
 * changed.
 *
 *   VOICE_FAULT=KIND:N        which one fails, 1 for the first; without it all succeed
 *   VOICE_FAULT_KILLS=WHEN    the process is killed "before" or "after" it instead; packets go one by one then
 *                             "sent:N" and "received:N" are the N-th message of the bus then, taps left aside, with all
 *                             that is in its packet; "before" it is handled, when it was received, or "after" that
 *   VOICE_FAULT_PROGRAM=NAME  only in this program: what starts it is left alone
 *   VOICE_FAULT_COUNTS=FILE   how many there have been of each kind, a 32-bit number each in the order below
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

enum kind {
    MEMORY,
    SEND,
    RECEIVE,
    ACCEPT,
    CONNECT,
    SOCKET,
    BIND,
    LISTEN,
    EPOLL,
    TIMER,
    EVENT,
    DUP,
    LOCK,
    OPEN,
    READ,
    WRITE,
    SENT,
    RECEIVED,
    KINDS
};

static const struct {
    const char *name;
    int error; /* what a full or tired kernel answers */
} kinds[KINDS] = {
    [MEMORY] = {"memory", ENOMEM},
    [SEND] = {"send", ENOBUFS},
    [RECEIVE] = {"receive", ENOMEM},
    [ACCEPT] = {"accept", ENFILE},
    [CONNECT] = {"connect", EAGAIN},
    [SOCKET] = {"socket", EMFILE},
    [BIND] = {"bind", EADDRINUSE},
    [LISTEN] = {"listen", ENOBUFS},
    [EPOLL] = {"epoll", ENOSPC},
    [TIMER] = {"timer", EMFILE},
    [EVENT] = {"event", EMFILE},
    [DUP] = {"dup", EMFILE},
    [LOCK] = {"lock", ENOLCK},
    [OPEN] = {"open", EMFILE},
    [READ] = {"read", EIO},
    [WRITE] = {"write", ENOSPC},
    [SENT] = {"sent", 0},
    [RECEIVED] = {"received", 0},
};

static uint32_t own_counts[KINDS];
static uint32_t *counts = own_counts;
static int active;
static int fault_kind = -1;
static uint32_t fault_number;
static enum { FAILS, KILLED_BEFORE, KILLED_AFTER } consequence;
static int last_call; /* the one after which the process is killed has begun */
static int last_turn; /* what was received is being handled: killed when that is done, or before it sends anything */

static void counts_share(const char *path) {
    int (*plain_open)(const char *, int, ...) = (int (*)(const char *, int, ...))dlsym(RTLD_NEXT, "open");
    int fd = plain_open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    void *shared = MAP_FAILED;
    if (fd >= 0 && ftruncate(fd, sizeof own_counts) == 0)
        shared = mmap(NULL, sizeof own_counts, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (fd >= 0)
        close(fd);
    if (shared != MAP_FAILED)
        counts = shared;
}

__attribute__((constructor)) static void begin(void) {
    const char *program = getenv("VOICE_FAULT_PROGRAM");
    const char *fault = getenv("VOICE_FAULT");
    const char *path = getenv("VOICE_FAULT_COUNTS");
    const char *kills = getenv("VOICE_FAULT_KILLS");
    if (program == NULL || strcmp(program, program_invocation_short_name) != 0)
        return;
    if (path != NULL)
        counts_share(path);
    const char *colon = fault != NULL ? strchr(fault, ':') : NULL;
    for (int kind = 0; colon != NULL && kind < KINDS; kind++)
        if (strlen(kinds[kind].name) == (size_t)(colon - fault) && strncmp(kinds[kind].name, fault, colon - fault) == 0)
            fault_kind = kind;
    if (colon != NULL)
        fault_number = (uint32_t)strtoul(colon + 1, NULL, 10);
    if (kills != NULL)
        consequence = strcmp(kills, "before") == 0 ? KILLED_BEFORE : KILLED_AFTER;
    active = 1;
}

/* Counts a call. Whether it fails; errno then says why. */
static int fails(enum kind kind) {
    if (!active)
        return 0;
    uint32_t number = ++counts[kind];
    if ((int)kind != fault_kind || number != fault_number)
        return 0;
    if (consequence == KILLED_BEFORE)
        kill(getpid(), SIGKILL);
    last_call = consequence == KILLED_AFTER;
    errno = kinds[kind].error;
    return consequence == FAILS;
}

static void end_after_last_call(void) {
    if (last_call)
        kill(getpid(), SIGKILL);
}

enum { KIND_AT = 3, SIZE_AT = 12, HEAD_SIZE = 20 }; /* of a message */

/* Calls, one-way calls and replies among the messages that begin in these bytes. */
static uint32_t messages_of_part(const unsigned char *bytes, size_t size) {
    uint32_t found = 0;
    while (size >= HEAD_SIZE && bytes[0] == 'k') {
        uint32_t whole;
        memcpy(&whole, bytes + SIZE_AT, sizeof whole);
        found += bytes[KIND_AT] >= 2 && bytes[KIND_AT] <= 4;
        if (whole < HEAD_SIZE || whole > size)
            break;
        bytes += whole;
        size -= whole;
    }
    return found;
}

/* The same of the first bytes of a packet. */
static uint32_t messages_of(const struct msghdr *packet, size_t size) {
    uint32_t found = 0;
    for (size_t i = 0; i < packet->msg_iovlen && size > 0; i++) {
        size_t part = packet->msg_iov[i].iov_len < size ? packet->msg_iov[i].iov_len : size;
        found += messages_of_part(packet->msg_iov[i].iov_base, part);
        size -= part;
    }
    return found;
}

static int begin_send(const struct msghdr *packet) {
    if (last_turn)
        kill(getpid(), SIGKILL);
    int failed = fails(SEND);
    for (uint32_t left = failed ? 0 : messages_of(packet, SIZE_MAX); left > 0; left--)
        failed |= fails(SENT);
    return failed;
}

/* Messages that could not be sent will be sent again. */
static void end_send(const struct msghdr *packet, int sent) {
    uint32_t messages = sent || !active ? 0 : messages_of(packet, SIZE_MAX);
    if (messages > 0) {
        counts[SENT] -= messages;
        last_call = last_call && fault_kind != SENT;
    }
    end_after_last_call();
}

static void end_receive(const struct msghdr *packet, int flags, size_t size) {
    end_after_last_call();
    for (uint32_t left = (flags & MSG_PEEK) == 0 ? messages_of(packet, size) : 0; left > 0; left--)
        fails(RECEIVED);
    last_turn = last_turn || last_call;
    last_call = 0;
}

/* Stands before a function of libc: fails in its place, or calls it. */
#define FAILING(kind, result, failure, name, parameters, arguments) \
    result name parameters {                                        \
        static result(*real) parameters;                            \
        if (real == NULL)                                           \
            real = (result(*) parameters)dlsym(RTLD_NEXT, #name);   \
        if (fails(kind))                                            \
            return failure;                                         \
        result answer = real arguments;                             \
        end_after_last_call();                                      \
        return answer;                                              \
    }

/* libc's own names of the allocator: dlsym() may allocate itself. */
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *memory, size_t size);

void *malloc(size_t size) {
    return fails(MEMORY) ? NULL : __libc_malloc(size);
}
void *calloc(size_t count, size_t size) {
    return fails(MEMORY) ? NULL : __libc_calloc(count, size);
}
void *realloc(void *memory, size_t size) {
    return fails(MEMORY) ? NULL : __libc_realloc(memory, size);
}
void *reallocarray(void *memory, size_t count, size_t size) {
    size_t bytes;
    if (__builtin_mul_overflow(count, size, &bytes)) {
        errno = ENOMEM;
        return NULL;
    }
    return realloc(memory, bytes);
}

FAILING(SEND, ssize_t, -1, sendto,
        (int fd, const void *data, size_t size, int flags, const struct sockaddr *to, socklen_t length),
        (fd, data, size, flags, to, length))
FAILING(RECEIVE, ssize_t, -1, recv, (int fd, void *data, size_t size, int flags), (fd, data, size, flags))
FAILING(RECEIVE, ssize_t, -1, recvfrom,
        (int fd, void *data, size_t size, int flags, struct sockaddr *from, socklen_t *length),
        (fd, data, size, flags, from, length))
FAILING(ACCEPT, int, -1, accept4, (int fd, struct sockaddr *address, socklen_t *length, int flags),
        (fd, address, length, flags))
FAILING(CONNECT, int, -1, connect, (int fd, const struct sockaddr *address, socklen_t length), (fd, address, length))
FAILING(SOCKET, int, -1, socket, (int domain, int type, int protocol), (domain, type, protocol))
FAILING(BIND, int, -1, bind, (int fd, const struct sockaddr *address, socklen_t length), (fd, address, length))
FAILING(LISTEN, int, -1, listen, (int fd, int backlog), (fd, backlog))
FAILING(EPOLL, int, -1, epoll_create1, (int flags), (flags))
FAILING(TIMER, int, -1, timerfd_create, (int clock, int flags), (clock, flags))
FAILING(TIMER, int, -1, timerfd_settime, (int fd, int flags, const struct itimerspec *value, struct itimerspec *old),
        (fd, flags, value, old))
FAILING(EVENT, int, -1, eventfd, (unsigned value, int flags), (value, flags))
FAILING(DUP, int, -1, dup, (int fd), (fd))
FAILING(LOCK, int, -1, flock, (int fd, int operation), (fd, operation))
FAILING(READ, ssize_t, -1, read, (int fd, void *data, size_t size), (fd, data, size))
FAILING(WRITE, ssize_t, -1, write, (int fd, const void *data, size_t size), (fd, data, size))

/* A packet of the bus, or something else: a trace message, media. */
ssize_t send(int fd, const void *data, size_t size, int flags) {
    static ssize_t (*real)(int, const void *, size_t, int);
    if (real == NULL)
        real = (ssize_t(*)(int, const void *, size_t, int))dlsym(RTLD_NEXT, "send");
    struct iovec part = {(void *)data, size};
    const struct msghdr packet = {.msg_iov = &part, .msg_iovlen = 1};
    const int is_packet = size >= HEAD_SIZE && *(const char *)data == 'k';
    if (is_packet ? begin_send(&packet) : fails(SEND))
        return -1;
    ssize_t answer = real(fd, data, size, flags);
    if (is_packet)
        end_send(&packet, answer >= 0);
    else
        end_after_last_call();
    return answer;
}

ssize_t sendmsg(int fd, const struct msghdr *message, int flags) {
    static ssize_t (*real)(int, const struct msghdr *, int);
    if (real == NULL)
        real = (ssize_t(*)(int, const struct msghdr *, int))dlsym(RTLD_NEXT, "sendmsg");
    if (begin_send(message))
        return -1;
    ssize_t answer = real(fd, message, flags);
    end_send(message, answer >= 0);
    return answer;
}

int sendmmsg(int fd, struct mmsghdr *messages, unsigned count, int flags) {
    static int (*real)(int, struct mmsghdr *, unsigned, int);
    if (real == NULL)
        real = (int (*)(int, struct mmsghdr *, unsigned, int))dlsym(RTLD_NEXT, "sendmmsg");
    if (begin_send(&messages->msg_hdr))
        return -1;
    int answer = real(fd, messages, consequence == FAILS ? count : 1, flags);
    end_send(&messages->msg_hdr, answer > 0);
    return answer;
}

ssize_t recvmsg(int fd, struct msghdr *message, int flags) {
    static ssize_t (*real)(int, struct msghdr *, int);
    if (real == NULL)
        real = (ssize_t(*)(int, struct msghdr *, int))dlsym(RTLD_NEXT, "recvmsg");
    if (fails(RECEIVE))
        return -1;
    ssize_t answer = real(fd, message, flags);
    end_receive(message, flags, answer > 0 ? (size_t)answer : 0);
    return answer;
}

int recvmmsg(int fd, struct mmsghdr *messages, unsigned count, int flags, struct timespec *timeout) {
    static int (*real)(int, struct mmsghdr *, unsigned, int, struct timespec *);
    if (real == NULL)
        real = (int (*)(int, struct mmsghdr *, unsigned, int, struct timespec *))dlsym(RTLD_NEXT, "recvmmsg");
    if (fails(RECEIVE))
        return -1;
    int answer = real(fd, messages, consequence == FAILS ? count : 1, flags, timeout);
    end_receive(&messages->msg_hdr, flags, answer > 0 ? messages->msg_len : 0);
    return answer;
}

int epoll_wait(int epoll, struct epoll_event *events, int most, int timeout) {
    static int (*real)(int, struct epoll_event *, int, int);
    if (real == NULL)
        real = (int (*)(int, struct epoll_event *, int, int))dlsym(RTLD_NEXT, "epoll_wait");
    if (last_turn)
        kill(getpid(), SIGKILL);
    return real(epoll, events, most, timeout);
}

/* Programs of 32 bits that know files of more than 2 GiB call the second of each pair. */
#define OPENING(name)                                                        \
    int name(const char *path, int flags, ...) {                             \
        static int (*real)(const char *, int, ...);                          \
        va_list more;                                                        \
        va_start(more, flags);                                               \
        mode_t mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : 0;     \
        va_end(more);                                                        \
        if (real == NULL)                                                    \
            real = (int (*)(const char *, int, ...))dlsym(RTLD_NEXT, #name); \
        return fails(OPEN) ? -1 : real(path, flags, mode);                   \
    }
OPENING(open)
OPENING(open64)

FAILING(OPEN, FILE *, NULL, fopen, (const char *path, const char *mode), (path, mode))
FAILING(OPEN, FILE *, NULL, fopen64, (const char *path, const char *mode), (path, mode))

/* Only what adds a descriptor fails: that alone needs memory. */
int epoll_ctl(int epoll, int operation, int fd, struct epoll_event *event) {
    static int (*real)(int, int, int, struct epoll_event *);
    if (real == NULL)
        real = (int (*)(int, int, int, struct epoll_event *))dlsym(RTLD_NEXT, "epoll_ctl");
    return operation == EPOLL_CTL_ADD && fails(EPOLL) ? -1 : real(epoll, operation, fd, event);
}

/* Only what makes a second descriptor of one fails. */
#define DUPLICATING(name)                                                     \
    int name(int fd, int command, ...) {                                      \
        static int (*real)(int, int, ...);                                    \
        va_list more;                                                         \
        va_start(more, command);                                              \
        long argument = va_arg(more, long);                                   \
        va_end(more);                                                         \
        if (real == NULL)                                                     \
            real = (int (*)(int, int, ...))dlsym(RTLD_NEXT, #name);           \
        if ((command == F_DUPFD || command == F_DUPFD_CLOEXEC) && fails(DUP)) \
            return -1;                                                        \
        return real(fd, command, argument);                                   \
    }
DUPLICATING(fcntl)
DUPLICATING(fcntl64)
