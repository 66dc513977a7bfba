// SPDX-License-Identifier: MIT
// What hosts have beyond kex.h (kex_host.h): the bus itself, its loop, watches, declared objects, peers' processes.
#include "kex_host.h"

#include <algorithm>
#include <cerrno>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>

#include "state.h"

using fake::act;
using fake::bus;
using fake::fails;
using fake::look;
using fake::quoted;
using fake::shown;
using fake::shown_bus;
using fake::text;

namespace {

constexpr uint64_t kNever = UINT64_MAX;
constexpr unsigned kTurnsAtOneTime = 1000;
constexpr uint64_t kLongestRun = 3600 * 1000;

// A bus that may be used; what is wrong with it is a misuse, but for null, which the bundled bus takes too.
bool is_usable(const kex_t *given, const char *function) {
    if (!given)
        return false;
    if (given != bus().handle()) {
        bus().problem(std::string(function) + " on something that is not the bus");
        return false;
    }
    if (bus().state().destroyed) {
        bus().problem(std::string(function) + " on a destroyed bus");
        return false;
    }
    return true;
}

fake::Watch *find_watch(int fd) {
    for (fake::Watch &watch : bus().state().watches)
        if (watch.fd == fd)
            return &watch;
    return nullptr;
}

bool can_be_read(int fd) {
    pollfd entry = {fd, POLLIN, 0};
    return poll(&entry, 1, 0) == 1 && (entry.revents & (POLLIN | POLLHUP | POLLERR)) != 0;
}

bool is_ready(const fake::Watch &watch) {
    return watch.marked || can_be_read(watch.fd);
}

// -------------------------------------------------------------------------------------------------------- One turn

unsigned run_scheduled() {
    auto &scheduled = bus().state().scheduled;
    unsigned ran = 0;
    while (!scheduled.empty() && scheduled.begin()->first <= bus().now()) {
        const std::function<void()> work = std::move(scheduled.begin()->second);
        scheduled.erase(scheduled.begin());
        work();
        ++ran;
    }
    return ran;
}

unsigned run_queue() {
    std::deque<std::function<void()>> queue;
    std::swap(queue, bus().state().queue); // what is posted meanwhile waits for the next turn
    for (const auto &work : queue)
        work();
    return static_cast<unsigned>(queue.size());
}

unsigned run_replies() {
    unsigned ran = 0;
    const size_t count = bus().state().requests.size();
    for (size_t i = 0; i < count; ++i) {
        request_t *request = bus().state().requests[i].get();
        fake::Reply reply;
        if (!fake::awaits_reply(*request) || !fake::take_answer(request->record, &reply))
            continue;
        bus().complete(request, reply);
        ++ran;
    }
    return ran;
}

unsigned run_watches() {
    std::vector<int> ready;
    for (fake::Watch &watch : bus().state().watches) {
        if (is_ready(watch))
            ready.push_back(watch.fd);
        watch.marked = false;
    }
    unsigned ran = 0;
    for (const int fd : ready) {
        const fake::Watch *watch = find_watch(fd); // an earlier handler may have ended it
        if (!watch)
            continue;
        watch->handler(fd, watch->userdata);
        ++ran;
    }
    return ran;
}

unsigned run_timers() {
    unsigned ran = 0;
    std::vector<kex_timer_t *> due;
    for (const auto &timer : bus().state().timers)
        if (timer->alive && timer->armed && timer->due <= bus().now())
            due.push_back(timer.get());
    std::stable_sort(due.begin(), due.end(), [](const auto *a, const auto *b) { return a->due < b->due; });
    for (kex_timer_t *timer : due) {
        if (!timer->alive || !timer->armed || timer->due > bus().now())
            continue;
        fake::fire(timer);
        ++ran;
    }
    return ran;
}

// Whether a turn would run something that needs no reading of descriptors.
bool has_work() {
    const fake::Bus::State &s = bus().state();
    return !s.queue.empty() || (!s.scheduled.empty() && s.scheduled.begin()->first <= bus().now()) ||
           fake::next_timer(bus().now()) != nullptr ||
           std::any_of(s.watches.begin(), s.watches.end(), [](const fake::Watch &watch) { return watch.marked; });
}

uint64_t next_time() {
    const fake::Bus::State &s = bus().state();
    const kex_timer_t *timer = fake::next_timer(kNever);
    const uint64_t due = timer ? timer->due : kNever;
    return s.scheduled.empty() ? due : std::min(due, s.scheduled.begin()->first);
}

// Turns until nothing is left to run now.
void come_to_rest() {
    for (unsigned turns = 0; turns < kTurnsAtOneTime; ++turns)
        if (bus().turn() <= 0)
            return;
    bus().problem(text("the loop does not come to rest at %llu ms: a watch that reads nothing, or a timer of 0 ms?",
                       static_cast<unsigned long long>(bus().now())));
}

// Turns and moves the clock until `end`, or a stop. False: nothing is left that could happen before `end`.
bool run_until(uint64_t end) {
    fake::Bus::State &s = bus().state();
    for (;;) {
        come_to_rest();
        if (s.stopped)
            return true;
        const uint64_t next = next_time();
        if (next > end || s.clock)
            return false;
        s.now = std::max(s.now, next);
    }
}

void poll_descriptor_add(int fd) {
    const fake::Bus::State &s = bus().state();
    epoll_event event = {};
    event.events = EPOLLIN;
    if (s.polled)
        epoll_ctl(s.polled->epoll, EPOLL_CTL_ADD, fd, &event);
}

// ----------------------------------------------------------------------------------------------- Functions, objects

bool is_row(const char *const *row, uint32_t columns) {
    if (!row[0] || !row[1] || !*row[1])
        return false;
    for (uint32_t i = 2; i < columns && row[i]; ++i)
        if (!*row[i])
            return false;
    return true;
}

std::vector<std::string> copy_of(const char *const *row, uint32_t columns) {
    std::vector<std::string> result;
    for (uint32_t i = 0; i < columns && row[i]; ++i)
        result.emplace_back(row[i]);
    return result;
}

bool is_path(const std::string &path) {
    return !path.empty() && path.front() != '.' && path.back() != '.' && path.find("..") == std::string::npos;
}

object_t *declare(const char *function, kex_t *on, const char *path, const char *class_name, object::Kind kind) {
    object_t *result = nullptr;
    const std::string wanted = class_name ? class_name : "";
    if (is_usable(on, function) && path && is_path(path) && !fails(function)) {
        const object_t *known = fake::find_object(path);
        if (!known || known->kind == object::Kind::Any || (known->kind == kind && known->class_name == wanted)) {
            result = bus().object(path);
            result->kind = kind;
            result->class_name = wanted;
        }
    }
    act(text("%s(%s, %s, %s) = %s", function, shown_bus(on).c_str(), quoted(path).c_str(), quoted(class_name).c_str(),
             shown(result).c_str()));
    return result;
}

} // namespace

