// SPDX-License-Identifier: MIT
// Reads a record of a capture. tool/README.md draws its head; the message is as the bus has it.
#include "captured_step.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "message_reader.h"

namespace voicectl {

namespace {

constexpr char kCaptureMark = 'v';
constexpr size_t kCaptureHead = 32;
constexpr size_t kMessageHead = 20;
constexpr size_t kMostMessage = 256 * 1024; // the bus carries none as large
constexpr uint8_t kMessageVersion = 2;
constexpr uint32_t kMostErrors = 255; // its count is one byte
enum MessageKind : uint8_t {
    kMessageCall = 2,
    kMessageOneWay = 3,
    kMessageReply = 4,
    kMessageRefused = 5,
    kMissed = 9
};

struct CaptureEnd {
    int32_t process_id;
    uint32_t connection;
    std::string name;
};

std::optional<Step::Kind> captured_kind(uint8_t kind) {
    constexpr std::pair<uint8_t, Step::Kind> kKinds[] = {
        {KEX_TAP_CONNECTED, Step::Kind::connected}, {KEX_TAP_CLOSED, Step::Kind::closed},
        {KEX_TAP_CALL, Step::Kind::call},           {KEX_TAP_ONE_WAY_CALL, Step::Kind::one_way_call},
        {KEX_TAP_REPLY, Step::Kind::reply},         {KEX_TAP_REFUSED, Step::Kind::refused},
        {KEX_TAP_WAITING, Step::Kind::waiting},
    };
    for (const auto &[number, found] : kKinds)
        if (number == kind)
            return found;
    return std::nullopt;
}

void arguments_read(MessageReader &reader, Step &step) {
    step.path = reader.text();
    step.function = reader.text();
    for (uint32_t left = reader.byte(); left > 0 && reader.is_good(); --left) {
        std::string name(reader.text());
        Value value = reader.value();
        if (reader.is_good())
            step.arguments.push_back({std::move(name), std::move(value)});
    }
    step_record_take(step);
}

void reply_read(MessageReader &reader, Step &step) {
    for (uint32_t left = reader.byte(); left > 0 && reader.is_good(); --left) {
        ErrorItem error{.code = reader.word(), .description = {}, .info = {}};
        error.description = reader.text();
        error.info = reader.text();
        if (reader.is_good() && step.errors.size() < kMostErrors)
            step.errors.push_back(std::move(error));
    }
    if (reader.byte() != 0)
        step.result = reader.value();
}

// What the message says. A sentence why not all of it can be read; empty: all was.
std::string message_read(std::string_view message, Step &step) {
    if (message.size() < kMessageHead)
        return fmt::format("{} bytes, a message's head alone has {}", message.size(), kMessageHead);
    if (message.size() > kMostMessage)
        return fmt::format("{} bytes, a message has {} at most", message.size(), kMostMessage);
    const auto version = static_cast<uint8_t>(message[1]);
    const char order = message[2];
    const auto kind = static_cast<uint8_t>(message[3]);
    if (message[0] != 'k' || (order != 'l' && order != 'B'))
        return "no message of the bus";
    const ByteOrder written = order == 'l' ? ByteOrder::little : ByteOrder::big;
    MessageReader reader(message, written);
    reader.take(sizeof(uint32_t)); // what was looked at above
    step.other_order = written != byte_order_here();
    step.serial = reader.word();
    step.flags = reader.word();
    const uint32_t size = reader.word();
    reader.word(); // descriptors
    if (version != kMessageVersion)
        return fmt::format("a message of version {} of the bus, {} is known here", version, kMessageVersion);
    if (kind == kMessageCall || kind == kMessageOneWay)
        arguments_read(reader, step);
    else if (kind == kMessageReply || kind == kMissed)
        reply_read(reader, step);
    else if (kind == kMessageRefused)
        step.text = reader.text();
    else
        return "";
    if (!reader.is_good())
        return reader.fault();
    if (size != message.size() || reader.left() > 0)
        return fmt::format("the head says {} bytes, {} came, {} are left", size, message.size(), reader.left());
    return "";
}

CaptureEnd end_read(MessageReader &reader) {
    CaptureEnd end;
    end.process_id = static_cast<int32_t>(reader.word());
    end.connection = reader.word();
    return end;
}

void ends_take(Step &step, const CaptureEnd &from, const CaptureEnd &to) {
    step.towards_listener = to.connection == 0;
    const CaptureEnd &peer = step.towards_listener ? from : to;
    const CaptureEnd &listener = step.towards_listener ? to : from;
    step.peer.connection = peer.connection;
    step.peer.process_id = peer.process_id;
    step.peer.process = peer.name;
    step.listener = listener.name;
    step.listener_process_id = listener.process_id;
}

} // namespace

CapturedStep captured_step_read(std::string_view record, uint64_t time_ns) {
    CapturedStep captured;
    MessageReader head(record.substr(0, std::min(record.size(), kCaptureHead)), ByteOrder::big);
    const std::string_view begin = head.take(4);
    const size_t head_size = head.half();
    const size_t text_size = head.half();
    CaptureEnd from = end_read(head), to = end_read(head);
    captured.lost = head.word();
    const size_t from_size = head.byte(), to_size = head.byte();
    const size_t texts = from_size + to_size + text_size;
    if (!head.is_good() || begin[0] != kCaptureMark || head_size < kCaptureHead + texts || head_size > record.size()) {
        captured.lost = 0;
        captured.fault = "no record of a capture";
        return captured;
    }
    from.name = record.substr(kCaptureHead, from_size);
    to.name = record.substr(kCaptureHead + from_size, to_size);
    const std::optional<Step::Kind> kind = captured_kind(static_cast<uint8_t>(begin[2]));
    if (!kind)
        return captured;
    Step step{.kind = *kind};
    step.time_ns = time_ns;
    step.text = record.substr(kCaptureHead + from_size + to_size, text_size);
    ends_take(step, from, to);
    const std::string_view message = record.substr(head_size);
    step.bytes = static_cast<uint32_t>(message.size());
    if (!message.empty())
        captured.fault = message_read(message, step);
    captured.step = std::move(step);
    return captured;
}

} // namespace voicectl
