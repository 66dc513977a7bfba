// SPDX-License-Identifier: MIT
// Endpoints that a plugin registers with the voice application and takes back.
#include "kex_functions_fixture.h"

namespace voice_test {
namespace {

const char *const kRegisterEndpoint = "__VoiceService_register_endpoint";

class RegisterEndpoint : public Handlers {
protected:
    RegisterEndpoint() { have(); }

    void have() {
        memset(endpt_table, 0, sizeof(endpt_table));
        plugin_ = have_plugin(1, "FXS", bus().peer("fxs"));
    }

    Call &fill(Call &call, const std::string &codecs, const std::string &name = "FXS1",
               const std::string &path = "FXS.EndPoint.FXS1") {
        call.attributes(0).with("plugin_name", Value::chars("FXS")).with("endpoint_name", Value::chars(name));
        call.with("endpoint_path", Value::chars(path)).with("type", Value::u16(3));
        return call.with("codeclist", Value::bytes(codecs));
    }

    static std::string codecs(size_t bytes) {
        std::string result;
        for (size_t i = 0; i < bytes; ++i)
            result += static_cast<char>(i * 7 + 1);
        return result;
    }

    voice_plugin_entry_t *plugin_;
};

TEST_F(RegisterEndpoint, TheEntryIsFilledAndItsNumberAnswered) {
    have_endpoint(0, "used", 0);
    const std::string records = codecs(32);
    Call call;
    EXPECT_EQ(fill(call, records).run(__VoiceService_register_endpoint), 0);
    EXPECT_LOG_OF(kRegisterEndpoint, enter(kRegisterEndpoint), plain("Char", "plugin_name", Value::chars("FXS")),
                  plain("Char", "endpoint_name", Value::chars("FXS1")),
                  plain("Char", "endpoint_path", Value::chars("FXS.EndPoint.FXS1")),
                  plain("UInt16", "type", Value::u16(3)), plain("ByteArray", "codeclist", Value::bytes(records)),
                  said("i", kRegisterEndpoint, "Trying to registering endpoint FXS1"),
                  "i libvoice_plugin_get_entry@plugin_table: getting plugin entry for plugin FXS",
                  "i libvoice_plugin_get_entry@plugin_table: voice_plugin_table[1] matches plugin name FXS",
                  "voice_app_register_endpoint(endpt_table[1])", "return_value = i16 7", kDestroyed,
                  leave(kRegisterEndpoint));
    const libvoice_endpoint_t &entry = endpt_table[1];
    EXPECT_EQ(entry.used, 1u);
    EXPECT_STREQ(entry.name, "FXS1");
    EXPECT_EQ(entry.type, 3);
    EXPECT_EQ(entry.encaps_capab, 2u);
    EXPECT_EQ(entry.num_of_codecs, 2u);
    EXPECT_EQ(memcmp(entry.codec_list, records.data(), 32), 0);
    EXPECT_STREQ(entry.endpoint_path, "FXS.EndPoint.FXS1");
    EXPECT_EQ(entry.plugin_table, plugin_);
    EXPECT_EQ(memcmp(&host.entry.codec_list, &entry.codec_list, sizeof(entry.codec_list)), 0)
        << "filled before the callback";
}

TEST_F(RegisterEndpoint, TheNumberIsTheCallbacksBusiness) {
    endpt_table[0].endpoint = 321;
    endpt_table[0].userdata = plugin_;
    Call call;
    EXPECT_EQ(fill(call, "").run(__VoiceService_register_endpoint), 0);
    EXPECT_EQ(host.entry.endpoint, 321);
    EXPECT_EQ(host.entry.userdata, plugin_) << "user data is not touched";
}

TEST_F(RegisterEndpoint, OnlyTheLowSixteenBitsOfTheNumberTravel) {
    const struct {
        int32_t number;
        const char *answer;
    } rows[] = {{0, "i16 0"},      {31, "i16 31"},        {32767, "i16 32767"}, {32768, "i16 -32768"},
                {65535, "i16 -1"}, {0x12345, "i16 9029"}, {-1, "i16 -1"}};
    for (const auto &row : rows) {
        again();
        have();
        host.endpoint = row.number;
        Call call;
        EXPECT_EQ(fill(call, "").run(__VoiceService_register_endpoint), 0);
        EXPECT_EQ(call.returned().str(), row.answer) << "number " << row.number;
        expect_settled(row.answer);
    }
}

TEST_F(RegisterEndpoint, CodecRecordsAreCountedWhole) {
    const struct {
        size_t bytes;
        uint32_t records;
    } rows[] = {{0, 0},  {1, 0},    {15, 0},   {16, 1},   {20, 1},   {31, 1},
                {32, 2}, {255, 15}, {256, 16}, {257, 16}, {272, 16}, {5000, 16}};
    for (const auto &row : rows) {
        again();
        have();
        memset(endpt_table[0].codec_list, 0xa5, sizeof(endpt_table[0].codec_list));
        memset(endpt_table[0].endpoint_path, 0xa5, sizeof(endpt_table[0].endpoint_path));
        const std::string records = codecs(row.bytes);
        Call call;
        EXPECT_EQ(fill(call, records).run(__VoiceService_register_endpoint), 0) << row.bytes << " bytes";
        EXPECT_EQ(endpt_table[0].num_of_codecs, row.records) << row.bytes << " bytes";
        std::string expected = records.substr(0, row.records * 16);
        expected.resize(256, '\xa5');
        EXPECT_EQ(memcmp(endpt_table[0].codec_list, expected.data(), 256), 0) << row.bytes << " bytes";
        EXPECT_STREQ(endpt_table[0].endpoint_path, "FXS.EndPoint.FXS1") << "nothing written behind the records";
        expect_settled(text("%zu bytes", row.bytes));
    }
}

TEST_F(RegisterEndpoint, CodecsWithoutAValueAreNone) {
    Call call;
    call.with("plugin_name", Value::chars("FXS")).with("endpoint_name", Value::chars("FXS1"));
    call.with("endpoint_path", Value::chars("FXS.EndPoint.FXS1")).with("type", Value::u16(3));
    EXPECT_EQ(call.with("codeclist", Value::without_value(VARIANT_BYTES)).run(__VoiceService_register_endpoint), 0);
    EXPECT_EQ(endpt_table[0].num_of_codecs, 0u);
    EXPECT_THAT(bus().complaints(), IsEmpty());
    EXPECT_EQ(call.returned().str(), "i16 7");
}

TEST_F(RegisterEndpoint, NamesAndPathsAreCut) {
    for (const size_t length : {0u, 1u, 14u, 15u, 16u, 17u, 300u}) {
        again();
        have();
        Call call;
        fill(call, "", std::string(length, 'n'));
        EXPECT_EQ(call.run(__VoiceService_register_endpoint), 0);
        EXPECT_EQ(std::string(endpt_table[0].name), std::string(std::min<size_t>(length, 15), 'n'));
        expect_settled(text("name of %zu", length));
    }
    for (const size_t length : {0u, 254u, 255u, 256u, 257u, 3000u}) {
        again();
        have();
        endpt_table[0].plugin_table = nullptr;
        Call call;
        fill(call, "", "FXS1", std::string(length, 'p'));
        EXPECT_EQ(call.run(__VoiceService_register_endpoint), 0);
        EXPECT_EQ(std::string(endpt_table[0].endpoint_path), std::string(std::min<size_t>(length, 255), 'p'));
        EXPECT_EQ(endpt_table[0].plugin_table, plugin_);
        expect_settled(text("path of %zu", length));
    }
}

TEST_F(RegisterEndpoint, AMissingArgumentStopsTheReading) {
    const struct {
        const char *argument, *getter, *said, *entry;
    } rows[] = {
        {"plugin_name", "Char", "Missing 'name' parameter.", "196638, \"Missing 'name' parameter.\", \"name\""},
        {"endpoint_name", "Char", "Missing 'name' parameter.", "196638, \"Missing 'name' parameter.\", \"name\""},
        {"endpoint_path", "Char", "Missing 'name' parameter.", "196638, \"Missing 'name' parameter.\", \"name\""},
        {"type", "UInt16", "Missing 'type' parameter.", "196638, \"Missing 'type' parameter.\", \"type\""},
        {"codeclist", "ByteArray", "Missing argument 'codeclist'",
         "196640, \"Missing mandatory argument\", \"codeclist\""},
    };
    const std::pair<const char *, Value> arguments[] = {{"plugin_name", Value::chars("FXS")},
                                                        {"endpoint_name", Value::chars("FXS1")},
                                                        {"endpoint_path", Value::chars("FXS.EndPoint.FXS1")},
                                                        {"type", Value::u16(3)},
                                                        {"codeclist", Value::bytes("")}};
    for (size_t missing_one = 0; missing_one < 5; ++missing_one)
        for (const bool without_value : {false, true}) {
            if (without_value && missing_one > 2)
                continue;
            again();
            have();
            SCOPED_TRACE(text("missing \"%s\"", rows[missing_one].argument));
            Call call;
            call.attributes(0);
            std::vector<std::string> expected = {enter(kRegisterEndpoint)};
            for (size_t i = 0; i < 5; ++i) {
                Value value = arguments[i].second;
                if (i == missing_one && without_value)
                    value = Value::without_value(VARIANT_TEXT);
                if (i != missing_one || without_value)
                    call.with(arguments[i].first, value);
                if (i < missing_one || (i == missing_one && without_value))
                    expected.push_back(plain(rows[i].getter, arguments[i].first, value));
                else if (i == missing_one)
                    expected.push_back(absent(rows[i].getter, arguments[i].first));
            }
            expected.push_back(said("x", kRegisterEndpoint, rows[missing_one].said));
            expected.push_back(text("reply_addError(call1, %s)", rows[missing_one].entry));
            for (const std::string &line : {kFalse, kDestroyed, leave(kRegisterEndpoint)})
                expected.push_back(line);
            EXPECT_EQ(call.run(__VoiceService_register_endpoint), 2);
            EXPECT_EQ(fake::difference(expected, log_of(kRegisterEndpoint)), "");
            EXPECT_EQ(endpt_table[0].used, 0u);
            expect_settled(rows[missing_one].argument);
        }
}

TEST_F(RegisterEndpoint, ATypeThatDoesNotFitCountsAsMissing) {
    Call call;
    call.with("plugin_name", Value::chars("FXS")).with("endpoint_name", Value::chars("FXS1"));
    call.with("endpoint_path", Value::chars("p")).with("type", Value::u32(65536)).with("codeclist", Value::bytes(""));
    EXPECT_EQ(call.run(__VoiceService_register_endpoint), 2);
    EXPECT_THAT(bus().complaints(), ElementsAre(said("x", kRegisterEndpoint, "Missing 'type' parameter.")));
}

TEST_F(RegisterEndpoint, TheLargestTypeIsKept) {
    Call call;
    call.with("plugin_name", Value::chars("FXS")).with("endpoint_name", Value::chars("FXS1"));
    call.with("endpoint_path", Value::chars("p")).with("type", Value::u16(65535)).with("codeclist", Value::bytes(""));
    EXPECT_EQ(call.run(__VoiceService_register_endpoint), 0);
    EXPECT_EQ(endpt_table[0].type, 65535);
}

TEST_F(RegisterEndpoint, AnUnknownPluginIsRefusedBeforeAnEntryIsClaimed) {
    plugin_->used = 0;
    Call call;
    EXPECT_EQ(fill(call, "").run(__VoiceService_register_endpoint), 2);
    EXPECT_END_OF_LOG_OF(
        kRegisterEndpoint, "i libvoice_plugin_get_entry@plugin_table: getting plugin entry for plugin FXS",
        said("x", kRegisterEndpoint, "Failed regisering endpoint FXS1 - plugin_name FXS doesn't exist"), kFalse,
        kDestroyed, leave(kRegisterEndpoint));
    EXPECT_THAT(call.errors(), IsEmpty());
    EXPECT_EQ(endpt_table[0].used, 0u);
    EXPECT_STREQ(endpt_table[0].name, "");
}

TEST_F(RegisterEndpoint, TheThirtyThirdHasNoSpace) {
    for (unsigned i = 0; i < 32; ++i)
        have_endpoint(i, text("E%u", i).c_str(), static_cast<int32_t>(i));
    Call call;
    EXPECT_EQ(fill(call, "").run(__VoiceService_register_endpoint), 2);
    EXPECT_THAT(bus().complaints(), ElementsAre(said("x", kRegisterEndpoint, "No space to register the endpoint")));
    EXPECT_THAT(call.errors(), IsEmpty());
    EXPECT_EQ(call.returned().str(), "bool false");
}

TEST_F(RegisterEndpoint, ARefusalReleasesTheEntry) {
    libvoice_app_registered_callbacks.voice_app_endpoint_deleted = on_endpoint_deleted;
    for (const int32_t result : {1, -1}) {
        again();
        have();
        libvoice_app_registered_callbacks.voice_app_endpoint_deleted = on_endpoint_deleted;
        host.result = result;
        Call call;
        EXPECT_EQ(fill(call, "").run(__VoiceService_register_endpoint), 2);
        EXPECT_END_OF_LOG_OF(kRegisterEndpoint, "voice_app_register_endpoint(endpt_table[0])",
                             "voice_app_endpoint_deleted(endpt_table[0], used 0)", kFalse, kDestroyed,
                             leave(kRegisterEndpoint));
        EXPECT_EQ(endpt_table[0].used, 0u);
        EXPECT_THAT(call.errors(), IsEmpty());
        expect_settled("refused");
    }
}

TEST_F(RegisterEndpoint, ARefusalThatTookTheEntryBackIsNotDeletedAgain) {
    libvoice_app_registered_callbacks.voice_app_endpoint_deleted = on_endpoint_deleted;
    host.result = 1;
    host.release_endpoint = true;
    Call call;
    EXPECT_EQ(fill(call, "").run(__VoiceService_register_endpoint), 2);
    EXPECT_THAT(bus().acts(), testing::Not(testing::Contains(HasSubstr("endpoint_deleted"))));
}

TEST_F(RegisterEndpoint, ARefusalDeletesByNumberSoTheFirstOfThatNumberGoes) {
    libvoice_app_registered_callbacks.voice_app_endpoint_deleted = on_endpoint_deleted;
    have_endpoint(0, "older", 7);
    host.result = 1;
    Call call;
    EXPECT_EQ(fill(call, "").run(__VoiceService_register_endpoint), 2);
    EXPECT_THAT(bus().acts(), testing::Contains("voice_app_endpoint_deleted(endpt_table[0], used 0)"));
    EXPECT_EQ(endpt_table[1].used, 1u);
}

const char *const kDeregisterEndpoint = "__VoiceService_deregister_endpoint";

class DeregisterEndpoint : public Handlers {};

TEST_F(DeregisterEndpoint, TheEntryGoes) {
    libvoice_app_registered_callbacks.voice_app_endpoint_deleted = on_endpoint_deleted;
    Call call;
    EXPECT_EQ(call.attributes(0).with("endpoint", Value::u16(5)).run(__VoiceService_deregister_endpoint), 0);
    EXPECT_LOG_OF(kDeregisterEndpoint, enter(kDeregisterEndpoint), plain("UInt16", "endpoint", Value::u16(5)),
                  said("i", kDeregisterEndpoint, "Deregister endpoint '5'."),
                  "voice_app_endpoint_deleted(endpt_table[3], used 0)", kDestroyed, kTrue, leave(kDeregisterEndpoint));
    EXPECT_EQ(endpt_table[3].used, 0u);
}

TEST_F(DeregisterEndpoint, AnUnknownNumberIsNoError) {
    Call call;
    EXPECT_EQ(call.attributes(0).with("endpoint", Value::u16(65535)).run(__VoiceService_deregister_endpoint), 0);
    EXPECT_LOG_OF(kDeregisterEndpoint, enter(kDeregisterEndpoint), plain("UInt16", "endpoint", Value::u16(65535)),
                  said("i", kDeregisterEndpoint, "Deregister endpoint '65535'."), kDestroyed, kTrue,
                  leave(kDeregisterEndpoint));
    EXPECT_EQ(endpt_table[3].used, 1u);
}

TEST_F(DeregisterEndpoint, TheNumberIsReadWithoutASign) {
    have_endpoint(4, "FXS2", -1);
    EXPECT_EQ(Call().with("endpoint", Value::u16(65535)).run(__VoiceService_deregister_endpoint), 0);
    EXPECT_EQ(endpt_table[4].used, 1u);
}

TEST_F(DeregisterEndpoint, AMissingNumberIsReportedAsType) {
    Call call;
    EXPECT_EQ(call.attributes(0).run(__VoiceService_deregister_endpoint), 2);
    EXPECT_LOG_OF(kDeregisterEndpoint, enter(kDeregisterEndpoint), absent("UInt16", "endpoint"),
                  said("x", kDeregisterEndpoint, "Missing 'type' parameter."),
                  entry_with("Missing 'type' parameter.", "type"), kDestroyed, kFalse, leave(kDeregisterEndpoint));
}

} // namespace
} // namespace voice_test
