// SPDX-License-Identifier: MIT
// What the record helpers write, byte for byte, and what the readers believe.
#include "voice_records.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>

#include "records.h"
#include "voice_fake/gtest.h"
#include "voice_fake/memory.h"

namespace {

using fake::bus;
using fake::Value;
using records::Buffer;
using records::integer;
using records::item;
using records::text;
using records::words;

// A plugin that is connected, or an application with one endpoint.
class Records : public fake::BusTest {
protected:
    void SetUp() override {
        libvoice_set_kex_handler(bus().handle());
        libvoice_set_pluginname("tel");
        libvoice_set_kex_peer_handler(bus().peer("application"));
        memset(endpt_table, 0, sizeof endpt_table);
        libvoice_plugin_init_table();
        bus().clear_log();
    }
    void TearDown() override {
        memset(endpt_table, 0, sizeof endpt_table);
        libvoice_plugin_init_table();
        BusTest::TearDown();
    }

    // The endpoint number 7, of the plugin "tel".
    static libvoice_endpoint_t *application_with_endpoint() {
        libvoice_endpoint_t *entry = &endpt_table[0];
        entry->used = 1;
        entry->endpoint = 7;
        snprintf(entry->name, sizeof entry->name, "TEL1");
        snprintf(entry->endpoint_path, sizeof entry->endpoint_path, "tel.EndPoint.TEL1");
        entry->plugin_table = &voice_plugin_table[0];
        voice_plugin_table[0].used = 1;
        voice_plugin_table[0].peer = bus().peer("tel");
        return entry;
    }

