// SPDX-License-Identifier: MIT
// Calls from one bus to another: arguments, replies, the three ways a request is completed.
#include "served_functions.h"
#include "support/bus_test.h"

#include <fcntl.h>
#include <unistd.h>

using namespace support;
using testing::ElementsAre;

namespace {

class Call : public TwoBuses {
protected:
    Call() {
        served::reset();
        served::declare(server);
    }
    ~Call() override { served::reset(); }

    // Runs `body` as the called function with these arguments, and gives back the reply's lines.
    std::vector<std::string> probe(std::function<int(function_call_t *, argument_list_t *, variant_t *)> body,
                                   const std::vector<std::pair<std::string, variant_t>> &args = {},
                                   uint32_t flags = 0) {
        served::probe = std::move(body);
        request_t *r = call("Probe", "run", args, flags);
        auto lines = lines_of(r);
        request_destroy(r);
        return lines;
    }
};

TEST_F(Call, ReachesItsFunctionAndBringsTheAnswerBack) {
    request_t *r = call("Probe", "echo", {{"text", text("hello")}});
    EXPECT_THAT(lines_of(r), ElementsAre("value text \"hello\""));
    request_destroy(r);
}

TEST_F(Call, ObjectWithoutClassHasFunctionsWithoutClass) {
    request_t *r = call("Plain", "plain");
    EXPECT_THAT(lines_of(r), ElementsAre("value true"));
    EXPECT_THAT(served::log, ElementsAre("plain Plain"));
    request_destroy(r);
}

TEST_F(Call, ReturnValueLeftAloneIsNoItem) {
    request_t *r = call("Probe", "note", {{"number", u32(5)}});
    EXPECT_THAT(lines_of(r), ElementsAre());
    EXPECT_THAT(served::log, ElementsAre("note 5"));
    request_destroy(r);
}

TEST_F(Call, ErrorEntryOfTheFunctionArrives) {
    request_t *r = call("Probe", "echo");
    EXPECT_THAT(lines_of(r), ElementsAre("error 196640 Missing mandatory argument: text"));
    request_destroy(r);
}

TEST_F(Call, WaitForReplyIsAnsweredByAnotherProcessTurn) {
    request_t *r = request_create_executeFunction("Probe", "echo", 0);
    variant_t value = text("x");
    request_addParameter(r, "text", &value);
    variant_cleanup(&value);
    ASSERT_TRUE(kex_sendRequest(client, to_server, r));
    kex_dispatch(client);
    support::turn_until_idle({server}); // the answer lies in the socket before the wait begins
    EXPECT_TRUE(kex_waitForReply(client, r, nullptr));
    EXPECT_THAT(lines_of(r), ElementsAre("value text \"x\""));
    request_destroy(r);
}

TEST_F(Call, SentRequestDestroyedBeforeItLeftIsOneWay) {
    request_t *r = request_create_executeFunction("Probe", "note", 0);
    ASSERT_TRUE(kex_sendRequest(client, to_server, r));
    request_destroy(r);
    EXPECT_TRUE(turn_until([] { return !served::log.empty(); }));
    EXPECT_THAT(served::log, ElementsAre("note nothing"));
}

} // namespace
