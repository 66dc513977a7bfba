// SPDX-License-Identifier: MIT
// The records that travel as byte arrays (signals, events, parameter sets, media descriptions), taken apart.
#include "record.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>

#include <fmt/format.h>

#include "libvoice_meanings.h"
#include "libvoice_plugin.h"
#include "voice_records.h"

namespace voicectl {

namespace {

constexpr uint32_t kClassMask = 0x70000000;
constexpr uint32_t kTypeMask = 0x0F000000;
constexpr size_t kItemHead = 8;
static_assert(offsetof(voice_signal_t, signal) == offsetof(voice_event_t, event));
static_assert(offsetof(voice_signal_t, line) == offsetof(voice_event_t, line));
// Room of dump_msg for one item besides its value: class word, name, number, blanks.
constexpr size_t kDumpRoom = 128;

uint32_t word_at(std::span<const uint8_t> bytes, size_t offset) {
    uint32_t word = 0;
    std::memcpy(&word, bytes.data() + offset, sizeof word);
    return word;
}

struct Layout {
    size_t head;
    size_t length_at;
    uint32_t identifier_class; // class bits of the identifier that the hosts put into the head; 0: none there
};

Layout layout_of(RecordKind kind) {
    switch (kind) {
    case RecordKind::signal:
        return {sizeof(voice_signal_t), offsetof(voice_signal_t, length), LIBVOICE_SIGNAL_cg_dt & kClassMask};
    case RecordKind::event:
        return {sizeof(voice_event_t), offsetof(voice_event_t, length), LIBVOICE_EVENT_al_of & kClassMask};
    case RecordKind::connection:
        return {offsetof(voice_cnx_info_t, params), offsetof(voice_cnx_info_t, length), 0};
    case RecordKind::stream:
        return {offsetof(voice_stream_info_t, params), offsetof(voice_stream_info_t, length), 0};
    case RecordKind::param_set:
        break;
    }
    return {sizeof(libvoice_param_set_t), offsetof(libvoice_param_set_t, length), 0};
}

// A parameter buffer promises words on word boundaries: a copy of the item stands on one.
std::string item_value(std::span<const uint8_t> item) {
    std::vector<uint32_t> words((item.size() + 3) / 4);
    std::memcpy(words.data(), item.data(), item.size());
    std::string text(kDumpRoom + item.size(), '\0');
    dump_msg(text.data(), 0, static_cast<int32_t>(text.size()), words.data(), static_cast<uint32_t>(item.size()));
    text.resize(std::strlen(text.c_str()));
    // "evt LIBVOICE_PARAM_al_on_init true ": the value stands behind class and name, before a blank.
    for (int i = 0; i < 2; ++i)
        text.erase(0, text.find(' ') == std::string::npos ? text.size() : text.find(' ') + 1);
    if (!text.empty() && text.back() == ' ')
        text.pop_back();
    return text;
}

void read_items(std::span<const uint8_t> buffer, Record &record) {
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
        record.items.push_back({id, libvoice_param_str(id), item_value(buffer.first(size))});
        buffer = buffer.subspan(size);
    }
}

} // namespace

Record read_record(RecordKind kind, std::span<const uint8_t> bytes) {
    const Layout layout = layout_of(kind);
    Record record{.kind = kind};
    if (bytes.size() < layout.head) {
        record.fault = fmt::format("{} bytes, the head alone has {}", bytes.size(), layout.head);
        return record;
    }
    if (layout.identifier_class != 0) {
        // Signals and events begin alike; behind the endpoint stand the hosts' own words, which those of this system
        // agreed on.
        record.endpoint = static_cast<int32_t>(word_at(bytes, offsetof(voice_event_t, endpoint)));
        const uint32_t identifier = word_at(bytes, offsetof(voice_event_t, event));
        if ((identifier & (kClassMask | kTypeMask)) == layout.identifier_class && !short_meaning(identifier).empty()) {
            record.identifier = identifier;
            record.line = word_at(bytes, offsetof(voice_event_t, line));
            record.stops = kind == RecordKind::signal &&
                           (word_at(bytes, offsetof(voice_signal_t, flags)) & VOICE_SIGNAL_STOP) != 0;
        }
    }
    const uint32_t length = word_at(bytes, layout.length_at);
    const size_t arrived = bytes.size() - layout.head;
    read_items(bytes.subspan(layout.head, std::min<size_t>(length, arrived)), record);
    if (length > arrived)
        record.fault = fmt::format("{} bytes of parameters announced, {} arrived", length, arrived);
    return record;
}

std::string_view short_meaning(uint32_t id) {
    const auto *end = std::end(libvoice_meanings);
    const auto *found =
        std::lower_bound(std::begin(libvoice_meanings), end, id,
                         [](const libvoice_meaning &row, uint32_t number) { return row.number < number; });
    return found != end && found->number == id ? found->meaning : "";
}

std::string_view package_of(std::string_view name) {
    for (const std::string_view stem : {"LIBVOICE_SIGNAL_", "LIBVOICE_EVENT_", "LIBVOICE_PARAM_"})
        if (name.starts_with(stem)) {
            name.remove_prefix(stem.size());
            return name.substr(0, name.find('_'));
        }
    return {};
}

} // namespace voicectl