    static std::string sent(unsigned request, const char *parameter) {
        return bus().record(request).parameter(parameter).data;
    }
};

// ---------------------------------------------------------------------------------------------------- Events, written

TEST_F(Records, EventIsSentByteForByte) {
    voice_event_message_t event;
    voice_event_begin(&event, 7, LIBVOICE_EVENT_g_cause, 1);
    EXPECT_TRUE(voice_event_add_i32(&event, LIBVOICE_PARAM_g_cause_generalcause, -6));
    EXPECT_TRUE(voice_event_add_text(&event, LIBVOICE_PARAM_g_cause_failurecause, "no G729"));
    EXPECT_STREQ(voice_event_send(&event), nullptr);

    const std::string params = integer(LIBVOICE_PARAM_g_cause_generalcause, 0xFFFFFFFAu) +
                               text(LIBVOICE_PARAM_g_cause_failurecause, "no G729");
    EXPECT_EQ(bus().record(1).function, "event");
    EXPECT_EQ(sent(1, "event"), words({7, LIBVOICE_EVENT_g_cause, 1, 0, 28}) + params);
}

TEST_F(Records, EventTakesEachType) {
    const uint8_t bytes[] = {1, 2, 3, 4, 5};
    voice_event_message_t event;
    voice_event_begin(&event, 7, LIBVOICE_EVENT_fxo_ri, 0);
    EXPECT_TRUE(voice_event_add_u32(&event, LIBVOICE_PARAM_zil_call_stats_txpkts, 0xFFFFFFFFu));
    EXPECT_TRUE(voice_event_add_bool(&event, LIBVOICE_PARAM_tdmc_ec, 17));
    EXPECT_TRUE(voice_event_add_bool(&event, LIBVOICE_PARAM_tdmc_ec, 0));
    EXPECT_TRUE(voice_event_add_block(&event, LIBVOICE_PARAM_fxo_ri_cid, "8000"));
    EXPECT_TRUE(voice_event_add_bytes(&event, LIBVOICE_PARAM_fxo_ri_cid, bytes, sizeof bytes));
    EXPECT_STREQ(voice_event_send(&event), nullptr);

    const std::string params = integer(LIBVOICE_PARAM_zil_call_stats_txpkts, 0xFFFFFFFFu) +
                               integer(LIBVOICE_PARAM_tdmc_ec, 1) + integer(LIBVOICE_PARAM_tdmc_ec, 0) +
                               text(LIBVOICE_PARAM_fxo_ri_cid, "8000") +
                               item(LIBVOICE_PARAM_fxo_ri_cid, std::string("\1\2\3\4\5"));
    EXPECT_EQ(sent(1, "event"), words({7, LIBVOICE_EVENT_fxo_ri, 0, 0, static_cast<uint32_t>(params.size())}) + params);
}

TEST_F(Records, EventWithoutParametersIsItsHead) {
    EXPECT_STREQ(voice_event_report(7, LIBVOICE_EVENT_al_of, 1), nullptr);
    EXPECT_EQ(sent(1, "event"), words({7, LIBVOICE_EVENT_al_of, 1, 0, 0}));
}

TEST_F(Records, EveryKeyIsReportedByItsOwnEvent) {
    const std::pair<char, uint32_t> keys[] = {
        {'0', 0x20061000}, {'1', 0x20061100}, {'2', 0x20061200}, {'3', 0x20061300},
        {'4', 0x20061400}, {'5', 0x20061500}, {'6', 0x20061600}, {'7', 0x20061700},
        {'8', 0x20061800}, {'9', 0x20061900}, {'A', 0x20061A00}, {'B', 0x20061B00},
        {'C', 0x20061C00}, {'D', 0x20061D00}, {'*', 0x20062000}, {'#', 0x20062100},
    };
    unsigned request = 0;
    for (const auto &[key, id] : keys) {
        EXPECT_STREQ(voice_event_report_digit(7, 1, key), nullptr) << key;
        EXPECT_EQ(sent(++request, "event"), words({7, id, 1, 0, 0})) << key;
        EXPECT_EQ(voice_event_key(id), key);
    }
    EXPECT_EQ(voice_event_key(LIBVOICE_EVENT_dd_d0 + 1), 0);
}

TEST_F(Records, WhatIsNoKeyIsNotReported) {
    for (const uint32_t id : {LIBVOICE_EVENT_dd_ce, LIBVOICE_EVENT_al_of, LIBVOICE_SIGNAL_dg_d0, 0u})
        EXPECT_EQ(voice_event_key(id), 0) << id;
    for (const char key : {'a', 'E', '+', ' ', '\0'})
        EXPECT_STREQ(voice_event_report_digit(7, 0, key), VOICE_WRONG_KEY) << key;
    EXPECT_EQ(bus().requests_made(), 0u);
}

TEST_F(Records, CauseIsReportedWithItsText) {
    EXPECT_STREQ(voice_event_report_cause(7, 1, VOICE_CAUSE_UNSUPPORTED, "no G729 here"), nullptr);
    EXPECT_EQ(sent(1, "event"), words({7, LIBVOICE_EVENT_g_cause, 1, 0, 12 + 8 + 16}) +
                                    integer(LIBVOICE_PARAM_g_cause_generalcause, 6) +
                                    text(LIBVOICE_PARAM_g_cause_failurecause, "no G729 here"));
}

TEST_F(Records, FirstThingThatWentWrongIsKeptAndNothingIsSent) {
    const std::string long_text(VOICE_MESSAGE_PARAMETER_BYTES, 'x');
    voice_event_message_t event;
    voice_event_begin(&event, 7, LIBVOICE_EVENT_dd_ce, 0);
    EXPECT_FALSE(voice_event_add_text(&event, LIBVOICE_PARAM_dd_ce_ds, long_text.c_str()));
    EXPECT_FALSE(voice_event_add_i32(&event, LIBVOICE_PARAM_dd_ce_ds, 201));
    EXPECT_TRUE(voice_event_add_text(&event, LIBVOICE_PARAM_dd_ce_ds, "201"));
    EXPECT_STREQ(voice_event_send(&event), VOICE_WRONG_ROOM);
    EXPECT_EQ(bus().requests_made(), 0u);

    voice_event_begin(&event, 7, LIBVOICE_EVENT_dd_ce, 0); // begins anew
    EXPECT_TRUE(voice_event_add_text(&event, LIBVOICE_PARAM_dd_ce_ds, "201"));
    EXPECT_STREQ(voice_event_send(&event), nullptr);
}

TEST_F(Records, EventIsFullToTheLastByte) {
    const std::string bytes(VOICE_MESSAGE_PARAMETER_BYTES - 8, 'x');
    voice_event_message_t event;
    voice_event_begin(&event, 7, LIBVOICE_EVENT_fxo_ri, 0);
    EXPECT_TRUE(voice_event_add_bytes(&event, LIBVOICE_PARAM_fxo_ri_cid, bytes.data(), 504));
    EXPECT_STREQ(voice_event_send(&event), nullptr);
    EXPECT_EQ(sent(1, "event").size(), 20u + 512u);
    EXPECT_FALSE(voice_event_add_bytes(&event, LIBVOICE_PARAM_fxo_ri_cid, bytes.data(), 1));
    EXPECT_STREQ(voice_event_send(&event), VOICE_WRONG_ROOM);
}

TEST_F(Records, EachTypeIsRejectedUnderTheOthersIdentifiers) {
    const uint32_t of_type[] = {LIBVOICE_EVENT_al_of, LIBVOICE_PARAM_g_cause_generalcause, LIBVOICE_PARAM_dd_ce_ds,
                                LIBVOICE_PARAM_fxo_ri_cid, LIBVOICE_PARAM_tdmc_ec};
    for (uint32_t type = VOICE_VALUE_NONE; type <= VOICE_VALUE_BOOLEAN; type++) {
        voice_event_message_t event;
        voice_signal_message_t signal;
        voice_set_message_t set;
        libvoice_param_block_t block;
        voice_event_begin(&event, 7, LIBVOICE_EVENT_al_of, 0);
        voice_signal_begin(&signal, 7, LIBVOICE_SIGNAL_al_ri, 0);
        voice_set_begin(&set, &block, 7);
        const uint32_t id = of_type[type];
        SCOPED_TRACE(type);
        EXPECT_EQ(voice_id_value_type(id), type);
        EXPECT_EQ(voice_event_add_i32(&event, id, 1), type == VOICE_VALUE_INTEGER);
        EXPECT_EQ(voice_event_add_u32(&event, id, 1), type == VOICE_VALUE_INTEGER);
        EXPECT_EQ(voice_event_add_text(&event, id, "1"), type == VOICE_VALUE_STRING);
        EXPECT_EQ(voice_event_add_block(&event, id, "1"), type == VOICE_VALUE_HEX);
        EXPECT_EQ(voice_event_add_bytes(&event, id, "1", 1), type == VOICE_VALUE_HEX);
        EXPECT_EQ(voice_event_add_bool(&event, id, 1), type == VOICE_VALUE_BOOLEAN);
        EXPECT_EQ(voice_signal_add_i32(&signal, id, 1), type == VOICE_VALUE_INTEGER);
        EXPECT_EQ(voice_signal_add_u32(&signal, id, 1), type == VOICE_VALUE_INTEGER);
        EXPECT_EQ(voice_signal_add_text(&signal, id, "1"), type == VOICE_VALUE_STRING);
        EXPECT_EQ(voice_signal_add_block(&signal, id, "1"), type == VOICE_VALUE_HEX);
        EXPECT_EQ(voice_signal_add_bytes(&signal, id, "1", 1), type == VOICE_VALUE_HEX);
        EXPECT_EQ(voice_signal_add_bool(&signal, id, 1), type == VOICE_VALUE_BOOLEAN);
        EXPECT_EQ(voice_set_add_i32(&set, id, 1), type == VOICE_VALUE_INTEGER);
        EXPECT_EQ(voice_set_add_u32(&set, id, 1), type == VOICE_VALUE_INTEGER);
        EXPECT_EQ(voice_set_add_text(&set, id, "1"), type == VOICE_VALUE_STRING);
        EXPECT_EQ(voice_set_add_bytes(&set, id, "1", 1), type == VOICE_VALUE_HEX);
        EXPECT_EQ(voice_set_add_bool(&set, id, 1), type == VOICE_VALUE_BOOLEAN);
        EXPECT_STREQ(event.wrong, VOICE_WRONG_TYPE);
        EXPECT_STREQ(signal.wrong, VOICE_WRONG_TYPE);
        EXPECT_STREQ(set.wrong, VOICE_WRONG_TYPE);
    }
}

TEST_F(Records, MissingTextIsNoValue) {
    voice_event_message_t event;
    voice_event_begin(&event, 7, LIBVOICE_EVENT_dd_ce, 0);
    EXPECT_FALSE(voice_event_add_text(&event, LIBVOICE_PARAM_dd_ce_ds, nullptr));
    EXPECT_STREQ(voice_event_send(&event), VOICE_WRONG_VALUE);
}

TEST_F(Records, OnlyEventsAreEventsAndSignalsSignals) {
    EXPECT_STREQ(voice_event_report(7, LIBVOICE_SIGNAL_cg_dt, 0), VOICE_WRONG_EVENT);
    EXPECT_STREQ(voice_event_report(7, LIBVOICE_PARAM_dd_ce_ds, 0), VOICE_WRONG_EVENT);
    EXPECT_STREQ(voice_event_report(7, 0, 0), VOICE_WRONG_EVENT);
    EXPECT_STREQ(voice_signal_start(7, LIBVOICE_EVENT_al_of, 0), VOICE_WRONG_SIGNAL);
    EXPECT_STREQ(voice_signal_start(7, LIBVOICE_PARAM_al_ri_freq, 0), VOICE_WRONG_SIGNAL);
    EXPECT_EQ(bus().requests_made(), 0u);
}

TEST_F(Records, EventWithoutConnectionSaysSo) {
    bus().fail("kex_sendRequest");
    EXPECT_STREQ(voice_event_report(7, LIBVOICE_EVENT_al_of, 0), VOICE_WRONG_NOT_SENT);
    bus().leaves_requests(1, "the event request after a failed send");
}

// --------------------------------------------------------------------------------------------------- Signals, written

TEST_F(Records, SignalIsSentByteForByte) {
    application_with_endpoint();
    const uint32_t cadence[] = {1000, 4000};
    const uint32_t before = get_new_msg_id();
    voice_signal_message_t signal;
    voice_signal_begin(&signal, 7, LIBVOICE_SIGNAL_al_ri, 1);
    EXPECT_TRUE(voice_signal_add_cadence(&signal, cadence, 2));
    EXPECT_TRUE(voice_signal_add_i32(&signal, LIBVOICE_PARAM_al_ri_freq, 25));
    EXPECT_STREQ(voice_signal_send(&signal), nullptr);

    EXPECT_EQ(bus().record(1).path, "tel.EndPoint.TEL1");
    EXPECT_EQ(bus().record(1).function, "signal");
    EXPECT_EQ(sent(1, "signal"), words({7, LIBVOICE_SIGNAL_al_ri, 1, before + 1, 0, 0, 16 + 12}) +
                                     item(LIBVOICE_PARAM_al_ri_cad, words({1000, 4000})) +
                                     integer(LIBVOICE_PARAM_al_ri_freq, 25));
}

TEST_F(Records, TonesAreWordsInTheirOrder) {
    application_with_endpoint();
    const voice_tone_t tones[] = {{950, -100, 330, 30}, {0, 0, 0, 1000}};
    voice_signal_message_t signal;
    voice_signal_begin(&signal, 7, LIBVOICE_SIGNAL_tonegen_pt, 0);
    EXPECT_TRUE(voice_signal_add_tones(&signal, tones, 2));
    EXPECT_STREQ(voice_signal_send(&signal), nullptr);
    EXPECT_EQ(sent(1, "signal").substr(28),
              item(LIBVOICE_PARAM_tonegen_pt_tl, words({950, static_cast<uint32_t>(-100), 330, 30, 0, 0, 0, 1000})));
}

TEST_F(Records, StopIsAFlag) {
    application_with_endpoint();
    const uint32_t before = get_new_msg_id();
    EXPECT_STREQ(voice_signal_start(7, LIBVOICE_SIGNAL_cg_dt, 0), nullptr);
    EXPECT_STREQ(voice_signal_stop(7, LIBVOICE_SIGNAL_cg_dt, 0), nullptr);
    EXPECT_EQ(sent(1, "signal"), words({7, LIBVOICE_SIGNAL_cg_dt, 0, before + 1, 0, 0, 0}));
    EXPECT_EQ(sent(2, "signal"), words({7, LIBVOICE_SIGNAL_cg_dt, 0, before + 2, VOICE_SIGNAL_STOP, 0, 0}));
}

TEST_F(Records, CadenceHasPairsAndTonesAreSome) {
    const uint32_t cadence[] = {1000, 4000, 500};
    const voice_tone_t tone = {};
    for (const uint32_t count : {0u, 1u, 3u}) {
        voice_signal_message_t signal;
        voice_signal_begin(&signal, 7, LIBVOICE_SIGNAL_al_ri, 0);
        EXPECT_FALSE(voice_signal_add_cadence(&signal, cadence, count));
        EXPECT_STREQ(voice_signal_send(&signal), VOICE_WRONG_VALUE);
    }
    voice_signal_message_t signal;
    voice_signal_begin(&signal, 7, LIBVOICE_SIGNAL_tonegen_pt, 0);
    EXPECT_FALSE(voice_signal_add_tones(&signal, &tone, 0));
    EXPECT_STREQ(voice_signal_send(&signal), VOICE_WRONG_VALUE);
}

TEST_F(Records, SignalToNobodySaysSo) {
    EXPECT_STREQ(voice_signal_start(8, LIBVOICE_SIGNAL_cg_dt, 0), VOICE_WRONG_ENDPOINT);
    EXPECT_EQ(bus().requests_made(), 0u);
}

// -------------------------------------------------------------------------------------------------------- What is read

TEST(RecordReaders, HeadsAreReadByName) {
    Buffer signal(words({7, LIBVOICE_SIGNAL_cg_dt, 1, 42, VOICE_SIGNAL_STOP, 0xABCD, 0}));
    const voice_signal_t head = voice_signal_head(signal.as<libvoice_signal_t>());
    EXPECT_EQ(head.endpoint, 7);
    EXPECT_EQ(head.signal, LIBVOICE_SIGNAL_cg_dt);
    EXPECT_EQ(head.line, 1u);
    EXPECT_EQ(head.message_id, 42u);
    EXPECT_EQ(head.flags, VOICE_SIGNAL_STOP);
    EXPECT_EQ(head.length, 0u);

    Buffer event(words({-1u, LIBVOICE_EVENT_al_of, 1, 0xABCD, 12}) + integer(LIBVOICE_PARAM_dd_ce_meth, 2));
    const voice_event_t other = voice_event_head(event.as<libvoice_event_t>());
    EXPECT_EQ(other.endpoint, -1);
    EXPECT_EQ(other.event, LIBVOICE_EVENT_al_of);
    EXPECT_EQ(other.line, 1u);
    EXPECT_EQ(voice_event_params(event.as<libvoice_event_t>()).length, 12u);
    EXPECT_EQ(voice_event_params(event.as<libvoice_event_t>()).bytes, event.bytes() + 20);
}

// Parameters of a buffer, each reader's answer.
class Params {
public:
    explicit Params(const std::string &bytes) : buffer_(bytes) {}
    operator voice_params_t() const { return {buffer_.bytes(), buffer_.length()}; }

private:
    Buffer buffer_;
};

TEST(RecordReaders, EachTypeIsReadUnderItsIdentifiersOnly) {
    const Params params(integer(LIBVOICE_PARAM_al_ri_freq, 0xFFFFFFFEu) + text(LIBVOICE_PARAM_dd_ce_ds, "201") +
                        item(LIBVOICE_PARAM_al_ri_cad, words({1000, 4000})) + integer(LIBVOICE_PARAM_tdmc_ec, 9));
    for (const uint32_t id : {LIBVOICE_PARAM_al_ri_freq, LIBVOICE_PARAM_dd_ce_ds, LIBVOICE_PARAM_al_ri_cad,
                              LIBVOICE_PARAM_tdmc_ec, LIBVOICE_PARAM_tdmc_gain}) {
        SCOPED_TRACE(libvoice_param_str(id));
        int32_t number = 42;
        uint32_t count = 42, word[4] = {42}, used = 42;
        int yes = 42;
        char out[16] = "kept";
        const uint8_t *bytes = nullptr;
        EXPECT_EQ(voice_params_get_i32(params, id, &number), id == LIBVOICE_PARAM_al_ri_freq);
        EXPECT_EQ(voice_params_get_u32(params, id, &count), id == LIBVOICE_PARAM_al_ri_freq);
        EXPECT_EQ(voice_params_get_bool(params, id, &yes), id == LIBVOICE_PARAM_tdmc_ec);
        EXPECT_EQ(voice_params_get_text(params, id, out, sizeof out), id == LIBVOICE_PARAM_dd_ce_ds);
        EXPECT_EQ(number, id == LIBVOICE_PARAM_al_ri_freq ? -2 : 42);
        EXPECT_EQ(count, id == LIBVOICE_PARAM_al_ri_freq ? 0xFFFFFFFEu : 42u);
        EXPECT_EQ(yes, id == LIBVOICE_PARAM_tdmc_ec ? 1 : 42);
        EXPECT_STREQ(out, id == LIBVOICE_PARAM_dd_ce_ds ? "201" : "kept");
        EXPECT_EQ(voice_params_get_words(params, id, word, 4, &used), id == LIBVOICE_PARAM_al_ri_cad);
        EXPECT_EQ(voice_params_get_bytes(params, id, &bytes, &used), id == LIBVOICE_PARAM_al_ri_cad);
        EXPECT_EQ(voice_params_get_block(params, id, out, sizeof out) != 0, id == LIBVOICE_PARAM_al_ri_cad);
    }
}

TEST(RecordReaders, NumbersHaveFourBytes) {
    for (const std::string &value : {std::string(), std::string("abc"), std::string("abcde"), std::string(8, 'x')}) {
        const Params params(item(LIBVOICE_PARAM_al_ri_freq, value) + item(LIBVOICE_PARAM_tdmc_ec, value));
        int32_t number = 42;
        uint32_t count = 42;
        int yes = 42;
        EXPECT_FALSE(voice_params_get_i32(params, LIBVOICE_PARAM_al_ri_freq, &number)) << value.size();
        EXPECT_FALSE(voice_params_get_u32(params, LIBVOICE_PARAM_al_ri_freq, &count)) << value.size();
        EXPECT_FALSE(voice_params_get_bool(params, LIBVOICE_PARAM_tdmc_ec, &yes)) << value.size();
        EXPECT_EQ(number, 42);
        EXPECT_EQ(count, 42u);
        EXPECT_EQ(yes, 42);
    }
}

TEST(RecordReaders, TextsEndWithTheirItemAndFitTheirRoom) {
    const Params params(item(LIBVOICE_PARAM_dd_ce_ds, "0123")); // without a terminator
    char out[8] = "#######";
    EXPECT_EQ(voice_params_get_text(params, LIBVOICE_PARAM_dd_ce_ds, out, 5), 1);
    EXPECT_STREQ(out, "0123");
    EXPECT_EQ(voice_params_get_text(params, LIBVOICE_PARAM_dd_ce_ds, out, 4), 2) << "cut";
    EXPECT_STREQ(out, "012");
    EXPECT_EQ(voice_params_get_text(params, LIBVOICE_PARAM_dd_ce_ds, out, 1), 2);
    EXPECT_STREQ(out, "");
    EXPECT_EQ(voice_params_get_text(params, LIBVOICE_PARAM_dd_ce_ds, out, 0), 0);

    const Params longer(item(LIBVOICE_PARAM_dd_ce_ds, std::string("01\0002", 4))); // a terminator in its middle
    EXPECT_EQ(voice_params_get_text(longer, LIBVOICE_PARAM_dd_ce_ds, out, sizeof out), 1);
    EXPECT_STREQ(out, "01");
}

TEST(RecordReaders, CutOffItemsAreNotThere) {
    const std::string whole = text(LIBVOICE_PARAM_dd_ce_ds, "0123456");
    for (size_t length = 0; length < whole.size(); length++) {
        const Params params(whole.substr(0, length));
        voice_params_t rest = params;
        voice_item_t item;
        char out[16] = "kept";
        EXPECT_FALSE(voice_params_get_text(params, LIBVOICE_PARAM_dd_ce_ds, out, sizeof out)) << length;
        EXPECT_STREQ(out, "kept");
        EXPECT_FALSE(voice_params_next(&rest, &item)) << length;
        EXPECT_FALSE(voice_params_next(&rest, &item)) << "the end stays the end";
    }
    for (const uint32_t length : {9u, 0x7FFFFFFFu, 0xFFFFFFF5u, 0xFFFFFFFFu}) {
        const Params params(words({LIBVOICE_PARAM_dd_ce_ds, length, 0, 0}));
        voice_params_t rest = params;
        voice_item_t item;
        EXPECT_FALSE(voice_params_next(&rest, &item)) << length;
        EXPECT_FALSE(voice_params_find(params, LIBVOICE_PARAM_dd_ce_ds, &item)) << length;
    }
}

TEST(RecordReaders, ItemsAreWalkedInOrder) {
    const Params params(integer(LIBVOICE_PARAM_zil_ep_id, 7) + item(LIBVOICE_PARAM_tdmc_gain, "") +
                        text(LIBVOICE_PARAM_zil_ep_dispname, "Study"));
    voice_params_t rest = params;
    voice_item_t item;
    int32_t number;
    char name[16];
    ASSERT_TRUE(voice_params_next(&rest, &item));
    EXPECT_EQ(item.id, LIBVOICE_PARAM_zil_ep_id);
    EXPECT_TRUE(voice_item_get_i32(&item, &number));
    EXPECT_EQ(number, 7);
    ASSERT_TRUE(voice_params_next(&rest, &item));
    EXPECT_EQ(item.id, LIBVOICE_PARAM_tdmc_gain);
    EXPECT_EQ(item.length, 0u) << "what a \"get\" asks for";
    EXPECT_FALSE(voice_item_get_i32(&item, &number));
    ASSERT_TRUE(voice_params_next(&rest, &item));
    EXPECT_TRUE(voice_item_get_text(&item, name, sizeof name));
    EXPECT_STREQ(name, "Study");
    EXPECT_FALSE(voice_params_next(&rest, &item));
}

TEST(RecordReaders, CadencesAreWholePairs) {
    uint32_t ms[3], count = 42;
    const Params three(item(LIBVOICE_PARAM_al_ri_cad, words({1, 2, 3})));
    EXPECT_FALSE(voice_params_get_cadence(three, ms, 3, &count));
    const Params none(item(LIBVOICE_PARAM_al_ri_cad, ""));
    EXPECT_FALSE(voice_params_get_cadence(none, ms, 3, &count));
    const Params bytes(item(LIBVOICE_PARAM_al_ri_cad, "1234567"));
    EXPECT_FALSE(voice_params_get_cadence(bytes, ms, 3, &count));
    EXPECT_EQ(count, 42u);
    const Params four(item(LIBVOICE_PARAM_al_ri_cad, words({1000, 4000, 500, 500})));
    EXPECT_TRUE(voice_params_get_cadence(four, ms, 3, &count)) << "room for one pair and a half";
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(ms[0], 1000u);
    EXPECT_EQ(ms[1], 4000u);
}

TEST(RecordReaders, ToneListsAreWholeTones) {
    voice_tone_t tones[1];
    uint32_t count = 42;
    const Params cut(item(LIBVOICE_PARAM_tonegen_pt_tl, words({440, 0, 100})));
    EXPECT_FALSE(voice_params_get_tones(cut, tones, 1, &count));
    EXPECT_EQ(count, 42u);
    const Params two(
        item(LIBVOICE_PARAM_tonegen_pt_tl, words({440, static_cast<uint32_t>(-130), 100, 200, 1, 2, 3, 4})));
    EXPECT_TRUE(voice_params_get_tones(two, tones, 1, &count));
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(tones[0].frequency, 440u);
    EXPECT_EQ(tones[0].level, -130);
    EXPECT_EQ(tones[0].on_ms, 100u);
    EXPECT_EQ(tones[0].off_ms, 200u);
}

// ------------------------------------------------------------------------------------------------------------- Sets

TEST(RecordSets, AnswerIsWrittenByteForByte) {
    libvoice_param_block_t block;
    libvoice_param_set_t *result = nullptr;
    voice_set_message_t set;
    voice_set_begin(&set, &block, 7);
    EXPECT_TRUE(voice_set_add_i32(&set, LIBVOICE_PARAM_tdmc_gain, -3));
    EXPECT_TRUE(voice_set_add_text(&set, LIBVOICE_PARAM_zil_ep_dispname, "Study"));
    EXPECT_STREQ(voice_set_end(&set, &result), nullptr);
    ASSERT_EQ(result, &block.head);
    const std::string expected = integer(LIBVOICE_PARAM_zil_ep_id, 7) +
                                 integer(LIBVOICE_PARAM_tdmc_gain, static_cast<uint32_t>(-3)) +
                                 text(LIBVOICE_PARAM_zil_ep_dispname, "Study");
    EXPECT_EQ(std::string(reinterpret_cast<char *>(block.buffer), block.head.length), expected);
    EXPECT_EQ(voice_set_endpoint(result), 7);
}

TEST(RecordSets, QuestionIsAnEmptyItem) {
    libvoice_param_block_t block;
    voice_set_message_t set;
    voice_set_begin(&set, &block, 7);
    for (const uint32_t id : {LIBVOICE_PARAM_tdmc_gain, LIBVOICE_PARAM_zil_ep_dispname, LIBVOICE_PARAM_tdmc_ec})
        EXPECT_TRUE(voice_set_ask(&set, id));
    EXPECT_EQ(std::string(reinterpret_cast<char *>(block.buffer), block.head.length),
              integer(LIBVOICE_PARAM_zil_ep_id, 7) + item(LIBVOICE_PARAM_tdmc_gain, "") +
                  item(LIBVOICE_PARAM_zil_ep_dispname, "") + item(LIBVOICE_PARAM_tdmc_ec, ""));
}

TEST(RecordSets, AnswerWithoutMemoryOrRoomSaysSo) {
    libvoice_param_block_t block;
    libvoice_param_set_t *result = &block.head;
    voice_set_message_t set;
    voice_set_begin(&set, nullptr, 7);
    EXPECT_FALSE(voice_set_add_i32(&set, LIBVOICE_PARAM_tdmc_gain, 1));
    EXPECT_STREQ(voice_set_end(&set, &result), VOICE_WRONG_BLOCK);
    EXPECT_EQ(result, nullptr);

    const std::string long_text(236, 'x'); // with its terminator a byte more than fits behind the endpoint
    voice_set_begin(&set, &block, 7);
    EXPECT_FALSE(voice_set_add_text(&set, LIBVOICE_PARAM_zil_ep_dispname, long_text.c_str()));
    EXPECT_TRUE(voice_set_add_text(&set, LIBVOICE_PARAM_zil_ep_dispname, long_text.c_str() + 1));
    EXPECT_STREQ(voice_set_end(&set, &result), VOICE_WRONG_ROOM);
    EXPECT_EQ(result, &block.head) << "it is the library's also then";
}

TEST(RecordSets, SetWithoutAnEndpointHasNone) {
    Buffer set(words({0, 12}) + integer(LIBVOICE_PARAM_tdmc_gain, 3));
    EXPECT_EQ(voice_set_endpoint(set.as<libvoice_param_set_t>()), -1);
}

TEST_F(Records, ParametersAreSetByType) {
    application_with_endpoint();
    const std::string endpoint = integer(LIBVOICE_PARAM_zil_ep_id, 7);
    EXPECT_STREQ(voice_endpoint_set_i32(7, LIBVOICE_PARAM_tdmc_gain, -3), nullptr);
    EXPECT_STREQ(voice_endpoint_set_bool(7, LIBVOICE_PARAM_tdmc_ec, 5), nullptr);
    EXPECT_STREQ(voice_endpoint_set_text(7, LIBVOICE_PARAM_zil_ep_dispname, "Study"), nullptr);
    EXPECT_EQ(sent(1, "param_set_params").substr(4),
              words({24}) + endpoint + integer(LIBVOICE_PARAM_tdmc_gain, static_cast<uint32_t>(-3)));
    EXPECT_EQ(sent(2, "param_set_params").substr(4), words({24}) + endpoint + integer(LIBVOICE_PARAM_tdmc_ec, 1));
    EXPECT_EQ(sent(3, "param_set_params").substr(4),
              words({28}) + endpoint + text(LIBVOICE_PARAM_zil_ep_dispname, "Study"));
}

TEST_F(Records, ParametersThatCannotBeSetAreSaid) {
    application_with_endpoint();
    const std::string fits(235, 'x'), too_long(236, 'x'); // 236 bytes with its terminator; 237
    EXPECT_STREQ(voice_endpoint_set_i32(7, LIBVOICE_PARAM_zil_ep_dispname, 1), VOICE_WRONG_TYPE);
    EXPECT_STREQ(voice_endpoint_set_text(7, LIBVOICE_PARAM_tdmc_gain, "1"), VOICE_WRONG_TYPE);
    EXPECT_STREQ(voice_endpoint_set_text(7, LIBVOICE_PARAM_zil_ep_dispname, nullptr), VOICE_WRONG_VALUE);
    EXPECT_STREQ(voice_endpoint_set_i32(8, LIBVOICE_PARAM_tdmc_gain, 1), VOICE_WRONG_ENDPOINT);
    EXPECT_STREQ(voice_endpoint_set_text(7, LIBVOICE_PARAM_zil_ep_dispname, too_long.c_str()), VOICE_WRONG_ROOM);
    EXPECT_EQ(bus().requests_made(), 0u);
    EXPECT_STREQ(voice_endpoint_set_text(7, LIBVOICE_PARAM_zil_ep_dispname, fits.c_str()), nullptr);
    bus().fail("kex_sendRequest");
    EXPECT_STREQ(voice_endpoint_set_i32(7, LIBVOICE_PARAM_tdmc_gain, 1), VOICE_WRONG_NOT_SENT);
}

// voice_app_get_done as an application writes it; what it saw.
struct Answer {
    bool good;
    uint32_t context;
    int32_t gain;
} seen;

void get_done(request_t *request) {
    voice_params_t params;
    seen = {};
    seen.good = voice_get_answer(request, &params, &seen.context);
    if (seen.good)
        voice_params_get_i32(params, LIBVOICE_PARAM_tdmc_gain, &seen.gain);
    free(request_data(request));
    request_destroy(request);
}

TEST_F(Records, AnswerToAGetIsRead) {
    application_with_endpoint();
    libvoice_app_registered_callbacks.voice_app_get_done = get_done;
    const std::string params = integer(LIBVOICE_PARAM_zil_ep_id, 7) + integer(LIBVOICE_PARAM_tdmc_gain, 5);
    const struct {
        fake::Reply reply;
        bool good;
    } cases[] = {
        {fake::Reply().value(Value::bytes(words({0xABCD, 24}) + params)), true},
        {fake::Reply().value(Value::bytes(words({0xABCD, 25}) + params)), false},
        {fake::Reply().value(Value::bytes(words({0xABCD, 0xFFFFFFFFu}) + params)), false},
        {fake::Reply().value(Value::bytes("\1\2\3")), false},
        {fake::Reply().value(Value::boolean(true)), false},
        {fake::Reply().error(KEX_FUNCTION_FAILED, "gone", ""), false},
        {fake::Reply(), false},
        {fake::Reply::none(), false},
    };
    unsigned number = 0;
    for (const auto &row : cases) {
        ASSERT_TRUE(libvoice_get_params(7, LIBVOICE_PARAM_tdmc_gain, 99));
        number++;
        bus().complete(bus().request(number), row.reply);
        EXPECT_EQ(seen.good, row.good) << number;
        EXPECT_EQ(seen.context, 99u) << number;
        EXPECT_EQ(seen.gain, row.good ? 5 : 0) << number;
    }
    libvoice_app_registered_callbacks.voice_app_get_done = nullptr;
}

// ------------------------------------------------------------------------------------------------------------- Media

const voice_codec_t kPcma = VOICE_CODEC_PCMA;

std::string media_items(uint32_t mode) {
    return integer(LIBVOICE_PARAM_sdp_stream_mode, mode) + integer(LIBVOICE_PARAM_sdp_upstream_codec, 8) +
           integer(LIBVOICE_PARAM_sdp_upstream_ptime, 20) + integer(LIBVOICE_PARAM_sdp_upstream_payload, 8) +
           integer(LIBVOICE_PARAM_sdp_downstream_codec, 8) + integer(LIBVOICE_PARAM_sdp_downstream_ptime, 20) +
           integer(LIBVOICE_PARAM_sdp_downstream_payload, 8);
}

std::string padded(std::string bytes, size_t size) {
    bytes.resize(size);
    return bytes;
}

TEST(RecordMedia, ConnectionIsWrittenByteForByte) {
    const voice_media_t media = voice_media_of(&kPcma, VOICE_MODE_SEND_RECEIVE);
    sockaddr_in local = {}, remote = {}, read_local = {}, read_remote = {};
    local.sin_family = remote.sin_family = AF_INET;
    local.sin_port = htons(30000);
    remote.sin_port = htons(30002);
    voice_cnx_info_t info;
    voice_connection_begin(&info, &media);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(&info), sizeof info), padded(words({1, 84}) + media_items(3), 736));

    voice_connection_set_addresses(&info, &local, &remote);
    EXPECT_EQ(memcmp(reinterpret_cast<char *>(&info) + 704, &local, 16), 0);
    EXPECT_EQ(memcmp(reinterpret_cast<char *>(&info) + 720, &remote, 16), 0);
    voice_connection_addresses(&info, &read_local, &read_remote);
    EXPECT_EQ(read_local.sin_port, htons(30000));
    EXPECT_EQ(read_remote.sin_port, htons(30002));
}

