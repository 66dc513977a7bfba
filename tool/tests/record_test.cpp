// SPDX-License-Identifier: MIT
// Records taken apart, whole and broken.
#include "record.h"

#include <gtest/gtest.h>

#include "libvoice_plugin.h"
#include "samples.h"

namespace voicectl {

namespace {

TEST(Record, EventWithoutParameters) {
    const Record record = read_record(RecordKind::event, event_bytes(3, LIBVOICE_EVENT_al_of));
    EXPECT_EQ(record.endpoint, 3);
    ASSERT_TRUE(record.identifier);
    EXPECT_EQ(*record.identifier, LIBVOICE_EVENT_al_of);
    EXPECT_TRUE(record.items.empty());
    EXPECT_EQ(record.fault, "");
}

TEST(Record, ValuesAreWrittenAsTheDumpWritesThem) {
    Bytes parameters;
    add_word(parameters, LIBVOICE_PARAM_al_of_init, 1);
    add_text(parameters, LIBVOICE_PARAM_zil_country, "FR");
    add_word(parameters, LIBVOICE_PARAM_al_ri_freq, static_cast<uint32_t>(-25));
    add_word(parameters, LIBVOICE_PARAM_al_ri_cad, 1000);
    const Record record = read_record(RecordKind::param_set, set_bytes(parameters));
    ASSERT_EQ(record.items.size(), 4u);
    EXPECT_EQ(record.items[0].name, "LIBVOICE_PARAM_al_of_init");
    EXPECT_EQ(record.items[0].value, "true");
    EXPECT_EQ(record.items[1].value, "FR");
    EXPECT_EQ(record.items[2].value, "-25");
    EXPECT_EQ(record.items[3].value, "0x000003e8");
}

TEST(Record, TextWithBlanksStaysWhole) {
    Bytes parameters;
    add_text(parameters, LIBVOICE_PARAM_g_cause_failurecause, "no such codec ");
    const Record record = read_record(RecordKind::event, event_bytes(0, LIBVOICE_EVENT_g_cause, parameters));
    ASSERT_EQ(record.items.size(), 1u);
    EXPECT_EQ(record.items[0].value, "no such codec ");
}

TEST(Record, SignalAsAnItemHasNoValue) {
    Bytes parameters;
    add_item(parameters, LIBVOICE_SIGNAL_cg_rt, {});
    const Record record = read_record(RecordKind::signal, signal_bytes(1, LIBVOICE_SIGNAL_cg_rt, parameters));
    ASSERT_EQ(record.items.size(), 1u);
    EXPECT_EQ(record.items[0].name, "LIBVOICE_SIGNAL_cg_rt");
    EXPECT_EQ(record.items[0].value, "");
}

TEST(Record, SignalThatStops) {
    EXPECT_TRUE(read_record(RecordKind::signal, signal_bytes(1, LIBVOICE_SIGNAL_al_ri, {}, 1)).stops);
    EXPECT_FALSE(read_record(RecordKind::signal, signal_bytes(1, LIBVOICE_SIGNAL_al_ri, {}, 2)).stops);
}

TEST(Record, MediaDescriptions) {
    Bytes parameters;
    add_word(parameters, LIBVOICE_PARAM_sdp_stream_mode, 3);
    Bytes connection;
    append_word(connection, 1); // version
    append_word(connection, static_cast<uint32_t>(parameters.size()));
    connection.insert(connection.end(), parameters.begin(), parameters.end());
    connection.resize(704);
    Bytes stream;
    append_word(stream, 5); // stream
    append_word(stream, 3); // mode
    stream.insert(stream.end(), connection.begin(), connection.end());
    for (const Record &record :
         {read_record(RecordKind::connection, connection), read_record(RecordKind::stream, stream)}) {
        ASSERT_EQ(record.items.size(), 1u);
        EXPECT_EQ(record.items[0].name, "LIBVOICE_PARAM_sdp_stream_mode");
        EXPECT_EQ(record.items[0].value, "3");
        EXPECT_EQ(record.fault, "");
    }
}

TEST(Record, UnknownIdentifierHasNoName) {
    Bytes parameters;
    add_word(parameters, 0x11FFFF01, 1);
    const Record record = read_record(RecordKind::param_set, set_bytes(parameters));
    ASSERT_EQ(record.items.size(), 1u);
    EXPECT_EQ(record.items[0].name, "????");
}

TEST(Record, HeadOfAnotherHostIsNotReadAsAnIdentifier) {
    // A signal's number in an event's head, and a number that is in no table, are the hosts' own words.
    EXPECT_FALSE(read_record(RecordKind::event, event_bytes(0, LIBVOICE_SIGNAL_cg_dt)).identifier);
    EXPECT_FALSE(read_record(RecordKind::event, event_bytes(0, 0x20FFFF00)).identifier);
}

TEST(Record, ShorterThanItsHead) {
    const Record record = read_record(RecordKind::event, Bytes(19, 0));
    EXPECT_EQ(record.endpoint, -1);
    EXPECT_EQ(record.fault, "19 bytes, the head alone has 20");
}

TEST(Record, NoBytesAtAll) {
    EXPECT_EQ(read_record(RecordKind::signal, {}).fault, "0 bytes, the head alone has 28");
}

TEST(Record, LengthWordBeyondWhatArrived) {
    Bytes bytes = event_bytes(2, LIBVOICE_EVENT_al_on);
    put_word(bytes, 16, 0xFFFFFFFF);
    EXPECT_EQ(read_record(RecordKind::event, bytes).fault, "4294967295 bytes of parameters announced, 0 arrived");
}

TEST(Record, ItemCutOffByTheEnd) {
    Bytes parameters;
    add_word(parameters, LIBVOICE_PARAM_al_of_init, 1);
    put_word(parameters, 4, 0xFFFFFFFE);
    const Record record = read_record(RecordKind::event, event_bytes(2, LIBVOICE_EVENT_al_of, parameters));
    EXPECT_TRUE(record.items.empty());
    EXPECT_EQ(record.fault, "item 0x24090502 says 4294967294 bytes, 4 are left");
}

TEST(Record, TailShorterThanAnItemsHead) {
    Bytes parameters;
    add_word(parameters, LIBVOICE_PARAM_al_of_init, 0);
    parameters.resize(parameters.size() + 7);
    const Record record = read_record(RecordKind::event, event_bytes(2, LIBVOICE_EVENT_al_of, parameters));
    ASSERT_EQ(record.items.size(), 1u);
    EXPECT_EQ(record.items[0].value, "false");
    EXPECT_EQ(record.fault, "7 bytes left where an item's head should be");
}

TEST(Record, EveryPrefixOfARecordIsReadSafely) {
    Bytes parameters;
    add_text(parameters, LIBVOICE_PARAM_zil_country, "DE");
    add_word(parameters, LIBVOICE_PARAM_al_ri_cad, 1000);
    const Bytes whole = signal_bytes(1, LIBVOICE_SIGNAL_al_ri, parameters);
    for (size_t size = 0; size < whole.size(); ++size)
        EXPECT_NE(
            read_record(RecordKind::signal, Bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size))).fault,
            "")
            << size << " bytes";
    EXPECT_EQ(read_record(RecordKind::signal, whole).fault, "");
}

TEST(Vocabulary, ShortMeanings) {
    EXPECT_EQ(short_meaning(LIBVOICE_EVENT_al_of), "off hook");
    EXPECT_EQ(short_meaning(0), "");
    EXPECT_EQ(short_meaning(0xFFFFFFFF), "");
}

TEST(Vocabulary, PackageOfAName) {
    EXPECT_EQ(package_of("LIBVOICE_EVENT_al_of"), "al");
    EXPECT_EQ(package_of("LIBVOICE_PARAM_zil_call_stats_MOSLQ"), "zil");
    EXPECT_EQ(package_of("????"), "");
    EXPECT_EQ(package_of("sig_nil"), "");
}

} // namespace

} // namespace voicectl
