// SPDX-License-Identifier: MIT
#include "pcapng.h"

#include "big_endian.h"

namespace voicectl::pcapng {

namespace {

constexpr uint32_t kAnyLength = 0; // packets of any size
constexpr size_t kMostText = 1024; // of an option or tag

template <class Number>
void put(std::string &to, Number number) {
    to.append(reinterpret_cast<const char *>(&number), sizeof number);
}

void pad(std::string &to) {
    to.append(-to.size() % sizeof(uint32_t), '\0');
}

void put_option(std::string &to, uint16_t code, std::string_view value) {
    value = value.substr(0, kMostText);
    put(to, code);
    put(to, static_cast<uint16_t>(value.size()));
    to += value;
    pad(to);
}

void put_count(std::string &to, uint16_t code, uint64_t count) {
    put_option(to, code, {reinterpret_cast<const char *>(&count), sizeof count});
}

void put_time(std::string &to, uint64_t time_ns) {
    put(to, static_cast<uint32_t>(time_ns >> 32));
    put(to, static_cast<uint32_t>(time_ns));
}

// With its type and, at both ends, its size.
std::string block(BlockType type, const std::string &body) {
    std::string whole;
    const auto size = static_cast<uint32_t>(body.size() + 3 * sizeof(uint32_t));
    put(whole, type);
    put(whole, size);
    whole += body;
    put(whole, size);
    return whole;
}

void put_tag(std::string &to, Tag tag, std::string_view value) {
    value = value.substr(0, kMostText);
    put_big(to, tag, 2);
    put_big(to, static_cast<uint32_t>(value.size() + -value.size() % sizeof(uint32_t)), 2);
    to += value;
    pad(to);
}

void put_tag(std::string &to, Tag tag, uint32_t value) {
    put_big(to, tag, 2);
    put_big(to, sizeof value, 2);
    put_big(to, value, sizeof value);
}

} // namespace

std::string section(std::string_view application, std::string_view system) {
    std::string body;
    put(body, kByteOrderMark);
    put(body, uint16_t{1}); // version 1.0
    put(body, uint16_t{0});
    put(body, UINT64_MAX); // of any length
    put_option(body, kSystem, system);
    put_option(body, kApplication, application);
    put_option(body, kOptionEnd, "");
    return block(kSection, body);
}

std::string interface(uint16_t link_type, std::string_view name, std::string_view description) {
    std::string body;
    put(body, link_type);
    put(body, uint16_t{0});
    put(body, kAnyLength);
    put_option(body, kName, name);
    put_option(body, kDescription, description);
    put_option(body, kTimeResolution, {reinterpret_cast<const char *>(&kNanoseconds), 1});
    put_option(body, kOptionEnd, "");
    return block(kInterface, body);
}

std::string address_name(uint32_t address, std::string_view name) {
    constexpr uint16_t kIpv4Record = 1;
    name = name.substr(0, kMostText);
    std::string body;
    put(body, kIpv4Record);
    put(body, static_cast<uint16_t>(sizeof address + name.size() + 1));
    put_big(body, address, sizeof address);
    body += name;
    body.push_back('\0');
    pad(body);
    put(body, uint32_t{0}); // the end of the records
    return block(kNames, body);
}

std::string packet(uint32_t interface, uint64_t time_ns, std::string_view bytes, uint64_t lost,
                   std::string_view comment) {
    std::string body;
    put(body, interface);
    put_time(body, time_ns);
    put(body, static_cast<uint32_t>(bytes.size())); // that are here
    put(body, static_cast<uint32_t>(bytes.size())); // that there were
    body += bytes;
    pad(body);
    if (!comment.empty())
        put_option(body, kComment, comment);
    if (lost > 0)
        put_count(body, kLost, lost);
    if (!comment.empty() || lost > 0)
        put_option(body, kOptionEnd, "");
    return block(kPacket, body);
}

std::string statistics(uint32_t interface, uint64_t time_ns, uint64_t received, uint64_t lost) {
    std::string body;
    put(body, interface);
    put_time(body, time_ns);
    put_count(body, kTotalReceived, received);
    put_count(body, kTotalLost, lost);
    put_option(body, kOptionEnd, "");
    return block(kStatistics, body);
}

std::string origin_tags(const Origin &origin) {
    std::string tags;
    put_tag(tags, kDissector, origin.dissector);
    put_tag(tags, kProtocol, origin.protocol);
    put_tag(tags, kSource, origin.source);
    put_tag(tags, kDestination, origin.destination);
    put_tag(tags, kPortType, origin.datagrams ? kUdp : kTcp);
    put_tag(tags, kSourcePort, uint32_t{origin.source_port});
    put_tag(tags, kDestinationPort, uint32_t{origin.destination_port});
    put_big(tags, kTagEnd, 4);
    return tags;
}

bool origin_take(std::string_view &bytes, Origin &origin) {
    constexpr size_t kTagHead = 4;
    origin = {};
    while (bytes.size() >= kTagHead) {
        const uint32_t tag = big_number(bytes.substr(0, 2)), length = big_number(bytes.substr(2, 2));
        bytes.remove_prefix(kTagHead);
        if (length > bytes.size())
            return false;
        const std::string_view value = bytes.substr(0, length);
        bytes.remove_prefix(length);
        switch (tag) {
        case kTagEnd:
            return true;
        case kDissector:
            origin.dissector = value.substr(0, value.find('\0'));
            break;
        case kSource:
            origin.source = big_number(value);
            break;
        case kDestination:
            origin.destination = big_number(value);
            break;
        case kPortType:
            origin.datagrams = big_number(value) == kUdp;
            break;
        case kSourcePort:
            origin.source_port = static_cast<uint16_t>(big_number(value));
            break;
        case kDestinationPort:
            origin.destination_port = static_cast<uint16_t>(big_number(value));
            break;
        default:
            break;
        }
    }
    return false;
}

} // namespace voicectl::pcapng
