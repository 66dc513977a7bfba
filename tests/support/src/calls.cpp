// SPDX-License-Identifier: MIT
// Calls that arrive: scripted arguments in, the reply out.
#include <cstdlib>
#include <cstring>
#include <fcntl.h>

#include "kex_host.h"
#include "state.h"

using fake::act;
using fake::bus;
using fake::fails;
using fake::look;
using fake::quoted;
using fake::text;
using fake::Value;

namespace fake {

struct Call::State {
    function_call call;
    Value returned;
};

Call::Call() : state_(new State) {
    state_->call.id = ++bus().state().calls;
    state_->call.peer = bus().peer("caller");
    state_->call.request.attributes = 0x8001;
    state_->call.request.call = &state_->call;
    state_->call.reply.call = &state_->call;
    state_->call.arguments.call = &state_->call;
}

Call::~Call() = default;

Call &Call::on(object_t *object) {
    state_->call.object = object;
    return *this;
}

Call &Call::from(peer_t *peer) {
    state_->call.peer = peer;
    return *this;
}

Call &Call::named(const std::string &function) {
    state_->call.name = function;
    return *this;
}

Call &Call::attributes(uint32_t attributes) {
    state_->call.request.attributes = attributes;
    return *this;
}

Call &Call::with(const std::string &name, Value value) {
    state_->call.arguments.arguments.emplace_back(name, std::move(value));
    return *this;
}

namespace {

// While it lives a call runs, as kex_currentCall() tells.
class Running {
public:
    explicit Running(const function_call_t *call) : before_(bus().state().running) { bus().state().running = call; }
    ~Running() { bus().state().running = before_; }
    Running(const Running &) = delete;
    Running &operator=(const Running &) = delete;

private:
    const function_call_t *before_;
};

bool may_run() {
    const Bus::State &s = bus().state();
    return !s.call_handler || s.call_handler(bus().handle(), s.call_userdata) != 0;
}

// What the handler of kex_onFailed() is told.
void tell_failed(const function_call_t &call) {
    const Bus::State &s = bus().state();
    if (!s.failed_handler)
        return;
    static const std::string none;
    const std::string &path = call.object ? call.object->path : none;
    const kex_failed_call_t failed = {bus().handle(),
                                      call.peer,
                                      peer_processName(call.peer),
                                      peer_processId(call.peer),
                                      {path.data(), static_cast<uint32_t>(path.size())},
                                      {call.name.data(), static_cast<uint32_t>(call.name.size())}};
    s.failed_handler(&failed, s.failed_userdata);
}

} // namespace

int Call::run(kex_function_t *function) {
    function_call &call = state_->call;
    call.destroyed = 0;
    call.errors.clear();
    const Running running(&call);
    if (!may_run()) {
        call.errors.push_back(text("%u \"Not allowed\" %s", KEX_ERROR_REFUSED, quoted(call.name.c_str()).c_str()));
        return KEX_FUNCTION_FAILED;
    }
    variant_t return_value{};
    Value none;
    make_own(&return_value, none);
    bus().state().return_values.insert(&return_value);
    const int status = function(&call, &call.arguments, &return_value);
    if (const Value *held = inside(&return_value))
        state_->returned = *held;
    bus().state().return_values.erase(&return_value);
    drop_own(&return_value);
    if (status == KEX_FUNCTION_FAILED)
        tell_failed(call);
    if (call.destroyed != 1)
        bus().problem(text("call%u was destroyed %u times", call.id, call.destroyed));
    return status;
}

const Value &Call::returned() const {
    return state_->returned;
}

const std::vector<std::string> &Call::errors() const {
    return state_->call.errors;
}

namespace {

bool usable(const function_call_t *call, const char *function) {
    if (!call)
        return false;
    if (call->destroyed)
        bus().problem(text("%s after fcall_destroy(call%u)", function, call->id));
    return true;
}

// The argument of a name, or null when it is missing; logs the reading.
const Value *find(argument_list_t *a, const char *function, const char *name, uint32_t attributes,
                  bool (*fits)(const Value &)) {
    const Value *found = nullptr;
    if (a && name && usable(a->call, function) && !fails(function))
        for (const auto &argument : a->arguments)
            if (argument.first == name && fits(argument.second))
                found = &argument.second;
    act(text("%s(%s, 0x%04x) = ", function, quoted(name).c_str(), attributes) + (found ? found->str() : "missing"));
    return found;
}

template <typename Integer>
bool integer_fits(const Value &value) {
    int64_t number = 0;
    return number_of(value, false, &number) && number == static_cast<int64_t>(static_cast<Integer>(number));
}

template <typename Integer>
int get_integer(argument_list_t *a, const char *function, const char *name, uint32_t attributes, Integer *value) {
    const Value *found = find(a, function, name, attributes, integer_fits<Integer>);
    if (!found)
        return 0;
    *value = static_cast<Integer>(found->number);
    return 1;
}

template <uint32_t type>
bool is(const Value &value) {
    return value.type == type;
}

} // namespace
} // namespace fake

