// SPDX-License-Identifier: MIT
// Making and ending a bus (kex_host.h, "Bus and its loop").
#include "bus/bus.h"
#include "base/trace.h"
#include "calls/object.h"
#include "loop/loop.h"
#include "loop/timer.h"
#include "loop/watch.h"
#include "transport/connection.h"
#include "transport/listener.h"
#include "transport/spare.h"
#include "value/tap_record.h"

#include <errno.h>
#include <string.h>

using namespace bus;

namespace {

List<kex_t> all; // oldest first

void release(kex_t *bus) {
    watches_end(&bus->loop);
    loop_drop_tasks(&bus->loop);
    timers_end(&bus->loop);
    listeners_free(bus);
    links_free(bus);
    functions_free(bus);
    objects_free(bus);
    spare_release(bus);
    loop_end(&bus->loop);
    free(bus->incoming);
    free(bus->outgoing);
    all.remove(bus);
    free(bus);
}

} // namespace

kex_t *kex_create(const char *process_name) {
    kex_t *bus = make<kex_t>();
    if (bus == nullptr)
        return nullptr;
    const char *name = process_name != nullptr ? process_name : "";
    printable(bus->name, sizeof bus->name, name, strlen(name));
    bus->connection.bus = bus;
    bool complete = loop_begin(&bus->loop);
    bus->incoming = static_cast<uint8_t *>(malloc(size_t{kPacketsPerRead} * kMaxPacket));
    bus->outgoing = static_cast<uint8_t *>(malloc(wire::kMaxTapRecord));
    environment_read(bus->environment);
    complete = complete && bus->incoming != nullptr && bus->outgoing != nullptr && objects_open(bus);
    if (!complete || !spare_fill(bus)) {
        release(bus);
        return nullptr;
    }
    // In the order in which they take their share of a turn.
    watches_begin(&bus->loop);
    links_begin(bus);
    timers_begin(&bus->loop, bus->environment.time_factor);
    all.push(bus);
    return bus;
}

void kex_destroy(kex_t *bus) {
    if (bus == nullptr)
        return;
    if (bus->loop.in_turn) {
        note(ZIL_TRACE_ERROR, "kex_destroy inside a handler: the bus lives on");
        return;
    }
    links_drain_output(bus, kExitFlushLimit);
    loop_freeze(&bus->loop);
    bus->ending = true;
    for (Link *link = bus->links.first; link != nullptr; link = List<Link>::after(link))
        link_close(link, "this process ends");
    loop_drop_tasks(&bus->loop);
    release(bus);
}

connection_t *kex_connection(kex_t *bus) {
    return bus != nullptr ? &bus->connection : nullptr;
}

void kex_setClock(kex_t *bus, uint64_t (*now)(void *userdata), void *userdata) {
    if (bus == nullptr)
        return;
    bus->loop.clock = {now, userdata};
    loop_wake(&bus->loop);
}

int kex_run(kex_t *bus) {
    if (bus == nullptr) {
        errno = EINVAL;
        return -1;
    }
    return loop_run(&bus->loop);
}

void kex_stop(kex_t *bus) {
    if (bus != nullptr)
        loop_stop(&bus->loop);
}

int kex_pollDescriptor(kex_t *bus) {
    return bus != nullptr ? bus->loop.epoll_fd : -1;
}

int kex_dispatch(kex_t *bus) {
    return bus != nullptr ? loop_dispatch(&bus->loop) : 0;
}

int kex_watch(kex_t *bus, int fd, void *userdata, void (*handler)(int fd, void *userdata)) {
    if (bus == nullptr || fd < 0 || handler == nullptr)
        return 0;
    return watch_start(&bus->loop, fd, userdata, handler);
}

int kex_unwatch(kex_t *bus, int fd) {
    return bus != nullptr && watch_stop(&bus->loop, fd);
}

// Of the bus whose handler runs, else of the first one there is.
kex_timer_t *kex_timer_create(void) {
    Loop *loop = loop_dispatching();
    if (loop == nullptr && all.first != nullptr)
        loop = &all.first->loop;
    return loop != nullptr ? timer_create(loop) : nullptr;
}
