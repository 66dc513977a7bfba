// SPDX-License-Identifier: MIT
// Parameters that are asked for and set: the sets that arrive, the one that is answered, and who frees it.
#include "kex_functions_fixture.h"

namespace voice_test {
namespace {

const char *const kGet = "__EndPoint_get";
const char *const kSet = "__EndPoint_set";

class EndPointGet : public Handlers {
protected:
    std::string request_ = set_bytes(item(0x01FE0003, word(5)) + item(kId, ""));
};

TEST_F(EndPointGet, TheResultIsReturnedWholeWithoutAnExitMarker) {
    host.result_given = true;
    host.result_set = set_bytes(item(kId, "answer"));
    Call call;
    EXPECT_EQ(call.with("param_set_request", Value::bytes(request_)).run(__EndPoint_get), 0);
    EXPECT_LOG_OF(kGet, enter(kGet), read("ByteArray", "param_set_request", Value::bytes(request_)),
                  "voice_plugin_get(result empty, 0)", "return_value = " + Value::bytes(host.result_set).str(),
                  kDestroyed);
    EXPECT_EQ(call.returned().data, host.result_set);
    std::string seen = request_;
    seen.replace(0, 4, word(pointer_word_of(host.params)));
    EXPECT_EQ(host.bytes, seen);
}

TEST_F(EndPointGet, AnEmptyResultSetIsEightBytes) {
    host.result_given = true;
    host.result_set = set_bytes("");
    Call call;
    EXPECT_EQ(call.with("param_set_request", Value::bytes(request_)).run(__EndPoint_get), 0);
    EXPECT_EQ(call.returned().data.size(), 8u);
}

TEST_F(EndPointGet, SuccessWithoutAResultReturnsNoValue) {
    Call call;
    EXPECT_EQ(call.with("param_set_request", Value::bytes(request_)).run(__EndPoint_get), 0);
    EXPECT_LOG_OF(kGet, enter(kGet), read("ByteArray", "param_set_request", Value::bytes(request_)),
                  "voice_plugin_get(result empty, 0)", kDestroyed);
    EXPECT_EQ(call.returned().str(), "none");
}

TEST_F(EndPointGet, AnEmptyRequestKeepsItsPointer) {
    EXPECT_EQ(Call().with("param_set_request", Value::bytes(set_bytes("", 0x77))).run(__EndPoint_get), 0);
    EXPECT_EQ(host.pointer_word, 0x77u);
}

TEST_F(EndPointGet, AFailingCallbackReturnsNoValueAndItsResultIsFreed) {
    for (const bool given : {false, true}) {
        again();
        host.result = 1;
        host.result_given = given;
        host.result_set = set_bytes(item(kId, "answer"));
        Call call;
        EXPECT_EQ(call.with("param_set_request", Value::bytes(request_)).run(__EndPoint_get), 2);
        EXPECT_LOG_OF(kGet, enter(kGet), read("ByteArray", "param_set_request", Value::bytes(request_)),
                      "voice_plugin_get(result empty, 0)", said("x", kGet, "voice_plugin_get FAILED"), kDestroyed,
                      leave(kGet));
        EXPECT_EQ(call.returned().str(), "none");
        EXPECT_THAT(call.errors(), IsEmpty());
        expect_settled(given ? "with a result" : "without a result");
    }
}

TEST_F(EndPointGet, MissingRequestLeavesNoValue) {
    Call call;
    EXPECT_EQ(call.run(__EndPoint_get), 2);
    EXPECT_LOG_OF(kGet, enter(kGet), missing("ByteArray", "param_set_request"),
                  said("x", kGet, "Missing argument 'param_set_request'"), entry("param_set_request"), kDestroyed,
                  leave(kGet));
    EXPECT_EQ(call.returned().str(), "none");
}

TEST_F(EndPointGet, BrokenRecordsNeverReachTheCallback) {
    for (const BrokenRecord &broken : kBrokenRecords) {
        again();
        SCOPED_TRACE(broken.name);
        Call call;
        EXPECT_EQ(call.with("param_set_request", broken.make(8)).run(__EndPoint_get), 2);
        EXPECT_LOG_OF(kGet, enter(kGet), read("ByteArray", "param_set_request", broken.make(8)),
                      said("x", kGet, "<any>"), kDestroyed, leave(kGet));
        EXPECT_THAT(call.errors(), IsEmpty());
        expect_settled(broken.name);
    }
}

class EndPointSet : public Handlers {
protected:
    std::string set_ = set_bytes(item(0x01FE0003, word(5)) + item(kId, "abcd"));
};

TEST_F(EndPointSet, TheSetReachesThePlugin) {
    Call call;
    EXPECT_EQ(call.with("param_set_params", Value::bytes(set_)).run(__EndPoint_set), 0);
    EXPECT_LOG_OF(kSet, enter(kSet), read("ByteArray", "param_set_params", Value::bytes(set_)), "voice_plugin_set()",
                  kTrue, kDestroyed, leave(kSet));
    std::string seen = set_;
    seen.replace(0, 4, word(pointer_word_of(host.params)));
    EXPECT_EQ(host.bytes, seen);
}

TEST_F(EndPointSet, AnEmptySetAnswersFalseWithoutTheCallback) {
    for (const std::string &empty : {set_bytes(""), set_bytes("") + item(kId, "abcd")}) {
        again();
        Call call;
        EXPECT_EQ(call.with("param_set_params", Value::bytes(empty)).run(__EndPoint_set), 2);
        EXPECT_LOG_OF(kSet, enter(kSet), read("ByteArray", "param_set_params", Value::bytes(empty)), kFalse, kDestroyed,
                      leave(kSet));
        expect_settled(text("%zu bytes", empty.size()));
    }
}

TEST_F(EndPointSet, AFailingCallbackAnswersFalse) {
    host.result = 1;
    Call call;
    EXPECT_EQ(call.with("param_set_params", Value::bytes(set_)).run(__EndPoint_set), 2);
    EXPECT_LOG_OF(kSet, enter(kSet), read("ByteArray", "param_set_params", Value::bytes(set_)), "voice_plugin_set()",
                  kFalse, kDestroyed, leave(kSet));
}

TEST_F(EndPointSet, MissingSetFailsWithItsEntry) {
    Call call;
    EXPECT_EQ(call.run(__EndPoint_set), 2);
    EXPECT_LOG_OF(kSet, enter(kSet), missing("ByteArray", "param_set_params"),
                  said("x", kSet, "Missing argument 'param_set_params'"), entry("param_set_params"), kFalse, kDestroyed,
                  leave(kSet));
}

TEST_F(EndPointSet, BrokenRecordsNeverReachTheCallback) {
    for (const BrokenRecord &broken : kBrokenRecords) {
        again();
        SCOPED_TRACE(broken.name);
        Call call;
        EXPECT_EQ(call.with("param_set_params", broken.make(8)).run(__EndPoint_set), 2);
        EXPECT_LOG_OF(kSet, enter(kSet), read("ByteArray", "param_set_params", broken.make(8)),
                      said("x", kSet, "<any>"), kFalse, kDestroyed, leave(kSet));
        EXPECT_THAT(call.errors(), IsEmpty());
        expect_settled(broken.name);
    }
}

} // namespace
} // namespace voice_test
