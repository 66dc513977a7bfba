// SPDX-License-Identifier: MIT
// Peers, timers and the local data model of the fake bus.
#include "state.h"

using fake::act;
using fake::bus;
using fake::fails;
using fake::look;
using fake::quoted;
using fake::shown;
using fake::text;

namespace {

std::string shown_timer(const kex_timer_t *timer) {
    return timer ? text("timer%u", timer->id) : "null";
}

bool is_below(const object_t *inner, const object_t *outer) {
    return inner->path.compare(0, outer->path.size() + 1, outer->path + ".") == 0;
}

// Whether a template is part of what another one consists of, rather than of one of its instances.
bool is_part(const object_t *inner, const object_t *outer) {
    if (inner->gone || inner->kind != object::Kind::Template || !is_below(inner, outer))
        return false;
    for (const auto &between : bus().state().objects)
        if (between->kind == object::Kind::Instance && is_below(inner, between.get()) && is_below(between.get(), outer))
            return false;
    return true;
}

// An instance has what its template consists of: the templates that were declared in it.
object_t *add_instance(const object_t *template_object, const std::string &name) {
    std::vector<const object_t *> inner;
    for (const auto &o : bus().state().objects)
        if (is_part(o.get(), template_object))
            inner.push_back(o.get());
    object_t *instance = fake::add_object(template_object->path + "." + name);
    instance->kind = object::Kind::Instance;
    instance->class_name = template_object->class_name;
    for (const object_t *pattern : inner) {
        object_t *copy = fake::add_object(instance->path + pattern->path.substr(template_object->path.size()));
        copy->class_name = pattern->class_name;
        copy->kind = object::Kind::Template;
    }
    return instance;
}

void remove(object_t *removed) {
    removed->gone = true;
    for (auto &o : bus().state().objects)
        if (is_below(o.get(), removed))
            o->gone = true;
}

// Whom a host connects to: a connection that has ended is not used again.
peer_t *application() {
    fake::Bus::State &s = bus().state();
    const auto last = s.peers.find("application");
    if (last != s.peers.end() && last->second->closed) {
        s.former_peers.push_back(std::move(last->second));
        s.peers.erase(last);
    }
    return bus().peer("application");
}

} // namespace

namespace fake {

object_t *find_object(const std::string &path) {
    for (auto &o : bus().state().objects)
        if (o->path == path && !o->gone)
            return o.get();
    return nullptr;
}

object_t *add_object(const std::string &path) {
    auto &objects = bus().state().objects;
    objects.push_back(std::make_unique<object>());
    const size_t dot = path.rfind('.');
    objects.back()->path = path;
    objects.back()->name = dot == std::string::npos ? path : path.substr(dot + 1);
    return objects.back().get();
}

peer_t *Bus::peer(const std::string &name) {
    auto &entry = state_->peers[name];
    if (!entry) {
        entry = std::make_unique<::peer>();
        entry->name = entry->process_name = name;
        entry->process_id = 1000 + static_cast<int32_t>(state_->peers.size() + state_->former_peers.size());
    }
    return entry.get();
}

void Bus::process(peer_t *peer, const std::string &name, int32_t id) {
    peer->process_name = name;
    peer->process_id = id;
}

int Bus::close(peer_t *peer) {
    peer->closed = true;
    for (size_t i = 0; i < state_->requests.size(); ++i) { // a handler may make more of them
        request_t *request = state_->requests[i].get();
        if (awaits_reply(*request) && request->record.peer == peer)
            complete(request, Reply().error(KEX_ERROR_PEER_CLOSED, "Peer closed", ""));
    }
    int answer = 0;
    if (peer->handler && peer->event == PEER_EVENT_CLOSED)
        answer = peer->handler(peer, PEER_EVENT_CLOSED, peer->userdata);
    if (state_->closed_handler)
        state_->closed_handler(handle(), peer, state_->closed_userdata);
    return answer;
}

void Bus::connect_gives(peer_t *peer) {
    state_->connect_scripted = true;
    state_->connect_result = peer;
}

kex_timer_t *next_timer(uint64_t end) {
    kex_timer_t *next = nullptr;
    for (auto &timer : bus().state().timers)
        if (timer->alive && timer->armed && timer->due <= end && (!next || timer->due < next->due))
            next = timer.get();
    return next;
}

void fire(kex_timer_t *timer) {
    timer->armed = false;
    if (timer->handler)
        timer->handler(timer);
}

unsigned Bus::timers_armed() const {
    unsigned count = 0;
    for (const auto &timer : state_->timers)
        count += timer->alive && timer->armed;
    return count;
}

object_t *Bus::object(const std::string &path) {
    if (object_t *found = find_object(path))
        return found;
    const size_t dot = path.rfind('.');
    if (dot != std::string::npos)
        object(path.substr(0, dot));
    return add_object(path);
}

object_t *Bus::nameless_object() {
    object_t *result = add_object("nameless");
    result->named = false;
    return result;
}

bool Bus::exists(const std::string &path) const {
    return find_object(path) != nullptr;
}

} // namespace fake

