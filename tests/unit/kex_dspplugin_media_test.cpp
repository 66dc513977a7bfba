// SPDX-License-Identifier: MIT
// Media of a channel, set up, changed and torn down, and channels without a name.
#include "kex_dspplugin_fixture.h"

namespace voice_test {
namespace {

struct Media : Named {
    const char *function;
    kex_function_t *run;
    bool create;
    const char *called, *unset, *failed;
    const char *descriptor_format;
};

class ChannelMedia : public Dsp, public testing::WithParamInterface<Media> {
protected:
    std::string function_ = GetParam().function;
    const std::string info_ = std::string(704, 'c');

    Call &fill(Call &call, const Value &descriptors, bool line = true) {
        host.take = info_.size();
        call.attributes(0).on(channel()).with("cnx_info", Value::bytes(info_)).with("filedesc", descriptors);
        if (GetParam().create)
            call.with("endpoint_path", Value::chars("FXS.EndPoint.FXS1"));
        return line ? call.with("ep_line_id", Value::u32(9)) : call;
    }
    std::vector<std::string> start(const Value &descriptors) {
        std::vector<std::string> lines = {enter(function_), plain("ByteArray", "cnx_info", Value::bytes(info_)),
                                          plain("List", "filedesc", descriptors)};
        if (GetParam().create)
            lines.push_back(plain("Char", "endpoint_path", Value::chars("FXS.EndPoint.FXS1")));
        return lines;
    }
    int run(Call &call) { return call.run(GetParam().run); }
};

INSTANTIATE_TEST_SUITE_P(, ChannelMedia,
                         testing::Values(Media{"create", "__DSP_CHANNEL_create", __DSP_CHANNEL_create, true,
                                               "dsp_plugin_create(ch3, 9, FXS.EndPoint.FXS1)",
                                               "Call back dsp_plugin_create is not set",
                                               "quibra_dsp_plugin_create FAILED ", "\\nfd[%d] = %d \\n"},
                                         Media{"modify", "__DSP_CHANNEL_modify", __DSP_CHANNEL_modify, false,
                                               "dsp_plugin_modify(ch3, 9)", "Call back dsp_plugin_modify is not set",
                                               "quibra_dsp_plugin_modify FAILED ", "\\nfd[%d] = %d\\n"}),
                         [](const auto &row) { return row.param.name; });

TEST_P(ChannelMedia, DescriptorsReachTheCallbackAtMostTen) {
    for (const size_t count : {1u, 3u, 10u, 12u}) {
        have_files(12);
        const Value sent = Value::fds(files(count));
        Call call;
        EXPECT_EQ(run(fill(call, sent)), 0);
        ASSERT_EQ(host.descriptors.size(), 10u);
        std::vector<std::string> expected = start(sent);
        for (size_t i = 0; i < 10; ++i) {
            if (i >= count) {
                EXPECT_EQ(host.descriptors[i], -1) << "position " << i;
                continue;
            }
            EXPECT_TRUE(same_file(host.descriptors[i], files(count)[i])) << "position " << i;
            char line[64];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
            snprintf(line, sizeof(line), GetParam().descriptor_format, static_cast<int>(i), host.descriptors[i]);
#pragma GCC diagnostic pop
            expected.push_back(said("i", function_, line));
        }
        if (GetParam().create)
            expected.push_back(said("i", function_, "\\nObject name = 'ch3' \\n\\n"));
        expected.push_back(plain("UInt32", "ep_line_id", Value::u32(9)));
        expected.push_back(GetParam().called);
        expect_end(expected, kTrue, function_);
        EXPECT_EQ(host.bytes, info_);
        close_received();
        expect_settled(text("%zu descriptors", count));
    }
}

TEST_P(ChannelMedia, MissingConnectionInformation) {
    for (const bool empty : {false, true}) {
        again();
        Call call;
        call.attributes(0).on(channel()).with("filedesc", Value::fds({-1})).with("ep_line_id", Value::u32(9));
        if (empty)
            call.with("cnx_info", Value::without_value(VARIANT_BYTES));
        EXPECT_EQ(run(call), 2);
        expect_end({enter(function_),
                    empty ? plain("ByteArray", "cnx_info", Value::without_value(VARIANT_BYTES))
                          : absent("ByteArray", "cnx_info"),
                    said("x", function_, "Missing argument cnx_info"), entry("cnx_info")},
                   kFalse, function_);
        expect_settled(empty ? "without a value" : "missing");
    }
}

TEST_P(ChannelMedia, MissingAndEmptyDescriptors) {
    Call missing_call;
    missing_call.attributes(0).on(channel()).with("cnx_info", Value::bytes(info_)).with("ep_line_id", Value::u32(9));
    EXPECT_EQ(run(missing_call), 2);
    expect_end({enter(function_), plain("ByteArray", "cnx_info", Value::bytes(info_)), absent("List", "filedesc"),
                said("x", function_, "Missing argument filedesc"), entry("filedesc")},
               kFalse, function_);
    again();
    Call call;
    EXPECT_EQ(run(fill(call, Value::fds({}))), 2);
    expect_end({enter(function_), plain("ByteArray", "cnx_info", Value::bytes(info_)),
                plain("List", "filedesc", Value::fds({})), said("x", function_, "Empty argument filedesc")},
               kFalse, function_);
    EXPECT_THAT(call.errors(), IsEmpty());
}

TEST_P(ChannelMedia, AMissingLineNamesTheDescriptorsWritesAnEmptyLineAndClosesWhatItTook) {
    for (const size_t count : {1u, 10u, 12u}) {
        have_files(12);
        Call call;
        EXPECT_EQ(run(fill(call, Value::fds(files(count)), false)), 2);
        const std::vector<std::string> log = log_of(function_);
        ASSERT_GE(log.size(), 7u);
        EXPECT_LINES(std::vector<std::string>(log.end() - 7, log.end() - 3), absent("UInt32", "ep_line_id"),
                     said("x", function_, "Missing argument ep_line_id"), entry("filedesc"),
                     said("x[CALL_HOLD]", function_, ""));
        bool cut = false;
        for (const fake::TraceLine &line : bus().traces())
            if (line.zone == "CALL_HOLD") {
                cut = line.rendered.compare(0, 15, "CALL_HO - [x] -") == 0;
                EXPECT_EQ(line.format, "%s%-7.7s%s - %s[%s]%s%s%s - %s(%s@%s:%d)%s");
                EXPECT_EQ(line.level, 100);
            }
        EXPECT_TRUE(cut);
        EXPECT_EQ(call.returned().str(), "bool false");
        EXPECT_TRUE(host.descriptors.empty()) << "the callback was reached";
        expect_settled(text("%zu descriptors", count));
    }
}

TEST_P(ChannelMedia, AnUnsetCallbackClosesWhatItTook) {
    have_files(3);
    libvoice_dsp_registered_callbacks.dsp_plugin_create = nullptr;
    libvoice_dsp_registered_callbacks.dsp_plugin_modify = nullptr;
    Call call;
    EXPECT_EQ(run(fill(call, Value::fds(files(3)))), 2);
    EXPECT_THAT(bus().complaints(), ElementsAre(said("x", function_, GetParam().unset)));
    EXPECT_THAT(call.errors(), IsEmpty());
    EXPECT_EQ(call.returned().str(), "bool false");
}

TEST_P(ChannelMedia, AFailingCallbackKeepsItsDescriptors) {
    for (const int32_t result : {5, -5}) {
        have_files(3);
        host.result = result;
        Call call;
        EXPECT_EQ(run(fill(call, Value::fds(files(3)))), 2) << result;
        EXPECT_THAT(bus().complaints(), ElementsAre(said("x", function_, GetParam().failed)));
        for (size_t i = 0; i < 3; ++i)
            EXPECT_TRUE(same_file(host.descriptors[i], files(3)[i]));
        close_received();
        expect_settled(text("callback answers %d", result));
    }
}

TEST_P(ChannelMedia, AnItemThatIsNoDescriptorKeepsItsPlace) {
    have_files(2);
    Call call;
    EXPECT_EQ(run(fill(call, Value::list({Value::fd(files(2)[0]), Value::u32(7), Value::fd(files(2)[1])}))), 0);
    ASSERT_EQ(host.descriptors.size(), 10u);
    EXPECT_TRUE(same_file(host.descriptors[0], files(2)[0]));
    EXPECT_EQ(host.descriptors[1], -1);
    EXPECT_TRUE(same_file(host.descriptors[2], files(2)[1]));
    close_received();
}

TEST_P(ChannelMedia, EveryFailureOnTheWayEndsAsPromised) {
    for (unsigned n = 1;; ++n) {
        ASSERT_LT(n, 20u);
        have_files(3);
        Call call;
        fill(call, Value::fds(files(3)));
        bus().fail_call(n);
        const int status = run(call);
        const std::string failed = bus().failed();
        if (failed.empty()) {
            EXPECT_EQ(status, 0);
            close_received();
            break;
        }
        if (failed.compare(0, 12, "argument_get") == 0) {
            EXPECT_EQ(status, 2) << failed;
            EXPECT_EQ(call.errors().size(), 1u) << failed;
        } else {
            EXPECT_EQ(status, 0) << failed;
            EXPECT_THAT(bus().complaints(), IsEmpty()) << failed;
        }
        close_received();
        expect_settled(text("call %u (%s) fails", n, failed.c_str()));
    }
}

class ChannelCreate : public Dsp {};

TEST_F(ChannelCreate, AMissingPathClosesTheDescriptors) {
    const std::string function = "__DSP_CHANNEL_create";
    for (const bool empty : {false, true}) {
        have_files(3);
        const Value sent = Value::fds(files(3));
        Call call;
        call.attributes(0).on(channel()).with("cnx_info", Value::bytes("info")).with("filedesc", sent);
        if (empty)
            call.with("endpoint_path", Value::without_value(VARIANT_TEXT));
        EXPECT_EQ(call.with("ep_line_id", Value::u32(9)).run(__DSP_CHANNEL_create), 2);
        expect_end({enter(function), plain("ByteArray", "cnx_info", Value::bytes("info")),
                    plain("List", "filedesc", sent),
                    empty ? plain("Char", "endpoint_path", Value::without_value(VARIANT_TEXT))
                          : absent("Char", "endpoint_path"),
                    said("x", function, "Missing argument endpoint_path"), entry("endpoint_path")},
                   kFalse, function);
        expect_settled(empty ? "without a value" : "missing");
    }
}

// --------------------------------------------------------------------------------------------------------- destroy

class ChannelDestroy : public Dsp {
protected:
    const std::string function_ = "__DSP_CHANNEL_destroy";
};

TEST_F(ChannelDestroy, TheLineReachesTheCallback) {
    Call call;
    EXPECT_EQ(call.attributes(0).on(channel()).with("ep_line_id", Value::u32(9)).run(__DSP_CHANNEL_destroy), 0);
    expect_end({enter(function_), plain("UInt32", "ep_line_id", Value::u32(9)), "dsp_plugin_destroy(ch3, 9)"}, kTrue,
               function_);
}

TEST_F(ChannelDestroy, EveryFailureOnTheWayEndsAsPromised) {
    expect_failures(__DSP_CHANNEL_destroy, "ep_line_id", Value::u32(9));
}

TEST_F(ChannelDestroy, AMissingLineNamesTheDescriptors) {
    Call call;
    EXPECT_EQ(call.attributes(0).on(channel()).run(__DSP_CHANNEL_destroy), 2);
    expect_end({enter(function_), absent("UInt32", "ep_line_id"), said("x", function_, "Missing argument line_id"),
                entry("filedesc")},
               kFalse, function_);
}

TEST_F(ChannelDestroy, AnUnsetCallbackReusesTheModifyText) {
    libvoice_dsp_registered_callbacks.dsp_plugin_destroy = nullptr;
    Call call;
    EXPECT_EQ(call.attributes(0).on(channel()).with("ep_line_id", Value::u32(9)).run(__DSP_CHANNEL_destroy), 2);
    expect_end({enter(function_), plain("UInt32", "ep_line_id", Value::u32(9)),
                said("x", function_, "Call back dsp_plugin_modify is not set")},
               kFalse, function_);
}

TEST_F(ChannelDestroy, AFailingCallback) {
    for (const int32_t result : {1, -1}) {
        again();
        host.result = result;
        Call call;
        EXPECT_EQ(call.attributes(0).on(channel()).with("ep_line_id", Value::u32(9)).run(__DSP_CHANNEL_destroy), 2);
        expect_end({enter(function_), plain("UInt32", "ep_line_id", Value::u32(9)), "dsp_plugin_destroy(ch3, 9)",
                    said("x", function_, "quibra_dsp_plugin_destroy FAILED ")},
                   kFalse, function_);
        expect_settled(text("callback answers %d", result));
    }
}

// ----------------------------------------------------------------------------------------- a channel without a name

class NamelessChannel : public Dsp {};

TEST_F(NamelessChannel, IsCalledByAnEmptyName) {
    const struct {
        kex_function_t *run;
        const char *called;
    } rows[] = {{__DSP_CHANNEL_signal, "dsp_plugin_signal()"},
                {__DSP_CHANNEL_create, "dsp_plugin_create(, 9, path)"},
                {__DSP_CHANNEL_modify, "dsp_plugin_modify(, 9)"},
                {__DSP_CHANNEL_destroy, "dsp_plugin_destroy(, 9)"}};
    for (const auto &row : rows)
        for (const bool object : {true, false}) {
            again();
            SCOPED_TRACE(row.called);
            Call call;
            call.on(object ? bus().nameless_object() : nullptr).with("signal", Value::bytes(signal_bytes(5, "")));
            call.with("cnx_info", Value::bytes("info")).with("filedesc", Value::fds({-1}));
            call.with("endpoint_path", Value::chars("path")).with("ep_line_id", Value::u32(9));
            EXPECT_EQ(call.run(row.run), 0);
            EXPECT_THAT(bus().acts(), testing::Contains(row.called));
            EXPECT_THAT(bus().complaints(), IsEmpty());
            expect_settled(row.called);
        }
}

} // namespace
} // namespace voice_test
