// SPDX-License-Identifier: MIT
// What arrives on a connection: one packet at a time, checked before anything of it is believed.
#include "call.h"
#include "link.h"
#include "loop.h"
#include "request.h"
#include "spare.h"
#include "tap.h"
#include "trace.h"
#include "wait.h"

#include <errno.h>
#include <initializer_list>
#include <string.h>
#include <sys/socket.h>

using namespace bus;

namespace {

// The kernel passes at most this many in one packet: all of them are received, so that all can be closed.
constexpr uint32_t kKernelDescriptors = 253;

struct Arrival {
    uint32_t size;
    wire::Descriptors descriptors;
    int fds[kKernelDescriptors];
    bool cut;              // longer than a packet may be
    bool descriptors_lost; // the process's table was full
};

void collect_descriptors(msghdr &message, Arrival &arrival) {
    arrival.descriptors = {arrival.fds, 0};
    for (cmsghdr *head = CMSG_FIRSTHDR(&message); head != nullptr; head = CMSG_NXTHDR(&message, head)) {
        if (head->cmsg_level != SOL_SOCKET || head->cmsg_type != SCM_RIGHTS)
            continue;
        size_t bytes = head->cmsg_len - CMSG_LEN(0);
        uint32_t count = static_cast<uint32_t>(bytes / sizeof(int));
        if (count > kKernelDescriptors - arrival.descriptors.count)
            count = kKernelDescriptors - arrival.descriptors.count;
        memcpy(arrival.fds + arrival.descriptors.count, CMSG_DATA(head), count * sizeof(int));
        arrival.descriptors.count += count;
    }
}

// 1: a packet; 0: nothing now; -1: the end, with errno (0: an orderly one).
int receive(Link *link, Arrival &arrival) {
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int) * kKernelDescriptors)];
    iovec part = {link->bus->incoming, kMaxPacket};
    for (;;) {
        msghdr message = {};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        ssize_t size = recvmsg(link->fd, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
        // A reset is reported once, in front of what can still be read.
        if (size < 0 && (errno == EINTR || errno == ECONNRESET))
            continue;
        if (size < 0)
            return errno == EAGAIN || errno == EWOULDBLOCK ? 0 : -1;
        collect_descriptors(message, arrival);
        arrival.size = static_cast<uint32_t>(size);
        arrival.cut = (message.msg_flags & MSG_TRUNC) != 0;
        arrival.descriptors_lost = (message.msg_flags & MSG_CTRUNC) != 0;
        if (size == 0 && arrival.descriptors.count == 0) {
            errno = 0;
            return -1;
        }
        return 1;
    }
}

const char *greet(Link *link, const wire::Head &head, wire::Text name) {
    if (link->greeted)
        return "a second hello came";
    if (head.kind == wire::kTapHello && link->role != Role::server)
        return "a tap answered";
    printable(link->name, sizeof link->name, name.bytes, name.length);
    link->greeted = true;
    link->hello_deadline = 0;
    if (head.kind == wire::kTapHello) {
        link->role = Role::tap;
        link->bus->taps++;
        return nullptr;
    }
    if (link->shell == nullptr) {
        link->shell = shell_create(link->bus);
        if (link->shell == nullptr)
            return "out of memory";
        link->shell->link = link;
    }
    tap_event(link, KEX_TAP_CONNECTED, "");
    return nullptr;
}

void remember_refusal(Link *link, wire::Text text) {
    printable(link->why, sizeof link->why, text.bytes, text.length);
    char title[kTitleSize];
    note(ZIL_TRACE_ERROR, "%s refused this process: %s", link_title(link, title, sizeof title), link->why);
}

