// SPDX-License-Identifier: MIT
// What passes on the bus, understood as voice traffic: whose endpoint, which message, which call a reply belongs to.
#include "traffic.h"

#include <algorithm>
#include <string_view>

#include <fmt/format.h>

#include "libvoice_plugin.h"

namespace voicectl {

namespace {

constexpr uint64_t kOverdueNs = 1'000'000'000;
// A tap that started late, or lost copies, never sees some replies; what is this old is forgotten.
constexpr size_t kMostPending = 10'000;
constexpr size_t kMostOneWay = 500; // an answer to one comes at once, or never
// More than a listener has connections: the end of those that came first has been lost.
constexpr size_t kMostConnections = 256;

// Which argument carries which record.
struct Carrier {
    std::string_view argument;
    RecordKind kind;
};
constexpr Carrier kCarriers[] = {
    {"signal", RecordKind::signal},
    {"event", RecordKind::event},
    {"param_set_request", RecordKind::param_set},
    {"param_set_params", RecordKind::param_set},
    {"cnx_info", RecordKind::connection},
    {"stream_info", RecordKind::stream},
};

Value value_copy(const variant_t *variant);

Value list_copy(const variant_t *variant) {
    Value value{.type = Value::Type::list};
    // The accessor takes a variant that may be filled through it; here it is only read.
    const variant_list_t *list = variant_da_list(const_cast<variant_t *>(variant));
    const uint32_t size = variant_list_size(list);
    for (uint32_t i = 0; i < size; ++i)
        value.list.push_back(value_copy(variant_list_at(list, i)));
    return value;
}

Value bytes_copy(const variant_t *variant) {
    Value value{.type = Value::Type::bytes};
    const void *data = nullptr;
    uint32_t length = 0;
    if (variant_toByteArray(variant, &data, &length) && data != nullptr) {
        const auto *bytes = static_cast<const uint8_t *>(data);
        value.bytes.assign(bytes, bytes + length);
    }
    return value;
}

Value value_copy(const variant_t *variant) {
    const char *text = nullptr;
    int boolean = 0;
    int32_t number = 0;
    uint32_t positive = 0;
    switch (variant_type(variant)) {
    case VARIANT_TEXT:
        if (variant_toChar(variant, &text) && text != nullptr)
            return {.type = Value::Type::text, .text = text};
        return {.type = Value::Type::text};
    case VARIANT_BOOL:
        variant_toBool(variant, &boolean);
        return {.type = Value::Type::boolean, .number = boolean};
    case VARIANT_INT16:
    case VARIANT_INT32:
        variant_toInt32(variant, &number);
        return {.type = Value::Type::number, .number = number};
    case VARIANT_UINT16:
    case VARIANT_UINT32:
        variant_toUInt32(variant, &positive);
        return {.type = Value::Type::number, .number = positive};
    case VARIANT_FD:
        return {.type = Value::Type::descriptor, .number = variant_fd(variant)};
    case VARIANT_BYTES:
        return bytes_copy(variant);
    case VARIANT_LIST:
        return list_copy(variant);
    default:
        return {};
    }
}

std::optional<Step::Kind> step_kind(int32_t kind) {
    switch (kind) {
    case KEX_TAP_CONNECTED:
        return Step::Kind::connected;
    case KEX_TAP_CLOSED:
        return Step::Kind::closed;
    case KEX_TAP_CALL:
        return Step::Kind::call;
    case KEX_TAP_ONE_WAY_CALL:
        return Step::Kind::one_way_call;
    case KEX_TAP_REPLY:
        return Step::Kind::reply;
    case KEX_TAP_REFUSED:
        return Step::Kind::refused;
    case KEX_TAP_WAITING:
        return Step::Kind::waiting;
    case KEX_TAP_LOST:
        return Step::Kind::lost;
    default:
        return std::nullopt;
    }
}

std::string text_or_empty(const char *text) {
    return text == nullptr ? "" : text;
}

std::string end_name(const kex_tap_end_t &end) {
    const std::string_view room(end.name, sizeof end.name);
    return std::string(room.substr(0, room.find('\0')));
}

const Value *argument(const Step &step, std::string_view name) {
    const auto found = std::find_if(step.arguments.begin(), step.arguments.end(),
                                    [name](const Argument &a) { return a.name == name; });
    return found == step.arguments.end() ? nullptr : &found->value;
}

std::string text_argument(const Step &step, std::string_view name) {
    const Value *value = argument(step, name);
    return value == nullptr ? "" : value->text;
}

// Takes apart the record that a call carries, if it carries one.
void call_record_read(Step &step) {
    for (const Carrier &carrier : kCarriers) {
        const Value *value = argument(step, carrier.argument);
        if (value == nullptr || value->type != Value::Type::bytes)
            continue;
        step.record = record_read(carrier.kind, value->bytes);
        step.record_argument = carrier.argument;
        return;
    }
}

} // namespace

std::optional<Step> Traffic::next(const kex_tap_record_t &record) {
    const std::optional<Step::Kind> kind = step_kind(record.kind);
    if (!kind)
        return std::nullopt;
    Step step{.kind = *kind};
    step.time_ns = record.time_ns;
    step.towards_listener = record.to.connection == 0;
    const kex_tap_end_t &peer_end = step.towards_listener ? record.from : record.to;
    const kex_tap_end_t &listener_end = step.towards_listener ? record.to : record.from;
    // A connection that is refused before it has said hello is heard of once and never again.
    const bool is_known = peers_.contains(peer_end.connection);
    while (!is_known && peers_.size() >= kMostConnections)
        forget(peers_.begin()->first);
    Peer &peer = peers_[peer_end.connection];
    peer.connection = peer_end.connection;
    peer.process_id = peer_end.process_id;
    peer.process = end_name(peer_end);
    step.listener = end_name(listener_end);
    step.listener_process_id = listener_end.process_id;
    step.serial = record.serial;
    step.flags = record.flags;
    step.path = text_or_empty(record.path);
    step.function = text_or_empty(record.function);
    step.text = text_or_empty(record.text);
    step.lost = record.lost;
    step.bytes = record.bytes;
    std::vector<Argument> values;
    for (uint32_t i = 0; i < record.argument_count; ++i)
        values.push_back({text_or_empty(record.argument_names[i]), value_copy(record.arguments[i])});
    for (uint32_t i = 0; i < record.error_count; ++i)
        step.errors.push_back(
            {record.error_codes[i], text_or_empty(record.error_descriptions[i]), text_or_empty(record.error_infos[i])});

    switch (*kind) {
    case Step::Kind::call:
    case Step::Kind::one_way_call:
        step.arguments = std::move(values);
        understand_call(step, peer);
        break;
    case Step::Kind::reply:
    case Step::Kind::waiting:
        if (!values.empty())
            step.result = std::move(values.front().value);
        understand_reply(step, peer);
        break;
    default:
        break;
    }
    step.peer = peer;
    if (*kind == Step::Kind::call || *kind == Step::Kind::one_way_call) {
        const bool one_way = *kind == Step::Kind::one_way_call;
        Calls &calls = one_way ? one_way_ : pending_;
        if (calls.size() >= (one_way ? kMostOneWay : kMostPending))
            calls.clear();
        calls[{step.peer.connection, step.towards_listener, step.serial}] = {step};
    }
    if (*kind == Step::Kind::closed || (*kind == Step::Kind::refused && !is_known))
        forget(peer_end.connection);
    return step;
}

void Traffic::forget(uint32_t connection) {
    peers_.erase(connection);
    std::erase_if(endpoints_, [connection](const auto &entry) { return entry.second.connection == connection; });
    for (Calls *calls : {&pending_, &one_way_})
        std::erase_if(*calls, [connection](const auto &entry) { return std::get<0>(entry.first) == connection; });
}

// Whose call it is. Names are also learned from calls in passing, so that a tap that starts late still finds them.
void Traffic::understand_call(Step &step, Peer &peer) {
    call_record_read(step);
    if (step.towards_listener) {
        const std::string plugin = text_argument(step, "plugin_name");
        if (!plugin.empty())
            peer.plugin = plugin;
        if (step.function == "register_endpoint") {
            step.endpoint = text_argument(step, "endpoint_name");
        } else if (step.function == "deregister_endpoint") {
            const Value *number = argument(step, "endpoint_id");
            if (number == nullptr)
                number = argument(step, "endpoint");
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
        peer.plugin = path.substr(0, path.find('.'));
    if (const size_t dot = path.rfind('.'); dot != std::string_view::npos) {
        step.endpoint = path.substr(dot + 1);
        // Only signals carry the number of the endpoint that their path names.
        if (step.record && step.record->kind == RecordKind::signal && step.record->fault.empty())
            endpoints_[step.record->endpoint] = {peer.connection, step.endpoint};
    } else if (const Value *number = argument(step, "ep_id"); number != nullptr) {
        step.endpoint = endpoint_name(static_cast<int32_t>(number->number));
    }
}

// Joins a reply, or the notice of a process that it waits for one, with its call.
void Traffic::understand_reply(Step &step, const Peer &peer) {
    // Whoever waits sent the call; a reply comes from its peer.
    const bool call_towards_listener = (step.kind == Step::Kind::waiting) == step.towards_listener;
    const CallKey key = {peer.connection, call_towards_listener, step.serial};
    // The notice that a one-way call found nothing is shown like a reply.
    Calls &calls = one_way_.contains(key) ? one_way_ : pending_;
    const auto found = calls.find(key);
    if (found == calls.end())
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
        endpoints_[static_cast<int32_t>(step.result.number)] = {peer.connection, call.endpoint};
    if (call.function == "deregister_endpoint" && step.errors.empty())
        std::erase_if(endpoints_, [&](const auto &entry) {
            return entry.second.connection == peer.connection && entry.second.name == call.endpoint;
        });
    if (step.result.type == Value::Type::bytes && call.function == "get")
        step.record = record_read(RecordKind::param_set, step.result.bytes);
    calls.erase(found);
}

std::string Traffic::endpoint_name(int32_t number) const {
    const auto found = endpoints_.find(number);
    return found == endpoints_.end() ? fmt::format("#{}", number) : found->second.name;
}

std::vector<Step> Traffic::overdue(uint64_t now_ns) {
    std::vector<Step> steps;
    for (auto &[key, pending] : pending_) {
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
