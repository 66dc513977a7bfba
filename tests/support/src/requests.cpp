// SPDX-License-Identifier: MIT
// Requests that leave, and their replies.
#include <cstring>
#include <fcntl.h>

#include "state.h"

using fake::act;
using fake::bus;
using fake::fails;
using fake::look;
using fake::quoted;
using fake::shown;
using fake::text;
using fake::Value;

namespace {

bool usable(const request_t *r, const char *function) {
    if (!r)
        return false;
    if (!r->call && !r->record.alive) {
        bus().problem(std::string(function) + " on " + r->record.name() + ", which is destroyed");
        return false;
    }
    return true;
}

// A bus duplicates descriptors when it queues: one that is not open cannot be sent.
bool descriptors_open(const Value &value) {
    if (value.type == VARIANT_FD && value.number >= 0 && fcntl(static_cast<int>(value.number), F_GETFD) < 0)
        return false;
    for (const Value &item : value.items)
        if (!descriptors_open(item))
            return false;
    return true;
}

constexpr size_t kTooLong = 4096; // for a path or a function

const char *answered(bool yes) {
    return yes ? "" : " = 0";
}

} // namespace

namespace fake {

std::string RequestRecord::name() const {
    return fake::text("r%u", id);
}

Value RequestRecord::parameter(const std::string &name) const {
    for (const auto &p : parameters)
        if (p.first == name)
            return p.second;
    return Value();
}

Reply &Reply::error(uint32_t code, std::string description, std::string info) {
    Item item;
    item.type = REPLY_ITEM_ERROR;
    item.code = code;
    item.description = std::move(description);
    item.info = std::move(info);
    items.push_back(std::move(item));
    return *this;
}

Reply &Reply::value(Value value) {
    Item item;
    item.type = REPLY_ITEM_RETURN_VALUE;
    item.value = std::move(value);
    items.push_back(std::move(item));
    return *this;
}

Reply Reply::none() {
    Reply reply;
    reply.available = false;
    return reply;
}

std::unique_ptr<reply> make_reply(const Reply &script) {
    if (!script.available)
        return nullptr;
    auto result = std::make_unique<reply>();
    for (const Reply::Item &item : script.items) {
        result->items.emplace_back();
        result->items.back().item = item;
        make_own(&result->items.back().value, item.value);
    }
    for (size_t i = 1; i < result->items.size(); ++i)
        result->items[i - 1].next = &result->items[i];
    return result;
}

bool awaits_reply(const request_t &request) {
    const RequestRecord &record = request.record;
    return record.alive && record.sent && !request.completed && (record.reply_handler || record.done_handler);
}

bool take_answer(const RequestRecord &request, Reply *reply) {
    std::vector<AnswerRule> &rules = bus().state().answers;
    const auto fits = [&](const AnswerRule &rule) {
        return rule.function == request.function &&
               (rule.parameter.empty() || request.parameter(rule.parameter).str() == rule.value);
    };
    // Queued answers in their order, then what is said about an argument, then what is said about the function.
    const auto rank = [](const AnswerRule &rule) { return rule.once ? 0 : rule.parameter.empty() ? 2 : 1; };
    auto best = rules.end();
    for (auto rule = rules.begin(); rule != rules.end(); ++rule)
        if (fits(*rule) && (best == rules.end() || rank(*rule) < rank(*best)))
            best = rule;
    if (best == rules.end())
        return false;
    const AnswerRule chosen = *best;
    if (chosen.once)
        rules.erase(best);
    *reply = chosen.reply(request);
    return true;
}

static void add_rule(AnswerRule rule) {
    std::vector<AnswerRule> &rules = bus().state().answers;
    if (!rule.once)
        for (AnswerRule &other : rules)
            if (!other.once && other.function == rule.function && other.parameter == rule.parameter &&
                other.value == rule.value) {
                other = std::move(rule);
                return;
            }
    rules.push_back(std::move(rule));
}

static std::function<Reply(const RequestRecord &)> always(Reply reply) {
    return [reply = std::move(reply)](const RequestRecord &) { return reply; };
}

void Bus::answer(const std::string &function, Reply reply) {
    add_rule({function, "", "", always(std::move(reply)), false});
}

void Bus::answer_next(const std::string &function, Reply reply) {
    add_rule({function, "", "", always(std::move(reply)), true});
}

void Bus::answer_when(const std::string &function, const std::string &parameter, const Value &value, Reply reply) {
    add_rule({function, parameter, value.str(), always(std::move(reply)), false});
}

void Bus::answer_by(const std::string &function, std::function<Reply(const RequestRecord &)> reply) {
    add_rule({function, "", "", std::move(reply), false});
}

void Bus::complete(request_t *request, Reply script) {
    if (!request || !request->record.alive)
        return;
    request->completed = true;
    request->answer = make_reply(script);
    if (request->answer && request->record.reply_handler)
        for (reply_item &item : request->answer->items)
            if (request->record.alive)
                request->record.reply_handler(request, &item);
    if (request->record.reply_handler && request->record.alive)
        request->record.reply_handler(request, nullptr);
    if (request->record.done_handler && request->record.alive)
        request->record.done_handler(request);
}

} // namespace fake

