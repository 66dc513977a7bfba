// SPDX-License-Identifier: MIT
// A tap's record read as a step: who, which way, what values, which record a call carries.
#include "step.h"

#include <gtest/gtest.h>

#include "libvoice_plugin.h"
#include "samples.h"

namespace voicectl {

namespace {

constexpr auto in = Sample::Direction::in;
constexpr auto out = Sample::Direction::out;

Step read(Sample &sample) {
    const std::optional<Step> step = step_read(sample.record());
    EXPECT_TRUE(step);
    return step.value_or(Step{});
}

TEST(Step, PeerIsTheEndThatIsNotTheListener) {
    for (const auto direction : {in, out}) {
        Sample sample(KEX_TAP_CALL, direction, 7, "fxs_plugin", 3);
        const Step step = read(sample.call(5, "fxs_a", "init"));
        EXPECT_EQ(step.towards_listener, direction == in);
        EXPECT_EQ(step.peer.connection, 7u);
        EXPECT_EQ(step.peer.process_id, 1007);
        EXPECT_EQ(step.peer.process, "fxs_plugin");
        EXPECT_EQ(step.peer.plugin, "") << "a record does not say it";
        EXPECT_EQ(step.listener, "voice_application");
        EXPECT_EQ(step.listener_process_id, 1000);
        EXPECT_EQ(step.time_ns, 3'000'000u);
        EXPECT_EQ(step.serial, 5u);
    }
}

TEST(Step, ArgumentsOfACallByTheirTypes) {
    Sample sample(KEX_TAP_ONE_WAY_CALL, in, 1, "x");
    const Step step = read(sample.call(1, "VoiceService.VoiceApplication", "f")
                               .with_text("text", "DE")
                               .with_uint32("number", 0xFFFFFFFF)
                               .with_int16("negative", -1)
                               .with_bool("yes", true)
                               .with_bytes("bytes", {1, 2})
                               .with_descriptors("sockets", {7, -1}));
    ASSERT_EQ(step.arguments.size(), 6u);
    EXPECT_EQ(step_text_argument(step, "text"), "DE");
    EXPECT_EQ(step_argument(step, "number")->number, 0xFFFFFFFF);
    EXPECT_EQ(step_argument(step, "negative")->number, -1);
    EXPECT_EQ(step_argument(step, "yes")->type, Value::Type::boolean);
    EXPECT_EQ(step_argument(step, "bytes")->bytes, (Bytes{1, 2}));
    ASSERT_EQ(step_argument(step, "sockets")->list.size(), 2u);
    EXPECT_EQ(step_argument(step, "sockets")->list[1].number, -1);
    EXPECT_EQ(step_argument(step, "none"), nullptr);
    EXPECT_EQ(step_text_argument(step, "none"), "");
    EXPECT_EQ(step_text_argument(step, "number"), "");
}

TEST(Step, RecordOfACallIsTakenApart) {
    Sample sample(KEX_TAP_ONE_WAY_CALL, in, 1, "x");
    const Step step = read(sample.call(1, "VoiceService.VoiceApplication", "event")
                               .with_bytes("event", event_bytes(4, LIBVOICE_EVENT_al_of)));
    ASSERT_TRUE(step.record);
    EXPECT_EQ(step.record->kind, RecordKind::event);
    EXPECT_EQ(step.record->endpoint, 4);
    EXPECT_EQ(step.record_argument, "event");
}

TEST(Step, TextInPlaceOfARecordIsNone) {
    Sample sample(KEX_TAP_CALL, in, 1, "x");
    EXPECT_FALSE(read(sample.call(1, "a", "event").with_text("event", "off hook")).record);
}

TEST(Step, ReplyHasAResultAndErrorsButNoArguments) {
    Sample sample(KEX_TAP_REPLY, out, 1, "x");
    const Step step = read(sample.serial(9).with_error(5, "d", "i").with_bool("", false));
    EXPECT_TRUE(step.arguments.empty());
    EXPECT_EQ(step.result.type, Value::Type::boolean);
    ASSERT_EQ(step.errors.size(), 1u);
    EXPECT_EQ(step.errors[0].description, "d");
}

TEST(Step, NameThatFillsItsRoomIsWhole) {
    Sample sample(KEX_TAP_CONNECTED, in, 1, "x");
    kex_tap_record_t record = sample.record();
    memset(record.from.name, 'n', sizeof record.from.name);
    EXPECT_EQ(step_read(record)->peer.process, std::string(sizeof record.from.name, 'n'));
}

TEST(Step, KindThatIsNotKnownIsNone) {
    Sample sample(99, in, 1, "x");
    EXPECT_FALSE(step_read(sample.record()));
}

} // namespace

} // namespace voicectl
