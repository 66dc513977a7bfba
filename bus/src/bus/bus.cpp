// SPDX-License-Identifier: MIT
// Makes and ends a bus, and hands what a host asks of it to the layer that does it (kex_host.h, kex.h).
#include "base/contract.h"
#include "base/trace.h"
#include "bus/environment.h"
#include "calls/call.h"
#include "calls/calls.h"
#include "calls/function.h"
#include "calls/object.h"
#include "calls/peer.h"
#include "calls/request.h"
#include "calls/wait.h"
#include "loop/loop.h"
#include "loop/timer.h"
#include "loop/trace_task.h"
#include "loop/watch.h"
#include "transport/admission.h"
#include "transport/transport.h"

#include <errno.h>
#include <string.h>

using namespace bus;

struct connection {
    kex_t *bus;
};

struct kex : Node<kex> {
    connection_t connection;
    Loop loop;
    Transport transport;
    Calls calls;
};

namespace {

List<kex_t> all; // oldest first

bool bus_begin(kex_t *bus, const char *process_name) {
    Environment environment = {};
    environment_read(environment);
    if (!loop_begin(&bus->loop))
        return false;
    // In the order in which they take their share of a turn.
    watches_begin(&bus->loop);
    trace_join(&bus->loop);
    bool complete = transport_begin(&bus->transport, &bus->loop, process_name, environment.access);
    timers_begin(&bus->loop, environment.time_factor);
    return complete && calls_begin(&bus->calls, &bus->transport, bus);
}

void bus_end(kex_t *bus) {
    watches_end(&bus->loop);
    tasks_drop(&bus->loop);
    timers_end(&bus->loop);
    transport_end(&bus->transport);
    calls_end(&bus->calls);
    loop_end(&bus->loop);
    all.remove(bus);
    free(bus);
}

} // namespace

// ----------------------------------------------------------------------------------------- Making and ending

kex_t *kex_create(const char *process_name) {
    kex_t *bus = make<kex_t>();
    if (bus == nullptr)
        return nullptr;
    bus->connection.bus = bus;
    if (!bus_begin(bus, process_name != nullptr ? process_name : "")) {
        bus_end(bus);
        return nullptr;
    }
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
    transport_drain(&bus->transport, kExitFlushLimit);
    loop_freeze(&bus->loop);
    transport_close(&bus->transport, "this process ends");
    tasks_drop(&bus->loop);
    bus_end(bus);
}

connection_t *kex_connection(kex_t *bus) {
    return bus != nullptr ? &bus->connection : nullptr;
}

// ----------------------------------------------------------------------------------------- The loop

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

void kex_setClock(kex_t *bus, uint64_t (*now)(void *userdata), void *userdata) {
    if (bus == nullptr)
        return;
    bus->loop.clock = {now, userdata};
    loop_wake(&bus->loop);
}

// Of the bus whose handler runs, else of the first one there is.
kex_timer_t *kex_timer_create(void) {
    Loop *loop = loop_dispatching();
    if (loop == nullptr && all.first != nullptr)
        loop = &all.first->loop;
    return loop != nullptr ? timer_create(loop) : nullptr;
}

// ----------------------------------------------------------------------------------------- Peers and requests

peer_t *connection_listenOnIPC(connection_t *connection, const char *path) {
    return connection != nullptr && path != nullptr ? peer_listen(&connection->bus->calls, path) : nullptr;
}

int kex_reserve(kex_t *bus, uid_t uid, unsigned places) {
    return bus != nullptr && places_reserve(&bus->transport, uid, places);
}

peer_t *kex_client_connect(kex_t *bus, const char *uri) {
    return bus != nullptr && uri != nullptr ? peer_connect(&bus->calls, uri) : nullptr;
}

void kex_onPeerClosed(kex_t *bus, void (*handler)(kex_t *bus, peer_t *peer, void *userdata), void *userdata) {
    if (bus == nullptr)
        return;
    bus->calls.closed_handler = handler;
    bus->calls.closed_userdata = userdata;
}

int kex_sendRequest(kex_t *bus, peer_t *peer, request_t *r) {
    return bus != nullptr && r != nullptr && request_send(&bus->calls, peer, r);
}

int kex_waitForReply(kex_t *bus, request_t *r, const struct timeval *timeout) {
    return bus != nullptr && r != nullptr && request_wait(&bus->calls, r, timeout);
}

// ----------------------------------------------------------------------------------------- Calls

int kex_currentCall(kex_t *bus, kex_call_t *call) {
    const argument_list_t *running = bus != nullptr ? bus->calls.running : nullptr;
    if (running == nullptr || call == nullptr)
        return 0;
    call->peer = fcall_peer(running->call);
    call->path = {running->parsed.path.bytes, running->parsed.path.length};
    call->function = {running->parsed.function.bytes, running->parsed.function.length};
    return 1;
}

int kex_currentText(kex_t *bus, const char *argument, kex_text_t *text) {
    const argument_list_t *running = bus != nullptr ? bus->calls.running : nullptr;
    Text found;
    if (running == nullptr || argument == nullptr || text == nullptr || !argument_find_text(running, argument, found))
        return 0;
    *text = {found.bytes, found.length};
    return 1;
}

int kex_currentUInt32(kex_t *bus, const char *argument, uint32_t *number) {
    return bus != nullptr && bus->calls.running != nullptr &&
           argument_getUInt32(bus->calls.running, argument, 0, number);
}

void kex_onCall(kex_t *bus, int (*handler)(kex_t *bus, void *userdata), void *userdata) {
    if (bus == nullptr)
        return;
    bus->calls.call_handler = handler;
    bus->calls.call_userdata = userdata;
}

void kex_onFailed(kex_t *bus, void (*handler)(const kex_failed_call_t *call, void *userdata), void *userdata) {
    if (bus == nullptr)
        return;
    bus->calls.failed_handler = handler;
    bus->calls.failed_userdata = userdata;
}

// ----------------------------------------------------------------------------------------- Data model

int kex_declareFunctions(kex_t *bus, const char *const *rows, uint32_t row_count, uint32_t columns) {
    return bus != nullptr && rows != nullptr && columns >= 2 &&
           functions_declare(&bus->calls, rows, row_count, columns);
}

object_t *kex_declareObject(kex_t *bus, const char *path, const char *class_name) {
    if (bus == nullptr || path == nullptr)
        return nullptr;
    return object_declare(&bus->calls, path, class_name, ObjectKind::plain);
}

object_t *kex_declareTemplate(kex_t *bus, const char *path, const char *class_name) {
    if (bus == nullptr || path == nullptr)
        return nullptr;
    return object_declare(&bus->calls, path, class_name, ObjectKind::template_object);
}

object_t *kex_getObject(kex_t *bus, const char *path, uint32_t) {
    return bus != nullptr && path != nullptr ? object_find(&bus->calls, path, strlen(path)) : nullptr;
}