TEST(RecordMedia, StreamIsWrittenByteForByte) {
    const voice_media_t media = voice_media_of(&kPcma, VOICE_MODE_INACTIVE);
    voice_stream_info_t info;
    voice_stream_begin(&info, 2, &media);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(&info), sizeof info),
              padded(words({2, 0, 1, 84}) + media_items(0), 712));
    voice_media_t read = {};
    uint32_t stream = 0;
    EXPECT_STREQ(voice_stream_read(&info, &read, &stream), nullptr);
    EXPECT_EQ(stream, 2u);
    EXPECT_EQ(read.mode, static_cast<uint32_t>(VOICE_MODE_INACTIVE));
    EXPECT_EQ(read.sent.codec, 8u);
}

// What a "create" may bring, with its 704 bytes.
std::string connection(const std::string &items) {
    return padded(words({1, static_cast<uint32_t>(items.size())}) + items, 704);
}

TEST(RecordMedia, ConnectionIsReadInBothDirections) {
    Buffer info(
        connection(integer(LIBVOICE_PARAM_sdp_downstream_payload, 9) + integer(LIBVOICE_PARAM_sdp_downstream_codec, 9) +
                   integer(LIBVOICE_PARAM_sdp_upstream_codec, 0) + integer(LIBVOICE_PARAM_sdp_upstream_payload, 127) +
                   integer(LIBVOICE_PARAM_sdp_upstream_ptime, 30) + integer(LIBVOICE_PARAM_sdp_stream_mode, 1)));
    voice_media_t media = {};
    EXPECT_STREQ(voice_connection_read(info.data(), &media), nullptr);
    EXPECT_EQ(media.mode, static_cast<uint32_t>(VOICE_MODE_SEND_ONLY));
    EXPECT_EQ(media.sent.codec, 0u);
    EXPECT_EQ(media.sent.payload_type, 127u);
    EXPECT_EQ(media.sent.ptime, 30u);
    EXPECT_EQ(media.received.codec, 9u);
    EXPECT_EQ(media.received.payload_type, 9u);
    EXPECT_EQ(media.received.ptime, 20u) << "unless it is said";
}