extern "C" {

request_t *request_create_executeFunction(const char *path, const char *function, uint32_t flags) {
    const bool ok = path && *path && function && *function && strnlen(path, kTooLong) < kTooLong &&
                    strnlen(function, kTooLong) < kTooLong && !fails("request_create_executeFunction");
    request_t *r = nullptr;
    if (ok) {
        auto &requests = bus().state().requests;
        requests.push_back(std::make_unique<request>());
        r = requests.back().get();
        r->record.id = static_cast<unsigned>(requests.size());
        r->record.path = path;
        r->record.function = function;
        r->record.flags = flags;
        r->attributes = flags;
    }
    act(shown(r) + text(" = request_create_executeFunction(%s, %s, 0x%04x)", quoted(path).c_str(),
                        quoted(function).c_str(), flags));
    return r;
}

int request_addParameter(request_t *r, const char *name, const variant_t *value) {
    const Value *held = fake::inside(value);
    const bool ok = usable(r, "request_addParameter") && name && held && !fails("request_addParameter");
    act("request_addParameter(" + shown(r) + ", " + quoted(name) + ", " + (held ? held->str() : "null") + ")" +
        answered(ok));
    if (ok)
        r->record.parameters.emplace_back(name, *held);
    return ok;
}

void request_setReplyHandler(request_t *r, void (*handler)(request_t *, reply_item_t *)) {
    act("request_setReplyHandler(" + shown(r) + ", " + fake::shown_function(reinterpret_cast<const void *>(handler)) +
        ")");
    if (usable(r, "request_setReplyHandler"))
        r->record.reply_handler = handler;
}

void request_setDoneHandler(request_t *r, void (*handler)(request_t *)) {
    act("request_setDoneHandler(" + shown(r) + ", " + fake::shown_function(reinterpret_cast<const void *>(handler)) +
        ")");
    if (usable(r, "request_setDoneHandler"))
        r->record.done_handler = handler;
}

void request_setData(request_t *r, void *data) {
    act("request_setData(" + shown(r) + ", " + (data ? "data" : "null") + ")");
    if (usable(r, "request_setData"))
        r->record.data = data;
}

void *request_data(request_t *r) {
    return usable(r, "request_data") ? r->record.data : nullptr;
}

uint32_t request_attributes(request_t *r) {
    return usable(r, "request_attributes") ? r->attributes : 0;
}

reply_t *request_reply(request_t *r) {
    if (!usable(r, "request_reply"))
        return nullptr;
    if (r->call)
        return &r->call->reply;
    return fails("request_reply") ? nullptr : r->answer.get();
}

void request_destroy(request_t *r) {
    act("request_destroy(" + shown(r) + ")");
    if (!r)
        return;
    if (r->call)
        bus().problem("request_destroy on the request of a running call");
    else if (usable(r, "request_destroy"))
        r->record.alive = false;
}

int kex_sendRequest(kex_t *bus, peer_t *peer, request_t *r) {
    bool ok = bus && peer && !peer->closed && !peer->disconnected && usable(r, "kex_sendRequest") && !r->record.sent &&
              !fails("kex_sendRequest");
    if (ok)
        for (const auto &parameter : r->record.parameters)
            ok = ok && descriptors_open(parameter.second);
    act("kex_sendRequest(" + fake::shown_bus(bus) + ", " + shown(peer) + ", " + shown(r) + ")" +
        (ok ? " = 1" : " = 0"));
    if (r && ok) {
        r->record.sent = true;
        r->record.peer = peer;
    }
    return ok;
}

int kex_waitForReply(kex_t *bus, request_t *r, const struct timeval *timeout) {
    const bool ok = bus && usable(r, "kex_waitForReply") && r->record.sent && !fails("kex_waitForReply");
    act("kex_waitForReply(" + fake::shown_bus(bus) + ", " + shown(r) + ", " + (timeout ? "limited" : "no limit") + ")" +
        (ok ? " = 1" : " = 0"));
    if (ok) {
        fake::Reply reply;
        fake::take_answer(r->record, &reply);
        r->answer = fake::make_reply(reply);
        r->completed = true;
    }
    return ok;
}

reply_item_t *reply_firstItem(reply_t *reply) {
    return reply && !reply->items.empty() ? &reply->items.front() : nullptr;
}

reply_item_t *reply_nextItem(reply_item_t *item) {
    return item ? item->next : nullptr;
}

int32_t reply_item_type(reply_item_t *item) {
    return item ? item->item.type : 0;
}

uint32_t reply_item_error(reply_item_t *item) {
    return item ? item->item.code : 0;
}

const char *reply_item_errorDescription(reply_item_t *item) {
    return item ? item->item.description.c_str() : nullptr;
}

const char *reply_item_errorInfo(reply_item_t *item) {
    return item ? item->item.info.c_str() : nullptr;
}

const variant_t *reply_item_returnValue(reply_item_t *item) {
    return item && item->item.type == REPLY_ITEM_RETURN_VALUE ? &item->value : nullptr;
}

int reply_addError(reply_t *reply, uint32_t code, const char *description, const char *info) {
    const bool ok = reply && reply->call && !fails("reply_addError");
    const std::string entry = text("%u %s %s", code, quoted(description).c_str(), quoted(info).c_str());
    act("reply_addError(" + (reply && reply->call ? text("call%u", reply->call->id) : "null") +
        text(", %u, %s, %s)", code, quoted(description).c_str(), quoted(info).c_str()) + answered(ok));
    if (!ok)
        return 0;
    if (reply->call->destroyed)
        bus().problem("reply_addError after fcall_destroy");
    reply->call->errors.push_back(entry);
    return 1;
}

} // extern "C"
