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

#include <string.h>

using namespace bus;

namespace {

List<kex_t> all; // oldest first
kex_t *dispatching;

void drop_tasks(kex_t *bus) {
    while (Task *task = bus->tasks.pop())
        task->drop(task);
}

void release(kex_t *bus) {
    watches_free(bus);
    drop_tasks(bus);
    timers_free(bus);
    listeners_free(bus);
    links_free(bus);
    functions_free(bus);
    objects_free(bus);
    spare_release(bus);
    loop_close(bus);
    free(bus->incoming);
    free(bus->outgoing);
    all.remove(bus);
    free(bus);
}

} // namespace

namespace bus {

kex_t *current_bus() {
    return dispatching != nullptr ? dispatching : all.first;
}
void set_dispatching_bus(kex_t *bus) {
    dispatching = bus;
}

} // namespace bus

kex_t *kex_create(const char *process_name) {
    kex_t *bus = make<kex_t>();
    if (bus == nullptr)
        return nullptr;
    const char *name = process_name != nullptr ? process_name : "";
    printable(bus->name, sizeof bus->name, name, strlen(name));
    bus->connection.bus = bus;
    bus->epoll_fd = bus->timer_fd = bus->stop_fd = bus->work_fd = -1;
    bus->incoming = static_cast<uint8_t *>(malloc(size_t{kPacketsPerRead} * kMaxPacket));
    bus->outgoing = static_cast<uint8_t *>(malloc(wire::kMaxTapRecord));
    environment_read(bus->environment);
    bool complete = bus->incoming != nullptr && bus->outgoing != nullptr && objects_open(bus);
    if (!complete || !loop_open(bus) || !spare_fill(bus)) {
        release(bus);
        return nullptr;
    }
    all.push(bus);
    return bus;
}

void kex_destroy(kex_t *bus) {
    if (bus == nullptr)
        return;
    if (bus->in_turn) {
        note(ZIL_TRACE_ERROR, "kex_destroy inside a handler: the bus lives on");
        return;
    }
    links_drain_output(bus, kExitFlushLimit);
    bus->in_turn = true; // nothing that handlers start is to be armed any more
    bus->ending = true;
    for (Link *link = bus->links.first; link != nullptr; link = List<Link>::after(link))
        link_close(link, "this process ends");
    kex_t *before = dispatching;
    dispatching = bus;
    drop_tasks(bus);
    dispatching = before == bus ? nullptr : before;
    release(bus);
}

connection_t *kex_connection(kex_t *bus) {
    return bus != nullptr ? &bus->connection : nullptr;
}

void kex_setClock(kex_t *bus, uint64_t (*now)(void *userdata), void *userdata) {
    if (bus == nullptr)
        return;
    bus->clock = {now, userdata};
    loop_wake(bus);
}
