// SPDX-License-Identifier: MIT
// Records taken apart, whole and broken.
#include "record.h"

#include <gtest/gtest.h>

#include "libvoice_plugin.h"
#include "samples.h"

namespace voicectl {

namespace {

TEST(Record, EventWithoutParameters) {
    const Record record = record_read(RecordKind::event, event_bytes(3, LIBVOICE_EVENT_al_of));
    EXPECT_EQ(record.endpoint, 3);
    ASSERT_TRUE(record.identifier);
    EXPECT_EQ(*record.identifier, LIBVOICE_EVENT_al_of);
    EXPECT_TRUE(record.items.empty());
    EXPECT_EQ(record.fault, "");
}

TEST(Record, ValuesAreReadByTheirTypes) {
    Bytes cadence;
    append_word(cadence, 1000);
    append_word(cadence, 4000);
    Bytes parameters;
    add_word(parameters, LIBVOICE_PARAM_al_of_init, 2);
    add_text(parameters, LIBVOICE_PARAM_zil_country, "FR");
    add_word(parameters, LIBVOICE_PARAM_al_ri_freq, static_cast<uint32_t>(-25));
    add_item(parameters, LIBVOICE_PARAM_al_ri_cad, cadence);
    add_item(parameters, LIBVOICE_PARAM_zil_fxs_power, {1, 2, 3});
    const Record record = record_read(RecordKind::param_set, set_bytes(parameters));
    ASSERT_EQ(record.items.size(), 5u);
    EXPECT_EQ(record.items[0].name, "LIBVOICE_PARAM_al_of_init");
    EXPECT_EQ(record.items[0].value.type, Value::Type::boolean);
    EXPECT_EQ(record.items[0].value.number, 1);
    EXPECT_EQ(record.items[1].value.type, Value::Type::text);
    EXPECT_EQ(record.items[1].value.text, "FR");
    EXPECT_EQ(record.items[2].value.type, Value::Type::number);
    EXPECT_EQ(record.items[2].value.number, -25);
    ASSERT_EQ(record.items[3].value.type, Value::Type::list);
    ASSERT_EQ(record.items[3].value.list.size(), 2u);
    EXPECT_EQ(record.items[3].value.list[1].number, 4000);
    EXPECT_EQ(record.items[4].value.type, Value::Type::bytes);
    EXPECT_EQ(record.items[4].bytes, (Bytes{1, 2, 3}));
}

TEST(Record, ItemWithoutAValueIsEmptyAndNotZero) {
    Bytes parameters;
    for (const uint32_t id : {LIBVOICE_PARAM_tdmc_gain, LIBVOICE_PARAM_zil_country, LIBVOICE_PARAM_al_ri_cad,
                              LIBVOICE_PARAM_al_of_init, LIBVOICE_EVENT_al_of})
        add_item(parameters, id, {});
    const Record record = record_read(RecordKind::param_set, set_bytes(parameters));
    ASSERT_EQ(record.items.size(), 5u);
    for (const Item &item : record.items) {
        EXPECT_EQ(item.value.type, Value::Type::none) << item.name;
        EXPECT_TRUE(item.bytes.empty()) << item.name;
    }
}

TEST(Record, BytesThatDoNotFitTheTypeStayBytes) {
    Bytes parameters;
    add_item(parameters, LIBVOICE_PARAM_tdmc_gain, {1, 2, 3});
    add_item(parameters, LIBVOICE_PARAM_al_of_init, {1});
    add_item(parameters, LIBVOICE_PARAM_al_ri_cad, {1, 2, 3, 4, 5});
    add_item(parameters, LIBVOICE_EVENT_al_of, {7});
    const Record record = record_read(RecordKind::param_set, set_bytes(parameters));
    ASSERT_EQ(record.items.size(), 4u);
    for (const Item &item : record.items) {
        EXPECT_EQ(item.value.type, Value::Type::bytes) << item.name;
        EXPECT_EQ(item.value.bytes, item.bytes) << item.name;
    }
}

TEST(Record, TextEndsAtItsTerminatorOrWithItsItem) {
    Bytes parameters;
    add_item(parameters, LIBVOICE_PARAM_zil_country, {'D', 'E', 0, 'x'});
    add_item(parameters, LIBVOICE_PARAM_zil_country, {'D', 'E'});
    const Record record = record_read(RecordKind::param_set, set_bytes(parameters));
    ASSERT_EQ(record.items.size(), 2u);
    for (const Item &item : record.items)
        EXPECT_EQ(item.value.text, "DE");
}

TEST(Record, TextWithBlanksStaysWhole) {
    Bytes parameters;
    add_text(parameters, LIBVOICE_PARAM_g_cause_failurecause, "no such codec ");
    const Record record = record_read(RecordKind::event, event_bytes(0, LIBVOICE_EVENT_g_cause, parameters));
    ASSERT_EQ(record.items.size(), 1u);
    EXPECT_EQ(record.items[0].value.text, "no such codec ");
}

TEST(Record, SignalAsAnItemHasNoValue) {
    Bytes parameters;
    add_item(parameters, LIBVOICE_SIGNAL_cg_rt, {});
    const Record record = record_read(RecordKind::signal, signal_bytes(1, LIBVOICE_SIGNAL_cg_rt, parameters));
    ASSERT_EQ(record.items.size(), 1u);
    EXPECT_EQ(record.items[0].name, "LIBVOICE_SIGNAL_cg_rt");
    EXPECT_EQ(record.items[0].value.type, Value::Type::none);
}

TEST(Record, SignalThatStops) {
    EXPECT_TRUE(record_read(RecordKind::signal, signal_bytes(1, LIBVOICE_SIGNAL_al_ri, {}, 1)).stops);
    EXPECT_FALSE(record_read(RecordKind::signal, signal_bytes(1, LIBVOICE_SIGNAL_al_ri, {}, 2)).stops);
}

TEST(Record, MediaDescriptionsAreReadBehindTheirOwnHeads) {
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
         {record_read(RecordKind::connection, connection), record_read(RecordKind::stream, stream)}) {
        ASSERT_EQ(record.items.size(), 1u);
        EXPECT_EQ(record.items[0].name, "LIBVOICE_PARAM_sdp_stream_mode");
        EXPECT_EQ(record.items[0].value.number, 3);
        EXPECT_EQ(record.stream.has_value(), record.kind == RecordKind::stream);
        EXPECT_EQ(record.fault, "");
    }
}

TEST(Record, UnknownIdentifierHasNoName) {
    Bytes parameters;
    add_word(parameters, 0x11FFFF01, 1);
    const Record record = record_read(RecordKind::param_set, set_bytes(parameters));
    ASSERT_EQ(record.items.size(), 1u);
    EXPECT_EQ(record.items[0].name, "????");
}

TEST(Record, HeadOfAnotherHostIsNotReadAsAnIdentifier) {
    // A signal's number in an event's head, and a number that is in no table, are the hosts' own words.
    EXPECT_FALSE(record_read(RecordKind::event, event_bytes(0, LIBVOICE_SIGNAL_cg_dt)).identifier);
    EXPECT_FALSE(record_read(RecordKind::event, event_bytes(0, 0x20FFFF00)).identifier);
}

TEST(Record, ShorterThanItsHead) {
    const Record record = record_read(RecordKind::event, Bytes(19, 0));
    EXPECT_EQ(record.endpoint, -1);
    EXPECT_EQ(record.fault, "19 bytes, the head alone has 20");
}

TEST(Record, NoBytesAtAll) {
    EXPECT_EQ(record_read(RecordKind::signal, {}).fault, "0 bytes, the head alone has 28");
}

TEST(Record, LengthWordBeyondWhatArrived) {
    Bytes bytes = event_bytes(2, LIBVOICE_EVENT_al_on);
    put_word(bytes, 16, 0xFFFFFFFF);
    EXPECT_EQ(record_read(RecordKind::event, bytes).fault, "4294967295 bytes of parameters announced, 0 arrived");
}

TEST(Record, ItemCutOffByTheEnd) {
    Bytes parameters;
    add_word(parameters, LIBVOICE_PARAM_al_of_init, 1);
    put_word(parameters, 4, 0xFFFFFFFE);
    const Record record = record_read(RecordKind::event, event_bytes(2, LIBVOICE_EVENT_al_of, parameters));
    EXPECT_TRUE(record.items.empty());
    EXPECT_EQ(record.fault, "item 0x24090502 says 4294967294 bytes, 4 are left");
}

TEST(Record, TailShorterThanAnItemsHead) {
    Bytes parameters;
    add_word(parameters, LIBVOICE_PARAM_al_of_init, 0);
    parameters.resize(parameters.size() + 7);
    const Record record = record_read(RecordKind::event, event_bytes(2, LIBVOICE_EVENT_al_of, parameters));
    ASSERT_EQ(record.items.size(), 1u);
    EXPECT_EQ(record.items[0].value.number, 0);
    EXPECT_EQ(record.fault, "7 bytes left where an item's head should be");
}

TEST(Record, EveryPrefixOfARecordIsReadSafely) {
    Bytes parameters;
    add_text(parameters, LIBVOICE_PARAM_zil_country, "DE");
    add_word(parameters, LIBVOICE_PARAM_al_ri_cad, 1000);
    const Bytes whole = signal_bytes(1, LIBVOICE_SIGNAL_al_ri, parameters);
    for (size_t size = 0; size < whole.size(); ++size)
        EXPECT_NE(
            record_read(RecordKind::signal, Bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size))).fault,
            "")
            << size << " bytes";
    EXPECT_EQ(record_read(RecordKind::signal, whole).fault, "");
}

