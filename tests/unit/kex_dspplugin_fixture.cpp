// SPDX-License-Identifier: MIT
#include "kex_dspplugin_fixture.h"

namespace voice_test {

Host host;

namespace {

int32_t on_signal(const char *channel, libvoice_signal_t *message) {
    bus().note(text("dsp_plugin_signal(%s)", channel));
    host.bytes.assign(reinterpret_cast<char *>(message), host.take);
    return host.result;
}
void take_media(void *cnx_info, int32_t **descriptors) {
    host.bytes.assign(static_cast<char *>(cnx_info), host.take);
    host.descriptors.assign(*descriptors, *descriptors + 10);
    EXPECT_EQ(bus().live().lists, 0u) << "the list is released before the callback";
}
int32_t on_create(const char *channel, uint32_t line, void *cnx_info, int32_t **descriptors, const char *path) {
    bus().note(text("dsp_plugin_create(%s, %u, %s)", channel, line, path));
    take_media(cnx_info, descriptors);
    return host.result;
}
int32_t on_modify(const char *channel, uint32_t line, void *cnx_info, int32_t **descriptors) {
    bus().note(text("dsp_plugin_modify(%s, %u)", channel, line));
    take_media(cnx_info, descriptors);
    return host.result;
}
int32_t on_destroy(const char *channel, uint32_t line) {
    bus().note(text("dsp_plugin_destroy(%s, %u)", channel, line));
    return host.result;
}

} // namespace

const libvoice_dsp_callbacks_t kCallbacks = {on_signal, on_create, on_modify, on_destroy};

void Dsp::expect_end(const std::vector<std::string> &expected, const std::string &value, const std::string &function) {
    std::vector<std::string> log = log_of(function);
    ASSERT_GE(log.size(), 3u);
    const std::vector<std::string> tail(log.end() - 3, log.end());
    EXPECT_THAT(tail, testing::UnorderedElementsAre(value, kDestroyed, leave(function)));
    log.resize(log.size() - 3);
    EXPECT_EQ(fake::difference(expected, log), "");
}

void Dsp::expect_failures(kex_function_t *run, const char *argument, const Value &value) {
    for (unsigned n = 1;; ++n) {
        ASSERT_LT(n, 20u);
        again();
        Call call;
        call.on(channel()).with(argument, value);
        bus().fail_call(n);
        const int status = call.run(run);
        const std::string failed = bus().failed();
        const bool missing = failed.compare(0, 12, "argument_get") == 0;
        EXPECT_EQ(status, missing ? 2 : 0) << failed;
        EXPECT_EQ(bus().complaints().size(), missing ? 1u : 0u) << failed;
        EXPECT_EQ(call.errors().size(), missing ? 1u : 0u) << failed;
        expect_settled(text("call %u (%s) fails", n, failed.c_str()));
        if (failed.empty())
            break;
        EXPECT_TRUE(missing || failed == "variant_setBool") << failed;
    }
}

} // namespace voice_test