TEST(RecordMedia, ItemsBesideTheVoiceAreFound) {
    const std::string keys = integer(LIBVOICE_PARAM_sdp_dr_upstream_payload, 97);
    uint32_t type = 0;
    Buffer info(connection(media_items(3) + keys));
    EXPECT_TRUE(
        voice_params_get_u32(voice_connection_params(info.data()), LIBVOICE_PARAM_sdp_dr_upstream_payload, &type));
    EXPECT_EQ(type, 97u);
    Buffer stream(padded(words({1, 3, 1, 96}) + media_items(3) + keys, 712));
    type = 0;
    EXPECT_TRUE(
        voice_params_get_u32(voice_stream_params(stream.data()), LIBVOICE_PARAM_sdp_dr_upstream_payload, &type));
    EXPECT_EQ(type, 97u);

    // A length from outside: the room is all that is read.
    const std::string full = std::string(684, '\0') + keys;
    Buffer largest(padded(words({1, 696}) + full, 704)), larger(padded(words({1, 697}) + full, 704));
    EXPECT_EQ(voice_connection_params(largest.data()).length, 696u);
    EXPECT_EQ(voice_connection_params(larger.data()).length, 0u);
    Buffer longest(padded(words({1, 3, 1, 0xFFFFFFFFu}), 712));
    EXPECT_EQ(voice_stream_params(longest.data()).length, 0u);
}

