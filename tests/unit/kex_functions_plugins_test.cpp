// SPDX-License-Identifier: MIT
// Plugins register with the voice application and leave it.
#include "kex_functions_fixture.h"

namespace voice_test {
namespace {

void on_init_reply(request_t *, reply_item_t *) {}

const char *const kRegister = "__VoiceService_register_plugin";
const char *const kDeregister = "__VoiceService_deregister_plugin";

class RegisterPlugin : public Handlers {
protected:
    peer_t *peer_ = bus().peer("caller");
};

TEST_F(RegisterPlugin, ThePluginIsKeptAndStartedWithItsCountry) {
    Call call;
    EXPECT_EQ(call.attributes(0).with("plugin_name", Value::chars("FXS")).run(__VoiceService_register_plugin), 0);
    const void *peer = bus().peer("caller");
    EXPECT_LOG_OF(
        kRegister, enter(kRegister), said("i", kRegister, "Trying to register plugin"),
        plain("Char", "plugin_name", Value::chars("FXS")), "voice_app_get_country(00 00 00, 3)",
        said("i", kRegister, "Trying to register plugin: FXS"),
        text("i libvoice_plugin_get_index_by_peer@plugin_table: getting plugin entry for peer %p", peer),
        "i libvoice_plugin_get_next_free_index@plugin_table: getting plugin next free index",
        "i libvoice_plugin_get_next_free_index@plugin_table: voice_plugin_table[ plugin_table_index = 0 ] is free",
        "r1 = request_create_executeFunction(\"FXS\", \"init\", 0x0001)",
        "request_addParameter(r1, \"country\", \"AT\")",
        "i libvoice_plugin_get_entry@plugin_table: getting plugin entry for plugin FXS",
        "i libvoice_plugin_get_entry@plugin_table: voice_plugin_table[0] matches plugin name FXS",
        "kex_sendRequest(bus, caller, r1) = 1", "request_destroy(r1)",
        said("i", kRegister, text("Registered plugin: FXS Peer %p", peer)), kTrue, kDestroyed, leave(kRegister));
    EXPECT_EQ(voice_plugin_table[0].used, 1u);
    EXPECT_STREQ(voice_plugin_table[0].plugin_name, "FXS");
    EXPECT_EQ(voice_plugin_table[0].peer, bus().peer("caller"));
}

TEST_F(RegisterPlugin, WithAReplyCallbackTheRequestBelongsToItsHandler) {
    libvoice_app_registered_callbacks.voice_app_init_reply = on_init_reply;
    bus().name_function(reinterpret_cast<const void *>(on_init_reply), "voice_app_init_reply");
    Call call;
    EXPECT_EQ(call.with("plugin_name", Value::chars("FXS")).run(__VoiceService_register_plugin), 0);
    EXPECT_THAT(bus().acts(), testing::Contains("request_setReplyHandler(r1, voice_app_init_reply)"));
    bus().leaves_requests(1, "the handler owns it");
}

TEST_F(RegisterPlugin, TheSamePeerTwiceKeepsOneEntryWithTheSecondName) {
    EXPECT_EQ(Call().with("plugin_name", Value::chars("FXS")).run(__VoiceService_register_plugin), 0);
    EXPECT_EQ(Call().with("plugin_name", Value::chars("DECT")).run(__VoiceService_register_plugin), 0);
    EXPECT_STREQ(voice_plugin_table[0].plugin_name, "DECT");
    EXPECT_EQ(voice_plugin_table[1].used, 0u);
}

TEST_F(RegisterPlugin, MissingNameIsReportedAsPluginName) {
    for (const bool empty : {false, true}) {
        again();
        Call call;
        if (empty)
            call.with("plugin_name", Value::without_value(VARIANT_TEXT));
        EXPECT_EQ(call.attributes(0).run(__VoiceService_register_plugin), 2);
        EXPECT_LOG_OF(
            kRegister, enter(kRegister), said("i", kRegister, "Trying to register plugin"),
            empty ? plain("Char", "plugin_name", Value::without_value(VARIANT_TEXT)) : absent("Char", "plugin_name"),
            said("x", kRegister, "Missing 'plugin_name' parameter."),
            entry_with("Missing 'plugin_name' parameter.", "plugin_name"), kFalse, kDestroyed, leave(kRegister));
        EXPECT_EQ(voice_plugin_table[0].used, 0u);
        expect_settled(empty ? "without a value" : "missing");
    }
}

TEST_F(RegisterPlugin, ACountryThatCannotBeReadFails) {
    host.result = -1;
    Call call;
    EXPECT_EQ(call.attributes(0).with("plugin_name", Value::chars("FXS")).run(__VoiceService_register_plugin), 2);
    EXPECT_LOG_OF(kRegister, enter(kRegister), said("i", kRegister, "Trying to register plugin"),
                  plain("Char", "plugin_name", Value::chars("FXS")), "voice_app_get_country(00 00 00, 3)",
                  said("x", kRegister, "Error retrieving country code"), kFalse, kDestroyed, leave(kRegister));
    EXPECT_THAT(call.errors(), IsEmpty());
    EXPECT_EQ(voice_plugin_table[0].used, 0u);
}

TEST_F(RegisterPlugin, APositiveCountryResultIsNoFailure) {
    host.result = 2;
    EXPECT_EQ(Call().with("plugin_name", Value::chars("FXS")).run(__VoiceService_register_plugin), 0);
}

TEST_F(RegisterPlugin, ACountryNobodyWroteIsEmpty) {
    host.country = nullptr;
    EXPECT_EQ(Call().with("plugin_name", Value::chars("FXS")).run(__VoiceService_register_plugin), 0);
    EXPECT_EQ(bus().record(1).parameter("country").str(), "\"\"");
}

TEST_F(RegisterPlugin, ACountryWithoutATerminatorEndsAfterTwoLetters) {
    libvoice_app_registered_callbacks.voice_app_get_country = [](char *country, uint32_t size) {
        memset(country, 'X', size);
        return int32_t{0};
    };
    EXPECT_EQ(Call().with("plugin_name", Value::chars("FXS")).run(__VoiceService_register_plugin), 0);
    EXPECT_EQ(bus().record(1).parameter("country").str(), "\"XX\"");
}

TEST_F(RegisterPlugin, AnInitThatCannotBeSentFails) {
    bus().fail("kex_sendRequest");
    Call call;
    EXPECT_EQ(call.with("plugin_name", Value::chars("FXS")).run(__VoiceService_register_plugin), 2);
    EXPECT_END_OF_LOG_OF(kRegister, "request_destroy(r1)", said("x", kRegister, "Error initializing plugin FXS"),
                         kFalse, kDestroyed, leave(kRegister));
    EXPECT_THAT(call.errors(), IsEmpty());
}

TEST_F(RegisterPlugin, ANinthPluginIsRefusedByItsMissingPeer) {
    for (unsigned i = 0; i < 8; ++i)
        have_plugin(i, text("plugin%u", i).c_str(), bus().peer(text("peer%u", i)));
    Call call;
    EXPECT_EQ(call.with("plugin_name", Value::chars("FXS")).run(__VoiceService_register_plugin), 2);
    EXPECT_THAT(bus().complaints(),
                ElementsAre("x libvoice_plugin_set_name_by_peer@plugin_table: No more free slots availabe",
                            said("x", kRegister, "Error initializing plugin FXS")));
}

class DeregisterPlugin : public Handlers {
protected:
    DeregisterPlugin() { have(); }
    void have() {
        plugin_ = have_plugin(2, "FXS", bus().peer("fxs"));
        have_endpoint(4, "FXS2", 6, plugin_);
        libvoice_app_registered_callbacks.voice_app_endpoint_deleted = on_endpoint_deleted;
    }
    voice_plugin_entry_t *plugin_;
};

TEST_F(DeregisterPlugin, ThePluginIsToldAndItsEndpointsGo) {
    Call call;
    EXPECT_EQ(call.attributes(0).with("plugin_name", Value::chars("FXS")).run(__VoiceService_deregister_plugin), 0);
    EXPECT_LOG_OF(kDeregister, enter(kDeregister), plain("Char", "plugin_name", Value::chars("FXS")),
                  "r1 = request_create_executeFunction(\"FXS\", \"exit\", 0x0001)",
                  "request_addParameter(r1, \"reason\", u32 32)",
                  "i libvoice_plugin_get_entry@plugin_table: getting plugin entry for plugin FXS",
                  "i libvoice_plugin_get_entry@plugin_table: voice_plugin_table[2] matches plugin name FXS",
                  "kex_sendRequest(bus, fxs, r1) = 1", "request_destroy(r1)",
                  "i libvoice_plugin_get_entry@plugin_table: getting plugin entry for plugin FXS",
                  "i libvoice_plugin_get_entry@plugin_table: voice_plugin_table[2] matches plugin name FXS",
                  "voice_app_endpoint_deleted(endpt_table[4], used 0)", kDestroyed, kTrue, leave(kDeregister));
    EXPECT_EQ(plugin_->used, 0u);
    EXPECT_EQ(endpt_table[4].used, 0u);
    EXPECT_EQ(endpt_table[3].used, 1u) << "another plugin's endpoint stays";
}

TEST_F(DeregisterPlugin, MissingNameIsReportedAsName) {
    for (const bool empty : {false, true}) {
        again();
        Call call;
        if (empty)
            call.with("plugin_name", Value::without_value(VARIANT_TEXT));
        EXPECT_EQ(call.attributes(0).run(__VoiceService_deregister_plugin), 2);
        EXPECT_LOG_OF(kDeregister, enter(kDeregister),
                      empty ? plain("Char", "plugin_name", Value::without_value(VARIANT_TEXT))
                            : absent("Char", "plugin_name"),
                      said("x", kDeregister, "Missing 'name' parameter."),
                      entry_with("Missing 'name' parameter.", "name"), kDestroyed, kFalse, leave(kDeregister));
        expect_settled(empty ? "without a value" : "missing");
    }
}

TEST_F(DeregisterPlugin, AnExitThatCannotBeSentKeepsThePlugin) {
    bus().fail("kex_sendRequest");
    Call call;
    EXPECT_EQ(call.with("plugin_name", Value::chars("FXS")).run(__VoiceService_deregister_plugin), 2);
    EXPECT_END_OF_LOG_OF(kDeregister, said("x", kDeregister, "Error exiting plugin FXS"), kDestroyed, kFalse,
                         leave(kDeregister));
    EXPECT_EQ(plugin_->used, 1u);
    EXPECT_EQ(endpt_table[4].used, 1u);
}

TEST_F(DeregisterPlugin, AnUnknownPluginCannotBeTold) {
    Call call;
    EXPECT_EQ(call.with("plugin_name", Value::chars("DECT")).run(__VoiceService_deregister_plugin), 2);
    EXPECT_THAT(bus().acts(), testing::Contains("kex_sendRequest(bus, null, r1) = 0"));
    EXPECT_THAT(bus().complaints(), ElementsAre(said("x", kDeregister, "Error exiting plugin DECT")));
}

} // namespace
} // namespace voice_test