extern "C" {

peer_t *kex_client_connect(kex_t *bus, const char *uri) {
    fake::Bus::State &s = fake::bus().state();
    peer_t *result = nullptr;
    if (bus && uri && !fails("kex_client_connect"))
        result = s.connect_scripted ? s.connect_result : application();
    act("kex_client_connect(" + fake::shown_bus(bus) + ", " + quoted(uri) + ") = " + shown(result));
    return result;
}

peer_t *connection_listenOnIPC(connection_t *connection, const char *path) {
    peer_t *result = connection && path && !fails("connection_listenOnIPC") ? bus().peer("listener") : nullptr;
    const char *name = !connection ? "null" : connection == bus().connection() ? "connection" : "not the connection";
    act(text("connection_listenOnIPC(%s, %s) = %s", name, quoted(path).c_str(), shown(result).c_str()));
    return result;
}

int peer_setEventHandler(peer_t *peer, int event, void *userdata, int (*handler)(peer_t *, int, void *)) {
    const bool ok = peer && !peer->closed && !fails("peer_setEventHandler");
    act(text("peer_setEventHandler(%s, %d, %s, %s) = %d", shown(peer).c_str(), event, userdata ? "data" : "null",
             handler ? "handler" : "null", ok));
    if (ok) {
        peer->event = event;
        peer->userdata = userdata;
        peer->handler = handler;
    }
    return ok;
}

kex_timer_t *kex_timer_create(void) {
    kex_timer_t *timer = nullptr;
    if (!fails("kex_timer_create")) {
        auto &timers = bus().state().timers;
        timers.push_back(std::make_unique<kex_timer>());
        timer = timers.back().get();
        timer->id = static_cast<unsigned>(timers.size());
    }
    act("kex_timer_create() = " + shown_timer(timer));
    return timer;
}

void kex_timer_setHandler(kex_timer_t *timer, void (*handler)(kex_timer_t *)) {
    act("kex_timer_setHandler(" + shown_timer(timer) + (handler ? ", handler)" : ", null)"));
    if (timer)
        timer->handler = handler;
}

int kex_timer_start(kex_timer_t *timer, uint32_t milliseconds) {
    const bool ok = timer && timer->alive && !fails("kex_timer_start");
    act(text("kex_timer_start(%s, %u) = %d", shown_timer(timer).c_str(), milliseconds, ok));
    if (timer && !timer->alive)
        bus().problem("kex_timer_start on a destroyed timer");
    if (ok) {
        timer->armed = true;
        timer->due = bus().now() + milliseconds;
        fake::show_readiness();
    }
    return ok;
}

void kex_timer_destroy(kex_timer_t *timer) {
    act("kex_timer_destroy(" + shown_timer(timer) + ")");
    if (!timer)
        return;
    if (!timer->alive)
        bus().problem(shown_timer(timer) + " was destroyed twice");
    timer->alive = timer->armed = false;
}

const char *object_name(object_t *object, uint32_t flags) {
    look(text("object_name(%s, %u)", shown(object).c_str(), flags));
    if (object && flags != 1)
        bus().problem(text("object_name is asked with 1, not %u", flags));
    return object && object->named ? object->name.c_str() : nullptr;
}

object_t *kex_getObject(kex_t *bus, const char *path, uint32_t flags) {
    object_t *result = bus && path && !fails("kex_getObject") ? fake::find_object(path) : nullptr;
    act(text("kex_getObject(%s, %s, %u) = %s", fake::shown_bus(bus).c_str(), quoted(path).c_str(), flags,
             shown(result).c_str()));
    return result;
}

object_t *object_getObject(object_t *parent, const char *name, uint32_t flags, void *reserved) {
    object_t *result = nullptr;
    if (parent && name && !fails("object_getObject"))
        result = fake::find_object(parent->path + "." + name);
    act(text("object_getObject(%s, %s, %u, %s) = %s", shown(parent).c_str(), quoted(name).c_str(), flags,
             reserved ? "reserved" : "null", shown(result).c_str()));
    return result;
}

object_t *object_createInstance(object_t *template_object, uint32_t index, const char *name) {
    object_t *result = nullptr;
    if (template_object && template_object->kind != object::Kind::Plain && name && *name &&
        !fake::find_object(template_object->path + "." + name) && !fails("object_createInstance"))
        result = add_instance(template_object, name);
    act(text("object_createInstance(%s, %u, %s) = %s", shown(template_object).c_str(), index, quoted(name).c_str(),
             shown(result).c_str()));
    return result;
}

int object_delete(object_t *object) {
    const bool ok = object && !fails("object_delete");
    act(text("object_delete(%s) = %d", shown(object).c_str(), ok));
    if (ok)
        object->doomed = true;
    return ok;
}

int object_commit(object_t *object) {
    const bool ok = object && !fails("object_commit");
    act(text("object_commit(%s) = %d", shown(object).c_str(), ok));
    if (ok)
        for (auto &o : bus().state().objects)
            if (o->doomed && (o.get() == object || is_below(o.get(), object)))
                remove(o.get());
    return ok;
}

} // extern "C"
