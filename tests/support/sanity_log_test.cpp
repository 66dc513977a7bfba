// SPDX-License-Identifier: MIT
// The common log: a line for each call, trace messages taken apart, and what is wrong in either noticed.
#include "sanity_fixture.h"

namespace sanity {
namespace {

TEST_F(Harness, EachCallBecomesOneLine) {
    request_t *r = make_request();
    variant_t v{};
    EXPECT_TRUE(variant_initialize(&v, VARIANT_UINT32));
    EXPECT_TRUE(variant_setUInt32(&v, 3));
    EXPECT_TRUE(request_addParameter(r, "ep_line_id", &v));
    variant_cleanup(&v);
    EXPECT_TRUE(kex_sendRequest(bus().handle(), bus().peer("fxs"), r));
    EXPECT_FALSE(kex_sendRequest(bus().handle(), nullptr, r));
    request_destroy(r);
    EXPECT_LOG("r1 = request_create_executeFunction(\"A.B\", \"do\", 0x8001)",
               "request_addParameter(r1, \"ep_line_id\", u32 3)", "kex_sendRequest(bus, fxs, r1) = 1",
               "kex_sendRequest(bus, null, r1) = 0", "request_destroy(r1)");
    EXPECT_EQ(bus().record(1).parameter("ep_line_id").number, 3);
    EXPECT_EQ(bus().everything().size(), 8u);
}

TEST_F(Harness, AWrongLogIsNoticedAtItsFirstDifference) {
    EXPECT_EQ(fake::difference({"a", "b"}, {"a", "b"}), "");
    const std::string changed = fake::difference({"a", "b", "c"}, {"a", "x", "c"});
    EXPECT_THAT(changed, HasSubstr("line 2 differs first"));
    EXPECT_THAT(changed, HasSubstr("expected: b"));
    EXPECT_THAT(changed, HasSubstr("got:      x"));
    EXPECT_THAT(fake::difference({"a", "b"}, {"a"}), HasSubstr("got:      (end of log)"));
    EXPECT_THAT(fake::difference({"a"}, {"a", "b"}), HasSubstr("expected: (end of log)"));
    EXPECT_THAT(fake::difference({}, {"a"}), HasSubstr("line 1"));
    EXPECT_THAT(fake::difference({"a", "b"}, {"b", "a"}), HasSubstr("line 1"));
    EXPECT_EQ(fake::difference({"x f: <any>", "b"}, {"x f: some text", "b"}), "");
    EXPECT_THAT(fake::difference({"x f: <any>"}, {"x g: some text"}), HasSubstr("line 1"));
    EXPECT_THAT(fake::difference({"x f: <any>"}, {"x f: "}), HasSubstr("line 1")) << "an empty text is no text";
}

#define FRAME(message) "%s%-7.7s%s - %s[%s]%s%s" message "%s - %s(%s@%s:%d)%s"

TEST_F(Harness, ATraceLineIsTakenApart) {
    zilTrace(100, FRAME("rc %d (x) - y"), "", "VOIPCFG1", "", "", "x", "", "", 5, "", "", "some_function", "params.cpp",
             12, "");
    ASSERT_EQ(bus().traces().size(), 1u);
    const fake::TraceLine &line = bus().traces()[0];
    EXPECT_EQ(line.level, 100);
    EXPECT_EQ(line.rendered, "VOIPCFG - [x]rc 5 (x) - y - (some_function@params.cpp:12)");
    EXPECT_EQ(line.zone, "VOIPCFG1");
    EXPECT_EQ(line.message_format, "rc %d (x) - y");
    EXPECT_EQ(line.message, "rc 5 (x) - y");
    EXPECT_EQ(line.function, "some_function");
    EXPECT_EQ(line.file, "params.cpp");
    EXPECT_EQ(line.line, 12);
    EXPECT_LOG("x[VOIPCFG1] some_function@params: rc 5 (x) - y");
}

// The frame is the library's; what a driver traces by itself has none.
TEST_F(Harness, TracesOfTheHostsOwnAreTakenWhereTheTestSaysSo) {
    zilTrace(ZIL_TRACE_ERROR, "device lost %d", 1);
    EXPECT_THAT(bus().check(),
                ElementsAre(AllOf(HasSubstr("out of frame"), HasSubstr("takes_own_traces()): device lost 1"))));
    bus().clear_log();
    bus().takes_own_traces();
    zilTrace(ZIL_TRACE_ERROR, "device lost %d", 2);
    zilTraceZ(ZIL_TRACE_INFO, "USB", "line %d\n", 3);
    EXPECT_LOG("trace 100: device lost 2", "trace 400 [USB]: line 3\\n");
    EXPECT_EQ(bus().complaints(), std::vector<std::string>{"trace 100: device lost 2"});
    EXPECT_THAT(bus().check(), IsEmpty());
    bus().reset();
    zilTrace(ZIL_TRACE_ERROR, "device lost %d", 4);
    EXPECT_THAT(bus().check(), ElementsAre(HasSubstr("out of frame")));
}

TEST_F(Harness, MarkersAndActionsShareOneLog) {
    zilTraceZ(500, "LIBV", "%s%-7.7s%s - >>>>>>>>>>%s - %s(%s@%s:%d)%s", "", "LIBV", "", "", "", "f", "generic.cpp", 3,
              "");
    bus().note("between");
    zilTraceZ(500, "LIBV", "%s%-7.7s%s - <<<<<<<<<<%s - %s(%s@%s:%d)%s", "", "LIBV", "", "", "", "f", "generic.cpp", 9,
              "");
    EXPECT_LOG("> f@generic", "between", "< f@generic");
    EXPECT_LOG_WITHOUT_MARKERS("between");
}

struct BrokenLine {
    const char *name;
    void (*write)();
    const char *complaint;

