// SPDX-License-Identifier: MIT
#include "capture_record.h"

#include <cstring>

#include "big_endian.h"
#include "pcapng.h"

namespace voicectl {

namespace {

constexpr char kMark = 'v';
constexpr char kVersion = 1;
constexpr size_t kHead = 32;
constexpr size_t kMostText = 1024;
constexpr uint32_t kFirstAddress = 127u << 24 | 1u << 16 | 1; // 127.1.0.1
constexpr uint32_t kAddresses = 0xFFFE;                       // and those behind it
constexpr uint16_t kListenerPort = 1;

std::string_view name_of(const kex_tap_end_t &end) {
    return {end.name, strnlen(end.name, sizeof end.name)};
}

// Of a connection at the listener's side it stands for.
uint16_t port_of(const kex_tap_end_t &end) {
    return end.connection == 0 ? kListenerPort : static_cast<uint16_t>(end.connection);
}

} // namespace

std::string capture_record(const kex_tap_record_t &record, std::string_view message, uint32_t lost) {
    const std::string_view from = name_of(record.from), to = name_of(record.to);
    const std::string_view text = std::string_view(record.text).substr(0, kMostText);
    std::string bytes{kMark, kVersion, static_cast<char>(record.kind), '\0'};
    put_big(bytes, static_cast<uint32_t>(kHead + from.size() + to.size() + text.size()), 2);
    put_big(bytes, static_cast<uint32_t>(text.size()), 2);
    for (const kex_tap_end_t *end : {&record.from, &record.to}) {
        put_big(bytes, static_cast<uint32_t>(end->process_id), 4);
        put_big(bytes, end->connection, 4);
    }
    put_big(bytes, lost, 4);
    put_big(bytes, static_cast<uint32_t>(from.size()), 1);
    put_big(bytes, static_cast<uint32_t>(to.size()), 1);
    put_big(bytes, 0, 2);
    for (const std::string_view part : {from, to, text, message})
        bytes += part;
    return bytes;
}

uint32_t CaptureAddresses::address_of(const kex_tap_end_t &end) {
    if (places_.size() == kAddresses && !places_.contains(end.process_id))
        places_.clear(); // they are given anew
    const auto next = static_cast<uint32_t>(places_.size());
    return places_.try_emplace(end.process_id, Place{kFirstAddress + next, ""}).first->second.address;
}

std::string CaptureAddresses::name_block(const kex_tap_end_t &end) {
    const uint32_t address = address_of(end);
    Place &place = places_.at(end.process_id);
    if (name_of(end).empty() || place.name == name_of(end))
        return "";
    place.name = name_of(end);
    return pcapng::address_name(address, place.name);
}

std::string capture_payload(const kex_tap_record_t &record, std::string_view message, uint32_t lost,
                            CaptureAddresses &addresses) {
    return pcapng::origin_tags({.dissector = "kexbus",
                                .protocol = "KEX",
                                .datagrams = false,
                                .source = addresses.address_of(record.from),
                                .destination = addresses.address_of(record.to),
                                .source_port = port_of(record.from),
                                .destination_port = port_of(record.to)}) +
           capture_record(record, message, lost);
}

} // namespace voicectl