TEST(RecordMedia, BrokenConnectionsAreSaid) {
    const std::string good = media_items(3);
    const struct {
        std::string bytes;
        const char *wrong;
    } rows[] = {
        {padded(words({2, 84}) + good, 704), "media record of another version"},
        {padded(words({1, 697}) + good, 704), "media record is longer than its room"},
        {padded(words({1, 0xFFFFFFFFu}) + good, 704), "media record is longer than its room"},
        {connection(""), "media record lacks a codec or its payload type"},
        {connection(good.substr(0, 80)), "media record lacks a codec or its payload type"},
        {connection(media_items(4)), "unknown stream mode"},
        {connection(media_items(0xFFFFFFFFu)), "unknown stream mode"},
        {connection(integer(LIBVOICE_PARAM_sdp_upstream_payload, 128) + good), "a payload type is from 0 to 127"},
        {connection(integer(LIBVOICE_PARAM_sdp_downstream_payload, 128) + good), "a payload type is from 0 to 127"},
    };
    for (const auto &row : rows) {
        Buffer info(row.bytes);
        voice_media_t media = {42, {}, {}};
        EXPECT_STREQ(voice_connection_read(info.data(), &media), row.wrong);
        EXPECT_EQ(media.mode, 42u) << "the output keeps what it held";
    }
    Buffer stream(padded(words({5, 4, 1, 84}) + good, 712));
    voice_media_t media = {42, {}, {}};
    uint32_t id = 0;
    EXPECT_STREQ(voice_stream_read(stream.data(), &media, &id), "unknown stream mode");
    EXPECT_EQ(id, 5u);
    EXPECT_EQ(media.mode, 42u);
}

