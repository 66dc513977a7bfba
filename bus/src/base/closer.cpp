// SPDX-License-Identifier: MIT
// Implements closer.h.
//
// What cannot be proved to close at once is closed by threads of the process. A helper process would not do: it needs a
// copy of the descriptor, and some files (those of a file system in user space) are flushed by each close and not only
// by the last. The threads share nothing with the loop but the ring of jobs. They are started when there is something
// to close and end when there is nothing left, so that a host without threads has none as long as its peers send what
// voice needs; all signals are blocked in them, so that handlers run where the host expects them.
#include "base/closer.h"
#include "base/clock.h"
#include "base/descriptor_kind.h"
#include "base/first_byte.h"
#include "base/limits.h"
#include "base/sender.h"
#include "base/unread.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace bus {

namespace {

// For all that the calls of all peers can hold when they give it back at once. What is never used of it takes no
// memory.
constexpr uint32_t kRing = 64 * 1024;
static_assert(kRing >= kMaxClosings + kMaxPeers * (kMaxReceivedDescriptors + kPacketsPerRead * kMaxDescriptors));
constexpr size_t kStack = 256 * 1024;               // of a thread; only what is used of it takes memory
constexpr uint64_t kLingerWait = 20 * kMillisecond; // in vain: somebody holds the socket's lock
constexpr useconds_t kLingerLook = 50;              // microseconds from one look to the next

// What is done before the close.
enum class First : uint8_t {
    nothing,
    take_out,     // of a connected socket, the packets in it that may bring descriptors
    clear_linger, // of a socket that a peer has just handed over
};

struct Job {
    int fd;
    First first;
    uint8_t sender; // whom it came from (sender.h)
};

// One thread puts in (that of the loop), several take out. Counters run on for ever; a job stands at its counter modulo
// the size of the ring.
struct Ring {
    Job jobs[kRing];
    uint32_t head;    // taken out so far
    uint32_t tail;    // put in so far
    uint32_t closed;  // done so far
    uint32_t threads; // that run
    pid_t owner;      // whose threads they are: a forked child has none of them
};

Ring ring;
int32_t charged; // process

uint32_t load(const uint32_t &counter) {
    return __atomic_load_n(&counter, __ATOMIC_SEQ_CST);
}

// ----------------------------------------------------------------------------------------- In a thread

bool job_take(Job &job) {
    for (;;) {
        uint32_t head = load(ring.head);
        if (head == load(ring.tail))
            return false;
        job = ring.jobs[head % kRing];
        if (__atomic_compare_exchange_n(&ring.head, &head, head + 1, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST))
            return true;
    }
}

// Waits for whoever uses the socket elsewhere, from memory that may never come.
void linger_clear(int fd) {
    const linger none = {};
    setsockopt(fd, SOL_SOCKET, SO_LINGER, &none, sizeof none);
}

// Takes one packet out, with what came in it. False: there is none left.
bool packet_drop(int fd) {
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int) * kKernelDescriptors) + CMSG_SPACE(sizeof(ucred))];
    FirstByte first;
    msghdr &message = *first_byte_prepare(first);
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    if (recvmsg(fd, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC) < 0)
        return errno == EINTR || errno == ECONNRESET; // a reset is reported once, in front of what can still be read
    for (cmsghdr *head = CMSG_FIRSTHDR(&message); head != nullptr; head = CMSG_NXTHDR(&message, head)) {
        if (head->cmsg_level != SOL_SOCKET || head->cmsg_type != SCM_RIGHTS)
            continue;
        for (size_t at = 0; at < head->cmsg_len - CMSG_LEN(0); at += sizeof(int)) {
            int came;
            memcpy(&came, CMSG_DATA(head) + at, sizeof came);
            linger_clear(came);
            close(came);
        }
    }
    // Packets come with their sender's credentials; the end comes without anything.
    return message.msg_controllen > 0 || (message.msg_flags & MSG_CTRUNC) != 0;
}

void unread_drop(int fd) {
    unread_show(fd);
    while (packet_drop(fd)) {
    }
}

void job_do(Job job) {
    if (job.first == First::take_out)
        unread_drop(job.fd);
    if (job.first == First::clear_linger)
        linger_clear(job.fd);
    close(job.fd);
    sender_remove(job.sender);
}

void jobs_do() {
    Job job;
    while (job_take(job)) {
        job_do(job);
        __atomic_add_fetch(&ring.closed, 1, __ATOMIC_SEQ_CST);
    }
}

void *thread_run(void *) {
    for (;;) {
        jobs_do();
        // Whoever puts a job in looks at the number of threads after it; we look for a job after leaving.
        __atomic_sub_fetch(&ring.threads, 1, __ATOMIC_SEQ_CST);
        if (load(ring.head) == load(ring.tail))
            return nullptr;
        __atomic_add_fetch(&ring.threads, 1, __ATOMIC_SEQ_CST);
    }
}

// ----------------------------------------------------------------------------------------- In the loop

bool thread_start() {
    pthread_attr_t attributes;
    pthread_t thread;
    sigset_t all;
    sigset_t before;
    if (pthread_attr_init(&attributes) != 0)
        return false;
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_attr_setstacksize(&attributes, kStack);
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before); // a thread begins with the mask of its maker
    __atomic_add_fetch(&ring.threads, 1, __ATOMIC_SEQ_CST);
    const bool started = pthread_create(&thread, &attributes, thread_run, nullptr) == 0;
    if (!started)
        __atomic_sub_fetch(&ring.threads, 1, __ATOMIC_SEQ_CST);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_attr_destroy(&attributes);
    return started;
}

