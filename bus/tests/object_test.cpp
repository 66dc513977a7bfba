// SPDX-License-Identifier: MIT
// The data model and declared functions.
#include "served_functions.h"
#include "support/bus_test.h"

#include <cstring>

using namespace support;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

class Object : public TwoBuses {
protected:
    Object() {
        served::reset();
        served::declare(server);
    }
    ~Object() override { served::reset(); }

    // What a call to `echo` of the object at this path answers.
    std::string answer(const std::string &path) {
        request_t *r = call(path.c_str(), "echo", {{"text", text("ok")}});
        auto lines = lines_of(r);
        request_destroy(r);
        return lines.empty() ? "" : lines[0];
    }
    static std::string no_object(const std::string &path) { return "error 65537 No such object: " + path; }

    const std::string ok = "value text \"ok\"";
};

TEST_F(Object, DeclaringMakesTheParents) {
    object_t *object = kex_declareObject(server, "A.B.C", "Probe");
    ASSERT_NE(object, nullptr);
    EXPECT_STREQ(object_name(object, 0), "C");
    EXPECT_EQ(kex_getObject(server, "A.B.C", 1), object);
    EXPECT_EQ(object_getObject(kex_getObject(server, "A.B", 1), "C", 1, nullptr), object);
    EXPECT_EQ(kex_declareObject(server, "A.B.C", "Probe"), object) << "the same again";
    EXPECT_EQ(kex_declareObject(server, "A.B.C", "Other"), nullptr) << "taken with another class";
    EXPECT_EQ(kex_declareObject(server, "A.B.C", nullptr), nullptr);
    EXPECT_EQ(kex_declareTemplate(server, "A.B.C", "Probe"), nullptr);
    EXPECT_NE(kex_declareObject(server, "A.B", "Probe"), nullptr) << "only made on the way so far";
    EXPECT_EQ(answer("A.B.C"), ok);
    EXPECT_EQ(answer("A.B"), ok);
}

TEST_F(Object, MalformedPathsLeaveNothingBehind) {
    for (const char *path : {"", ".", "X.", ".X", "X..Y", "kex"})
        EXPECT_EQ(kex_declareObject(server, path, "Probe"), nullptr) << path;
    EXPECT_EQ(kex_declareObject(server, nullptr, "Probe"), nullptr);
    EXPECT_EQ(kex_declareObject(nullptr, "X", "Probe"), nullptr);
    EXPECT_EQ(kex_declareObject(server, std::string(256, 'x').c_str(), "Probe"), nullptr);
    EXPECT_NE(kex_declareObject(server, std::string(255, 'x').c_str(), "Probe"), nullptr);
    EXPECT_EQ(kex_getObject(server, "X", 1), nullptr);
}

TEST_F(Object, InstanceIsSeenAtOnceAndCallableAfterTheCommit) {
    object_t *endpoints = kex_declareTemplate(server, "P.EndPoint", "Probe");
    object_t *instance = object_createInstance(endpoints, 0, "FXS1");
    ASSERT_NE(instance, nullptr);
    EXPECT_EQ(object_getObject(endpoints, "FXS1", 1, nullptr), instance);
    EXPECT_EQ(kex_getObject(server, "P.EndPoint.FXS1", 1), instance);
    EXPECT_EQ(answer("P.EndPoint.FXS1"), no_object("P.EndPoint.FXS1"));
    EXPECT_TRUE(object_commit(endpoints));
    EXPECT_EQ(answer("P.EndPoint.FXS1"), ok);
    EXPECT_EQ(object_createInstance(endpoints, 0, "FXS1"), nullptr) << "taken";
    EXPECT_EQ(answer("P.EndPoint"), no_object("P.EndPoint")) << "calls to a template are refused";
}

TEST_F(Object, DeletionTakesEffectAtTheCommit) {
    object_t *endpoints = kex_declareTemplate(server, "P.EndPoint", "Probe");
    object_t *instance = object_createInstance(endpoints, 0, "FXS1");
    object_commit(instance);
    EXPECT_TRUE(object_delete(instance));
    EXPECT_FALSE(object_delete(instance)) << "once";
    EXPECT_EQ(kex_getObject(server, "P.EndPoint.FXS1", 1), instance);
    EXPECT_EQ(answer("P.EndPoint.FXS1"), ok);
    EXPECT_TRUE(object_commit(endpoints));
    EXPECT_EQ(kex_getObject(server, "P.EndPoint.FXS1", 1), nullptr);
    EXPECT_EQ(answer("P.EndPoint.FXS1"), no_object("P.EndPoint.FXS1"));
    EXPECT_NE(object_createInstance(endpoints, 0, "FXS1"), nullptr) << "free again";
}

