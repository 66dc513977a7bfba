// SPDX-License-Identifier: MIT
// Watching descriptors of the host's own (kex_host.h, kex_watch).
#include "loop/watch.h"
#include "loop/loop.h"

#include <errno.h>

using namespace bus;

namespace {

void run(Task *task) {
    // The handler may end its own watch: nothing of it is touched afterwards.
    Watch *watch = static_cast<Watch *>(task);
    watch->handler(watch->fd, watch->userdata);
}

void drop(Task *) {}

Watch *find(kex_t *bus, int fd) {
    Watch *watch = bus->watches.first;
    while (watch != nullptr && watch->fd != fd)
        watch = List<Watch>::after(watch);
    return watch;
}

void end(Watch *watch) {
    kex_t *bus = watch->bus;
    loop_remove(bus, watch->fd, watch);
    if (watch->always_ready)
        bus->always_ready--;
    bus->tasks.remove(watch);
    bus->watches.remove(watch);
    free(watch);
}

} // namespace

namespace bus {

void watch_ready(kex_t *bus, Watch *watch) {
    if (!List<Task>::holds(watch))
        loop_push(bus, watch);
}

void watches_always_ready(kex_t *bus) {
    if (bus->always_ready == 0)
        return;
    for (Watch *watch = bus->watches.first; watch != nullptr; watch = List<Watch>::after(watch)) {
        if (watch->always_ready)
            watch_ready(bus, watch);
    }
}

void watches_free(kex_t *bus) {
    while (bus->watches.first != nullptr)
        end(bus->watches.first);
}

} // namespace bus

int kex_watch(kex_t *bus, int fd, void *userdata, void (*handler)(int fd, void *userdata)) {
    if (bus == nullptr || fd < 0 || handler == nullptr)
        return 0;
    Watch *watch = find(bus, fd);
    if (watch == nullptr) {
        watch = make<Watch>();
        if (watch == nullptr)
            return 0;
        watch->kind = SourceKind::watch;
        watch->run = run;
        watch->drop = drop;
        watch->bus = bus;
        watch->fd = fd;
        if (!loop_add(bus, fd, watch)) {
            if (errno != EPERM) {
                free(watch);
                return 0;
            }
            watch->always_ready = true;
            bus->always_ready++;
        }
        bus->watches.push(watch);
        loop_wake(bus);
    }
    watch->userdata = userdata;
    watch->handler = handler;
    return 1;
}

int kex_unwatch(kex_t *bus, int fd) {
    Watch *watch = bus != nullptr ? find(bus, fd) : nullptr;
    if (watch == nullptr)
        return 0;
    end(watch);
    return 1;
}
