// SPDX-License-Identifier: MIT
// DSPs and channels that are made.
#include "kex_dspplugin_fixture.h"

namespace voice_test {
namespace {

TEST_F(Dsp, InitKeepsTheCallbacksInSilence) {
    libvoice_dsp_registered_callbacks = libvoice_dsp_callbacks_t();
    libvoice_dsp_init(kCallbacks);
    EXPECT_EQ(memcmp(&libvoice_dsp_registered_callbacks, &kCallbacks, sizeof(kCallbacks)), 0);
    EXPECT_EQ(sizeof(kCallbacks), 4 * sizeof(void *));
    EXPECT_THAT(bus().log(), IsEmpty());
}

// ------------------------------------------------------------------------------------------------ DSPs and channels

struct Maker : Named {
    const char *function;
    kex_function_t *run;
    const char *parent, *template_name, *progress, *exists;
};

class DspMakers : public Dsp, public testing::WithParamInterface<Maker> {
protected:
    std::string function_ = GetParam().function;
    std::string template_ = text("%s.%s", GetParam().parent, GetParam().template_name);
    Call &fill(Call &call) {
        bus().object(template_);
        return call.on(bus().object(GetParam().parent)).attributes(0).with("name", Value::chars("key7"));
    }
    std::vector<std::string> start() {
        return {enter(function_), plain("Char", "name", Value::chars("key7")),
                said("i", function_, GetParam().progress),
                text("object_getObject(<%s>, \"%s\", 1, null) = <%s>", GetParam().parent, GetParam().template_name,
                     template_.c_str())};
    }
    std::string looked_ = text("object_getObject(<%s>, \"key7\", 1, null) = null", template_.c_str());
    std::string made_ =
        text("object_createInstance(<%s>, 0, \"key7\") = <%s.key7>", template_.c_str(), template_.c_str());
};

INSTANTIATE_TEST_SUITE_P(
    , DspMakers,
    testing::Values(Maker{"createDsp", "__DSPPlugin_createDsp", __DSPPlugin_createDsp, "dsp.DSPPlugin", "DSP",
                          "dsp_channel_name 'key7'", "DSP with name 'key7' already exists in datamodel."},
                    Maker{"createDspChannel", "__DSP_createDspChannel", __DSP_createDspChannel,
                          "dsp.DSPPlugin.DSP.dsp0", "DSP_CHANNEL", "\\n dsp_channel_name 'key7'\\n",
                          "DSP Channel with name 'key7' already exists in datamodel."}),
    [](const auto &row) { return row.param.name; });

TEST_P(DspMakers, TheInstanceIsMadeAndCommitted) {
    Call call;
    EXPECT_EQ(fill(call).run(GetParam().run), 0);
    std::vector<std::string> expected = start();
    for (const std::string &line : {looked_, made_, text("object_commit(<%s.key7>) = 1", template_.c_str())})
        expected.push_back(line);
    expect_end(expected, kTrue, function_);
    EXPECT_TRUE(bus().exists(template_ + ".key7"));
}

TEST_P(DspMakers, AnExistingInstanceIsRefusedWithoutAnErrorEntry) {
    bus().object(template_ + ".key7");
    Call call;
    EXPECT_EQ(fill(call).run(GetParam().run), 2);
    std::vector<std::string> expected = start();
    expected.push_back(
        text("object_getObject(<%s>, \"key7\", 1, null) = <%s.key7>", template_.c_str(), template_.c_str()));
    expected.push_back(said("x", function_, GetParam().exists));
    expect_end(expected, kFalse, function_);
    EXPECT_THAT(call.errors(), IsEmpty());
}

TEST_P(DspMakers, AnInstanceThatCannotBeMadeSaysDsp) {
    bus().fail("object_createInstance");
    Call call;
    EXPECT_EQ(fill(call).run(GetParam().run), 2);
    std::vector<std::string> expected = start();
    for (const std::string &line : {looked_, text("object_createInstance(<%s>, 0, \"key7\") = null", template_.c_str()),
                                    said("x", function_, "Failed to create instance of 'DSP'.")})
        expected.push_back(line);
    expect_end(expected, kFalse, function_);
}

TEST_P(DspMakers, ACommitThatFails) {
    bus().fail("object_commit");
    Call call;
    EXPECT_EQ(fill(call).run(GetParam().run), 2);
    std::vector<std::string> expected = start();
    for (const std::string &line : {looked_, made_, text("object_commit(<%s.key7>) = 0", template_.c_str()),
                                    said("x", function_, "Failed to commit object.")})
        expected.push_back(line);
    expect_end(expected, kFalse, function_);
}

TEST_P(DspMakers, AMissingName) {
    for (const bool empty : {false, true}) {
        again();
        Call call;
        call.attributes(0).on(bus().object(GetParam().parent));
        if (empty)
            call.with("name", Value::without_value(VARIANT_TEXT));
        EXPECT_EQ(call.run(GetParam().run), 2);
        expect_end({enter(function_),
                    empty ? plain("Char", "name", Value::without_value(VARIANT_TEXT)) : absent("Char", "name"),
                    said("x", function_, "Missing 'name' parameter."), entry_with("Missing 'name' parameter.", "name")},
                   kFalse, function_);
        expect_settled(empty ? "without a value" : "missing");
    }
}

TEST_P(DspMakers, EveryFailureOnTheWayEndsAsPromised) {
    unsigned looks = 0;
    for (unsigned n = 1;; ++n) {
        ASSERT_LT(n, 20u);
        again();
        Call call;
        fill(call);
        bus().fail_call(n);
        const int status = call.run(GetParam().run);
        const std::string failed = bus().failed();
        if (failed.empty()) {
            EXPECT_EQ(status, 0);
            break;
        }
        // The first look is for the template. The second finds nothing in a good run either.
        const bool look = failed == "object_getObject";
        const bool harmless = failed.compare(0, 8, "variant_") == 0 || (look && ++looks == 2);
        EXPECT_EQ(status, harmless ? 0 : 2) << failed;
        EXPECT_EQ(bus().complaints().size(), harmless ? 0u : 1u) << failed;
        if (look && !harmless) {
            EXPECT_THAT(bus().complaints(), ElementsAre(said("x", function_, "Failed to create instance of 'DSP'.")));
        }
        EXPECT_EQ(bus().exists(template_ + ".key7"), harmless || failed == "object_commit") << failed;
        expect_settled(failed);
    }
    EXPECT_EQ(looks, 2u);
}

} // namespace
} // namespace voice_test