TEST_F(Object, InstanceDeletedBeforeItsCommitWasNeverCallable) {
    object_t *endpoints = kex_declareTemplate(server, "P.EndPoint", "Probe");
    EXPECT_TRUE(object_delete(object_createInstance(endpoints, 0, "FXS1")));
    EXPECT_EQ(answer("P.EndPoint.FXS1"), no_object("P.EndPoint.FXS1"));
    EXPECT_TRUE(object_commit(endpoints));
    EXPECT_EQ(kex_getObject(server, "P.EndPoint.FXS1", 1), nullptr);
}

TEST_F(Object, OnlyInstancesCanBeDeleted) {
    EXPECT_FALSE(object_delete(nullptr));
    EXPECT_FALSE(object_delete(kex_getObject(server, "Probe", 1)));
    EXPECT_FALSE(object_delete(kex_declareTemplate(server, "T", "Probe")));
}

TEST_F(Object, OnlyTemplatesMakeInstancesWithGoodNames) {
    object_t *endpoints = kex_declareTemplate(server, "T", "Probe");
    EXPECT_EQ(object_createInstance(kex_getObject(server, "Probe", 1), 0, "x"), nullptr);
    EXPECT_EQ(object_createInstance(nullptr, 0, "x"), nullptr);
    EXPECT_EQ(object_createInstance(endpoints, 0, nullptr), nullptr);
    EXPECT_EQ(object_createInstance(endpoints, 0, ""), nullptr);
    EXPECT_EQ(object_createInstance(endpoints, 0, "a.b"), nullptr);
    EXPECT_EQ(object_createInstance(endpoints, 0, std::string(254, 'x').c_str()), nullptr) << "the path is too long";
    EXPECT_NE(object_createInstance(endpoints, 0, std::string(253, 'x').c_str()), nullptr);
}

// Else the listing, which anybody may ask for, meets a path that nobody could have declared.
TEST_F(Object, InstancesHoldNoLongerPathsThanMayBeDeclared) {
    object_t *outer = kex_declareTemplate(server, "T", "Probe");
    const std::string below(100, 'b');
    ASSERT_NE(kex_declareObject(server, ("T." + below + ".c").c_str(), "Probe"), nullptr);
    const std::string longest(255 - strlen("T.") - (1 + below.size()) - strlen(".c"), 'x');
    EXPECT_EQ(object_createInstance(outer, 0, (longest + "x").c_str()), nullptr);
    ASSERT_TRUE(object_commit(object_createInstance(outer, 0, longest.c_str())));
    EXPECT_EQ(answer("T." + longest + "." + below + ".c"), ok);
    request_t *r = call("kex", "list");
    EXPECT_THAT(lines_of(r), ElementsAre(HasSubstr("T." + longest + "." + below + ".c object Probe")));
    request_destroy(r);
}

TEST_F(Object, NestedTemplatesAreClonedWithEachInstance) {
    object_t *outer = kex_declareTemplate(server, "P.DSP", "Probe");
    kex_declareTemplate(server, "P.DSP.CHANNEL", "Probe");
    EXPECT_EQ(object_createInstance(kex_getObject(server, "P.DSP.CHANNEL", 1), 0, "x"), nullptr)
        << "the pattern itself has no instances";
    object_t *dsp = object_createInstance(outer, 0, "dsp1");
    ASSERT_TRUE(object_commit(dsp));
    object_t *second = object_createInstance(outer, 0, "dsp2");
    ASSERT_TRUE(object_commit(second));
    object_t *channels = object_getObject(dsp, "CHANNEL", 1, nullptr);
    ASSERT_NE(channels, nullptr);
    EXPECT_NE(channels, kex_getObject(server, "P.DSP.CHANNEL", 1));
    ASSERT_TRUE(object_commit(object_createInstance(channels, 0, "ch1")));
    EXPECT_EQ(answer("P.DSP.dsp1"), ok);
    EXPECT_EQ(answer("P.DSP.dsp1.CHANNEL.ch1"), ok);
    EXPECT_EQ(answer("P.DSP.dsp1.CHANNEL"), no_object("P.DSP.dsp1.CHANNEL"));
    EXPECT_EQ(answer("P.DSP.CHANNEL"), no_object("P.DSP.CHANNEL"));
    EXPECT_EQ(kex_getObject(server, "P.DSP.dsp2.CHANNEL.ch1", 1), nullptr);
    EXPECT_TRUE(object_delete(dsp));
    EXPECT_TRUE(object_commit(outer));
    EXPECT_EQ(answer("P.DSP.dsp1.CHANNEL.ch1"), no_object("P.DSP.dsp1.CHANNEL.ch1"));
    EXPECT_NE(kex_getObject(server, "P.DSP.dsp2.CHANNEL", 1), nullptr);
}

