// SPDX-License-Identifier: MIT
// The records that travel as byte arrays (signals, events, parameter sets, media descriptions), taken apart.
#include "record.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include <fmt/format.h>

#include "byte_order.h"
#include "identifier.h"
#include "libvoice_meanings.h"
#include "libvoice_plugin.h"

namespace voicectl {

namespace {

using voice::id_class;
using voice::IdClass;
using voice::ValueType;

constexpr size_t kItemHead = 8;
static_assert(offsetof(voice_signal_t, signal) == offsetof(voice_event_t, event));
static_assert(offsetof(voice_signal_t, line) == offsetof(voice_event_t, line));

struct Layout {
    size_t head;
    size_t length_at;
    std::optional<IdClass> identifier_class{}; // of the identifier that the hosts put into the head, if they do
};

Layout layout_of(RecordKind kind) {
    switch (kind) {
    case RecordKind::signal:
        return {sizeof(voice_signal_t), offsetof(voice_signal_t, length), IdClass::signal};
    case RecordKind::event:
        return {sizeof(voice_event_t), offsetof(voice_event_t, length), IdClass::event};
    case RecordKind::connection:
        return {offsetof(voice_cnx_info_t, params), offsetof(voice_cnx_info_t, length)};
    case RecordKind::stream:
        return {offsetof(voice_stream_info_t, params), offsetof(voice_stream_info_t, length)};
    case RecordKind::param_set:
        break;
    }
    return {sizeof(libvoice_param_set_t), offsetof(libvoice_param_set_t, length)};
}

Value words_value(std::span<const uint8_t> bytes) {
    Value value{.type = Value::Type::list};
    for (size_t at = 0; at < bytes.size(); at += sizeof(uint32_t))
        value.list.push_back({.type = Value::Type::number, .number = word_at(bytes, at)});
    return value;
}

// The bytes of an item by the type that its identifier gives them.
Value typed_value(uint32_t id, std::span<const uint8_t> bytes) {
    Value plain{.type = Value::Type::bytes, .bytes = {bytes.begin(), bytes.end()}};
    const bool has_word = bytes.size() >= sizeof(uint32_t);
    if (bytes.empty())
        return {};
    switch (voice::id_value_type(id)) {
    case ValueType::integer:
        return has_word ? Value{.type = Value::Type::number, .number = static_cast<int32_t>(word_at(bytes, 0))} : plain;
    case ValueType::boolean:
        return has_word ? Value{.type = Value::Type::boolean, .number = word_at(bytes, 0) != 0} : plain;
    case ValueType::string: {
        const auto end = std::find(bytes.begin(), bytes.end(), 0);
        return {.type = Value::Type::text, .text = {bytes.begin(), end}};
    }
    case ValueType::hex: {
        const libvoice_meaning *row = libvoice_meaning_of(id);
        const bool words = row != nullptr && row->hex == 'w' && bytes.size() % sizeof(uint32_t) == 0;
        return words ? words_value(bytes) : plain;
    }
    default:
        return plain;
    }
}

void items_read(std::span<const uint8_t> buffer, Record &record) {
    while (!buffer.empty()) {
        if (buffer.size() < kItemHead) {
            record.fault = fmt::format("{} bytes left where an item's head should be", buffer.size());
            return;
        }
        const uint32_t id = word_at(buffer, 0);
        const uint64_t length = word_at(buffer, 4);
        const uint64_t size = kItemHead + ((length + 3) & ~uint64_t{3});
        if (size > buffer.size()) {
            record.fault =
                fmt::format("item {:#010x} says {} bytes, {} are left", id, length, buffer.size() - kItemHead);
            return;
        }
        const std::span<const uint8_t> value = buffer.subspan(kItemHead, length);
        record.items.push_back({id, libvoice_param_str(id), {value.begin(), value.end()}, typed_value(id, value)});
        buffer = buffer.subspan(size);
    }
}

} // namespace

size_t record_head_bytes(RecordKind kind) {
    return layout_of(kind).head;
}

Record record_read(RecordKind kind, std::span<const uint8_t> bytes) {
    const Layout layout = layout_of(kind);
    Record record{.kind = kind};
    if (bytes.size() < layout.head) {
        record.fault = fmt::format("{} bytes, the head alone has {}", bytes.size(), layout.head);
        return record;
    }
    if (layout.identifier_class) {
        // Signals and events begin alike; behind the endpoint stand the hosts' own words, which those of this system
        // agreed on.
        record.endpoint = static_cast<int32_t>(word_at(bytes, offsetof(voice_event_t, endpoint)));
        const uint32_t identifier = word_at(bytes, offsetof(voice_event_t, event));
        if (id_class(identifier) == *layout.identifier_class && voice::id_value_type(identifier) == ValueType::none &&
            !short_meaning(identifier).empty()) {
            record.identifier = identifier;
            record.line = word_at(bytes, offsetof(voice_event_t, line));
            record.stops = kind == RecordKind::signal &&
                           (word_at(bytes, offsetof(voice_signal_t, flags)) & VOICE_SIGNAL_STOP) != 0;
        }
    }
    if (kind == RecordKind::stream)
        record.stream = word_at(bytes, offsetof(voice_stream_info_t, stream));
    const uint32_t length = word_at(bytes, layout.length_at);
    const size_t arrived = bytes.size() - layout.head;
    items_read(bytes.subspan(layout.head, std::min<size_t>(length, arrived)), record);
    if (length > arrived)
        record.fault = fmt::format("{} bytes of parameters announced, {} arrived", length, arrived);
    return record;
}

std::vector<voice_codec_t> codec_list_read(std::span<const uint8_t> bytes) {
    std::vector<voice_codec_t> codecs;
    if (bytes.size() % sizeof(voice_codec_t) != 0)
        return codecs;
    for (; !bytes.empty(); bytes = bytes.subspan(sizeof(voice_codec_t)))
        std::memcpy(&codecs.emplace_back(), bytes.data(), sizeof(voice_codec_t));
    return codecs;
}

std::string_view short_meaning(uint32_t id) {
    const libvoice_meaning *row = libvoice_meaning_of(id);
    return row != nullptr ? row->meaning : "";
}

std::string_view package_of(std::string_view name) {
    const std::string whole(name);
    const auto prefix = static_cast<size_t>(voice::name_without_prefix(whole.c_str()) - whole.c_str());
    if (prefix == 0)
        return {};
    name.remove_prefix(prefix);
    return name.substr(0, name.find('_'));
}

} // namespace voicectl
