// SPDX-License-Identifier: MIT
// Each kind of packet is written and read as it always was, on every target; one of the other byte order is refused
// with a sentence that says so.
#include "golden.h"
#include "support/bus_test.h"
#include "value/packet.h"
#include "value/tap_record.h"

#include <cstring>

using namespace support;

namespace {

const char *const kKinds[] = {"hello",   "call",      "one-way-call", "reply", "refused",
                              "waiting", "tap-hello", "tap-record",   "missed"};

class GoldenPacket : public DescriptorTest {
protected:
    GoldenPacket() { memset(room_, 0xA5, sizeof room_); }
    ~GoldenPacket() override {
        bus::parameters_clear(parameters_);
        bus::reply_clear(&reply_);
    }

    std::string written() const {
        EXPECT_EQ(writer_.why, nullptr);
        return {reinterpret_cast<const char *>(writer_.data), writer_.size};
    }
    void argument(const char *name, variant_t value) {
        EXPECT_TRUE(bus::parameters_add(parameters_, name, &value));
        variant_cleanup(&value);
    }
    // Opens a golden packet, which stays in `bytes_`.
    bus::wire::Message opened(const char *name) {
        bytes_ = golden::record(name);
        bus::wire::Message message = {};
        EXPECT_EQ(bus::wire::message_open(bytes_.data(), static_cast<uint32_t>(bytes_.size()), message), nullptr);
        return message;
    }
    // The arguments of a call, each as text.
    static std::vector<std::string> arguments_of(const bus::wire::Message &message) {
        bus::wire::Call call;
        EXPECT_TRUE(bus::wire::call_read(message, call));
        std::vector<std::string> lines = {string_of(call.path), string_of(call.function)};
        int none = -1;
        bus::wire::Descriptors descriptors = {&none, 0};
        for (uint32_t i = 0; i < call.count; i++) {
            variant_t value;
            EXPECT_TRUE(bus::wire::argument_read(message, call.arguments[i], &descriptors, &value));
            lines.push_back(string_of(call.arguments[i].name) + ": " + show(&value));
            variant_cleanup(&value);
        }
        return lines;
    }
    std::vector<std::string> reply_of(const bus::wire::Message &message) {
        EXPECT_TRUE(bus::wire::reply_read(message, nullptr, &reply_));
        std::vector<std::string> lines;
        for (reply_item_t *item = reply_firstItem(&reply_); item != nullptr; item = reply_nextItem(item))
            lines.push_back(reply_item_type(item) == REPLY_ITEM_ERROR
                                ? std::to_string(reply_item_error(item)) + " " + reply_item_errorDescription(item) +
                                      " " + reply_item_errorInfo(item)
                                : show(reply_item_returnValue(item)));
        return lines;
    }
    static std::string string_of(bus::Text text) { return {text.bytes, text.length}; }

