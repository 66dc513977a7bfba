// SPDX-License-Identifier: MIT
// Which steps a filter lets pass, and which of its names nothing came by.
#include "filter.h"

#include "ladder_fixture.h"

namespace voicectl {

namespace {

class Filtered : public Ladder {
protected:
    Filtered() {
        register_line();
        event = *traffic.next(Sample(KEX_TAP_ONE_WAY_CALL, in, 1, "fxs_plugin")
                                  .call(3, kApplication, "event")
                                  .with_bytes("event", event_bytes(4, LIBVOICE_EVENT_al_of))
                                  .record());
        call = *traffic.next(Sample(KEX_TAP_CALL, in, 1, "fxs_plugin")
                                 .call(4, kApplication, "register_plugin")
                                 .with_text("plugin_name", "fxs_a")
                                 .record());
        reply = *traffic.next(Sample(KEX_TAP_REPLY, out, 1, "fxs_plugin").serial(4).with_bool("", true).record());
        lost = *traffic.next(Sample(KEX_TAP_LOST, in, 0, "").lost(1).record());
    }
    Step event, call, reply, lost;
};

TEST_F(Filtered, WithoutARuleEverythingPasses) {
    for (const Step &step : {event, call, reply, lost})
        EXPECT_TRUE(Filter{}.passes(step));
}

TEST_F(Filtered, ByEndpointWithOrWithoutItsPlugin) {
    EXPECT_TRUE(Filter{.endpoints = {"FXS1"}}.passes(event));
    EXPECT_TRUE(Filter{.endpoints = {"fxs_a.FXS1"}}.passes(event));
    EXPECT_FALSE(Filter{.endpoints = {"FXS2"}}.passes(event));
    EXPECT_FALSE(Filter{.endpoints = {"fxs_b.FXS1"}}.passes(event));
    EXPECT_FALSE(Filter{.endpoints = {"FXS1"}}.passes(call));
}

TEST_F(Filtered, ByPluginOrProcess) {
    EXPECT_TRUE(Filter{.plugins = {"fxs_a"}}.passes(event));
    EXPECT_TRUE(Filter{.plugins = {"fxs_plugin"}}.passes(event));
    EXPECT_FALSE(Filter{.plugins = {"dect"}}.passes(event));
}

TEST_F(Filtered, ByFunctionWithTheReply) {
    const Filter filter{.functions = {"register_plugin"}};
    EXPECT_TRUE(filter.passes(call));
    EXPECT_TRUE(filter.passes(reply));
    EXPECT_FALSE(filter.passes(event));
}

TEST_F(Filtered, ByPackageOfWhatAnEventCarries) {
    EXPECT_TRUE(Filter{.packages = {"al"}}.passes(event));
    EXPECT_FALSE(Filter{.packages = {"cg"}}.passes(event));
    EXPECT_FALSE(Filter{.packages = {"al"}}.passes(call));
}

TEST_F(Filtered, ByDirectionOfTheCall) {
    EXPECT_TRUE(Filter{.direction = Filter::Direction::in}.passes(call));
    EXPECT_TRUE(Filter{.direction = Filter::Direction::in}.passes(reply));
    EXPECT_FALSE(Filter{.direction = Filter::Direction::out}.passes(reply));
}

TEST_F(Filtered, LostCopiesAlwaysPass) {
    EXPECT_TRUE((Filter{.endpoints = {"FXS9"}, .functions = {"x"}}.passes(lost)));
}

TEST_F(Filtered, NamesThatNothingCameByAreTold) {
    Unseen unseen({.endpoints = {"FXS1", "fxs_a.FXS1", "FXS9"}, .plugins = {"fxs_a", "fxs_plugin", "dect\x1B"}});
    unseen.note(call);
    unseen.note(event);
    EXPECT_EQ(unseen.sentences(), (std::vector<std::string>{"nothing of a plugin 'dect\\x1B' so far; seen: fxs_a",
                                                            "nothing of an endpoint 'FXS9' so far; seen: fxs_a"}));
}

TEST_F(Filtered, NamesThatCameByAreShownPrintable) {
    Step step = call;
    step.peer.plugin = "fxs\x1B[2J\xC2\x9B";
    Unseen unseen({.plugins = {"dect1"}});
    unseen.note(step);
    EXPECT_EQ(unseen.sentences(),
              std::vector<std::string>{"nothing of a plugin 'dect1' so far; seen: fxs\\x1B[2J\\xC2\\x9B"});
}

TEST_F(Filtered, NothingCameByAtAll) {
    EXPECT_EQ(Unseen({.plugins = {"fxs_a"}}).sentences(),
              std::vector<std::string>{"nothing of a plugin 'fxs_a' so far; no plugin has come by"});
    EXPECT_TRUE(Unseen({.functions = {"event"}}).sentences().empty());
}

TEST(KnownNames, PackagesOfTheVocabulary) {
    for (const char *package : {"g", "root", "al", "cg", "zil", "sdp"})
        EXPECT_EQ(package_problem(package), "") << package;
    EXPECT_EQ(package_problem("AL").find("no package 'AL'; there are ajb al alert andisp "), 0u);
    EXPECT_EQ(package_problem("").find("no package ''"), 0u);
}

TEST(KnownNames, FunctionsOfTheVoiceSystem) {
    for (const char *function : {"init", "event", "register_endpoint", "createDspChannel", "list"})
        EXPECT_TRUE(is_known_function(function)) << function;
    for (const char *function : {"", "Event", "EndPoint", "regster"})
        EXPECT_FALSE(is_known_function(function)) << function;
}

} // namespace

} // namespace voicectl
