// SPDX-License-Identifier: MIT
// What arrives on a connection: one packet at a time, checked before anything of it is believed.
#include "base/trace.h"
#include "calls/call.h"
#include "calls/request.h"
#include "calls/wait.h"
#include "loop/loop.h"
#include "transport/connection.h"
#include "transport/listener.h"
#include "transport/spare.h"
#include "transport/tap.h"

#include <errno.h>
#include <initializer_list>
#include <string.h>
#include <sys/socket.h>

using namespace bus;

namespace {

// The kernel passes at most this many in one packet: all of them are received, so that all can be closed.
constexpr uint32_t kKernelDescriptors = 253;

struct Arrival {
    const uint8_t *packet;
    uint32_t size;
    wire::Descriptors descriptors;
    int fds[kKernelDescriptors];
    bool cut;              // longer than a packet may be
    bool descriptors_lost; // the process's table was full
};

// Several packets from one system call: a sender whose queue is full is woken once for all of them.
struct Batch {
    mmsghdr messages[kPacketsPerRead];
    iovec parts[kPacketsPerRead];
    alignas(cmsghdr) char control[kPacketsPerRead][CMSG_SPACE(sizeof(int) * kKernelDescriptors)];
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

void unpack(Batch &batch, uint32_t index, Arrival &arrival) {
    msghdr &message = batch.messages[index].msg_hdr;
    collect_descriptors(message, arrival);
    arrival.packet = static_cast<const uint8_t *>(batch.parts[index].iov_base);
    arrival.size = batch.messages[index].msg_len;
    arrival.cut = (message.msg_flags & MSG_TRUNC) != 0;
    arrival.descriptors_lost = (message.msg_flags & MSG_CTRUNC) != 0;
}

// One packet costs less by the call for one.
int receive_messages(int fd, mmsghdr *messages, uint32_t room) {
    constexpr int kFlags = MSG_DONTWAIT | MSG_CMSG_CLOEXEC;
    if (room > 1)
        return recvmmsg(fd, messages, room, kFlags, nullptr);
    const ssize_t size = recvmsg(fd, &messages->msg_hdr, kFlags);
    messages->msg_len = size < 0 ? 0 : static_cast<unsigned>(size);
    return size < 0 ? -1 : 1;
}

// How many packets came, at most `room`; 0: nothing now, or with an errno other than 0 the end.
uint32_t receive(Link *link, Batch &batch, uint32_t room) {
    for (;;) {
        for (uint32_t i = 0; i < room; i++) {
            batch.parts[i] = {link->bus->incoming + i * kMaxPacket, kMaxPacket};
            batch.messages[i] = {};
            batch.messages[i].msg_hdr.msg_iov = &batch.parts[i];
            batch.messages[i].msg_hdr.msg_iovlen = 1;
            batch.messages[i].msg_hdr.msg_control = batch.control[i];
            batch.messages[i].msg_hdr.msg_controllen = sizeof batch.control[i];
        }
        const int count = receive_messages(link->fd, batch.messages, room);
        if (count > 0)
            return static_cast<uint32_t>(count);
        // A reset is reported once, in front of what can still be read.
        if (errno == EINTR || errno == ECONNRESET)
            continue;
        if (errno == EAGAIN || errno == EWOULDBLOCK)
            errno = 0;
        return 0;
    }
}

uint32_t packets_within(uint32_t used, uint32_t limit, uint32_t of_one_packet) {
    return used < limit ? (limit - used + of_one_packet - 1) / of_one_packet : 1;
}

// How many packets may be taken at once without passing the limits on what waits from a peer by more than one packet
// would; a peer that has sent no descriptors lately is trusted not to fill the next packets with them.
uint32_t room_for(const Link *link, uint32_t descriptors, uint32_t wanted) {
    if (descriptors < kPlentyOfDescriptors)
        return 1;
    uint32_t room = wanted;
    for (const uint32_t within :
         {packets_within(link->in_calls, kMaxReceivedCalls, 1),
          packets_within(link->in_bytes, kMaxReceivedBytes, kMaxPacket),
          link->in_fds == 0 ? kPacketsPerRead : packets_within(link->in_fds, kMaxReceivedDescriptors, kMaxDescriptors)})
        room = within < room ? within : room;
    return room;
}

// Calls that wait to be run hold the descriptors they came with.
bool descriptors_are_held(const kex_t *bus) {
    for (Link *link = bus->links.first; link != nullptr; link = List<Link>::after(link)) {
        if (link->in_fds > 0)
            return true;
    }
    return false;
}

const char *greet(Link *link, const wire::Message &message) {
    if (link->greeted)
        return "a second hello came";
    if (message.kind == wire::kTapHello && link->role != Role::server)
        return "a tap answered";
    Text name = wire::hello_name(message);
    printable(link->name, sizeof link->name, name.bytes, name.length);
    link->greeted = true;
    link->hello_deadline = 0;
    if (message.kind == wire::kTapHello) {
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

void remember_refusal(Link *link, Text text) {
    printable(link->why, sizeof link->why, text.bytes, text.length);
    char title[kTitleSize];
    note(ZIL_TRACE_ERROR, "%s refused this process: %s", link_title(link, title, sizeof title), link->why);
}

// Handles a packet that is well formed. A sentence when it may not come here and now, else null.
const char *handle(Link *link, const wire::Message &message, Arrival &arrival) {
    const uint8_t *packet = arrival.packet;
    if (message.kind == wire::kHello || message.kind == wire::kTapHello)
        return greet(link, message);
    if (message.kind == wire::kRefused) {
        remember_refusal(link, wire::refusal_reason(message));
        tap_packet(link, TapDirection::received, packet, arrival.size);
        return nullptr;
    }
    if (!link->greeted)
        return "no hello came first";
    if (link->role == Role::tap)
        return "a tap only looks";
    tap_packet(link, TapDirection::received, packet, arrival.size);
    switch (message.kind) {
    case wire::kCall:
    case wire::kOneWayCall:
        return call_arrived(link, message, arrival.descriptors) ? nullptr : "out of memory";
    case wire::kReply:
        return request_answered(link, message, arrival.descriptors) ? nullptr : "out of memory";
    default:
        wait_announced(link, message.serial);
        return nullptr;
    }
}

const char *judge(Link *link, Arrival &arrival) {
    if (arrival.cut)
        return "the packet is too large";
    if (arrival.descriptors_lost)
        return "descriptors were lost: this process has no more";
    wire::Message message;
    const char *why = wire::message_validate(arrival.packet, arrival.size, arrival.descriptors.count, message);
    return why != nullptr ? why : handle(link, message, arrival);
}

} // namespace

namespace bus {

bool link_is_full(const Link *link) {
    return link->in_calls >= kMaxReceivedCalls || link->in_bytes >= kMaxReceivedBytes ||
           link->in_fds >= kMaxReceivedDescriptors;
}

bool link_receive(Link *link, uint32_t packets) {
    if (link->closed)
        return false;
    Batch batch;
    const uint32_t descriptors = descriptors_room(link->bus);
    const bool is_short = descriptors < kMaxDescriptors;
    // What has come may make room again once it has been run. Only a wait reads on: nothing runs before it ends.
    if (is_short && link->awaited == nullptr && descriptors_are_held(link->bus))
        return false;
    const uint32_t room = room_for(link, descriptors, packets);
    if (is_short)
        spare_release(link->bus);
    const uint32_t count = receive(link, batch, room);
    const int error = errno;
    if (is_short)
        spare_fill(link->bus);
    if (count == 0 && error != 0)
        link_close(link, link->why[0] != '\0' ? link->why : strerror(error));
    for (uint32_t i = 0; i < count; i++) {
        Arrival arrival;
        unpack(batch, i, arrival);
        descriptors_came(link->bus, arrival.descriptors.count);
        const bool at_end = arrival.size == 0 && arrival.descriptors.count == 0;
        if (at_end && !link->closed)
            link_close(link, link->why[0] != '\0' ? link->why : "the other side is gone");
        const char *why = link->closed ? nullptr : judge(link, arrival);
        wire::descriptors_close(arrival.descriptors);
        if (why != nullptr)
            link_refuse(link, why);
    }
    return count == room && !link->closed;
}

namespace {

// Everything that is there, the end of file included.
void drain(Link *link) {
    bool more = true;
    for (uint32_t i = 0; more && i < kMaxPacketsPerTurn && !link_is_full(link); i += kPacketsPerRead)
        more = link_receive(link, kPacketsPerRead);
}

// As much as experience says is there: a peer that sends one packet and waits is read once and not asked again in vain;
// one that sends many is read in ever larger bites. What is left makes the loop come back at once; it is left when much
// has been read, so that the calls of others do not stand behind all that one peer can send.
void read_some(Link *link) {
    bool more = !link_is_full(link);
    for (uint32_t i = 0; more && i < kPacketsPerTurn && !link_is_full(link); i += kPacketsPerRead) {
        const uint32_t bite = 1u << link->bite;
        more = link_receive(link, bite);
        const bool largest = bite == kPacketsPerRead;
        if (more && !largest)
            link->bite++;
        if (!more)
            link->bite = 0;
        more = more && largest;
    }
}

} // namespace

void links_read(kex_t *bus, bool newcomers) {
    bool any = newcomers;
    for (Link *link = bus->links.first; link != nullptr; link = List<Link>::after(link)) {
        any |= link->ready;
        newcomers |= link->ready && !link->greeted && link->role == Role::server;
    }
    if (!any)
        return;
    for (Link *link = bus->links.first; link != nullptr; link = List<Link>::after(link)) {
        if (newcomers)
            drain(link);
        else if (link->ready)
            read_some(link);
        link->ready = false;
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

void links_expire(kex_t *bus, uint64_t now) {
    for (Link *link = bus->links.first; link != nullptr; link = List<Link>::after(link)) {
        if (link->retry_at != 0 && link->retry_at <= now)
            link->retry_at = 0;
        if (!link->closed && link->hello_deadline != 0 && link->hello_deadline <= now)
            link_refuse(link, "no hello came within 2 s");
    }
}

void links_begin(kex_t *bus) {
    bus->module.self = bus;
    bus->module.read = [](void *self) {
        links_read(static_cast<kex_t *>(self), listeners_ready(static_cast<kex_t *>(self)));
    };
    bus->module.accept = [](void *self) { listeners_accept(static_cast<kex_t *>(self)); };
    bus->module.has_work = [](void *self) { return static_cast<kex_t *>(self)->output_waits; };
    bus->module.deadline = [](void *self) { return links_deadline(static_cast<kex_t *>(self)); };
    bus->module.expire = [](void *self, uint64_t now) { links_expire(static_cast<kex_t *>(self), now); };
    bus->module.send = [](void *self) {
        links_flush(static_cast<kex_t *>(self));
        static_cast<kex_t *>(self)->output_waits = false;
    };
    loop_join(&bus->loop, &bus->module);
}

} // namespace bus