TEST(RecordMedia, CodecsOfEndpointsAreCompared) {
    libvoice_endpoint_t one = {}, other = {};
    const voice_codec_t g722 = {LIBVOICE_CODEC_G722, 9, VOICE_PTIME_20MS, 64000}, pcmu = VOICE_CODEC_PCMU;
    const voice_codec_t others_pcma = {LIBVOICE_CODEC_PCMA, 96, VOICE_PTIME_20MS, 64000};
    voice_codec_t codec = {};
    EXPECT_FALSE(voice_endpoint_common_codec(&one, &other, &codec));
    memcpy(&one.codec_list[0], &g722, sizeof g722);
    memcpy(&one.codec_list[1], &kPcma, sizeof kPcma);
    one.num_of_codecs = 2;
    memcpy(&other.codec_list[0], &pcmu, sizeof pcmu);
    memcpy(&other.codec_list[1], &others_pcma, sizeof others_pcma);
    other.num_of_codecs = 1;
    EXPECT_FALSE(voice_endpoint_common_codec(&one, &other, &codec));
    other.num_of_codecs = 2;
    EXPECT_TRUE(voice_endpoint_common_codec(&one, &other, &codec));
    EXPECT_EQ(codec.codec, LIBVOICE_CODEC_PCMA + 0u);
    EXPECT_EQ(codec.payload_type, 8u) << "the first one's record";
    one.num_of_codecs = 0xFFFFFFFFu;
    EXPECT_FALSE(voice_endpoint_codec(&one, LIBVOICE_ENDPOINT_CODECS, &codec)) << "a count from outside";
    EXPECT_TRUE(voice_endpoint_codec(&one, LIBVOICE_ENDPOINT_CODECS - 1, &codec));
}

