// SPDX-License-Identifier: MIT
// What is remembered of a capture while its ladder is drawn: a file may say anything, and must not make it grow.
#include "ladder_feed.h"

#include <string>

#include <gtest/gtest.h>

#include "byte_order.h"
#include "capture_record.h"
#include "ladder_model.h"

namespace voicectl {

namespace {

// Messages of the bus in this machine's order.
std::string bus_word(uint32_t word) {
    return {reinterpret_cast<const char *>(&word), sizeof word};
}

std::string bus_text(const std::string &text) {
    return bus_word(static_cast<uint32_t>(text.size())) + text;
}

std::string bus_message(char kind, const std::string &body) {
    constexpr uint32_t kHead = 20;
    const char order = byte_order_here() == ByteOrder::little ? 'l' : 'B';
    return std::string{'k', 2, order, kind} + bus_word(1) + bus_word(0) +
           bus_word(kHead + static_cast<uint32_t>(body.size())) + bus_word(0) + body;
}

std::string bus_call(const std::string &path, const std::string &function, const std::string &bytes) {
    return bus_message(2, bus_text(path) + bus_text(function) + '\1' + bus_text("bytes") + '\x13' + bus_text(bytes));
}

// True.
std::string bus_reply() {
    return bus_message(4, std::string{0, 1, 10, 1});
}

// Of a capture: calls of so many listeners, and an answer to that of one. What the answer says.
std::string answer_after_calls_of(int32_t listeners, int32_t answered) {
    constexpr size_t kBytes = 200'000;
    LadderFeed feed{Filter()};
    const auto take = [&](int32_t kind, int32_t listener, const std::string &message) {
        kex_tap_record_t record{};
        record.kind = kind;
        record.text = "";
        kex_tap_end_t &called = kind == KEX_TAP_CALL ? record.to : record.from;
        kex_tap_end_t &caller = kind == KEX_TAP_CALL ? record.from : record.to;
        called.process_id = listener;
        caller.connection = 1;
        caller.process_id = 7;
        const std::string bytes = capture_record(record, message, 0);
        feed.take({.dissector = "kexbus", .bytes = bytes});
    };
    for (int32_t listener = 1; listener <= listeners; ++listener)
        take(KEX_TAP_CALL, listener, bus_call("a.b", "get", std::string(kBytes, 'x')));
    take(KEX_TAP_REPLY, answered, bus_reply());
    return feed.finish("x").rows.back().words;
}

TEST(LadderFeed, CallsOfManyListenersAreForgottenBeyondTheirBytes) {
    EXPECT_EQ(answer_after_calls_of(20, 1), "answers get");
    EXPECT_EQ(answer_after_calls_of(21, 1), "answers a call that was not seen");
    EXPECT_EQ(answer_after_calls_of(21, 21), "answers get");
}

} // namespace

} // namespace voicectl