namespace fake {

void show_readiness() {
    const Bus::State &s = bus().state();
    if (!s.polled)
        return;
    uint64_t count = 0;
    if (has_work() || s.stopped)
        count = 1;
    // The descriptor does not block: without a count there is nothing to read, and that is as well.
    const ssize_t done =
        count ? write(s.polled->work, &count, sizeof count) : read(s.polled->work, &count, sizeof count);
    (void)done;
}

uint64_t Bus::now() const {
    return state_->clock ? state_->clock(state_->clock_userdata) / 1000000 : state_->now;
}

void Bus::advance(uint64_t milliseconds) {
    if (state_->clock) {
        problem("advance() while the host's own clock runs");
        return;
    }
    const uint64_t end = state_->now + milliseconds;
    while (kex_timer_t *next = next_timer(end)) {
        state_->now = next->due;
        fire(next);
    }
    state_->now = end;
    show_readiness();
}

int Bus::turn() {
    State &s = *state_;
    if (s.in_turn)
        return 0;
    if (s.stopped)
        return -1;
    s.in_turn = true;
    unsigned ran = 0;
    for (unsigned (*phase)() : {run_scheduled, run_queue, run_replies, run_watches, run_timers})
        ran += phase();
    s.in_turn = false;
    show_readiness();
    return s.stopped ? -1 : static_cast<int>(ran);
}

void Bus::run_for(uint64_t milliseconds) {
    if (state_->clock) {
        problem("run_for() while the host's own clock runs");
        return;
    }
    const uint64_t end = state_->now + milliseconds;
    if (run_until(end))
        return;
    state_->now = end;
    show_readiness();
}

void Bus::post(std::function<void()> work) {
    state_->queue.push_back(std::move(work));
    show_readiness();
}

void Bus::at(uint64_t milliseconds, std::function<void()> work) {
    state_->scheduled.emplace(milliseconds, std::move(work));
    show_readiness();
}

void Bus::watch_ready(int fd) {
    Watch *watch = find_watch(fd);
    if (watch)
        watch->marked = true;
    else
        problem(text("watch_ready(%d): nobody watches it", fd));
    show_readiness();
}

bool Bus::is_watched(int fd) const {
    return find_watch(fd) != nullptr;
}

bool Bus::is_stopped() const {
    return state_->stopped;
}

const std::vector<std::vector<std::string>> &Bus::declared_functions() const {
    return state_->declared_functions;
}

std::string Bus::class_of(const std::string &path) const {
    const object_t *found = find_object(path);
    return found ? found->class_name : "";
}

} // namespace fake