TEST(RecordMedia, CallBeginsWithSoundNotWithEventsThatBothKnow) {
    const voice_codec_t event = {LIBVOICE_CODEC_TELEPHONE_EVENT, 101, VOICE_PTIME_20MS, 0};
    libvoice_endpoint_t one = {}, other = {};
    memcpy(&one.codec_list[0], &event, sizeof event);
    memcpy(&one.codec_list[1], &kPcma, sizeof kPcma);
    memcpy(&other.codec_list[0], &event, sizeof event);
    one.num_of_codecs = 2;
    other.num_of_codecs = 1;
    voice_codec_t codec = {};
    EXPECT_FALSE(voice_endpoint_common_codec(&one, &other, &codec)) << "nothing to be heard";
    memcpy(&other.codec_list[1], &kPcma, sizeof kPcma);
    other.num_of_codecs = 2;
    EXPECT_TRUE(voice_endpoint_common_codec(&one, &other, &codec));
    EXPECT_EQ(codec.codec, LIBVOICE_CODEC_PCMA + 0u);
}

TEST(RecordMedia, CodecsThatCarryNoSoundByThemselvesAreKnown) {
    for (const uint32_t codec : {LIBVOICE_CODEC_CN, LIBVOICE_CODEC_CLEARMODE, LIBVOICE_CODEC_TELEPHONE_EVENT,
                                 LIBVOICE_CODEC_TONE, LIBVOICE_CODEC_RED, LIBVOICE_CODEC_T38})
        EXPECT_FALSE(voice_codec_is_audio(codec)) << codec;
    for (const uint32_t codec : {LIBVOICE_CODEC_PCMU, LIBVOICE_CODEC_PCMA, LIBVOICE_CODEC_G722, LIBVOICE_CODEC_G729,
                                 LIBVOICE_CODEC_AMR, LIBVOICE_CODEC_OPUS, LIBVOICE_CODEC_L16_8000})
        EXPECT_TRUE(voice_codec_is_audio(codec)) << codec;
}

