// SPDX-License-Identifier: MIT
// Steps as JSON: names, typed values, the bytes beside them.
#include "byte_order.h"
#include "ladder_fixture.h"

namespace voicectl {

namespace {

class Json : public Ladder {};

TEST_F(Json, OfACall) {
    register_line();
    Bytes parameters;
    add_word(parameters, LIBVOICE_PARAM_al_of_init, 0);
    const std::optional<Step> step =
        traffic.next(Sample(KEX_TAP_ONE_WAY_CALL, in, 1, "fxs_plugin", 2)
                         .call(3, kApplication, "event")
                         .with_text("plugin_name", "fx\"s")
                         .with_bytes("event", event_bytes(4, LIBVOICE_EVENT_al_of, parameters))
                         .record());
    const std::string json = json_line(*step);
    const auto expect = [&json](const char *part) {
        EXPECT_NE(json.find(part), std::string::npos) << part << "\nin " << json;
    };
    expect(R"({"kind":"one_way_call","time_ns":2000000,"from":{"process":"fxs_plugin","pid":1001,"connection":1,)");
    expect(R"("endpoint":"FXS1"},"to":{"process":"voice_application","pid":1000},"bytes":100,"serial":3,)");
    expect(
        R"("path":"VoiceService.VoiceApplication","function":"event","flags":0,"arguments":{"plugin_name":"fx\"s",)");
    expect(
        R"("record":{"kind":"event","endpoint":4,"identifier":{"id":537462016,"name":"LIBVOICE_EVENT_al_of","meaning":"off hook"},)"
        R"("line":1,"items":[{"id":604570882,"name":"LIBVOICE_PARAM_al_of_init","meaning":"already off hook","value":false,"bytes":"00000000","text":"false"}]}})");
}

TEST_F(Json, OfAReply) {
    line(Sample(KEX_TAP_CALL, in, 1, "x", 10).call(1, kApplication, "register_plugin"));
    const std::optional<Step> step = traffic.next(
        Sample(KEX_TAP_REPLY, out, 1, "x", 12).serial(1).with_error(5, "d", "i").with_bool("", false).record());
    EXPECT_EQ(
        json_line(*step),
        R"({"kind":"reply","time_ns":12000000,"from":{"process":"voice_application","pid":1000},)"
        R"("to":{"process":"x","pid":1001,"connection":1},"bytes":100,"serial":1,"path":"VoiceService.VoiceApplication",)"
        R"("function":"register_plugin","result":false,"errors":[{"code":5,"description":"d","info":"i"}],"elapsed_ms":2.000})");
}

TEST_F(Json, OfItemsHoldsTypedValuesAndBytes) {
    Bytes parameters;
    add_word(parameters, LIBVOICE_PARAM_tdmc_gain, static_cast<uint32_t>(-3));
    add_item(parameters, LIBVOICE_PARAM_tdmc_rxgain, {});
    add_text(parameters, LIBVOICE_PARAM_zil_ep_dispname, "Aunt \"M\"");
    add_text(parameters, LIBVOICE_PARAM_andisp_data_db, kCallerBlock);
    add_item(parameters, LIBVOICE_PARAM_zil_fxs_power, {1, 0xAB});
    const std::optional<Step> step = traffic.next(Sample(KEX_TAP_ONE_WAY_CALL, out, 1, "fxs_plugin")
                                                      .call(3, "fxs_a.EndPoint.FXS2", "set")
                                                      .with_bytes("param_set_params", set_bytes(parameters))
                                                      .record());
    const std::string json = json_line(*step);
    const bool is_big = byte_order_here() == ByteOrder::big;
    for (const char *part :
         {is_big ? R"("meaning":"gain","value":-3,"bytes":"fffffffd","text":"-3 dB"})"
                 : R"("meaning":"gain","value":-3,"bytes":"fdffffff","text":"-3 dB"})",
          R"("meaning":"receive gain","value":null,"bytes":"","text":""})",
          R"("value":"Aunt \"M\"","bytes":"41756e7420224d2200","text":"\"Aunt \"M\"\""})",
          R"("value":{"kind":"call","number":"101","name":"FXS1","time":"11211138","called":"102"},"bytes":"3830)",
          R"("value":{"hex":"01ab"},"bytes":"01ab","text":"01 AB"})"})
        EXPECT_NE(json.find(part), std::string::npos) << part << "\nin " << json;
}

TEST_F(Json, OfARegistrationHoldsItsCodecs) {
    Bytes codecs;
    for (const uint32_t word : {8u, 8u, 2u, 64000u, 130u, 98u, 2u, 32000u})
        append_word(codecs, word);
    const std::optional<Step> step = traffic.next(Sample(KEX_TAP_CALL, in, 1, "fxs_plugin")
                                                      .call(3, kApplication, "register_endpoint")
                                                      .with_bytes("codeclist", codecs)
                                                      .record());
    EXPECT_NE(json_line(*step).find(
                  R"("codecs":[{"codec":8,"name":"PCMA","payload_type":8,"ptime_mask":2,"max_bitrate":64000},)"
                  R"({"codec":130,"name":"G726-32","payload_type":98,"ptime_mask":2,"max_bitrate":32000}])"),
              std::string::npos);
}

} // namespace

} // namespace voicectl