TEST(Vocabulary, ShortMeaningOfAStrangerIsEmpty) {
    EXPECT_EQ(short_meaning(LIBVOICE_EVENT_al_of), "off hook");
    EXPECT_EQ(short_meaning(0), "");
    EXPECT_EQ(short_meaning(0xFFFFFFFF), "");
}

TEST(Record, CodecListIsReadInWholeRecords) {
    Bytes bytes;
    for (const uint32_t word : {8u, 8u, 7u, 64000u, 9u, 9u, 2u, 64000u})
        append_word(bytes, word);
    const std::vector<voice_codec_t> codecs = codec_list_read(bytes);
    ASSERT_EQ(codecs.size(), 2u);
    EXPECT_EQ(codecs[1].codec, 9u);
    EXPECT_EQ(codecs[1].ptime_mask, 2u);
    bytes.pop_back();
    EXPECT_TRUE(codec_list_read(bytes).empty());
    EXPECT_TRUE(codec_list_read({}).empty());
}

TEST(Vocabulary, PackageOfAName) {
    EXPECT_EQ(package_of("LIBVOICE_EVENT_al_of"), "al");
    EXPECT_EQ(package_of("LIBVOICE_PARAM_zil_call_stats_MOSLQ"), "zil");
    EXPECT_EQ(package_of("????"), "");
    EXPECT_EQ(package_of("sig_nil"), "");
}

} // namespace

} // namespace voicectl