    friend std::ostream &operator<<(std::ostream &out, const BrokenLine &row) { return out << row.name; }
};

class HarnessBrokenLine : public testing::TestWithParam<BrokenLine> {};

TEST_P(HarnessBrokenLine, IsNoticed) {
    bus().reset();
    GetParam().write();
    EXPECT_THAT(bus().check(), ElementsAre(HasSubstr(GetParam().complaint)));
}

INSTANTIATE_TEST_SUITE_P(
    , HarnessBrokenLine,
    testing::Values(
        BrokenLine{"NoFrame", [] { zilTrace(100, "hello"); }, "out of frame"},
        BrokenLine{"WrongTag",
                   [] { zilTrace(100, FRAME("m"), "", "LIBV", "", "", "!", "", "", "", "", "f", "a.cpp", 1, ""); },
                   "tag and level"},
        BrokenLine{
            "ErrorWithAZone",
            [] { zilTraceZ(100, "LIBV", FRAME("m"), "", "LIBV", "", "", "x", "", "", "", "", "f", "a.cpp", 1, ""); },
            "go to zilTrace()"},
        BrokenLine{"InformationWithoutAZone",
                   [] { zilTrace(400, FRAME("m"), "", "LIBV", "", "", "i", "", "", "", "", "f", "a.cpp", 1, ""); },
                   "go to zilTrace()"},
        BrokenLine{
            "AnotherZone",
            [] { zilTraceZ(400, "GEN", FRAME("m"), "", "LIBV", "", "", "i", "", "", "", "", "f", "a.cpp", 1, ""); },
            "zone argument"},
        BrokenLine{"Coloured",
                   [] { zilTrace(100, FRAME("m"), "", "LIBV", "", "*", "x", "", "", "", "", "f", "a.cpp", 1, ""); },
                   "colour"},
        BrokenLine{"NoLine",
                   [] { zilTrace(100, FRAME("m"), "", "LIBV", "", "", "x", "", "", "", "", "f", "a.cpp", 0, ""); },
                   "no line number"},
        BrokenLine{"Folder",
                   [] { zilTrace(100, FRAME("m"), "", "LIBV", "", "", "x", "", "", "", "", "f", "src/a.cpp", 1, ""); },
                   "folder"}),
    [](const auto &row) { return row.param.name; });

} // namespace
} // namespace sanity
