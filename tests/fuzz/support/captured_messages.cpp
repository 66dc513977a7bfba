// SPDX-License-Identifier: MIT
// The records of messages that stand in captures: names and functions of voice traffic most of the time.
#include "captured_messages.h"

#include "kex.h"
#include "messages.h"

#include <iterator>

namespace fuzz {

namespace {

enum RecordKind : uint8_t { kConnected = 1, kClosed, kCall, kOneWayCall, kReply, kRefused, kWaiting };
enum MessageKind : uint8_t { kMessageCall = 2, kMessageOneWay, kMessageReply, kMessageRefused, kMessageWaiting };

template <size_t count>
std::string one_of(Input &in, const char *const (&words)[count]) {
    const uint8_t which = in.byte();
    return which >= 240 ? in.text() : words[which % count];
}

std::string name(Input &in) {
    static const char *const kNames[] = {"fxs1", "fxs2", "dsp1", "FXS1", "FXS2", "fxs1.EndPoint.FXS1", "#3", ""};
    return one_of(in, kNames);
}

// A parameter buffer.
std::string items(Input &in, bool is_big) {
    NumberWriter to(is_big);
    for (uint32_t left = in.below(6); left > 0; --left) {
        const uint32_t id = in.word();
        std::string value = in.text();
        if (in.flag()) // whole words, as most values are
            value.resize(value.size() / 4 * 4);
        to.word(id).text(value).pad();
    }
    return to.bytes;
}

// A head of words whose last one says how long the buffer behind it is.
std::string record(Input &in, bool is_big) {
    const uint8_t words = in.byte();
    NumberWriter to(is_big);
    to.word(in.below(8)).word(in.word());
    for (unsigned i = 3; i < words % 8U; ++i)
        to.word(in.byte());
    const std::string buffer = items(in, is_big);
    const uint32_t length = words >= 240 ? in.word() : static_cast<uint32_t>(buffer.size());
    return to.word(length).raw(buffer).bytes;
}

void value_add(Input &in, bool is_big, NumberWriter &to, unsigned depth = 0) {
    constexpr unsigned kDeepest = 18; // deeper than is read
    static constexpr uint8_t kTypes[] = {VARIANT_TEXT,   VARIANT_INT16, VARIANT_INT32, VARIANT_UINT16,
                                         VARIANT_UINT32, VARIANT_BOOL,  VARIANT_FD,    VARIANT_NONE,
                                         VARIANT_BYTES,  VARIANT_BYTES, VARIANT_LIST};
    const uint8_t which = in.byte();
    const uint8_t type = which < 250 ? kTypes[which % std::size(kTypes)] : in.byte();
    to.byte(type);
    if (number_add(in, to, type))
        return;
    switch (type) {
    case VARIANT_TEXT:
        to.text(name(in));
        return;
    case VARIANT_BYTES:
        to.text(in.flag() ? record(in, is_big) : in.text());
        return;
    case VARIANT_BOOL:
        to.byte(in.byte());
        return;
    case VARIANT_FD:
        to.word(0).word(in.byte());
        return;
    case VARIANT_LIST: {
        const uint8_t count = in.byte();
        to.word(count >= 250 ? in.word() : count % 6);
        for (unsigned i = 0; i < count % 6U && depth < kDeepest; ++i)
            value_add(in, is_big, to, depth + 1);
        return;
    }
    default:
        return;
    }
}

void call_add(Input &in, bool is_big, NumberWriter &to) {
    static const char *const kPaths[] = {"VoiceService.VoiceApplication", "fxs1", "fxs1.EndPoint.FXS1",
                                         "dsp1.DSPPlugin.DSP.D1.DSP_CHANNEL.C1"};
    static const char *const kFunctions[] = {
        "register_plugin", "register_endpoint", "deregister_endpoint", "event",  "signal", "get",
        "create",          "create_ctx",        "add_stream",          "modify", "set",    "init"};
    static const char *const kArguments[] = {
        "plugin_name", "endpoint_name", "endpoint_path",    "endpoint_id", "ep_id",       "type",   "codeclist",
        "signal",      "event",         "param_set_params", "cnx_info",    "stream_info", "ctx_id", "filedesc"};
    to.text(one_of(in, kPaths)).text(one_of(in, kFunctions));
    const auto count = static_cast<uint8_t>(in.below(6));
    to.byte(count);
    for (unsigned i = 0; i < count; ++i) {
        to.text(one_of(in, kArguments));
        value_add(in, is_big, to);
    }
}

// A message in an order of its own.
std::string message(Input &in, uint8_t record_kind) {
    static constexpr uint8_t kKinds[] = {
        0, 0, 0, kMessageCall, kMessageOneWay, kMessageReply, kMessageRefused, kMessageWaiting};
    if (kKinds[record_kind % std::size(kKinds)] == 0)
        return "";
    const uint8_t how = in.byte();
    const bool is_big = (how & 1) != 0;
    const uint8_t kind = how < 224 ? kKinds[record_kind % std::size(kKinds)] : in.byte();
    NumberWriter body(is_big);
    const uint32_t serial = in.below(8);
    if (kind == kMessageCall || kind == kMessageOneWay)
        call_add(in, is_big, body);
    else if (kind == kMessageRefused)
        body.text(in.text());
    else if (kind != kMessageWaiting)
        reply_add(in, body, [&] { value_add(in, is_big, body); });
    constexpr uint32_t kHead = 20;
    const uint32_t wrong = how >= 248 ? in.byte() : 0;
    NumberWriter to(is_big);
    to.raw(std::string{'k', 2, is_big ? 'B' : 'l', static_cast<char>(kind)}).word(serial).word(in.byte());
    to.word(static_cast<uint32_t>(kHead + body.bytes.size()) - wrong).word(0).raw(body.bytes);
    return to.bytes;
}

} // namespace

std::string captured_message(Input &in) {
    const uint8_t how = in.byte();
    const auto kind = static_cast<uint8_t>(how & 7);
    const bool to_listener = (how & 8) != 0;
    const std::string peer = name(in).substr(0, 255), listener = in.byte() < 240 ? "voice_application" : "other";
    const uint32_t connection = 1 + in.below(4), process = 200 + in.below(4);
    const std::string text = kind == kClosed || kind == kRefused ? in.text() : "";
    const uint32_t lost = how >= 240 ? in.word() : 0, wrong = how >= 248 ? in.byte() : 0;
    const std::string &from = to_listener ? peer : listener, &to = to_listener ? listener : peer;
    NumberWriter head(true);
    head.raw(std::string{'v', 1, static_cast<char>(kind), '\0'});
    head.half(static_cast<uint16_t>(32 + from.size() + to.size() + text.size() + wrong));
    head.half(static_cast<uint16_t>(text.size()));
    const uint32_t ends[] = {process, connection, listener == "other" ? 101u : 100u, 0};
    for (size_t i = 0; i < std::size(ends); ++i)
        head.word(ends[to_listener ? i : (i + 2) % std::size(ends)]);
    head.word(lost).byte(static_cast<uint8_t>(from.size())).byte(static_cast<uint8_t>(to.size())).half(0);
    return head.raw(from + to + text).bytes + message(in, kind);
}

} // namespace fuzz