extern "C" {

request_t *fcall_request(function_call_t *call) {
    return fake::usable(call, "fcall_request") ? &call->request : nullptr;
}

object_t *fcall_object(function_call_t *call) {
    return fake::usable(call, "fcall_object") ? call->object : nullptr;
}

peer_t *fcall_peer(function_call_t *call) {
    return fake::usable(call, "fcall_peer") ? call->peer : nullptr;
}

void fcall_destroy(function_call_t *call) {
    act(call ? text("fcall_destroy(call%u)", call->id) : "fcall_destroy(null)");
    if (call)
        ++call->destroyed;
}

int argument_getChar(argument_list_t *a, const char *name, uint32_t attributes, char **value) {
    const Value *found = fake::find(a, "argument_getChar", name, attributes, fake::is<VARIANT_TEXT>);
    if (!found)
        return 0;
    *value = nullptr;
    if (found->present) {
        *value = static_cast<char *>(malloc(found->data.size() + 1));
        memcpy(*value, found->data.c_str(), found->data.size() + 1);
    }
    return 1;
}

int argument_getUInt16(argument_list_t *a, const char *name, uint32_t attributes, uint16_t *value) {
    return fake::get_integer(a, "argument_getUInt16", name, attributes, value);
}

int argument_getUInt32(argument_list_t *a, const char *name, uint32_t attributes, uint32_t *value) {
    return fake::get_integer(a, "argument_getUInt32", name, attributes, value);
}

int argument_getInt32(argument_list_t *a, const char *name, uint32_t attributes, int32_t *value) {
    return fake::get_integer(a, "argument_getInt32", name, attributes, value);
}

// Blocks are exactly as long as their bytes: a sanitizer then sees a read past what arrived.
int argument_getByteArray(argument_list_t *a, const char *name, uint32_t attributes, void **data, uint32_t *length) {
    const Value *found = fake::find(a, "argument_getByteArray", name, attributes, fake::is<VARIANT_BYTES>);
    if (!found)
        return 0;
    *data = nullptr;
    *length = found->present ? static_cast<uint32_t>(found->data.size()) : 0;
    if (found->present) {
        *data = malloc(*length ? *length : 1);
        memcpy(*data, found->data.data(), *length);
    }
    return 1;
}

int argument_getList(argument_list_t *a, const char *name, uint32_t attributes, variant_list_t **list) {
    const Value *found = fake::find(a, "argument_getList", name, attributes, fake::is<VARIANT_LIST>);
    if (!found)
        return 0;
    *list = nullptr;
    if (!found->present)
        return 1;
    auto *made = new variant_list;
    made->owns_descriptors = true;
    for (const Value &item : found->items) {
        Value copy = item;
        if (copy.type == VARIANT_FD && copy.number >= 0)
            copy.number = fcntl(static_cast<int>(copy.number), F_DUPFD_CLOEXEC, 3);
        made->items.emplace_back();
        fake::make_own(&made->items.back(), copy);
    }
    bus().state().lists.insert(made);
    *list = made;
    return 1;
}

// ----------------------------------------------------------------------------------------------- The call that runs

int kex_currentCall(kex_t *on, kex_call_t *call) {
    const function_call_t *running = on == bus().handle() ? bus().state().running : nullptr;
    look(text("kex_currentCall(%s) = ", fake::shown_bus(on).c_str()) +
         (running ? text("call%u", running->id) : "none"));
    if (!running || !call)
        return 0;
    static const std::string none;
    const std::string &path = running->object ? running->object->path : none;
    call->peer = running->peer;
    call->path = {path.data(), static_cast<uint32_t>(path.size())};
    call->function = {running->name.data(), static_cast<uint32_t>(running->name.size())};
    return 1;
}

int kex_currentText(kex_t *on, const char *argument, kex_text_t *result) {
    const function_call_t *running = on == bus().handle() ? bus().state().running : nullptr;
    const Value *found = nullptr;
    if (running && argument && result)
        for (const auto &one : running->arguments.arguments)
            if (one.first == argument && one.second.type == VARIANT_TEXT && one.second.present)
                found = &one.second;
    look(text("kex_currentText(%s, %s) = ", fake::shown_bus(on).c_str(), quoted(argument).c_str()) +
         (found ? found->str() : "none"));
    if (found)
        *result = {found->data.data(), static_cast<uint32_t>(found->data.size())};
    return found != nullptr;
}

int kex_currentUInt32(kex_t *on, const char *argument, uint32_t *number) {
    const function_call_t *running = on == bus().handle() ? bus().state().running : nullptr;
    const Value *found = nullptr;
    if (running && argument && number)
        for (const auto &one : running->arguments.arguments)
            if (one.first == argument && fake::integer_fits<uint32_t>(one.second) && one.second.present)
                found = &one.second;
    look(text("kex_currentUInt32(%s, %s) = ", fake::shown_bus(on).c_str(), quoted(argument).c_str()) +
         (found ? found->str() : "none"));
    if (found)
        *number = static_cast<uint32_t>(found->number);
    return found != nullptr;
}

void kex_onCall(kex_t *on, int (*handler)(kex_t *bus, void *userdata), void *userdata) {
    act(text("kex_onCall(%s, %s, %s)", fake::shown_bus(on).c_str(),
             fake::shown_function(reinterpret_cast<const void *>(handler)).c_str(), userdata ? "data" : "null"));
    if (on != bus().handle())
        return;
    bus().state().call_handler = handler;
    bus().state().call_userdata = userdata;
}

void kex_onFailed(kex_t *on, void (*handler)(const kex_failed_call_t *call, void *userdata), void *userdata) {
    act(text("kex_onFailed(%s, %s, %s)", fake::shown_bus(on).c_str(),
             fake::shown_function(reinterpret_cast<const void *>(handler)).c_str(), userdata ? "data" : "null"));
    if (on != bus().handle())
        return;
    bus().state().failed_handler = handler;
    bus().state().failed_userdata = userdata;
}

} // extern "C"
