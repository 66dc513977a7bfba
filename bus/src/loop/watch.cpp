// SPDX-License-Identifier: MIT
// Implements watch.h.
#include "loop/watch.h"

#include <errno.h>

namespace bus {

struct Watch : Source, Task, Node<Watch> {
    Loop *loop;
    bool always_ready; // a plain file or /dev/null: the kernel does not poll it, reading never blocks
    void *userdata;
    void (*handler)(int fd, void *userdata);
};

namespace {

void watch_run(Task *task) {
    // The handler may end its own watch: nothing of it is touched afterwards.
    Watch *watch = static_cast<Watch *>(task);
    watch->handler(watch->fd, watch->userdata);
}

void watch_queue(Watch *watch) {
    if (!List<Task>::holds(watch))
        lane_push(&watch->loop->own, watch);
}

void watch_ready(Source *source) {
    watch_queue(static_cast<Watch *>(source));
}

Watch *watch_find(Loop *loop, int fd) {
    Watch *watch = loop->watches.list.first;
    while (watch != nullptr && watch->fd != fd)
        watch = List<Watch>::after(watch);
    return watch;
}

Watch *watch_create(Loop *loop, int fd) {
    Watch *watch = make<Watch>();
    if (watch == nullptr)
        return nullptr;
    watch->run = watch_run;
    watch->loop = loop;
    watch->fd = fd;
    if (!source_add(loop, watch, fd, watch_ready)) {
        if (errno != EPERM) {
            free(watch);
            return nullptr;
        }
        watch->always_ready = true;
        loop->watches.always_ready++;
    }
    loop->watches.list.push(watch);
    loop_wake(loop);
    return watch;
}

void watch_destroy(Watch *watch) {
    Loop *loop = watch->loop;
    source_remove(loop, watch);
    if (watch->always_ready)
        loop->watches.always_ready--;
    task_remove(watch);
    loop->watches.list.remove(watch);
    free(watch);
}

bool watches_have_work(void *self) {
    return static_cast<Loop *>(self)->watches.always_ready > 0;
}

void watches_queue_always_ready(void *self) {
    const Watches &watches = static_cast<Loop *>(self)->watches;
    if (watches.always_ready == 0)
        return;
    for (Watch *watch : watches.list) {
        if (watch->always_ready)
            watch_queue(watch);
    }
}

const Module kWatches = {.begin = watches_queue_always_ready, .has_work = watches_have_work};

} // namespace

void watches_begin(Loop *loop) {
    loop_join(loop, kWatches, loop);
}

void watches_end(Loop *loop) {
    while (loop->watches.list.first != nullptr)
        watch_destroy(loop->watches.list.first);
}

bool watch_start(Loop *loop, int fd, void *userdata, void (*handler)(int fd, void *userdata)) {
    Watch *watch = watch_find(loop, fd);
    if (watch == nullptr)
        watch = watch_create(loop, fd);
    if (watch == nullptr)
        return false;
    watch->userdata = userdata;
    watch->handler = handler;
    return true;
}

bool watch_stop(Loop *loop, int fd) {
    Watch *watch = watch_find(loop, fd);
    if (watch == nullptr)
        return false;
    watch_destroy(watch);
    return true;
}

} // namespace bus