// True: it was the parent's until now.
bool ring_own() {
    const pid_t self = getpid();
    if (ring.owner == self)
        return false;
    ring.owner = self;
    ring.threads = 0;
    ring.closed = ring.head; // what the parent's threads were at is not to be waited for here
    senders_clear();
    for (uint32_t at = ring.head; at != ring.tail; at++)
        sender_add(ring.jobs[at % kRing].sender);
    return true;
}

// One that is held up does not hold up the next one: a thread for each, up to the limit.
void threads_start() {
    while (load(ring.threads) < kMaxClosers && load(ring.threads) < ring.tail - load(ring.closed) && thread_start()) {
    }
    if (load(ring.threads) == 0)
        jobs_do(); // no thread can be made: better late than never
}

void job_put(int fd, First first, int32_t process_id) {
    ring_own();
    const Job job = {fd, first, sender_place(process_id)};
    sender_add(job.sender);
    const uint32_t tail = ring.tail;
    if (tail - load(ring.head) == kRing) {
        job_do(job);
        return;
    }
    ring.jobs[tail % kRing] = job;
    __atomic_store_n(&ring.tail, tail + 1, __ATOMIC_SEQ_CST);
    threads_start();
}

// Those from `first` on that have numbers in a row, with one system call.
void row_close(int first, uint32_t count) {
#ifdef SYS_close_range
    const unsigned last = static_cast<unsigned>(first) + count - 1;
    if (count > 1 && syscall(SYS_close_range, static_cast<unsigned>(first), last, 0) == 0)
        return;
#endif
    for (uint32_t i = 0; i < count; i++)
        close(first + static_cast<int>(i));
}

// Asking takes no lock of the socket.
bool descriptor_lingers(int fd) {
    linger set = {};
    socklen_t length = sizeof set;
    return getsockopt(fd, SOL_SOCKET, SO_LINGER, &set, &length) == 0 && set.l_onoff != 0 && descriptor_may_linger(fd);
}

// Setting takes it: a thread does that, as with what it closes, which is a copy here; or -1 where there is no room for one.
void linger_clear_beside(int fd) {
    job_put(fcntl(fd, F_DUPFD_CLOEXEC, 0), First::clear_linger, charged);
}

// Waits for it no longer than until then.
bool linger_ends(int fd, uint64_t when) {
    while (descriptor_lingers(fd)) {
        if (clock_monotonic() >= when)
            return false;
        usleep(kLingerLook);
    }
    return true;
}

int32_t process_of(int fd) {
    ucred peer = {};
    socklen_t length = sizeof peer;
    return getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0 ? peer.pid : 0;
}

} // namespace

void foreign_descriptors_admit(int *fds, uint32_t count) {
    static bool in_vain; // the last wait: while what it was for goes on, nobody makes the loop wait again
    in_vain = in_vain && closings_pending() > 0;
    bool any = false;
    for (uint32_t i = 0; i < count; i++) {
        if (!descriptor_lingers(fds[i]))
            continue;
        any = true;
        if (!in_vain)
            linger_clear_beside(fds[i]);
    }
    if (!any)
        return;
    const uint64_t end = clock_monotonic() + (in_vain ? 0 : kLingerWait);
    for (uint32_t i = 0; i < count; i++) {
        if (linger_ends(fds[i], end))
            continue;
        in_vain = true;
        job_put(fds[i], First::clear_linger, charged);
        fds[i] = -1;
    }
}

void foreign_descriptor_close(int fd) {
    if (descriptor_closes_at_once(fd))
        close(fd);
    else
        job_put(fd, First::nothing, charged);
}

void foreign_descriptors_close_each(const int *fds, uint32_t count) {
    uint32_t in_row = 0; // in front of fds[i], to be closed here
    for (uint32_t i = 0; i < count; i++) {
        const bool here = fds[i] >= 0 && descriptor_closes_at_once(fds[i]);
        if (in_row > 0 && !(here && fds[i] == fds[i - 1] + 1)) {
            row_close(fds[i - in_row], in_row);
            in_row = 0;
        }
        in_row += here;
        if (fds[i] >= 0 && !here)
            job_put(fds[i], First::nothing, charged);
    }
    if (in_row > 0)
        row_close(fds[count - in_row], in_row);
}

void connected_socket_close(int fd) {
    if (unread_is_harmless(fd))
        close(fd);
    else
        job_put(fd, First::take_out, process_of(fd));
}

uint32_t closings_pending() {
    if (ring.tail == load(ring.closed))
        return 0;
    if (ring_own())
        threads_start();
    return ring.tail - load(ring.closed);
}

uint32_t closings_pending_of(int32_t process_id) {
    return closings_pending() > 0 ? sender_pending(process_id) : 0;
}

bool closings_are_many() {
    return closings_pending() >= kMaxClosings && senders_pending(kMaxClosingsOfProcess) >= kMaxClosings;
}

int32_t closings_charge(int32_t process_id) {
    const int32_t before = charged;
    charged = process_id;
    return before;
}

} // namespace bus
