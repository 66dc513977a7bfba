// SPDX-License-Identifier: MIT
// Media of a line: connection information and descriptors that reach the plugin, and who closes them when a call fails.
#include "kex_functions_fixture.h"

namespace voice_test {
namespace {

struct MediaFunction : Named {
    const char *function;
    kex_function_t *run;
    const char *called;
    const char *failed;
};

class EndPointMedia : public Handlers, public testing::WithParamInterface<MediaFunction> {
protected:
    const char *function() const { return GetParam().function; }
    int run(Call &call) { return call.run(GetParam().run); }

    static std::string cnx(size_t bytes) {
        std::string result;
        for (size_t i = 0; i < bytes; ++i)
            result += static_cast<char>('a' + i % 26);
        host.cnx_bytes = bytes;
        return result;
    }

    std::vector<std::string> descriptor_lines(size_t count) {
        std::vector<std::string> lines;
        for (size_t i = 0; i < count; ++i)
            lines.push_back(said("i", function(), text("\\nfd[%zu] = %d\\n", i, host.descriptors[i])));
        return lines;
    }
};

INSTANTIATE_TEST_SUITE_P(, EndPointMedia,
                         testing::Values(MediaFunction{"create", "__EndPoint_create", __EndPoint_create,
                                                       "voice_plugin_create(5, 9)", "voice plugin create FAILED"},
                                         MediaFunction{"modify", "__EndPoint_modify", __EndPoint_modify,
                                                       "voice_plugin_modify(5, 9)", "voice plugin modify FAILED"}),
                         [](const auto &row) { return row.param.name; });

TEST_P(EndPointMedia, DescriptorsAndConnectionReachThePlugin) {
    for (const size_t bytes : {0ul, 1ul, 703ul, 704ul}) {
        have_files(3);
        const std::string info = cnx(bytes);
        const std::vector<int> sent = files(3);
        Call call;
        call.on(endpoint_object()).with("cnx_info", Value::bytes(info)).with("filedesc", Value::fds(sent));
        EXPECT_EQ(run(call.with("ep_line_id", Value::u32(9))), 0) << bytes << " bytes";
        ASSERT_EQ(host.descriptors.size(), 10u);
        std::vector<std::string> expected = {enter(function()), read("ByteArray", "cnx_info", Value::bytes(info)),
                                             read("List", "filedesc", Value::fds(sent))};
        for (const std::string &line : descriptor_lines(3))
            expected.push_back(line);
        for (const std::string &line : {read("UInt32", "ep_line_id", Value::u32(9)), std::string(GetParam().called),
                                        kTrue, kDestroyed, leave(function())})
            expected.push_back(line);
        EXPECT_EQ(fake::difference(expected, log_of(function())), "");
        for (size_t i = 0; i < 3; ++i)
            EXPECT_TRUE(same_file(host.descriptors[i], sent[i])) << "position " << i;
        for (size_t i = 3; i < 10; ++i)
            EXPECT_EQ(host.descriptors[i], -1) << "position " << i;
        EXPECT_EQ(host.bytes, info);
        close_received();
        expect_settled(text("%zu bytes", bytes));
    }
}

TEST_P(EndPointMedia, ANegativeDescriptorKeepsItsPlace) {
    have_files(2);
    Call call;
    call.on(endpoint_object()).with("cnx_info", Value::bytes(cnx(704)));
    call.with("filedesc", Value::fds({files(2)[0], -1, files(2)[1]})).with("ep_line_id", Value::u32(9));
    EXPECT_EQ(run(call), 0);
    EXPECT_TRUE(same_file(host.descriptors[0], files(2)[0]));
    EXPECT_EQ(host.descriptors[1], -1);
    EXPECT_TRUE(same_file(host.descriptors[2], files(2)[1]));
    close_received();
}

TEST_P(EndPointMedia, OfTwelveDescriptorsTheFirstTenAreTakenAndTheRestClosed) {
    for (const size_t count : {9u, 10u, 11u, 12u}) {
        have_files(12);
        Call call;
        call.on(endpoint_object()).with("cnx_info", Value::bytes(cnx(704)));
        call.with("filedesc", Value::fds(files(count))).with("ep_line_id", Value::u32(9));
        EXPECT_EQ(run(call), 0);
        for (size_t i = 0; i < std::min<size_t>(count, 10); ++i)
            EXPECT_TRUE(same_file(host.descriptors[i], files(count)[i])) << "position " << i;
        size_t lines = 0;
        for (const std::string &line : bus().trace_log())
            lines += line.find("fd[") != std::string::npos;
        EXPECT_EQ(lines, std::min<size_t>(count, 10));
        close_received();
        expect_settled(text("%zu descriptors", count));
    }
}

TEST_P(EndPointMedia, AnUnknownEndpointIsRefused) {
    for (const OtherObject &other : kOtherObjects) {
        have_files(3);
        SCOPED_TRACE(other.what);
        Call call;
        call.on(other.get()).with("cnx_info", Value::bytes(cnx(704))).with("filedesc", Value::fds(files(3)));
        EXPECT_EQ(run(call.with("ep_line_id", Value::u32(9))), 2);
        EXPECT_LOG_OF(function(), enter(function()), said("x", function(), "Invalid endpoint id -1"),
                      "reply_addError(call1, 196640, \"Invalid endpoint\", \"id\")", kFalse, kDestroyed,
                      leave(function()));
        expect_settled(other.what);
    }
}

TEST_P(EndPointMedia, ANegativeNumberIsNoEndpointAndIsShown) {
    have_endpoint(3, "FXS1", -7);
    Call call;
    EXPECT_EQ(run(call.on(endpoint_object()).with("cnx_info", Value::bytes(cnx(704)))), 2);
    EXPECT_THAT(bus().complaints(), ElementsAre(said("x", function(), "Invalid endpoint id -7")));
    EXPECT_THAT(call.errors(), ElementsAre("196640 \"Invalid endpoint\" \"id\""));
}

TEST_P(EndPointMedia, MissingConnectionInformationFailsBeforeDescriptorsAreRead) {
    for (const bool empty : {false, true}) {
        have_files(3);
        Call call;
        call.on(endpoint_object()).with("filedesc", Value::fds(files(3))).with("ep_line_id", Value::u32(9));
        if (empty)
            call.with("cnx_info", Value::without_value(VARIANT_BYTES));
        EXPECT_EQ(run(call), 2);
        EXPECT_LOG_OF(function(), enter(function()),
                      empty ? read("ByteArray", "cnx_info", Value::without_value(VARIANT_BYTES))
                            : missing("ByteArray", "cnx_info"),
                      said("x", function(), "Missing argument cnx_info"), entry("cnx_info"), kFalse, kDestroyed,
                      leave(function()));
        expect_settled(empty ? "without a value" : "missing");
    }
}

TEST_P(EndPointMedia, MissingDescriptorsFailWithTheirEntry) {
    Call call;
    call.on(endpoint_object()).with("cnx_info", Value::bytes(cnx(704))).with("ep_line_id", Value::u32(9));
    EXPECT_EQ(run(call), 2);
    EXPECT_LOG_OF(function(), enter(function()), read("ByteArray", "cnx_info", Value::bytes(cnx(704))),
                  missing("List", "filedesc"), said("x", function(), "Missing argument filedesc"), entry("filedesc"),
                  kFalse, kDestroyed, leave(function()));
}

TEST_P(EndPointMedia, AnEmptyDescriptorListFailsWithoutAnErrorEntry) {
    Call call;
    call.on(endpoint_object()).with("cnx_info", Value::bytes(cnx(704))).with("filedesc", Value::fds({}));
    EXPECT_EQ(run(call.with("ep_line_id", Value::u32(9))), 2);
    EXPECT_LOG_OF(function(), enter(function()), read("ByteArray", "cnx_info", Value::bytes(cnx(704))),
                  read("List", "filedesc", Value::fds({})), said("x", function(), "Empty argument filedesc"), kFalse,
                  kDestroyed, leave(function()));
    EXPECT_THAT(call.errors(), IsEmpty());
}

TEST_P(EndPointMedia, DescriptorsWithoutAValueAreNeverPassedOn) {
    Call call;
    call.on(endpoint_object()).with("cnx_info", Value::bytes(cnx(704)));
    call.with("filedesc", Value::without_value(VARIANT_LIST)).with("ep_line_id", Value::u32(9));
    EXPECT_EQ(run(call), 2);
    EXPECT_EQ(call.returned().str(), "bool false");
    EXPECT_EQ(bus().complaints().size(), 1u);
}

TEST_P(EndPointMedia, MissingLineClosesTheDescriptorsTaken) {
    for (const size_t count : {1u, 3u, 10u, 12u}) {
        have_files(12);
        Call call;
        call.on(endpoint_object()).with("cnx_info", Value::bytes(cnx(704))).with("filedesc", Value::fds(files(count)));
        EXPECT_EQ(run(call), 2);
        EXPECT_END_OF_LOG_OF(function(), missing("UInt32", "ep_line_id"),
                             said("x", function(), "Missing argument line_id"), entry("ep_line_id"), kFalse, kDestroyed,
                             leave(function()));
        EXPECT_TRUE(host.descriptors.empty()) << "the callback was reached";
        expect_settled(text("%zu descriptors", count));
    }
}

TEST_P(EndPointMedia, AFailingCallbackKeepsItsDescriptors) {
    for (const int32_t result : {-1, 1}) {
        have_files(3);
        host.result = result;
        Call call;
        call.on(endpoint_object()).with("cnx_info", Value::bytes(cnx(704))).with("filedesc", Value::fds(files(3)));
        EXPECT_EQ(run(call.with("ep_line_id", Value::u32(9))), 2) << result;
        EXPECT_END_OF_LOG_OF(function(), GetParam().called, said("x", function(), GetParam().failed), kFalse,
                             kDestroyed, leave(function()));
        EXPECT_THAT(call.errors(), IsEmpty());
        for (size_t i = 0; i < 3; ++i)
            EXPECT_TRUE(same_file(host.descriptors[i], files(3)[i])) << "still the callback's, position " << i;
        close_received();
        expect_settled(text("callback answers %d", result));
    }
}

class EndPointModify : public Handlers {};

TEST_F(EndPointModify, TheLongFormStillWantsDescriptors) {
    host.cnx_bytes = 736;
    Call call;
    call.on(endpoint_object()).with("cnx_info", Value::bytes(std::string(736, 'c'))).with("ep_line_id", Value::u32(9));
    EXPECT_EQ(call.run(__EndPoint_modify), 2);
    EXPECT_THAT(bus().complaints(), ElementsAre(said("x", "__EndPoint_modify", "Missing argument filedesc")));
    EXPECT_THAT(call.errors(), ElementsAre("196640 \"Missing mandatory argument\" \"filedesc\""));
}

TEST_F(EndPointModify, AnyLengthIsPassedWithItsDescriptors) {
    for (const size_t bytes : {705ul, 736ul, 2000ul}) {
        have_files(1);
        host.cnx_bytes = bytes;
        Call call;
        call.on(endpoint_object()).with("cnx_info", Value::bytes(std::string(bytes, 'c')));
        call.with("filedesc", Value::fds(files(1))).with("ep_line_id", Value::u32(9));
        EXPECT_EQ(call.run(__EndPoint_modify), 0) << bytes;
        EXPECT_TRUE(same_file(host.descriptors[0], files(1)[0]));
        EXPECT_EQ(host.descriptors[1], -1);
        close_received();
        expect_settled(text("%zu bytes", bytes));
    }
}

TEST_F(EndPointModify, EndpointZeroIsOneLikeOthers) {
    have_files(1);
    have_endpoint(3, "FXS1", 0);
    host.cnx_bytes = 705;
    Call call;
    call.on(endpoint_object()).with("cnx_info", Value::bytes(std::string(705, 'c')));
    call.with("filedesc", Value::fds(files(1))).with("ep_line_id", Value::u32(9));
    EXPECT_EQ(call.run(__EndPoint_modify), 0);
    ASSERT_EQ(host.descriptors.size(), 10u);
    EXPECT_TRUE(same_file(host.descriptors[0], files(1)[0]));
    EXPECT_TRUE(call.errors().empty());
    close_received();
}

// --------------------------------------------------------------------------------------------------------- destroy

const char *const kDestroy = "__EndPoint_destroy";

class EndPointDestroy : public Handlers {};

TEST_F(EndPointDestroy, EndpointZeroIsOneLikeOthers) {
    have_endpoint(3, "FXS1", 0);
    Call call;
    call.on(endpoint_object()).with("ep_line_id", Value::u32(9));
    EXPECT_EQ(call.run(__EndPoint_destroy), 0);
    EXPECT_TRUE(call.errors().empty());
}

TEST_F(EndPointDestroy, TheLineReachesThePlugin) {
    Call call;
    EXPECT_EQ(call.on(endpoint_object()).with("ep_line_id", Value::u32(9)).run(__EndPoint_destroy), 0);
    EXPECT_LOG_OF(kDestroy, enter(kDestroy), read("UInt32", "ep_line_id", Value::u32(9)), "voice_plugin_destroy(5, 9)",
                  kTrue, kDestroyed, leave(kDestroy));
}

TEST_F(EndPointDestroy, AFailingCallbackIsTracedWithItsCode) {
    for (const int32_t result : {-12, 1, INT32_MIN}) {
        again();
        host.result = result;
        Call call;
        EXPECT_EQ(call.on(endpoint_object()).with("ep_line_id", Value::u32(9)).run(__EndPoint_destroy), 2);
        EXPECT_LOG_OF(kDestroy, enter(kDestroy), read("UInt32", "ep_line_id", Value::u32(9)),
                      "voice_plugin_destroy(5, 9)",
                      said("x", kDestroy, text("Error destroying media, got error code %d.", result)), kFalse,
                      kDestroyed, leave(kDestroy));
        expect_settled(text("callback answers %d", result));
    }
}

TEST_F(EndPointDestroy, AnUnknownEndpointEndsWithoutValueAndMarker) {
    for (const OtherObject &other : kOtherObjects) {
        again();
        SCOPED_TRACE(other.what);
        Call call;
        EXPECT_EQ(call.on(other.get()).with("ep_line_id", Value::u32(9)).run(__EndPoint_destroy), 2);
        EXPECT_LOG_OF(kDestroy, enter(kDestroy), said("x", kDestroy, "Invalid endpoint id -1"),
                      "reply_addError(call1, 196640, \"Invalid endpoint\", \"id\")", kDestroyed);
        EXPECT_EQ(call.returned().str(), "none");
        expect_settled(other.what);
    }
}

TEST_F(EndPointDestroy, AMissingLineEndsWithoutValueAndMarker) {
    Call call;
    EXPECT_EQ(call.on(endpoint_object()).run(__EndPoint_destroy), 2);
    EXPECT_LOG_OF(kDestroy, enter(kDestroy), missing("UInt32", "ep_line_id"),
                  said("x", kDestroy, "Missing argument line_id"), entry("ep_line_id"), kDestroyed);
    EXPECT_EQ(call.returned().str(), "none");
}

} // namespace
} // namespace voice_test
