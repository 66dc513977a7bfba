// SPDX-License-Identifier: MIT
// A plugin is started and stopped: the country and the reason that reach it, and the end of a process that cannot start.
#include "kex_functions_fixture.h"

#include <cerrno>
#include <csignal>

namespace voice_test {
namespace {

class PluginInit : public Handlers {};

TEST_F(PluginInit, CountryReachesThePlugin) {
    Call call;
    EXPECT_EQ(call.with("country", Value::chars("AT")).run(__init), 0);
    EXPECT_LOG(enter("__init"), read("Char", "country", Value::chars("AT")), "voice_plugin_init(AT)", kTrue, kDestroyed,
               leave("__init"));
    EXPECT_THAT(call.errors(), IsEmpty());
}

TEST_F(PluginInit, MissingCountryLeavesThePluginRunning) {
    Call call;
    EXPECT_EQ(call.run(__init), 2);
    EXPECT_LOG(enter("__init"), missing("Char", "country"), said("x", "__init", "Missing argument 'country'"),
               entry("country"), kFalse, kDestroyed, leave("__init"));
    EXPECT_THAT(call.errors(), ElementsAre("196640 \"Missing mandatory argument\" \"country\""));
}

TEST_F(PluginInit, CountryWithoutAValueCountsAsMissing) {
    Call call;
    EXPECT_EQ(call.with("country", Value::without_value(VARIANT_TEXT)).run(__init), 2);
    EXPECT_LOG(enter("__init"), read("Char", "country", Value::without_value(VARIANT_TEXT)),
               said("x", "__init", "Missing argument 'country'"), entry("country"), kFalse, kDestroyed,
               leave("__init"));
}

TEST_F(PluginInit, CountryOfAnotherKindCountsAsMissing) {
    EXPECT_EQ(Call().with("country", Value::u32(43)).run(__init), 2);
    EXPECT_THAT(bus().complaints(), ElementsAre(said("x", "__init", "Missing argument 'country'")));
}

TEST_F(PluginInit, AttributesAreTheRequests) {
    Call().attributes(0x0001).with("country", Value::chars("AT")).run(__init);
    EXPECT_EQ(bus().log()[1], read("Char", "country", Value::chars("AT"), 0x0001));
}

class PluginInitDeathTest : public Handlers {};

void init_that_fails(int32_t result) {
    host.result = result;
    libvoice_registered_callbacks.voice_plugin_init = [](const char *) {
        errno = ENODEV;
        return host.result;
    };
    Call call;
    call.with("country", Value::chars("AT")).run(__init);
}

TEST_F(PluginInitDeathTest, AFailingCallbackAbortsTheProcess) {
    for (const int32_t result : {1, -1, 256}) {
        EXPECT_EXIT(init_that_fails(result), testing::KilledBySignal(SIGABRT),
                    "Error initializing plugin.*No such device")
            << "result " << result;
    }
}

// The parent cannot see the child's log, so the child prints it on its way out.
void print_complaints(int) {
    for (const std::string &line : bus().complaints())
        fprintf(stderr, "TRACE %s\n", line.c_str());
    signal(SIGABRT, SIG_DFL);
    raise(SIGABRT);
}

TEST_F(PluginInitDeathTest, TheAbortIsTracedFirst) {
    EXPECT_EXIT(
        {
            signal(SIGABRT, print_complaints);
            init_that_fails(1);
        },
        testing::KilledBySignal(SIGABRT), "TRACE x __init@kex_functions: Error initializing plugin\n");
}

class PluginExit : public Handlers {};

TEST_F(PluginExit, ReasonReachesThePlugin) {
    for (const uint32_t reason : {0u, 32u, 0xFFFFFFFFu}) {
        again();
        Call call;
        EXPECT_EQ(call.with("reason", Value::u32(reason)).run(__exit), 0);
        EXPECT_LOG(enter("__exit"), read("UInt32", "reason", Value::u32(reason)), text("voice_plugin_exit(%u)", reason),
                   kTrue, kDestroyed, leave("__exit"));
        expect_settled(text("reason %u", reason));
    }
}

TEST_F(PluginExit, TheCallbacksResultIsIgnored) {
    host.result = -1;
    Call call;
    EXPECT_EQ(call.with("reason", Value::u32(1)).run(__exit), 0);
    EXPECT_EQ(call.returned().str(), "bool true");
    EXPECT_THAT(bus().complaints(), IsEmpty());
}

TEST_F(PluginExit, AMissingReasonSetsTheValueLast) {
    Call call;
    EXPECT_EQ(call.run(__exit), 2);
    EXPECT_LOG(enter("__exit"), missing("UInt32", "reason"), said("x", "__exit", "Missing argument reason"),
               entry("reason"), kDestroyed, leave("__exit"), kFalse);
}

} // namespace
} // namespace voice_test
