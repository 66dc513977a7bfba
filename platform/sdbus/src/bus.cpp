// SPDX-License-Identifier: MIT
// Making a bus and ending it, and what the environment says to it.
#include "bus.h"
#include "kex_tap.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

namespace sdbus {

std::vector<kex_t *> buses;
kex_t *dispatching = nullptr;

namespace {

constexpr unsigned kMaxFactor = 1000000;
constexpr unsigned kMaxIds = 32;

// "100,1000"; a list that does not read so allows nobody.
std::vector<uid_t> ids_read(const char *variable) {
    std::vector<uid_t> ids;
    const char *text = getenv(variable);
    while (text != nullptr && *text != '\0') {
        char *end = nullptr;
        const unsigned long id = strtoul(text, &end, 10);
        if (*text < '0' || *text > '9' || id > UINT32_MAX || (*end != '\0' && *end != ',') || ids.size() >= kMaxIds) {
            note(ZIL_TRACE_ERROR, "%s is not a list of at most %u numbers: nobody is allowed by it", variable, kMaxIds);
            return {};
        }
        ids.push_back(static_cast<uid_t>(id));
        text = *end == ',' ? end + 1 : end;
    }
    return ids;
}

unsigned factor_read() {
    const char *text = getenv("KEX_TIME_FACTOR");
    if (text == nullptr || *text == '\0')
        return 1;
    char *end = nullptr;
    const unsigned long factor = strtoul(text, &end, 10);
    if (*text >= '0' && *text <= '9' && *end == '\0' && factor >= 1 && factor <= kMaxFactor)
        return static_cast<unsigned>(factor);
    note(ZIL_TRACE_ERROR, "KEX_TIME_FACTOR is not a number from 1 to %u: time runs as usual", kMaxFactor);
    return 1;
}

bool output_is_empty(const kex_t *bus) {
    for (const ConnectionPointer &connection : bus->connections) {
        uint64_t queued = 0;
        if (connection->closed)
            continue;
        sd_bus_get_n_queued_write(connection->link, &queued);
        if (!connection->output.empty() || queued > 0)
            return false;
    }
    return true;
}

// What is queued leaves for a while; nothing that comes is run any more.
void output_finish(kex_t *bus) {
    const uint64_t end = now() + kExitFlushLimit;
    for (;;) {
        const std::vector<ConnectionPointer> all = bus->connections;
        for (const ConnectionPointer &connection : all) {
            connection_flush(*connection);
            connection_read(connection, 1);
        }
        if (output_is_empty(bus) || now() >= end)
            return;
        poll(nullptr, 0, 1);
    }
}

} // namespace
} // namespace sdbus

using namespace sdbus;

kex_t *kex_create(const char *process_name) {
    kex_t *bus = new kex_t;
    bus->name = std::string(process_name != nullptr ? process_name : "").substr(0, kMaxName);
    bus->epoll = epoll_create1(EPOLL_CLOEXEC);
    bus->wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    bus->timer = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
    bus->nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (bus->epoll < 0 || bus->wake < 0 || bus->timer < 0 || bus->nowhere < 0) {
        kex_destroy(bus);
        return nullptr;
    }
    source_add(bus, bus->wake, EPOLLIN, [] {});
    source_add(bus, bus->timer, EPOLLIN, [] {});
    bus->users = ids_read("KEX_ALLOW_UIDS");
    bus->groups = ids_read("KEX_ALLOW_GIDS");
    bus->time_factor = factor_read();
    if (getenv("KEX_FAULTS") != nullptr)
        note(ZIL_TRACE_ERROR, "KEX_FAULTS is for the bundled bus: nothing goes wrong on purpose here");
    buses.push_back(bus);
    return bus;
}

void kex_destroy(kex_t *bus) {
    if (bus == nullptr)
        return;
    output_finish(bus);
    const std::vector<ConnectionPointer> all = bus->connections;
    for (const ConnectionPointer &connection : all) {
        connection_end(*connection, nullptr);
        handle_forget(connection->handle);
    }
    bus->queue.clear();
    for (const auto &[listener, path] : bus->listeners) {
        unlink(path.c_str());
        close(listener);
    }
    handles_forget(bus);
    timers_end(bus);
    std::erase(buses, bus);
    close(bus->epoll);
    close(bus->wake);
    close(bus->timer);
    close(bus->nowhere);
    delete bus;
}

connection_t *kex_connection(kex_t *bus) {
    return bus != nullptr ? &bus->listening : nullptr;
}

void kex_onPeerClosed(kex_t *bus, void (*handler)(kex_t *, peer_t *, void *), void *userdata) {
    if (bus == nullptr)
        return;
    bus->closed_handler = handler;
    bus->closed_userdata = userdata;
}

// The tap shows what passes the bundled bus; whoever asks for it here hears that there is none.
kex_tap_t *kex_tap_open(const char *, char *why, size_t size) {
    errno = ENOTSUP;
    if (why != nullptr && size > 0)
        snprintf(why, size, "the bus of this process, on sd-bus, has no tap");
    return nullptr;
}
int kex_tap_descriptor(const kex_tap_t *) {
    return -1;
}
int kex_tap_next(kex_tap_t *, kex_tap_record_t *) {
    return -1;
}
const void *kex_tap_packet(const kex_tap_t *, uint32_t *) {
    return nullptr;
}
void kex_tap_close(kex_tap_t *) {}