extern "C" {

// ------------------------------------------------------------------------------------------------- Bus and its loop

kex_t *kex_create(const char *process_name) {
    fake::Bus::State &s = bus().state();
    kex_t *result = nullptr;
    if (s.created)
        bus().problem("kex_create for a second time: the fake bus is one bus");
    else if (!fails("kex_create"))
        result = bus().handle();
    if (result) {
        s.process_name = process_name ? process_name : "";
        s.created = true;
        s.destroyed = s.stopped = false;
    }
    act("kex_create(" + quoted(process_name) + ") = " + shown_bus(result));
    return result;
}

void kex_destroy(kex_t *on) {
    act("kex_destroy(" + shown_bus(on) + ")");
    if (!is_usable(on, "kex_destroy"))
        return;
    fake::Bus::State &s = bus().state();
    if (s.in_turn) {
        bus().problem("kex_destroy inside a handler");
        return;
    }
    for (const auto &peer : s.peers)
        peer.second->closed = true;
    for (const auto &timer : s.timers)
        timer->alive = timer->armed = false;
    for (const auto &object : s.objects)
        object->gone = true;
    s.watches.clear();
    s.queue.clear();
    s.scheduled.clear();
    s.declared_functions.clear();
    s.polled.reset();
    s.clock = nullptr;
    s.closed_handler = nullptr;
    s.call_handler = nullptr;
    s.created = false;
    s.destroyed = true;
}

connection_t *kex_connection(kex_t *on) {
    look("kex_connection(" + shown_bus(on) + ")");
    return is_usable(on, "kex_connection") ? bus().connection() : nullptr;
}

int kex_run(kex_t *on) {
    fake::Bus::State &s = bus().state();
    act("kex_run(" + shown_bus(on) + ")");
    if (!is_usable(on, "kex_run") || s.in_turn) {
        errno = EINVAL;
        return -1;
    }
    if (fails("kex_run"))
        return -1;
    if (!run_until(bus().now() + kLongestRun)) {
        bus().problem(next_time() == kNever ? "kex_run: nothing is left that could happen, and nobody called kex_stop()"
                                            : "kex_run: nobody called kex_stop() for an hour");
        errno = EDEADLK;
        return -1;
    }
    return 0;
}

void kex_stop(kex_t *on) {
    act("kex_stop(" + shown_bus(on) + ")");
    if (!is_usable(on, "kex_stop"))
        return;
    bus().state().stopped = true;
    fake::show_readiness();
}

int kex_pollDescriptor(kex_t *on) {
    look("kex_pollDescriptor(" + shown_bus(on) + ")");
    if (!is_usable(on, "kex_pollDescriptor"))
        return -1;
    fake::Bus::State &s = bus().state();
    if (!s.polled) {
        s.polled = std::make_unique<fake::PollDescriptor>();
        s.polled->epoll = epoll_create1(EPOLL_CLOEXEC);
        s.polled->work = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        poll_descriptor_add(s.polled->work);
        for (const fake::Watch &watch : s.watches)
            poll_descriptor_add(watch.fd);
        fake::show_readiness();
    }
    return s.polled->epoll;
}

int kex_dispatch(kex_t *on) {
    const int result = is_usable(on, "kex_dispatch") ? bus().turn() : 0;
    look(text("kex_dispatch(%s) = %d", shown_bus(on).c_str(), result));
    return result;
}

int kex_watch(kex_t *on, int fd, void *userdata, void (*handler)(int fd, void *userdata)) {
    const bool ok = is_usable(on, "kex_watch") && fd >= 0 && handler && !fails("kex_watch");
    act(text("kex_watch(%s, %d, %s, %s) = %d", shown_bus(on).c_str(), fd, userdata ? "data" : "null",
             fake::shown_function(reinterpret_cast<const void *>(handler)).c_str(), ok));
    if (!ok)
        return 0;
    fake::Watch *watch = find_watch(fd);
    if (!watch) {
        bus().state().watches.emplace_back();
        watch = &bus().state().watches.back();
        watch->fd = fd;
        poll_descriptor_add(fd);
    }
    watch->userdata = userdata;
    watch->handler = handler;
    return 1;
}

int kex_unwatch(kex_t *on, int fd) {
    fake::Bus::State &s = bus().state();
    const bool ok = is_usable(on, "kex_unwatch") && find_watch(fd);
    act(text("kex_unwatch(%s, %d) = %d", shown_bus(on).c_str(), fd, ok));
    if (!ok)
        return 0;
    if (s.polled)
        epoll_ctl(s.polled->epoll, EPOLL_CTL_DEL, fd, nullptr);
    const auto is_it = [fd](const fake::Watch &watch) { return watch.fd == fd; };
    s.watches.erase(std::remove_if(s.watches.begin(), s.watches.end(), is_it), s.watches.end());
    return 1;
}

void kex_setClock(kex_t *on, uint64_t (*now)(void *userdata), void *userdata) {
    act(text("kex_setClock(%s, %s, %s)", shown_bus(on).c_str(), now ? "clock" : "null", userdata ? "data" : "null"));
    if (!is_usable(on, "kex_setClock"))
        return;
    bus().state().clock = now;
    bus().state().clock_userdata = userdata;
    fake::show_readiness();
}

// ------------------------------------------------------------------------------------------------------- Data model

int kex_declareFunctions(kex_t *on, const char *const *rows, uint32_t row_count, uint32_t columns) {
    bool ok = is_usable(on, "kex_declareFunctions") && rows && columns >= 2 && !fails("kex_declareFunctions");
    for (uint32_t i = 0; ok && i < row_count; ++i)
        ok = is_row(rows + size_t{i} * columns, columns);
    act(text("kex_declareFunctions(%s, %u rows of %u) = %d", shown_bus(on).c_str(), row_count, columns, ok));
    for (uint32_t i = 0; ok && i < row_count; ++i)
        bus().state().declared_functions.push_back(copy_of(rows + size_t{i} * columns, columns));
    return ok;
}

object_t *kex_declareObject(kex_t *on, const char *path, const char *class_name) {
    return declare("kex_declareObject", on, path, class_name, object::Kind::Plain);
}

object_t *kex_declareTemplate(kex_t *on, const char *path, const char *class_name) {
    return declare("kex_declareTemplate", on, path, class_name, object::Kind::Template);
}

// ------------------------------------------------------------------------------------------------------------ Peers

int kex_reserve(kex_t *on, uid_t uid, unsigned places) {
    act(text("kex_reserve(%s, %u, %u)", shown_bus(on).c_str(), static_cast<unsigned>(uid), places));
    return is_usable(on, "kex_reserve"); // nobody connects to this bus
}

void kex_onPeerClosed(kex_t *on, void (*handler)(kex_t *bus, peer_t *peer, void *userdata), void *userdata) {
    act(text("kex_onPeerClosed(%s, %s, %s)", shown_bus(on).c_str(),
             fake::shown_function(reinterpret_cast<const void *>(handler)).c_str(), userdata ? "data" : "null"));
    if (!is_usable(on, "kex_onPeerClosed"))
        return;
    bus().state().closed_handler = handler;
    bus().state().closed_userdata = userdata;
}

const char *peer_processName(peer_t *peer) {
    look("peer_processName(" + shown(peer) + ")");
    return peer ? peer->process_name.c_str() : "";
}

int32_t peer_processId(peer_t *peer) {
    look("peer_processId(" + shown(peer) + ")");
    return peer ? peer->process_id : 0;
}

int peer_disconnect(peer_t *peer) {
    const bool ok = peer && !peer->closed && !peer->disconnected && !fails("peer_disconnect");
    act(text("peer_disconnect(%s) = %d", shown(peer).c_str(), ok));
    if (!ok)
        return 0;
    peer->disconnected = true;
    bus().post([peer] { bus().close(peer); });
    return 1;
}

} // extern "C"
