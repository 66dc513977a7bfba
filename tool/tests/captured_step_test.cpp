// SPDX-License-Identifier: MIT
// Records of captures read back, in the order of either machine.
#include "captured_step.h"

#include <string>

#include <gtest/gtest.h>

#include "byte_order.h"
#include "capture_record.h"
#include "libvoice_plugin.h"
#include "samples.h"
#include "traffic.h"

using namespace voicectl;

namespace {

// A message in one of the two orders, written from its description.
class Message {
public:
    explicit Message(ByteOrder order) : order_(order) {}

    Message &number(uint32_t value, unsigned bytes) {
        for (unsigned i = 0; i < bytes; ++i)
            body_ += static_cast<char>(value >> 8 * (order_ == ByteOrder::big ? bytes - 1 - i : i));
        return *this;
    }
    Message &text(const std::string &value) {
        number(static_cast<uint32_t>(value.size()), 4);
        body_ += value;
        return *this;
    }
    Message &argument(const std::string &name, uint8_t type) { return text(name).number(type, 1); }
    // Words of a record.
    Message &words(std::initializer_list<uint32_t> values) {
        number(static_cast<uint32_t>(4 * values.size()), 4);
        for (const uint32_t value : values)
            number(value, 4);
        return *this;
    }

    std::string bytes(uint8_t kind, uint32_t serial, uint8_t version = 2) const {
        Message head(order_);
        head.number('k', 1).number(version, 1).number(order_ == ByteOrder::big ? 'B' : 'l', 1).number(kind, 1);
        head.number(serial, 4).number(5, 4).number(static_cast<uint32_t>(20 + body_.size()), 4).number(0, 4);
        return head.body_ + body_;
    }

private:
    ByteOrder order_;
    std::string body_{};
};

constexpr ByteOrder kOrders[] = {ByteOrder::little, ByteOrder::big};

// Each kind of value.
Message call_with_values(ByteOrder order) {
    Message message(order);
    message.text("fxs.EndPoint.FXS1").text("create").number(8, 1);
    message.argument("text", 0).text("x");
    message.argument("short", 3).number(0xFFFE, 2);
    message.argument("word", 4).number(0xFFFFFFFD, 4);
    message.argument("positive", 8).number(0xFFFFFFFD, 4);
    message.argument("yes", 10).number(1, 1);
    message.argument("filedesc", 13).number(2, 4).number(18, 1).number(0, 4).number(29, 4);
    message.number(18, 1).number(UINT32_MAX, 4).number(UINT32_MAX, 4);
    message.argument("bytes", 19).text("abc");
    message.argument("nothing", 255);
    return message;
}

// A signal to endpoint 7, ring with a cadence.
Message signal_call(ByteOrder order) {
    Message message(order);
    message.text("fxs.EndPoint.FXS1").text("signal").number(1, 1).argument("signal", 19);
    message.words({7, LIBVOICE_SIGNAL_al_ri, 1, 9, 0, 0, 28, LIBVOICE_PARAM_al_ri_cad, 8, 1000, 4000,
                   LIBVOICE_PARAM_al_ri_freq, 4, 25});
    return message;
}

kex_tap_record_t sample_record(int32_t kind, uint32_t from = 3, uint32_t to = 0) {
    kex_tap_record_t record{};
    record.kind = kind;
    record.from = {200, from, "fxs_plugin"};
    record.to = {100, to, "voice_application"};
    record.text = "";
    return record;
}

CapturedStep read(int32_t kind, const std::string &message, uint32_t lost = 0) {
    return captured_step_read(capture_record(sample_record(kind), message, lost), 123);
}

TEST(CapturedStep, CallHasItsEndsAndEachKindOfValue) {
    for (const ByteOrder order : kOrders) {
        const CapturedStep captured = read(KEX_TAP_CALL, call_with_values(order).bytes(2, 77), 4);
        ASSERT_TRUE(captured.step);
        EXPECT_EQ(captured.fault, "");
        EXPECT_EQ(captured.lost, 4u);
        const Step &step = *captured.step;
        EXPECT_EQ(step.kind, Step::Kind::call);
        EXPECT_EQ(step.time_ns, 123u);
        EXPECT_TRUE(step.towards_listener);
        EXPECT_EQ(step.peer.process, "fxs_plugin");
        EXPECT_EQ(step.peer.process_id, 200);
        EXPECT_EQ(step.peer.connection, 3u);
        EXPECT_EQ(step.listener, "voice_application");
        EXPECT_EQ(step.serial, 77u);
        EXPECT_EQ(step.flags, 5u);
        EXPECT_EQ(step.path, "fxs.EndPoint.FXS1");
        EXPECT_EQ(step.function, "create");
        ASSERT_EQ(step.arguments.size(), 8u);
        EXPECT_EQ(step.arguments[0].value.text, "x");
        EXPECT_EQ(step.arguments[1].value.number, -2);
        EXPECT_EQ(step.arguments[2].value.number, -3);
        EXPECT_EQ(step.arguments[3].value.number, 0xFFFFFFFD);
        EXPECT_EQ(step.arguments[4].value.type, Value::Type::boolean);
        ASSERT_EQ(step.arguments[5].value.list.size(), 2u);
        EXPECT_EQ(step.arguments[5].value.list[0].number, 29);
        EXPECT_EQ(step.arguments[5].value.list[1].number, -1);
        EXPECT_EQ(step.arguments[6].value.bytes, (Bytes{'a', 'b', 'c'}));
        EXPECT_EQ(step.arguments[7].value.type, Value::Type::none);
    }
}

TEST(CapturedStep, RecordsReadTheSameInEitherOrder) {
    for (const ByteOrder order : kOrders) {
        const CapturedStep captured = read(KEX_TAP_ONE_WAY_CALL, signal_call(order).bytes(3, 1));
        ASSERT_TRUE(captured.step && captured.step->record);
        const Record &record = *captured.step->record;
        EXPECT_EQ(record.endpoint, 7);
        EXPECT_EQ(record.identifier, LIBVOICE_SIGNAL_al_ri);
        ASSERT_EQ(record.items.size(), 2u);
        ASSERT_EQ(record.items[0].value.list.size(), 2u);
        EXPECT_EQ(record.items[0].value.list[1].number, 4000);
        EXPECT_EQ(record.items[1].value.number, 25);
    }
}

TEST(CapturedStep, ParametersInTheAnswerToGetReadTheSameInEitherOrder) {
    for (const ByteOrder order : kOrders) {
        Message call(order), reply(order);
        call.text("fxs.EndPoint.FXS1").text("get").number(0, 1);
        reply.number(0, 1).number(1, 1).number(19, 1).words({0, 12, LIBVOICE_PARAM_al_ri_freq, 4, 25});
        Traffic traffic;
        kex_tap_record_t record = sample_record(KEX_TAP_CALL, 0, 3); // from the listener
        record.from.process_id = 100;
        traffic.next(*captured_step_read(capture_record(record, call.bytes(2, 5), 0), 1).step);
        const Step answer = traffic.next(*read(KEX_TAP_REPLY, reply.bytes(4, 5)).step);
        ASSERT_TRUE(answer.record);
        ASSERT_EQ(answer.record->items.size(), 1u);
        EXPECT_EQ(answer.record->items[0].value.number, 25);
    }
}

TEST(CapturedStep, ReplyHasErrorsAndValue) {
    for (const ByteOrder order : kOrders) {
        Message reply(order);
        reply.number(1, 1).number(196640, 4).text("Missing").text("filedesc").number(1, 1).number(10, 1).number(0, 1);
        const CapturedStep captured = read(KEX_TAP_REPLY, reply.bytes(4, 9));
        ASSERT_TRUE(captured.step);
        ASSERT_EQ(captured.step->errors.size(), 1u);
        EXPECT_EQ(captured.step->errors[0].code, 196640u);
        EXPECT_EQ(captured.step->errors[0].info, "filedesc");
        EXPECT_EQ(captured.step->result.type, Value::Type::boolean);
    }
}

TEST(CapturedStep, EventsOfTheBusHaveTheirText) {
    kex_tap_record_t record = sample_record(KEX_TAP_CLOSED);
    record.text = "it has ended";
    const CapturedStep captured = captured_step_read(capture_record(record, "", 0), 1);
    ASSERT_TRUE(captured.step);
    EXPECT_EQ(captured.step->kind, Step::Kind::closed);
    EXPECT_EQ(captured.step->text, "it has ended");
    EXPECT_EQ(captured.fault, "");
}

TEST(CapturedStep, CutAnywhereItSaysSo) {
    for (const ByteOrder order : kOrders)
        for (const std::string &message : {call_with_values(order).bytes(2, 1), signal_call(order).bytes(3, 1)}) {
            const std::string record = capture_record(sample_record(KEX_TAP_CALL), message, 0);
            for (size_t size = 0; size < record.size(); ++size) {
                const CapturedStep captured = captured_step_read(std::string_view(record).substr(0, size), 1);
                const bool has_no_message = size == record.size() - message.size();
                EXPECT_EQ(captured.fault.empty(), has_no_message) << size;
            }
        }
}

TEST(CapturedStep, WhatALaterVersionAddsIsPassedOver) {
    std::string record = capture_record(sample_record(KEX_TAP_CALL), call_with_values(ByteOrder::big).bytes(2, 1), 0);
    const size_t head = static_cast<uint8_t>(record[5]);
    record[1] = 9;
    record[5] = static_cast<char>(head + 4);
    record.insert(head, "more");
    const CapturedStep captured = captured_step_read(record, 1);
    ASSERT_TRUE(captured.step);
    EXPECT_EQ(captured.fault, "");
    EXPECT_EQ(captured.step->function, "create");
}

TEST(CapturedStep, MessageOfAnotherVersionOfTheBusIsNamed) {
    const CapturedStep captured = read(KEX_TAP_CALL, call_with_values(ByteOrder::little).bytes(2, 1, 3));
    ASSERT_TRUE(captured.step);
    EXPECT_EQ(captured.fault, "a message of version 3 of the bus, 2 is known here");
}

TEST(CapturedStep, UnknownKindIsPassedOver) {
    const CapturedStep captured = read(99, "");
    EXPECT_FALSE(captured.step);
    EXPECT_EQ(captured.fault, "");
}

TEST(CapturedStep, WhatIsNoRecordOrNoMessageIsSaid) {
    EXPECT_EQ(captured_step_read("x", 1).fault, "no record of a capture");
    EXPECT_EQ(read(KEX_TAP_CALL, std::string(40, 'x')).fault, "no message of the bus");
    Message nested(ByteOrder::little);
    nested.text("p").text("f").number(1, 1).argument("a", 13);
    for (int i = 0; i < 100; ++i)
        nested.number(1, 4).number(13, 1);
    EXPECT_EQ(read(KEX_TAP_CALL, nested.number(0, 4).bytes(2, 1)).fault, "lists are nested too deeply");
    Message type(ByteOrder::little);
    type.text("p").text("f").number(1, 1).argument("a", 42);
    EXPECT_EQ(read(KEX_TAP_CALL, type.bytes(2, 1)).fault, "a value of type 42");
    Message longer(ByteOrder::little);
    longer.text("p").text("f").number(0, 1).number(7, 4);
    EXPECT_EQ(read(KEX_TAP_CALL, longer.bytes(2, 1)).fault, "the head says 35 bytes, 35 came, 4 are left");
    EXPECT_EQ(read(KEX_TAP_CALL, "k" + std::string(256 * 1024, '\2')).fault,
              "262145 bytes, a message has 262144 at most");
}

} // namespace
