// SPDX-License-Identifier: MIT
// Requests and their scripted replies.
#include "sanity_fixture.h"

namespace sanity {
namespace {

TEST_F(Harness, AScriptedReplyIsWalkedItemByItem) {
    bus().answer("do", Reply().error(5, "five", "info").value(Value::boolean(true)));
    request_t *r = make_request();
    EXPECT_EQ(request_reply(r), nullptr);
    EXPECT_TRUE(kex_sendRequest(bus().handle(), bus().peer("fxs"), r));
    EXPECT_TRUE(kex_waitForReply(bus().handle(), r, nullptr));
    reply_item_t *item = reply_firstItem(request_reply(r));
    EXPECT_EQ(reply_item_type(item), REPLY_ITEM_ERROR);
    EXPECT_EQ(reply_item_error(item), 5u);
    EXPECT_STREQ(reply_item_errorDescription(item), "five");
    EXPECT_STREQ(reply_item_errorInfo(item), "info");
    item = reply_nextItem(item);
    int value = 0;
    EXPECT_TRUE(variant_toBool(reply_item_returnValue(item), &value));
    EXPECT_EQ(value, 1);
    EXPECT_EQ(reply_nextItem(item), nullptr);
    request_destroy(r);
}

int items_seen, ends_seen;

void on_item(request_t *r, reply_item_t *item) {
    ++(item ? items_seen : ends_seen);
    if (!item)
        request_destroy(r);
}

TEST_F(Harness, AReplyHandlerRunsForEachItemAndOnceAtTheEnd) {
    items_seen = ends_seen = 0;
    request_t *r = make_request();
    request_setReplyHandler(r, on_item);
    bus().complete(r, Reply().error(1, "", "").value(Value::u32(1)));
    EXPECT_EQ(items_seen, 2);
    EXPECT_EQ(ends_seen, 1);
}

void on_done_after_close(request_t *r) {
    bus().note("done: " + std::to_string(reply_item_error(reply_firstItem(request_reply(r)))));
    request_destroy(r);
}

// As kex.h says: its handlers run once also when the peer closes, the reply then holds one error item; before the close
// event, which is the last thing of a peer.
TEST_F(Harness, ARequestThatWaitsEndsWithItsPeer) {
    peer_t *peer = bus().peer("fxs1");
    request_t *waits = make_request(), *of_another = make_request(), *is_answered = make_request();
    for (request_t *r : {waits, of_another, is_answered})
        request_setDoneHandler(r, on_done_after_close);
    kex_sendRequest(bus().handle(), peer, waits);
    kex_sendRequest(bus().handle(), peer, is_answered);
    kex_sendRequest(bus().handle(), bus().peer("fxs2"), of_another);
    bus().complete(is_answered, Reply().value(Value::u32(1)));
    kex_onPeerClosed(
        bus().handle(), [](kex_t *, peer_t *, void *) { bus().note("closed"); }, nullptr);
    bus().clear_log();
    bus().close(peer);
    EXPECT_LOG("done: " + std::to_string(KEX_ERROR_PEER_CLOSED), "request_destroy(r1)", "closed");
    EXPECT_EQ(bus().live().requests, 1u);
    bus().close(bus().peer("fxs2"));
    EXPECT_EQ(bus().live().requests, 0u);
}

TEST_F(Harness, ARequestIsSentOnce) {
    request_t *r = make_request();
    EXPECT_TRUE(kex_sendRequest(bus().handle(), bus().peer("fxs1"), r));
    EXPECT_FALSE(kex_sendRequest(bus().handle(), bus().peer("fxs1"), r));
    request_destroy(r);
}

std::string answer_of(const char *function, const char *parameter = nullptr, const char *value = "") {
    request_t *r = request_create_executeFunction("A.B", function, 0x8001);
    variant_t v{};
    if (parameter) {
        variant_setChar(&v, value);
        request_addParameter(r, parameter, &v);
        variant_cleanup(&v);
    }
    kex_sendRequest(bus().handle(), bus().peer("application"), r);
    kex_waitForReply(bus().handle(), r, nullptr);
    reply_item_t *item = reply_firstItem(request_reply(r));
    int32_t number = 0;
    const bool has_number = item && variant_toInt32(reply_item_returnValue(item), &number);
    request_destroy(r);
    return has_number ? std::to_string(number) : "empty";
}

Reply number(int32_t value) {
    return Reply().value(Value::i32(value));
}

TEST_F(Harness, QueuedAnswersGoBeforeTheLastingOne) {
    bus().answer("register_endpoint", number(9));
    bus().answer_next("register_endpoint", number(1));
    bus().answer_next("register_endpoint", number(2));
    bus().answer_next("event", number(5));
    EXPECT_EQ(answer_of("register_endpoint"), "1");
    EXPECT_EQ(answer_of("register_endpoint"), "2");
    EXPECT_EQ(answer_of("register_endpoint"), "9");
    EXPECT_EQ(answer_of("register_endpoint"), "9");
    EXPECT_EQ(answer_of("event"), "5");
    EXPECT_EQ(answer_of("event"), "empty") << "used up";
}

TEST_F(Harness, AnswersDependOnAnArgument) {
    bus().answer("register_endpoint", number(-1));
    bus().answer_when("register_endpoint", "endpoint_name", Value::chars("TEL1"), number(1));
    bus().answer_when("register_endpoint", "endpoint_name", Value::chars("TEL2"), number(2));
    EXPECT_EQ(answer_of("register_endpoint", "endpoint_name", "TEL2"), "2");
    EXPECT_EQ(answer_of("register_endpoint", "endpoint_name", "TEL1"), "1");
    EXPECT_EQ(answer_of("register_endpoint", "endpoint_name", "TEL3"), "-1");
    EXPECT_EQ(answer_of("register_endpoint", "another", "TEL1"), "-1");
    bus().answer_when("register_endpoint", "endpoint_name", Value::chars("TEL1"), number(7));
    EXPECT_EQ(answer_of("register_endpoint", "endpoint_name", "TEL1"), "7") << "the later word counts";
    bus().answer_by("register_endpoint",
                    [](const fake::RequestRecord &r) { return number(static_cast<int32_t>(r.parameters.size())); });
    EXPECT_EQ(answer_of("register_endpoint", "another", "TEL1"), "1");
}

TEST_F(Harness, ATurnBringsScriptedRepliesToTheirHandlers) {
    items_seen = ends_seen = 0;
    request_t *r = make_request();
    request_setReplyHandler(r, on_item);
    kex_sendRequest(bus().handle(), bus().peer("fxs"), r);
    EXPECT_EQ(bus().turn(), 0) << "without a script it stays open";
    bus().answer("do", Reply().value(Value::u32(1)));
    EXPECT_EQ(bus().turn(), 1);
    EXPECT_EQ(items_seen, 1);
    EXPECT_EQ(ends_seen, 1);
    EXPECT_EQ(bus().turn(), 0);
}

} // namespace
} // namespace sanity