    uint8_t room_[1024];
    bus::wire::Writer writer_ = bus::wire::message_begin(room_, sizeof room_);
    bus::Parameters parameters_ = {};
    reply_t reply_ = {};
    std::string bytes_;
};

TEST_F(GoldenPacket, HelloIsWrittenAndRead) {
    bus::wire::hello_write(writer_, "fxs1");
    EXPECT_EQ(written(), golden::record("hello"));
    EXPECT_EQ(string_of(bus::wire::hello_name(opened("hello"))), "fxs1");
}

TEST_F(GoldenPacket, TapHelloIsWrittenAndRead) {
    bus::wire::tap_hello_write(writer_, "voicectl");
    EXPECT_EQ(written(), golden::record("tap-hello"));
    EXPECT_EQ(string_of(bus::wire::hello_name(opened("tap-hello"))), "voicectl");
}

TEST_F(GoldenPacket, CallIsWrittenAndRead) {
    argument("text", text("FXS1"));
    argument("i16", i16(-2));
    argument("i32", i32(-3));
    argument("u16", u16(0x0102));
    argument("u32", u32(0x01020304));
    argument("yes", boolean(true));
    argument("list", list({u32(5), none()}));
    argument("none", none());
    argument("no-fd", descriptor(-1));
    argument("bytes", bytes("abc"));
    argument("empty", bytes(""));
    bus::wire::call_write(writer_, 0x01020304, 0x8001, bus::text_of("fxs1.EndPoint.FXS1"), bus::text_of("create"),
                          parameters_);
    EXPECT_EQ(written(), golden::record("call"));

    const bus::wire::Message message = opened("call");
    EXPECT_EQ(message.serial, 0x01020304u);
    EXPECT_EQ(message.flags, 0x8001u);
    EXPECT_THAT(arguments_of(message),
                testing::ElementsAre("fxs1.EndPoint.FXS1", "create", "text: text \"FXS1\"", "i16: i16 -2",
                                     "i32: i32 -3", "u16: u16 258", "u32: u32 16909060", "yes: true",
                                     "list: list [u32 5, none]", "none: none", "no-fd: fd", "bytes: bytes \"abc\"",
                                     "empty: bytes \"\""));
}

TEST_F(GoldenPacket, OneWayCallIsWrittenAndRead) {
    const uint32_t value = 0x01020304;
    argument("event", bytes(std::string(reinterpret_cast<const char *>(&value), sizeof value)));
    bus::wire::call_write(writer_, 2, 0, bus::text_of("VoiceService.VoiceApplication"), bus::text_of("event"),
                          parameters_);
    bus::wire::call_make_one_way(room_);
    EXPECT_EQ(written(), golden::record("one-way-call"));
    const bus::wire::Message message = opened("one-way-call");
    EXPECT_EQ(message.kind, bus::wire::kOneWayCall);
    EXPECT_EQ(arguments_of(message).size(), 3u);
}

TEST_F(GoldenPacket, ReplyIsWrittenAndRead) {
    bus::reply_append_error(&reply_, 196640, bus::text_of("Missing"), bus::text_of("filedesc"));
    variant_t value = i32(-6);
    bus::wire::reply_write(writer_, bus::wire::kReply, 0x01020304, &reply_, &value);
    EXPECT_EQ(written(), golden::record("reply"));
    bus::reply_clear(&reply_);
    const bus::wire::Message message = opened("reply");
    EXPECT_EQ(message.serial, 0x01020304u);
    EXPECT_THAT(reply_of(message), testing::ElementsAre("196640 Missing filedesc", "i32 -6"));
}

TEST_F(GoldenPacket, MissedIsWrittenAndRead) {
    bus::reply_append_error(&reply_, 0x00010001, bus::text_of("No-such-object"), bus::text_of("x"));
    bus::wire::reply_write(writer_, bus::wire::kMissed, 3, &reply_, nullptr);
    EXPECT_EQ(written(), golden::record("missed"));
    bus::reply_clear(&reply_);
    EXPECT_THAT(reply_of(opened("missed")), testing::ElementsAre("65537 No-such-object x"));
}

TEST_F(GoldenPacket, RefusalIsWrittenAndRead) {
    bus::wire::refusal_write(writer_, "version");
    EXPECT_EQ(written(), golden::record("refused"));
    EXPECT_EQ(string_of(bus::wire::refusal_reason(opened("refused"))), "version");
}

TEST_F(GoldenPacket, WaitingNoticeIsWrittenAndRead) {
    bus::wire::waiting_write(writer_, 0x01020304);
    EXPECT_EQ(written(), golden::record("waiting"));
    EXPECT_EQ(opened("waiting").serial, 0x01020304u);
}

TEST_F(GoldenPacket, TapRecordIsWrittenAndRead) {
    bus::wire::Writer inner = bus::wire::message_begin(room_ + 512, 512);
    bus::wire::waiting_write(inner, 3);
    bus::wire::TapRecord record = {};
    record.kind = KEX_TAP_WAITING;
    record.time = 0x0102030405060708;
    record.from = {40, 2, bus::text_of("fxs1")};
    record.to = {41, 0, bus::text_of("application")};
    record.lost = 5;
    record.text = bus::text_of("why");
    record.message = inner.data;
    record.size = inner.size;
    bus::wire::tap_record_write(writer_, record);
    EXPECT_EQ(written(), golden::record("tap-record"));

    bus::wire::TapRecord back;
    ASSERT_TRUE(bus::wire::tap_record_read(opened("tap-record"), back));
    EXPECT_EQ(back.kind, KEX_TAP_WAITING);
    EXPECT_EQ(back.time, 0x0102030405060708u);
    EXPECT_EQ(back.from.process_id, 40);
    EXPECT_EQ(back.from.connection, 2u);
    EXPECT_EQ(string_of(back.to.name), "application");
    EXPECT_EQ(back.lost, 5u);
    EXPECT_EQ(string_of(back.text), "why");
    EXPECT_EQ(back.size, inner.size);
}

TEST_F(GoldenPacket, PacketOfTwoMessagesIsWrittenAndRead) {
    bus::wire::waiting_write(writer_, 0x01020304);
    std::string both = written();
    writer_ = bus::wire::message_begin(room_, sizeof room_);
    variant_t value = u16(0x0102);
    bus::wire::reply_write(writer_, bus::wire::kReply, 5, &reply_, &value);
    both += written();
    EXPECT_EQ(both, golden::record("packet"));

    const std::string bytes = golden::record("packet");
    bus::wire::Packet packet;
    ASSERT_EQ(bus::wire::packet_validate(bytes.data(), static_cast<uint32_t>(bytes.size()), 0, packet), nullptr);
    ASSERT_EQ(packet.count, 2u);
    EXPECT_EQ(packet.messages[0].kind, bus::wire::kWaiting);
    EXPECT_EQ(packet.messages[0].serial, 0x01020304u);
    EXPECT_EQ(packet.messages[1].serial, 5u);
    EXPECT_THAT(reply_of(packet.messages[1]), testing::ElementsAre("u16 258"));
}

TEST_F(GoldenPacket, EachKindOfTheOtherByteOrderIsRefused) {
    for (const char *kind : kKinds) {
        const std::string packet = golden::record(kind, golden::kOther);
        bus::wire::Message message;
        const char *why = bus::wire::message_open(packet.data(), static_cast<uint32_t>(packet.size()), message);
        EXPECT_STREQ(why, "the byte order differs") << kind;
    }
}

} // namespace
