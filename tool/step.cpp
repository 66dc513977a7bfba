// SPDX-License-Identifier: MIT
// Reads a tap's record.
#include "step.h"

#include <algorithm>
#include <iterator>

#include "byte_order.h"
#include "libvoice_plugin.h"

namespace voicectl {

namespace {

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

// A call has arguments; a reply, and the notice that one is waited for, have a result at most.
void values_take(Step &step, const kex_tap_record_t &record) {
    if (step.is_call()) {
        for (uint32_t i = 0; i < record.argument_count; ++i)
            step.arguments.push_back({text_or_empty(record.argument_names[i]), value_copy(record.arguments[i])});
        step_record_take(step);
    } else if (record.argument_count > 0 && (step.kind == Step::Kind::reply || step.kind == Step::Kind::waiting)) {
        step.result = value_copy(record.arguments[0]);
    }
}

} // namespace

void step_record_take(Step &step) {
    for (Argument &argument : step.arguments) {
        Value &value = argument.value;
        if (value.type != Value::Type::bytes)
            continue;
        const auto *carrier = std::find_if(std::begin(kCarriers), std::end(kCarriers),
                                           [&](const Carrier &one) { return one.argument == argument.name; });
        if (step.other_order && argument.name == "codeclist")
            words_swap(value.bytes, 0, value.bytes.size());
        if (carrier == std::end(kCarriers) || step.record)
            continue;
        if (step.other_order)
            order_change(record_head_bytes(carrier->kind), value.bytes, false);
        step.record = record_read(carrier->kind, value.bytes);
        step.record_argument = carrier->argument;
    }
}

const Value *step_argument(const Step &step, std::string_view name) {
    const auto found = std::find_if(step.arguments.begin(), step.arguments.end(),
                                    [name](const Argument &a) { return a.name == name; });
    return found == step.arguments.end() ? nullptr : &found->value;
}

std::string step_text_argument(const Step &step, std::string_view name) {
    const Value *value = step_argument(step, name);
    return value == nullptr ? "" : value->text;
}

std::optional<Step> step_read(const kex_tap_record_t &record) {
    const std::optional<Step::Kind> kind = step_kind(record.kind);
    if (!kind)
        return std::nullopt;
    Step step{.kind = *kind};
    step.time_ns = record.time_ns;
    step.towards_listener = record.to.connection == 0;
    const kex_tap_end_t &peer = step.towards_listener ? record.from : record.to;
    const kex_tap_end_t &listener = step.towards_listener ? record.to : record.from;
    step.peer.connection = peer.connection;
    step.peer.process_id = peer.process_id;
    step.peer.process = end_name(peer);
    step.listener = end_name(listener);
    step.listener_process_id = listener.process_id;
    step.serial = record.serial;
    step.flags = record.flags;
    step.path = text_or_empty(record.path);
    step.function = text_or_empty(record.function);
    step.text = text_or_empty(record.text);
    step.lost = record.lost;
    step.bytes = record.bytes;
    for (uint32_t i = 0; i < record.error_count; ++i)
        step.errors.push_back(
            {record.error_codes[i], text_or_empty(record.error_descriptions[i]), text_or_empty(record.error_infos[i])});
    values_take(step, record);
    return step;
}

} // namespace voicectl
