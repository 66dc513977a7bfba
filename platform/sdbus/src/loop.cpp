// SPDX-License-Identifier: MIT
// The loop: descriptors, timers, and the queue of what has come.
#include "bus.h"

#include <algorithm>
#include <errno.h>
#include <poll.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>

using namespace sdbus;

namespace {

constexpr int kEventsPerTurn = 64;
constexpr uint64_t kForeignClockPoll = 5'000'000; // a replaced clock wakes nobody: it is looked at this often

int sources_run(kex_t *bus) {
    epoll_event events[kEventsPerTurn];
    const int count = epoll_wait(bus->epoll, events, kEventsPerTurn, 0);
    std::vector<int> ready = bus->always_ready;
    for (int i = 0; i < count; i++)
        ready.push_back(events[i].data.fd);
    int ran = 0;
    for (const int fd : ready) {
        const auto found = bus->sources.find(fd);
        if (found == bus->sources.end())
            continue; // another one has removed it
        const std::function<void()> run = found->second;
        run();
        ran++;
    }
    return ran;
}

void closed_run(kex_t *bus, const ConnectionPointer &connection) {
    connection->close_told = true;
    if (connection->handler != nullptr)
        connection->handler(connection->handle, PEER_EVENT_CLOSED, connection->userdata);
    if (bus->closed_handler != nullptr)
        bus->closed_handler(bus, connection->handle, bus->closed_userdata);
    handle_forget(connection->handle);
    std::erase(bus->connections, connection);
}

// What lies in the queue now; what comes meanwhile is for the next turn.
int queue_run(kex_t *bus) {
    const size_t count = bus->queue.size();
    for (size_t i = 0; i < count; i++) {
        Event event = std::move(bus->queue.front());
        bus->queue.pop_front();
        if (event.kind != Event::closed && event.connection->received > 0)
            event.connection->received--;
        if (event.kind == Event::call)
            call_run(bus, event);
        else if (event.kind == Event::reply)
            request_run_handlers(event.request);
        else
            closed_run(bus, event.connection);
    }
    return static_cast<int>(count);
}

void connections_read(kex_t *bus) {
    const std::vector<ConnectionPointer> all = bus->connections;
    for (const ConnectionPointer &connection : all) {
        if (!connection->closed && !connection_read(connection, kMessagesPerTurn))
            turn_wish(bus);
        if (!connection->closed && connection->accepted && !connection->greeted && now() >= connection->deadline)
            connection_end(*connection, "it has not said its name");
    }
}

// When the next turn is needed although nothing comes.
void alarm_set(kex_t *bus) {
    uint64_t next = timers_deadline(bus);
    if (bus->clock != nullptr && next != UINT64_MAX)
        next = now() + kForeignClockPoll;
    if (bus->accept_at != 0)
        next = std::min(next, bus->accept_at);
    for (const ConnectionPointer &connection : bus->connections) {
        if (connection->accepted && !connection->greeted)
            next = std::min(next, connection->deadline);
    }
    itimerspec alarm = {};
    if (next != UINT64_MAX) {
        alarm.it_value.tv_sec = static_cast<time_t>(next / 1'000'000'000);
        alarm.it_value.tv_nsec = static_cast<long>(next % 1'000'000'000);
    }
    timerfd_settime(bus->timer, TFD_TIMER_ABSTIME, &alarm, nullptr);
}

} // namespace

namespace sdbus {

bool source_add(kex_t *bus, int fd, uint32_t events, std::function<void()> run) {
    epoll_event event = {};
    event.events = events;
    event.data.fd = fd;
    std::erase(bus->always_ready, fd);
    if (epoll_ctl(bus->epoll, EPOLL_CTL_ADD, fd, &event) != 0) {
        if (errno == EPERM) // a file: it can always be read
            bus->always_ready.push_back(fd);
        else if (errno != EEXIST)
            return false;
    }
    bus->sources[fd] = std::move(run);
    turn_wish(bus);
    return true;
}

void source_remove(kex_t *bus, int fd) {
    epoll_ctl(bus->epoll, EPOLL_CTL_DEL, fd, nullptr);
    std::erase(bus->always_ready, fd);
    bus->sources.erase(fd);
}

void event_push(kex_t *bus, Event event) {
    bus->queue.push_back(std::move(event));
    turn_wish(bus);
}

// Sends, and sleeps until more can be sent where the peer does not read.
void connections_flush(kex_t *bus) {
    const std::vector<ConnectionPointer> all = bus->connections;
    for (const ConnectionPointer &connection : all) {
        connection_flush(*connection);
        if (connection->closed)
            continue;
        const int wanted = sd_bus_get_events(connection->link);
        epoll_event event = {};
        event.events = EPOLLIN | (wanted > 0 && (wanted & POLLOUT) != 0 ? uint32_t{EPOLLOUT} : 0u);
        event.data.fd = connection->fd;
        epoll_ctl(bus->epoll, EPOLL_CTL_MOD, connection->fd, &event);
    }
}

// Signal handlers do this too, through kex_stop().
void turn_wish(kex_t *bus) {
    const uint64_t one = 1;
    const int before = errno;
    if (write(bus->wake, &one, sizeof one) < 0) // it is full: a turn is due anyway
        errno = before;
}

} // namespace sdbus

int kex_dispatch(kex_t *bus) {
    if (bus == nullptr || bus->stopped != 0)
        return -1;
    uint64_t count;
    int ran = 0;
    kex_t *const outer = dispatching; // a handler may turn another bus of its process
    dispatching = bus;
    while (read(bus->wake, &count, sizeof count) > 0) {
    }
    while (read(bus->timer, &count, sizeof count) > 0) {
    }
    ran += sources_run(bus);
    if (bus->accept_at != 0 && now() >= bus->accept_at)
        listeners_watch(bus);
    connections_read(bus);
    ran += timers_run(bus);
    ran += queue_run(bus);
    objects_bury();
    connections_flush(bus);
    alarm_set(bus);
    dispatching = outer;
    bus::trace_catch_up();
    if (!bus->queue.empty() || !bus->always_ready.empty())
        turn_wish(bus);
    return bus->stopped != 0 ? -1 : ran;
}

int kex_run(kex_t *bus) {
    if (bus == nullptr)
        return -1;
    turn_wish(bus); // what was prepared before
    while (bus->stopped == 0) {
        epoll_event event;
        if (epoll_wait(bus->epoll, &event, 1, -1) < 0 && errno != EINTR)
            return -1;
        kex_dispatch(bus);
    }
    return 0;
}

void kex_stop(kex_t *bus) {
    if (bus == nullptr)
        return;
    bus->stopped = 1;
    turn_wish(bus);
}

int kex_pollDescriptor(kex_t *bus) {
    return bus != nullptr ? bus->epoll : -1;
}

int kex_watch(kex_t *bus, int fd, void *userdata, void (*handler)(int, void *)) {
    if (bus == nullptr || fd < 0 || handler == nullptr)
        return 0;
    return source_add(bus, fd, EPOLLIN, [=] { handler(fd, userdata); });
}

int kex_unwatch(kex_t *bus, int fd) {
    if (bus == nullptr || !bus->sources.contains(fd))
        return 0;
    source_remove(bus, fd);
    return 1;
}
