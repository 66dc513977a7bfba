// SPDX-License-Identifier: MIT
// The records of the library are written and read as they always were, on every target: golden bytes of both byte
// orders, of which each target uses its own.
#include "golden.h"
#include "voice_records.h"
#include "voice_test.h"

namespace voice_test {
namespace {

// What the callbacks saw, as far as the record's length says.
std::string seen;

int32_t on_signal(libvoice_signal_t *message) {
    seen.assign(reinterpret_cast<char *>(message), sizeof *message + message->length);
    return 0;
}
int32_t on_set(libvoice_param_set_t *set) {
    seen.assign(reinterpret_cast<char *>(set), sizeof *set + set->length);
    return 0;
}
int32_t on_event(libvoice_event_t *message) {
    seen.assign(reinterpret_cast<char *>(message), sizeof *message + message->length);
    return 0;
}

class Golden : public VoiceTest {
protected:
    Golden() {
        libvoice_set_pluginname("fxs1");
        libvoice_set_kex_peer_handler(bus().peer("application"));
        have_endpoint(0, "FXS1", 7, have_plugin(0, "fxs1", bus().peer("fxs1")));
        bus().clear_log();
    }

    static std::string sent(const char *parameter) { return bus().record(1).parameter(parameter).data; }
    // A record whose pointer word, at an offset, is what a receiver must not read.
    static std::string without_pointer(std::string record, size_t at) { return record.replace(at, 4, word(0)); }
    static voice_params_t params_of(const std::string &record, size_t head) {
        return {reinterpret_cast<const uint8_t *>(record.data()) + head, static_cast<uint32_t>(record.size() - head)};
    }
};

constexpr uint32_t kCadence[] = {1000, 4000, 400, 200};

TEST_F(Golden, SignalIsWritten) {
    voice_signal_message_t signal;
    voice_signal_begin(&signal, 7, LIBVOICE_SIGNAL_al_ri, 1);
    signal.record.carried[2] = 0x01020304;
    voice_signal_add_cadence(&signal, kCadence, 4);
    voice_signal_add_u32(&signal, LIBVOICE_PARAM_al_ri_freq, 25);
    ASSERT_STREQ(voice_signal_send(&signal), nullptr);
    EXPECT_EQ(sent("signal"), golden::record("signal"));
}

TEST_F(Golden, SignalIsRead) {
    libvoice_registered_callbacks.voice_plugin_signal = on_signal;
    const std::string record = golden::record("signal");
    EXPECT_EQ(Call().with("signal", Value::bytes(record)).run(__EndPoint_signal), 0);
    ASSERT_EQ(without_pointer(seen, 20), record);
    libvoice_signal_t message;
    memcpy(&message, seen.data(), sizeof message);
    const voice_signal_t head = voice_signal_head(&message);
    EXPECT_EQ(head.endpoint, 7);
    EXPECT_EQ(head.signal, LIBVOICE_SIGNAL_al_ri);
    EXPECT_EQ(head.line, 1u);
    EXPECT_EQ(head.message_id, 0x01020304u);
    EXPECT_EQ(head.flags, 0u);
    uint32_t cadence[8], count = 0, frequency = 0;
    ASSERT_TRUE(voice_params_get_cadence(params_of(seen, sizeof message), cadence, 8, &count));
    EXPECT_EQ(std::vector<uint32_t>(cadence, cadence + count), std::vector<uint32_t>(kCadence, kCadence + 4));
    EXPECT_TRUE(voice_params_get_u32(params_of(seen, sizeof message), LIBVOICE_PARAM_al_ri_freq, &frequency));
    EXPECT_EQ(frequency, 25u);
}

TEST_F(Golden, EventIsWritten) {
    ASSERT_STREQ(voice_event_report_cause(7, 1, -6, "no-G729"), nullptr);
    EXPECT_EQ(sent("event"), golden::record("event"));
}

TEST_F(Golden, EventIsRead) {
    libvoice_app_registered_callbacks.voice_app_event = on_event;
    const std::string record = golden::record("event");
    EXPECT_EQ(
        Call().with("plugin_name", Value::chars("fxs1")).with("event", Value::bytes(record)).run(__VoiceService_event),
        0);
    ASSERT_EQ(without_pointer(seen, 12), record);
    libvoice_event_t message;
    memcpy(&message, seen.data(), sizeof message);
    const voice_event_t head = voice_event_head(&message);
    EXPECT_EQ(head.endpoint, 7);
    EXPECT_EQ(head.event, LIBVOICE_EVENT_g_cause);
    EXPECT_EQ(head.line, 1u);
    int32_t cause = 0;
    char why[32] = "";
    EXPECT_TRUE(voice_params_get_i32(params_of(seen, sizeof message), LIBVOICE_PARAM_g_cause_generalcause, &cause));
    EXPECT_EQ(cause, -6);
    EXPECT_EQ(voice_params_get_text(params_of(seen, sizeof message), LIBVOICE_PARAM_g_cause_failurecause, why, 32), 1);
    EXPECT_STREQ(why, "no-G729");
}

TEST_F(Golden, ParameterSetIsWritten) {
    const uint32_t on = 1;
    ASSERT_TRUE(libvoice_set_params(7, LIBVOICE_PARAM_tdmc_ec, &on, sizeof on));
    EXPECT_EQ(without_pointer(sent("param_set_params"), 0), golden::record("parameter-set"));
}

TEST_F(Golden, ParameterSetIsRead) {
    libvoice_registered_callbacks.voice_plugin_set = on_set;
    const std::string record = golden::record("parameter-set");
    EXPECT_EQ(Call().with("param_set_params", Value::bytes(record)).run(__EndPoint_set), 0);
    ASSERT_EQ(without_pointer(seen, 0), record);
    int32_t endpoint = 0;
    int on = 0;
    EXPECT_TRUE(voice_params_get_i32(params_of(seen, 8), LIBVOICE_PARAM_zil_ep_id, &endpoint));
    EXPECT_EQ(endpoint, 7);
    voice_item_t item;
    ASSERT_TRUE(voice_params_find(params_of(seen, 8), LIBVOICE_PARAM_tdmc_ec, &item));
    EXPECT_TRUE(voice_item_get_bool(&item, &on));
    EXPECT_EQ(on, 1);
}

TEST_F(Golden, ParameterBufferIsWrittenAndRead) {
    const std::string golden = golden::record("parameter-buffer");
    std::vector<uint32_t> memory(golden.size() / 4, 0xA5A5A5A5);
    uint8_t *cursor = reinterpret_cast<uint8_t *>(memory.data());
    uint32_t remaining = static_cast<uint32_t>(golden.size());
    const uint32_t packets = 0x01020304, yes = 1;
    const uint8_t block[] = {1, 2, 3, 4, 5};
    const auto add = [&](uint32_t id, uint32_t length, const void *value) {
        EXPECT_EQ(libvoice_add_param(id, length, value, &cursor, &remaining), LIBVOICE_OK) << id;
    };
    add(LIBVOICE_PARAM_zil_call_stats_txpkts, 4, &packets);
    add(LIBVOICE_PARAM_dd_ce_ds, 6, "20189");
    add(LIBVOICE_PARAM_tdmc_ec, 4, &yes);
    add(LIBVOICE_PARAM_andisp_data_db, 5, block);
    add(LIBVOICE_PARAM_sdp_stream_mode, 0, "");
    EXPECT_EQ(remaining, 0u);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(memory.data()), golden.size()), golden);

