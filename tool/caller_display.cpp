// SPDX-License-Identifier: MIT
// What a telephone shows of a caller, or of messages that wait: data blocks of ETSI EN 300 659-3 as they cross the bus.
#include "caller_display.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "libvoice_plugin.h"

namespace voicectl {

namespace {

constexpr size_t kMostBytes = 2 + 255 + 1; // type, length, items, checksum
constexpr uint8_t kNotThere = 0x55;        // neither of the two values that the standard gives the indicator

// The decoders measure nothing and answer a wrong checksum like success: what they are given has been checked here.
bool is_whole_block(std::string_view text) {
    if (text.size() < 6 || text.size() % 2 != 0 || text.size() / 2 > kMostBytes)
        return false;
    std::array<unsigned, kMostBytes> bytes{};
    const size_t count = text.size() / 2;
    for (size_t i = 0; i < count; ++i) {
        const char *digits = text.data() + 2 * i;
        if (std::from_chars(digits, digits + 2, bytes[i], 16).ptr != digits + 2)
            return false;
    }
    if (count != bytes[1] + 3)
        return false;
    unsigned sum = 0;
    for (size_t i = 0; i + 1 < count; ++i)
        sum += bytes[i];
    return (sum & 0xFF) == bytes[count - 1] &&
           (bytes[0] == LIBVOICE_DB_CALL_SETUP || bytes[0] == LIBVOICE_DB_MESSAGE_WAITING);
}

} // namespace

std::optional<CallerDisplay> caller_display_read(std::string_view text) {
    if (!is_whole_block(text))
        return std::nullopt;
    const std::string block(text); // the decoders want a terminator
    const auto length = static_cast<uint32_t>(block.size());
    // One more than the capacity told: the decoders terminate there.
    char time[8 + 1] = "", number[20 + 1] = "", name[50 + 1] = "", called[20 + 1] = "";
    uint8_t no_number = 0, no_name = 0, call_type = 0, lamp = kNotThere, messages = 0;
    libvoice_db_common_fields common{};
    common.date_time = {time, sizeof time - 1};
    common.calling_number = {number, sizeof number - 1};
    common.no_calling_number = {&no_number, 1};
    libvoice_db_message_fields fields{};
    fields.name = {name, sizeof name - 1};
    fields.no_name = {&no_name, 1};
    CallerDisplay display;
    if (text.starts_with("80")) {
        fields.slot2 = {called, sizeof called - 1};
        fields.call_type = {&call_type, 1};
        libvoice_db_call_setup_decode(block.c_str(), length, &fields, &common);
    } else {
        display.kind = CallerDisplay::Kind::messages;
        fields.slot2 = {&lamp, 1};
        fields.messages = {&messages, 1};
        libvoice_db_message_waiting_decode(block.c_str(), length, &fields, &common);
        if (lamp != kNotThere)
            display.lamp = lamp != 0;
    }
    display.time = time;
    display.number = number;
    display.name = name;
    display.called = called;
    display.no_number = static_cast<char>(no_number);
    display.no_name = static_cast<char>(no_name);
    display.call_type = call_type;
    display.messages = messages;
    return display;
}

} // namespace voicectl