TEST_F(Object, MissingFunctionsAreNamedAtLevel100) {
    CapturedTrace trace;
    const char *const rows[][2] = {{"Probe", "nowhere"}, {"", "neither"}, {"Probe", "echo"}};
    EXPECT_FALSE(kex_declareFunctions(server, &rows[0][0], 3, 2));
    EXPECT_THAT(trace.text(), HasSubstr("this process exports no '__Probe_nowhere'"));
    EXPECT_THAT(trace.text(), HasSubstr("this process exports no '__neither'"));
    EXPECT_EQ(answer("Probe"), ok) << "what is there stays declared";
}

TEST_F(Object, MalformedRowsAreRefused) {
    CapturedTrace trace;
    const char *const no_class[] = {nullptr, "echo"};
    const char *const no_function[] = {"Probe", nullptr};
    const char *const empty_function[] = {"Probe", ""};
    const char *const empty_argument[] = {"Probe", "echo", ""};
    EXPECT_FALSE(kex_declareFunctions(server, no_class, 1, 2));
    EXPECT_FALSE(kex_declareFunctions(server, no_function, 1, 2));
    EXPECT_FALSE(kex_declareFunctions(server, empty_function, 1, 2));
    EXPECT_FALSE(kex_declareFunctions(server, empty_argument, 1, 3));
    EXPECT_FALSE(kex_declareFunctions(server, no_class, 1, 1));
    EXPECT_FALSE(kex_declareFunctions(server, nullptr, 1, 2));
    EXPECT_FALSE(kex_declareFunctions(nullptr, no_class, 1, 2));
}

TEST_F(Object, FunctionOfAnotherClassIsNotFound) {
    request_t *r = call("Plain", "echo");
    EXPECT_THAT(lines_of(r), ElementsAre("error 65538 No such function: echo"));
    request_destroy(r);
}

TEST_F(Object, NullHandlesAreAnswered) {
    EXPECT_EQ(kex_getObject(nullptr, "x", 1), nullptr);
    EXPECT_EQ(kex_getObject(server, nullptr, 1), nullptr);
    EXPECT_EQ(kex_getObject(server, "", 1), nullptr);
    EXPECT_EQ(kex_getObject(server, "Probe.", 1), nullptr);
    EXPECT_EQ(object_getObject(nullptr, "x", 1, nullptr), nullptr);
    EXPECT_EQ(object_getObject(kex_getObject(server, "Probe", 1), nullptr, 1, nullptr), nullptr);
    EXPECT_FALSE(object_commit(nullptr));
    EXPECT_EQ(object_name(nullptr, 0), nullptr);
    EXPECT_EQ(kex_declareTemplate(nullptr, "x", "y"), nullptr);
    EXPECT_EQ(kex_declareTemplate(server, nullptr, "y"), nullptr);
}

TEST_F(Object, InstanceCannotBeDeclared) {
    kex_declareTemplate(server, "T", "Probe");
    ASSERT_TRUE(object_commit(object_createInstance(kex_getObject(server, "T", 1), 0, "one")));
    EXPECT_EQ(kex_declareObject(server, "T.one", "Probe"), nullptr);
    EXPECT_NE(kex_declareObject(server, "T.one.more", "Probe"), nullptr);
}

TEST_F(Object, NamesOfFunctionsAndClassesHaveALimit) {
    CapturedTrace trace;
    const std::string longest(253, 'x');
    const std::string longer(254, 'x');
    const struct {
        const char *row[2];
        const char *why;
    } rows[] = {
        {{longer.c_str(), "run"}, "a row of declared functions is malformed"},
        {{"Probe", longer.c_str()}, "a row of declared functions is malformed"},
        {{longest.c_str(), "run"}, "this process exports no"},
        {{"Probe", longest.c_str()}, "this process exports no"},
    };
    for (const auto &one : rows) {
        const size_t before = trace.text().size();
        EXPECT_FALSE(kex_declareFunctions(server, one.row, 1, 2));
        EXPECT_THAT(trace.text().substr(before), testing::HasSubstr(one.why));
    }
}

} // namespace
