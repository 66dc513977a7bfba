// SPDX-License-Identifier: MIT
// What passes on the bus, understood as voice traffic: whose endpoint, which message, which call a reply belongs to.
#include "traffic.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "byte_order.h"

namespace voicectl {

namespace {

constexpr uint64_t kOverdueNs = 1'000'000'000;
// A tap that started late, or lost copies, never sees some replies; what is this old is forgotten.
constexpr size_t kMostPending = 10'000;
constexpr size_t kMostOneWay = 500; // an answer to one comes at once, or never
// Of messages: what is read of one takes up to fifty times its bytes.
constexpr size_t kMostPendingBytes = 1024 * 1024;
// More than a listener has connections: the end of those that came first has been lost.
constexpr size_t kMostConnections = 256;
// Of a plugin or an endpoint: the application keeps 19 bytes, and a file or a peer may say anything.
constexpr size_t kMostNameBytes = 255;
constexpr size_t kMostEndpoints = 1000; // an application has 32

std::string name_kept(std::string_view name) {
    return std::string(name.substr(0, kMostNameBytes));
}

} // namespace

std::optional<Step> Traffic::next(const kex_tap_record_t &record) {
    std::optional<Step> read = step_read(record);
    if (!read)
        return std::nullopt;
    return next(std::move(*read));
}

Step Traffic::next(Step step) {
    const uint32_t connection = step.peer.connection;
    // A connection that is refused before it has said hello is heard of once and never again.
    const bool is_known = peers_.contains(connection);
    while (!is_known && peers_.size() >= kMostConnections)
        forget(peers_.begin()->first);
    Peer &peer = peers_[connection];
    step.peer.plugin = peer.plugin; // what it has registered as before
    peer = step.peer;
    if (step.is_call())
        understand_call(step, peer);
    else if (step.kind == Step::Kind::reply || step.kind == Step::Kind::waiting)
        understand_reply(step, peer);
    step.peer = peer;
    if (step.is_call())
        remember(step);
    if (step.kind == Step::Kind::closed || (step.kind == Step::Kind::refused && !is_known))
        forget(connection);
    return step;
}

void Traffic::Calls::add(const CallKey &key, const Step &call) {
    if (const auto before = by_key.find(key); before != by_key.end())
        erase(before);
    Step &kept = by_key[key].call = call;
    kept.arguments.clear(); // nobody asks for them again, and a list of many has more than its bytes
    kept.arguments.shrink_to_fit();
    bytes += call.bytes;
}

void Traffic::Calls::erase(std::map<CallKey, Pending>::iterator call) {
    bytes -= call->second.call.bytes;
    by_key.erase(call);
}

// Until its reply comes by.
void Traffic::remember(const Step &call) {
    const bool one_way = call.kind == Step::Kind::one_way_call;
    Calls &calls = one_way ? one_way_ : pending_;
    if (calls.by_key.size() >= (one_way ? kMostOneWay : kMostPending) || calls.bytes >= kMostPendingBytes)
        calls.clear();
    calls.add({call.peer.connection, call.towards_listener, call.serial}, call);
}

void Traffic::forget(uint32_t connection) {
    peers_.erase(connection);
    std::erase_if(endpoints_, [connection](const auto &entry) { return entry.second.connection == connection; });
    for (Calls *calls : {&pending_, &one_way_})
        for (auto call = calls->by_key.begin(); call != calls->by_key.end();) {
            const auto next = std::next(call);
            if (std::get<0>(call->first) == connection)
                calls->erase(call);
            call = next;
        }
}

// Whose call it is. Names are also learned from calls in passing, so that a tap that starts late still finds them.
void Traffic::understand_call(Step &step, Peer &peer) {
    if (step.towards_listener) {
        const std::string plugin = step_text_argument(step, "plugin_name");
        if (!plugin.empty())
            peer.plugin = name_kept(plugin);
        if (step.function == "register_endpoint") {
            step.endpoint = name_kept(step_text_argument(step, "endpoint_name"));
        } else if (step.function == "deregister_endpoint") {
            const Value *number = step_argument(step, "endpoint_id");
            if (number == nullptr)
                number = step_argument(step, "endpoint");
            if (number != nullptr)
                step.endpoint = endpoint_name(static_cast<int32_t>(number->number));
        } else if (step.record) {
            step.endpoint = endpoint_name(step.record->endpoint);
        }
        return;
    }
    // "fxs_a.EndPoint.FXS1", "dsp_a.DSPPlugin.DSP.D1.DSP_CHANNEL.C1": the plugin first, which of its objects last.
    const std::string_view path = step.path;
    if (peer.plugin.empty())
        peer.plugin = name_kept(path.substr(0, path.find('.')));
    if (const size_t dot = path.rfind('.'); dot != std::string_view::npos) {
        step.endpoint = name_kept(path.substr(dot + 1));
        // Only signals carry the number of the endpoint that their path names.
        if (step.record && step.record->kind == RecordKind::signal && step.record->fault.empty())
            endpoint_learn(step.record->endpoint, {peer.connection, step.endpoint});
    } else if (const Value *number = step_argument(step, "ep_id"); number != nullptr) {
        step.endpoint = endpoint_name(static_cast<int32_t>(number->number));
    }
}

// Joins a reply, or the notice of a process that it waits for one, with its call.
void Traffic::understand_reply(Step &step, const Peer &peer) {
    // Whoever waits sent the call; a reply comes from its peer.
    const bool call_towards_listener = (step.kind == Step::Kind::waiting) == step.towards_listener;
    const CallKey key = {peer.connection, call_towards_listener, step.serial};
    // The notice that a one-way call found nothing is shown like a reply.
    Calls &calls = one_way_.by_key.contains(key) ? one_way_ : pending_;
    const auto found = calls.by_key.find(key);
    if (found == calls.by_key.end())
        return;
    const Step &call = found->second.call;
    step.endpoint = call.endpoint;
    step.path = call.path;
    step.function = call.function;
    step.call_record = call.record;
    step.elapsed_ns = step.time_ns > call.time_ns ? step.time_ns - call.time_ns : 0;
    if (step.kind == Step::Kind::waiting) {
        found->second.named = true;
        return;
    }
    const bool rejected = !step.errors.empty() || step.result.type != Value::Type::number;
    if (call.function == "register_endpoint" && !rejected && step.result.number >= 0)
        endpoint_learn(static_cast<int32_t>(step.result.number), {peer.connection, call.endpoint});
    if (call.function == "deregister_endpoint" && step.errors.empty())
        std::erase_if(endpoints_, [&](const auto &entry) {
            return entry.second.connection == peer.connection && entry.second.name == call.endpoint;
        });
    if (step.result.type == Value::Type::bytes && call.function == "get") {
        if (step.other_order)
            order_change(record_head_bytes(RecordKind::param_set), step.result.bytes, false);
        step.record = record_read(RecordKind::param_set, step.result.bytes);
    }
    calls.erase(found);
}

void Traffic::endpoint_learn(int32_t number, const Owner &owner) {
    if (endpoints_.size() >= kMostEndpoints && !endpoints_.contains(number))
        endpoints_.clear();
    endpoints_[number] = owner;
}

std::string Traffic::endpoint_name(int32_t number) const {
    const auto found = endpoints_.find(number);
    return found == endpoints_.end() ? fmt::format("#{}", number) : found->second.name;
}

std::vector<Step> Traffic::overdue(uint64_t now_ns) {
    std::vector<Step> steps;
    for (auto &[key, pending] : pending_.by_key) {
        if (pending.named || now_ns < pending.call.time_ns + kOverdueNs)
            continue;
        pending.named = true;
        Step step = pending.call;
        step.kind = Step::Kind::still_waiting;
        step.time_ns = now_ns;
        step.elapsed_ns = now_ns - pending.call.time_ns;
        steps.push_back(std::move(step));
    }
    std::sort(steps.begin(), steps.end(), [](const Step &a, const Step &b) { return *a.elapsed_ns > *b.elapsed_ns; });
    return steps;
}

void Traffic::clear() {
    *this = {};
}

} // namespace voicectl