    memcpy(memory.data(), golden.data(), golden.size());
    voice_params_t rest = {reinterpret_cast<const uint8_t *>(memory.data()), static_cast<uint32_t>(golden.size())};
    std::vector<std::string> items;
    voice_item_t one;
    while (voice_params_next(&rest, &one))
        items.push_back(text("%s ", libvoice_param_str(one.id)) +
                        std::string(reinterpret_cast<const char *>(one.value), one.length));
    EXPECT_THAT(items, ElementsAre("LIBVOICE_PARAM_zil_call_stats_txpkts " + word(packets),
                                   "LIBVOICE_PARAM_dd_ce_ds 20189" + std::string(1, '\0'),
                                   "LIBVOICE_PARAM_tdmc_ec " + word(yes), "LIBVOICE_PARAM_andisp_data_db \1\2\3\4\5",
                                   "LIBVOICE_PARAM_sdp_stream_mode "));
}

TEST_F(Golden, CodecRecordIsWrittenAndRead) {
    const voice_codec_t pcma = VOICE_CODEC_PCMA;
    const std::string golden = golden::record("codec-record");
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(&pcma), sizeof pcma), golden);
    const void *codecs[] = {golden.data(), nullptr};
    bus().answer("register_endpoint", Reply().value(Value::i16(7)));
    int32_t endpoint = -1;
    libvoice_register_endpoint(VOICE_ENDPOINT_FXS, "FXS2", nullptr, codecs, &endpoint);
    EXPECT_EQ(sent("codeclist"), golden);
}

TEST_F(Golden, DataBlockIsWrittenAndRead) {
    char time[] = "10312135", number[] = "201", name[] = "Ann";
    libvoice_db_common_fields common = {};
    common.date_time = {time, 8};
    common.calling_number = {number, 3};
    libvoice_db_message_fields message = {};
    message.name = {name, 3};
    char written[LIBVOICE_DB_TEXT_BYTES];
    uint32_t length = 0;
    ASSERT_EQ(libvoice_db_call_setup_encode(&message, &common, written, &length), 0u);
    const std::string golden = golden::record("data-block");
    EXPECT_EQ(written, golden);
    EXPECT_EQ(golden, golden::record("data-block", golden::kOther));
    EXPECT_EQ(length, golden.size() + 1);

    char read_time[9] = "", read_number[21] = "", read_name[51] = "";
    common.date_time = {read_time, 8};
    common.calling_number = {read_number, 20};
    message.name = {read_name, 50};
    EXPECT_EQ(libvoice_db_call_setup_decode(golden.c_str(), length, &message, &common), 0u);
    EXPECT_STREQ(read_time, time);
    EXPECT_STREQ(read_number, number);
    EXPECT_STREQ(read_name, name);
}

} // namespace
} // namespace voice_test