// Handles a packet that is well formed. A sentence when it may not come here and now, else null.
const char *handle(Link *link, const wire::Head &head, Arrival &arrival) {
    const uint8_t *packet = link->bus->incoming;
    wire::Reader reader = wire::open(packet, arrival.size);
    if (head.kind == wire::kHello || head.kind == wire::kTapHello)
        return greet(link, head, wire::get_text(reader));
    if (head.kind == wire::kRefused) {
        remember_refusal(link, wire::get_text(reader));
        tap_packet(link, TapDirection::received, packet, arrival.size);
        return nullptr;
    }
    if (!link->greeted)
        return "no hello came first";
    if (link->role == Role::tap)
        return "a tap only looks";
    tap_packet(link, TapDirection::received, packet, arrival.size);
    switch (head.kind) {
    case wire::kCall:
    case wire::kOneWayCall:
        return call_arrived(link, head, packet, arrival.size, arrival.descriptors) ? nullptr : "out of memory";
    case wire::kReply:
        return request_answered(link, head, packet, arrival.size, arrival.descriptors) ? nullptr : "out of memory";
    default:
        wait_announced(link, head.serial);
        return nullptr;
    }
}

const char *judge(Link *link, Arrival &arrival) {
    if (arrival.cut)
        return "the packet is too large";
    if (arrival.descriptors_lost)
        return "descriptors were lost: this process has no more";
    wire::Head head;
    const char *why = wire::check(link->bus->incoming, arrival.size, arrival.descriptors.count, head);
    return why != nullptr ? why : handle(link, head, arrival);
}

} // namespace

namespace bus {

bool link_is_full(const Link *link) {
    return link->in_calls >= kMaxReceivedCalls || link->in_bytes >= kMaxReceivedBytes ||
           link->in_fds >= kMaxReceivedDescriptors;
}

bool link_receive(Link *link, bool descriptors_short) {
    if (link->closed)
        return false;
    Arrival arrival;
    if (descriptors_short)
        spare_release(link->bus);
    int result = receive(link, arrival);
    int error = errno;
    if (descriptors_short)
        spare_fill(link->bus);
    if (result == 0)
        return false;
    if (result < 0) {
        const char *why = error != 0 ? strerror(error) : "the other side is gone";
        link_close(link, link->why[0] != '\0' ? link->why : why);
        return false;
    }
    const char *why = judge(link, arrival);
    wire::close_all(arrival.descriptors);
    if (why == nullptr)
        return true;
    link_refuse(link, why);
    return false;
}

void links_read(kex_t *bus, bool newcomers) {
    bool any = newcomers;
    for (Link *link = bus->links.first; link != nullptr; link = List<Link>::after(link)) {
        any |= link->ready;
        newcomers |= link->ready && !link->greeted && link->role == Role::server;
    }
    if (!any)
        return;
    bool descriptors_short = descriptors_are_short(bus);
    for (Link *link = bus->links.first; link != nullptr; link = List<Link>::after(link)) {
        bool wanted = link->ready || newcomers;
        link->ready = false;
        for (uint32_t i = 0; wanted && i < kMaxPacketsPerTurn && !link_is_full(link); i++)
            wanted = link_receive(link, descriptors_short);
    }
}

uint64_t links_deadline(kex_t *bus) {
    uint64_t soonest = 0;
    for (Link *link = bus->links.first; link != nullptr; link = List<Link>::after(link)) {
        for (uint64_t deadline : {link->hello_deadline, link->retry_at}) {
            if (!link->closed && deadline != 0 && (soonest == 0 || deadline < soonest))
                soonest = deadline;
        }
    }
    return soonest;
}

void links_expire(kex_t *bus) {
    uint64_t soonest = links_deadline(bus);
    if (soonest == 0)
        return;
    uint64_t now = clock_now(bus);
    if (now < soonest)
        return;
    for (Link *link = bus->links.first; link != nullptr; link = List<Link>::after(link)) {
        if (link->retry_at != 0 && link->retry_at <= now)
            link->retry_at = 0;
        if (!link->closed && link->hello_deadline != 0 && link->hello_deadline <= now)
            link_refuse(link, "no hello came within 2 s");
    }
}

} // namespace bus
