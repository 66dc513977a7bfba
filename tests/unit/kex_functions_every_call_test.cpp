// SPDX-License-Identifier: MIT
// What holds for all bus functions: what a callback that fails comes to, a table without event callback that keeps none of the
// others away, and what is kept whichever call of the platform fails.
#include "kex_functions_fixture.h"

namespace voice_test {
namespace {

struct WholeCall : Named {
    kex_function_t *run;
    std::vector<std::pair<const char *, Value>> arguments;
    std::string called; // the plugin's callback that it reaches; empty: it is for the voice application

    void fill(Call &call) const {
        for (const auto &[argument, value] : arguments)
            call.with(argument, value);
    }
};

std::vector<WholeCall> every_call() {
    const std::string message = item(kId, "x");
    const std::vector<std::pair<const char *, Value>> media = {{"cnx_info", Value::bytes(std::string(704, 'c'))},
                                                               {"filedesc", Value::fds({-1, -1, -1})},
                                                               {"ep_line_id", Value::u32(1)}};
    const Value context = Value::u32(1), stream = Value::u32(2), stream_info = Value::bytes(std::string(712, 's'));
    return {
        {{"init"}, __init, {{"country", Value::chars("AT")}}, "voice_plugin_init(AT)"},
        {{"exit"}, __exit, {{"reason", Value::u32(1)}}, "voice_plugin_exit(1)"},
        {{"signal"}, __EndPoint_signal, {{"signal", Value::bytes(signal_bytes(5, message))}}, "voice_plugin_signal()"},
        {{"event"},
         __EndPoint_event,
         {{"event", Value::bytes(event_bytes(5, message))}, {"channel_id", Value::u32(1)}},
         "voice_plugin_event(endpoint 5, channel 1)"},
        {{"create"}, __EndPoint_create, media, "voice_plugin_create(5, 1)"},
        {{"modify"}, __EndPoint_modify, media, "voice_plugin_modify(5, 1)"},
        {{"destroy"}, __EndPoint_destroy, {{"ep_line_id", Value::u32(1)}}, "voice_plugin_destroy(5, 1)"},
        {{"get"},
         __EndPoint_get,
         {{"param_set_request", Value::bytes(set_bytes(item(kId, "")))}},
         "voice_plugin_get(result empty, 0)"},
        {{"set"}, __EndPoint_set, {{"param_set_params", Value::bytes(set_bytes(item(kId, "")))}}, "voice_plugin_set()"},
        {{"create_ctx"}, __create_ctx, {{"ctx_id", context}}, "voice_plugin_create_ctx(1)"},
        {{"add_stream"},
         __add_stream,
         {{"ep_id", Value::i32(5)},
          {"ctx_id", context},
          {"line_id", Value::u32(9)},
          {"stream_info", stream_info},
          {"filedesc", Value::fds({-1, -1, -1})}},
         "voice_plugin_add_stream(1, endpoint 5, line 9)"},
        {{"modify_stream"},
         __modify_stream,
         {{"ctx_id", context}, {"stream_info", stream_info}},
         "voice_plugin_modify_stream(1)"},
        {{"remove_stream"},
         __remove_stream,
         {{"ctx_id", context}, {"stream_id", stream}},
         "voice_plugin_remove_stream(1, 2)"},
        {{"destroy_ctx"}, __destroy_ctx, {{"ctx_id", context}}, "voice_plugin_destroy_ctx(1)"},
        {{"register_plugin"}, __VoiceService_register_plugin, {{"plugin_name", Value::chars("DECT")}}, ""},
        {{"deregister_plugin"}, __VoiceService_deregister_plugin, {{"plugin_name", Value::chars("FXS")}}, ""},
        {{"register_endpoint"},
         __VoiceService_register_endpoint,
         {{"plugin_name", Value::chars("FXS")},
          {"endpoint_name", Value::chars("FXS2")},
          {"endpoint_path", Value::chars("FXS.EndPoint.FXS2")},
          {"type", Value::u16(1)},
          {"codeclist", Value::bytes(std::string(32, 'k'))}},
         ""},
        {{"deregister_endpoint"}, __VoiceService_deregister_endpoint, {{"endpoint", Value::u16(5)}}, ""},
        {{"service_event"},
         __VoiceService_event,
         {{"plugin_name", Value::chars("FXS")}, {"event", Value::bytes(event_bytes(5, message))}},
         ""},
    };
}

class WithoutEventCallback : public Handlers {};

TEST_F(WithoutEventCallback, EveryOtherCallReachesItsCallback) {
    int reached = 0;
    for (const WholeCall &row : every_call()) {
        if (row.called.empty() || row.run == __EndPoint_event)
            continue;
        again();
        SCOPED_TRACE(row.name);
        libvoice_registered_callbacks.voice_plugin_event = nullptr;
        Call call;
        row.fill(call);
        EXPECT_EQ(call.on(endpoint_object()).run(row.run), 0);
        EXPECT_THAT(bus().acts(), testing::Contains(row.called));
        EXPECT_THAT(bus().complaints(), IsEmpty());
        expect_settled(row.name);
        ++reached;
    }
    EXPECT_EQ(reached, 13);
}

class CallbackAnswer : public Handlers {};

// On either side of 0. "init" ends the process then, "exit" and "event" tell their caller nothing of it.
TEST_F(CallbackAnswer, AnyOtherThanZeroIsAFailure) {
    int failed = 0;
    for (const WholeCall &row : every_call()) {
        if (row.called.empty() || row.run == __init || row.run == __exit || row.run == __EndPoint_event)
            continue;
        for (const int32_t result : {1, -1, INT32_MAX, INT32_MIN}) {
            again();
            host.result = result;
            Call call;
            row.fill(call.on(endpoint_object()));
            EXPECT_EQ(call.run(row.run), 2) << row.name << " whose callback answers " << result;
            EXPECT_THAT(bus().acts(), testing::Contains(row.called));
            expect_settled(row.name);
        }
        ++failed;
    }
    EXPECT_EQ(failed, 11);
}

class NthFailure : public Handlers, public testing::WithParamInterface<WholeCall> {
protected:
    void set_up() {
        again();
        voice_plugin_entry_t *plugin = have_plugin(0, "FXS", bus().peer("fxs"));
        endpt_table[3].plugin_table = plugin;
        host.cnx_bytes = 704;
        host.descriptors.assign(3, -1);
    }
};

// With the n-th platform call failing, for every n until a run needs no more: a getter that fails is a missing
// argument, any other failure changes no promise to the caller, and nothing is left.
TEST_P(NthFailure, EveryRunEndsAsPromised) {
    const WholeCall &row = GetParam();
    const bool always_done = row.run == __EndPoint_event;
    for (unsigned n = 1;; ++n) {
        set_up();
        ASSERT_LT(n, 50u);
        Call call;
        row.fill(call.on(endpoint_object()));
        bus().fail_call(n);
        const int status = call.run(row.run);
        const std::string failed = bus().failed();
        if (failed.empty()) {
            EXPECT_EQ(status, 0) << "with nothing failing";
            EXPECT_THAT(bus().complaints(), IsEmpty());
            EXPECT_GT(n, row.arguments.size()) << "every argument is read";
            break;
        }
        SCOPED_TRACE(text("call %u, %s, failed", n, failed.c_str()));
        const bool missing_argument = failed.compare(0, 12, "argument_get") == 0;
        const bool refused = failed == "kex_sendRequest" || failed == "request_create_executeFunction";
        EXPECT_EQ(status, (missing_argument || refused) && !always_done ? 2 : 0);
        if (missing_argument) {
            EXPECT_EQ(bus().complaints().size(), 1u);
            EXPECT_EQ(call.errors().size(), 1u);
            EXPECT_THAT(bus().acts(), testing::Not(testing::Contains(testing::StartsWith("voice_plugin_"))));
        } else if (!refused) {
            EXPECT_THAT(bus().complaints(), IsEmpty());
        }
        expect_settled(text("%s, call %u (%s) fails", row.name, n, failed.c_str()));
    }
}

INSTANTIATE_TEST_SUITE_P(, NthFailure, testing::ValuesIn(every_call()), [](const auto &row) { return row.param.name; });

} // namespace
} // namespace voice_test
