// SPDX-License-Identifier: MIT
// What a ladder is made of: lanes in their order, rows by time, calls with their answers.
#include "ladder_model.h"

#include <algorithm>
#include <string>

#include "ladder_model_fixture.h"
#include "ladder_rows.h"
#include "pcapng.h"

using namespace voicectl;

namespace {

TEST_F(LadderModelTest, ApplicationStandsInTheMiddleAndEndpointsOutside) {
    register_line();
    register_line(2, "fxs_b", "FXS9", 5);
    event(4, 2000);
    event(5, 2001, 2);
    const LadderModel ladder = feed.finish("x");
    EXPECT_EQ(lanes(ladder), "FXS1 fxs_a voice_application fxs_b FXS9");
    EXPECT_EQ(ladder.lanes[0].kind, Lane::Kind::endpoint);
    EXPECT_EQ(ladder.lanes[0].owner, 1);
    EXPECT_EQ(ladder.lanes[2].kind, Lane::Kind::application);
    EXPECT_EQ(ladder.lanes[4].owner, 3);
}

TEST_F(LadderModelTest, EventGoesFromItsEndpointThroughThePlugin) {
    register_line();
    event(4, 2000);
    const LadderModel ladder = feed.finish("x");
    const LadderRow &row = ladder.rows.back();
    EXPECT_EQ(row.kind, Kind::event);
    EXPECT_EQ(lane(ladder, row.from), "FXS1");
    EXPECT_EQ(lane(ladder, row.via), "fxs_a");
    EXPECT_EQ(lane(ladder, row.to), "voice_application");
    EXPECT_EQ(row.name, "al_of");
    EXPECT_EQ(row.meaning, "off hook");
}

TEST_F(LadderModelTest, NameThatIsLearntLaterHoldsForAllThatWasBefore) {
    event(4, 1000); // its registration was not seen
    take(Sample(KEX_TAP_ONE_WAY_CALL, kOut, 1, "fxs_plugin", 1001)
             .call(1, "fxs_a.EndPoint.FXS1", "signal")
             .with_bytes("signal", signal_bytes(4, LIBVOICE_SIGNAL_cg_dt)));
    const LadderModel ladder = feed.finish("x");
    EXPECT_EQ(lanes(ladder), "FXS1 fxs_a voice_application");
    EXPECT_EQ(ladder.rows[0].from, ladder.rows[1].to);
}

// A record of 96 KiB has room for 12,000 items, each of which takes many times its bytes here.
TEST_F(LadderModelTest, RowHas300ParametersAtMostAndSaysThatThereAreMore) {
    Step step{.kind = Step::Kind::one_way_call};
    step.record = Record{.kind = RecordKind::event, .identifier = LIBVOICE_EVENT_al_of, .fault = "cut off"};
    step.record->items.resize(10'000, {.id = 1, .name = "????"});
    const LadderRow row = ladder_row(step);
    ASSERT_EQ(row.parameters.size(), 302u);
    EXPECT_EQ(row.parameters[300].words, "further ones are left out");
    EXPECT_EQ(row.parameters[301].name, "broken");
}

TEST_F(LadderModelTest, CallsAndAnswersKnowEachOther) {
    register_line();
    const LadderModel ladder = feed.finish("x");
    ASSERT_EQ(ladder.rows.size(), 4u);
    EXPECT_EQ(ladder.rows[0].partner, 1);
    EXPECT_EQ(ladder.rows[1].partner, 0);
    EXPECT_EQ(ladder.rows[3].partner, 2);
    EXPECT_EQ(ladder.elapsed_ns(ladder.rows[3]), 1'000'000u);
    EXPECT_EQ(ladder.rows[3].name, "4");
    EXPECT_FALSE(ladder.is_unanswered(ladder.rows[0]));
}

TEST_F(LadderModelTest, AnswersThatSayNoAreErrors) {
    take(Sample(KEX_TAP_CALL, kOut, 1, "fxs_plugin", 1).call(1, "fxs_a.EndPoint.FXS1", "create"));
    take(Sample(KEX_TAP_REPLY, kIn, 1, "fxs_plugin", 2)
             .serial(1)
             .with_bool("", false)
             .with_error(196640, "Missing", "filedesc"));
    take(Sample(KEX_TAP_CALL, kOut, 1, "fxs_plugin", 3).call(2, "fxs_a.EndPoint.FXS1", "create"));
    take(Sample(KEX_TAP_REPLY, kIn, 1, "fxs_plugin", 4).serial(2).with_bool("", false));
    const LadderModel ladder = feed.finish("x");
    EXPECT_EQ(ladder.rows[1].kind, Kind::error);
    EXPECT_EQ(ladder.rows[1].name, "error 196640");
    EXPECT_EQ(ladder.rows[1].words, "answers create  Missing filedesc");
    EXPECT_EQ(ladder.rows[3].kind, Kind::error);
    EXPECT_EQ(ladder.rows[3].name, "false");
}

TEST_F(LadderModelTest, WhatCannotBeReadStandsAtTheListener) {
    register_line();
    feed.take(CapturedPacket{.time_ns = 1'500'000'000, .dissector = "kexbus", .bytes = "?"});
    const LadderModel ladder = feed.finish("x");
    EXPECT_EQ(ladder.rows.back().kind, Kind::broken);
    EXPECT_EQ(lane(ladder, ladder.rows.back().from), "voice_application");
    EXPECT_EQ(lanes(ladder), "fxs_a voice_application");
}

TEST_F(LadderModelTest, LostCopiesStandWhereTheyAreMissing) {
    register_line();
    take(Sample(KEX_TAP_LOST, kIn, 0, "", 1500).lost(7));
    const LadderModel ladder = feed.finish("x");
    EXPECT_EQ(ladder.rows.back().kind, Kind::lost);
    EXPECT_EQ(ladder.rows.back().words, "7 messages are missing here");
    EXPECT_EQ(lane(ladder, ladder.rows.back().from), "voice_application");
    EXPECT_EQ(ladder.lost, 7u);
}

TEST_F(LadderModelTest, EndsAndRefusalsSayWhy) {
    take(Sample(KEX_TAP_CONNECTED, kIn, 1, "fxs_plugin", 1).text(""));
    take(Sample(KEX_TAP_CLOSED, kIn, 1, "fxs_plugin", 2).text("it has ended"));
    take(Sample(KEX_TAP_REFUSED, kOut, 2, "", 3).text("another version"));
    const LadderModel ladder = feed.finish("x");
    EXPECT_EQ(ladder.rows[0].name, "connected");
    EXPECT_EQ(ladder.rows[0].words, "process 1001");
    EXPECT_EQ(ladder.rows[1].name, "closed");
    EXPECT_EQ(ladder.rows[1].words, "it has ended");
    EXPECT_EQ(ladder.rows[2].name, "refused");
    EXPECT_EQ(ladder.rows[2].words, "another version");
    EXPECT_EQ(lane(ladder, ladder.rows[2].to), "process 1002");
}

TEST_F(LadderModelTest, CallerDisplayIsDecodedBesideItsBytes) {
    Bytes parameters;
    add_text(parameters, LIBVOICE_PARAM_andisp_dwa_ddb, kCallerBlock);
    add_text(parameters, LIBVOICE_PARAM_andisp_dwa_ddb, "80FF");
    take(Sample(KEX_TAP_ONE_WAY_CALL, kOut, 1, "fxs_plugin", 1)
             .call(1, "fxs_a.EndPoint.FXS1", "signal")
             .with_bytes("signal", signal_bytes(4, LIBVOICE_SIGNAL_andisp_dwa, parameters)));
    const LadderModel ladder = feed.finish("x");
    const std::vector<LadderParameter> &shown = ladder.rows[0].parameters;
    ASSERT_GE(shown.size(), 2u);
    const LadderParameter &good = shown[shown.size() - 2], &bad = shown.back();
    EXPECT_EQ(good.name, "andisp_dwa_ddb");
    EXPECT_EQ(good.value, kCallerBlock);
    EXPECT_EQ(good.words, "shows 101 \"FXS1\" at 11-21 11:38 for 102, checksum right");
    EXPECT_EQ(bad.words.substr(0, 21), "shows bad data block,");
}

TEST_F(LadderModelTest, SoundStandsAmongTheMessagesByTime) {
    register_line();
    const std::string packet =
        std::string("\x80\x08\x00\x01\x00\x00\x00\x00\x00\x00\x12\x34", 12) + std::string(160, '\0');
    for (const uint64_t time_ms : {1002, 3000})
        feed.take(CapturedPacket{.time_ns = time_ms * 1'000'000,
                                 .dissector = "rtp",
                                 .source_port = 30000,
                                 .bytes = packet,
                                 .comment = "FXS1"});
    event(4, 2000);
    const LadderModel ladder = feed.finish("x");
    EXPECT_EQ(lane(ladder, static_cast<int>(ladder.lanes.size()) - 1), "RTP");
    EXPECT_EQ(ladder.rows.back().kind, Kind::sound_ends);
    const auto begin = static_cast<size_t>(ladder.rows.back().partner);
    EXPECT_EQ(ladder.rows[begin].kind, Kind::sound_begins);
    EXPECT_EQ(ladder.rows[begin].meaning, "sound begins, FXS1");
    EXPECT_EQ(ladder.rows.back().meaning, "sound ends, FXS1");
    EXPECT_EQ(ladder.rows[begin].partner, static_cast<int>(ladder.rows.size()) - 1);
    EXPECT_EQ(ladder.rows[1].partner, 0) << "calls and answers have moved together";
    EXPECT_TRUE(std::is_sorted(ladder.rows.begin(), ladder.rows.end(),
                               [](const LadderRow &a, const LadderRow &b) { return a.time_ns < b.time_ns; }));
}

TEST_F(LadderModelTest, PluginThatComesBackHasTheLaneThatItHad) {
    register_line();
    take(Sample(KEX_TAP_CLOSED, kIn, 1, "fxs_plugin", 1500).text("it has ended"));
    register_line(2);
    EXPECT_EQ(lanes(feed.finish("x")), "fxs_a voice_application");
}

TEST_F(LadderModelTest, BeyondSoManyLanesProcessesShareOne) {
    for (uint32_t connection = 1; connection < 300; ++connection)
        take(Sample(KEX_TAP_CONNECTED, kIn, connection, ("p" + std::to_string(connection)).c_str(), connection)
                 .text(""));
    const LadderModel ladder = feed.finish("x");
    EXPECT_LE(ladder.lanes.size(), kMostLadderLanes);
    EXPECT_EQ(lane(ladder, ladder.rows.back().from), "others");
}

TEST_F(LadderModelTest, BeyondSoManyLanesEndpointsShareThatOfTheirPlugin) {
    for (uint32_t i = 0; i < 300; ++i)
        take(Sample(KEX_TAP_CALL, kOut, 1, "fxs_plugin", i)
                 .call(i, ("fxs_a.EndPoint.E" + std::to_string(i)).c_str(), "create"));
    const LadderModel ladder = feed.finish("x");
    EXPECT_LE(ladder.lanes.size(), kMostLadderLanes);
    EXPECT_EQ(lane(ladder, ladder.rows.back().to), "fxs_a");
}

TEST(LadderBuilder, BeyondSoManyRowsMessagesAreCountedOnly) {
    constexpr size_t kRows = 10;
    LadderFeed feed(Filter(), {.rows = kRows});
    Sample sample(KEX_TAP_CONNECTED, kIn, 1, "p", 1);
    sample.text("");
    for (size_t i = 0; i < kRows + 5; ++i)
        feed.take(sample.record());
    const LadderModel ladder = feed.finish("x");
    EXPECT_EQ(ladder.rows.size(), kRows);
    EXPECT_EQ(ladder.left_out, 5u);
    EXPECT_EQ(kMostLadderRows, 200'000u) << "that of the program, as its page says";
}

TEST(LadderBuilder, BeyondSoManyBytesMessagesAreCountedOnly) {
    constexpr size_t kBytes = 100'000, kText = 4000;
    LadderFeed feed(Filter(), {.bytes = kBytes});
    for (uint32_t i = 0; i < 100; ++i)
        feed.take(Sample(KEX_TAP_CALL, kIn, 1, "p", i).call(i, "a.b", std::string(kText, 'f').c_str()).record());
    const LadderModel ladder = feed.finish("x");
    EXPECT_GE(ladder.rows.size(), kBytes / (3 * kText)) << "the name stands in a row at most so often";
    EXPECT_LE(ladder.rows.size(), kBytes / kText + 1);
    EXPECT_EQ(ladder.left_out, 100 - ladder.rows.size());
    EXPECT_EQ(kMostLadderBytes, 512u << 20) << "that of the program, as its page says";
}

TEST(LadderBuilder, NamesOfTheEndsCountAmongTheBytes) {
    constexpr size_t kBytes = 100'000, kName = 255;
    const std::string name(kName, 'n');
    LadderFeed feed(Filter(), {.bytes = kBytes});
    for (uint32_t i = 1; i <= 200; ++i)
        feed.take(
            Sample(KEX_TAP_CALL, kIn, i, "p", i).call(i, "a.b", "f").with_text("plugin_name", name.c_str()).record());
    const LadderModel ladder = feed.finish("x");
    // In each row the argument; of its process the name.
    EXPECT_LE(ladder.rows.size(), kBytes / (2 * kName + sizeof(LadderRow)) + 1);
    EXPECT_GT(ladder.left_out, 0u);
}

TEST(TextTame, CombiningCharactersAndLengthCoverNothing) {
    EXPECT_EQ(text_tame("e\xCC\x81"), "e\xCC\x81");
    std::string pile = "e";
    for (int i = 0; i < 10'000; ++i)
        pile += "\xCC\x81";
    const std::string tame = text_tame(pile);
    EXPECT_EQ(tame.substr(0, 15), "e\xCC\x81\xCC\x81\xCC\x81\\xCC\\x81");
    EXPECT_LT(tame.size(), 4200u);
    EXPECT_EQ(text_tame(std::string(5000, 'x')), std::string(4096, 'x') + "...");
    EXPECT_EQ(text_tame("\xEF\xBF\xBE"), "\\xEF\\xBF\\xBE") << "no character of XML";
}

} // namespace