TEST(RecordMedia, DescriptorsAreClosedFromOneOn) {
    int32_t descriptors[LIBVOICE_DESCRIPTORS];
    int32_t *array = descriptors;
    const int before = fake::open_descriptors();
    for (int32_t &descriptor : descriptors)
        descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const int32_t fourth = descriptors[3];
    voice_descriptors_close(&array, 2, VOICE_STREAM_DESCRIPTORS);
    EXPECT_EQ(fake::open_descriptors(), before + 9);
    EXPECT_NE(fcntl(fourth, F_GETFD), -1);
    descriptors[2] = -1;
    voice_descriptors_close(&array, 0, LIBVOICE_DESCRIPTORS);
    EXPECT_EQ(fake::open_descriptors(), before);
}

// ------------------------------------------------------------------------------------------------------------ Memory

TEST(RecordMemory, NothingIsAllocated) {
    const Params params(text(LIBVOICE_PARAM_dd_ce_ds, "201"));
    voice_event_message_t event;
    char out[16];
    fake::memory_start();
    voice_event_begin(&event, 7, LIBVOICE_EVENT_dd_ce, 0);
    voice_event_add_text(&event, LIBVOICE_PARAM_dd_ce_ds, "201");
    voice_params_get_text(params, LIBVOICE_PARAM_dd_ce_ds, out, sizeof out);
    EXPECT_EQ(fake::memory_allocations(), 0u);
    EXPECT_EQ(fake::memory_check(0), "");
}

// Other processes may have been built from another state of the header.
TEST(WireValues, AreWhatOtherProcessesRelyOn) {
    EXPECT_EQ(VOICE_ENDPOINT_FXS, 1);
    EXPECT_EQ(VOICE_ENDPOINT_DECT, 2);
    EXPECT_EQ(VOICE_ENDPOINT_FXO, 3);
    EXPECT_EQ(VOICE_SIGNAL_STOP, 1u);
    EXPECT_EQ(VOICE_MODE_INACTIVE, 0);
    EXPECT_EQ(VOICE_MODE_SEND_ONLY, 1);
    EXPECT_EQ(VOICE_MODE_RECEIVE_ONLY, 2);
    EXPECT_EQ(VOICE_MODE_SEND_RECEIVE, 3);
    EXPECT_EQ(VOICE_CAUSE_NORMAL_RELEASE, 1);
    EXPECT_EQ(VOICE_CAUSE_UNAVAILABLE_RESOURCES, 2);
    EXPECT_EQ(VOICE_CAUSE_FAILURE_TEMPORARY, 3);
    EXPECT_EQ(VOICE_CAUSE_FAILURE_PERMANENT, 4);
    EXPECT_EQ(VOICE_CAUSE_INTERWORKING_ERROR, 5);
    EXPECT_EQ(VOICE_CAUSE_UNSUPPORTED, 6);
    EXPECT_EQ(VOICE_VALUE_NONE, 0);
    EXPECT_EQ(VOICE_VALUE_INTEGER, 1);
    EXPECT_EQ(VOICE_VALUE_STRING, 2);
    EXPECT_EQ(VOICE_VALUE_HEX, 3);
    EXPECT_EQ(VOICE_VALUE_BOOLEAN, 4);
    EXPECT_EQ(VOICE_CLASS_SIGNAL, 1u);
    EXPECT_EQ(VOICE_CLASS_EVENT, 2u);
    EXPECT_EQ(VOICE_CNX_VERSION, 1u);
    EXPECT_EQ(VOICE_CNX_PARAMETER_BYTES, 696);
    EXPECT_EQ(VOICE_MESSAGE_PARAMETER_BYTES, 512);
    EXPECT_EQ(VOICE_DESCRIPTOR_MEDIA, 0);
    EXPECT_EQ(VOICE_DESCRIPTOR_CONTROL, 1);
    EXPECT_EQ(VOICE_DESCRIPTOR_FAX, 2);
    EXPECT_EQ(VOICE_STREAM_DESCRIPTORS, 3);
    const voice_codec_t pcma = VOICE_CODEC_PCMA;
    const voice_codec_t pcmu = VOICE_CODEC_PCMU;
    EXPECT_EQ(pcma.payload_type, 8u); // RFC 3551
    EXPECT_EQ(pcmu.payload_type, 0u);
    for (const voice_codec_t &codec : {pcma, pcmu}) {
        EXPECT_EQ(codec.ptime_mask, 2u) << "20 ms";
        EXPECT_EQ(codec.max_bitrate, 64000u);
    }
}

} // namespace
