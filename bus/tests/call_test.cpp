// SPDX-License-Identifier: MIT
// Calls from one bus to another: replies, what a host learns of them, the three ways a request is completed.
#include "served_functions.h"
#include "support/calls.h"
#include "support/raw_peer.h"

#include <sys/socket.h>
#include <unistd.h>

using namespace support;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

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

TEST_F(Call, FlagsArriveAsAttributes) {
    uint32_t seen = 0;
    probe(
        [&](function_call_t *call, argument_list_t *, variant_t *) {
            seen = request_attributes(fcall_request(call));
            fcall_destroy(call);
            return 0;
        },
        {}, 0x8001);
    EXPECT_EQ(seen, 0x8001u);
}

std::string string_of(const kex_text_t &text) {
    return {text.bytes, text.length};
}

TEST_F(Call, CurrentCallIsKnownToWhateverItsFunctionCalls) {
    kex_call_t current = {};
    kex_text_t name = {};
    std::string path, function, found;
    probe(
        [&](function_call_t *call, argument_list_t *, variant_t *) {
            EXPECT_TRUE(kex_currentCall(server, &current));
            EXPECT_EQ(current.peer, fcall_peer(call));
            path = string_of(current.path);
            function = string_of(current.function);
            EXPECT_TRUE(kex_currentText(server, "name", &name));
            found = string_of(name);
            EXPECT_FALSE(kex_currentText(server, "number", &name)) << "no text";
            EXPECT_FALSE(kex_currentText(server, "nothing", &name));
            EXPECT_FALSE(kex_currentText(server, nullptr, &name));
            EXPECT_FALSE(kex_currentText(server, "name", nullptr));
            uint32_t number = 0;
            EXPECT_TRUE(kex_currentUInt32(server, "number", &number));
            EXPECT_EQ(number, 1u);
            EXPECT_FALSE(kex_currentUInt32(server, "name", &number)) << "no number";
            EXPECT_FALSE(kex_currentUInt32(server, "nothing", &number));
            EXPECT_FALSE(kex_currentUInt32(server, nullptr, &number));
            EXPECT_FALSE(kex_currentUInt32(server, "number", nullptr));
            EXPECT_FALSE(kex_currentUInt32(client, "number", &number)) << "another bus of the process";
            EXPECT_FALSE(kex_currentCall(server, nullptr));
            EXPECT_FALSE(kex_currentCall(client, &current)) << "another bus of the process";
            fcall_destroy(call);
            EXPECT_TRUE(kex_currentCall(server, &current)) << "until the function returns";
            return 0;
        },
        {{"name", text("fxs1")}, {"number", u32(1)}});
    EXPECT_EQ(path, "Probe");
    EXPECT_EQ(function, "run");
    EXPECT_EQ(found, "fxs1");
    EXPECT_FALSE(kex_currentCall(server, &current));
    EXPECT_FALSE(kex_currentText(server, "name", &name));
    EXPECT_FALSE(kex_currentCall(nullptr, &current));
    EXPECT_FALSE(kex_currentText(nullptr, "name", &name));
    uint32_t number;
    EXPECT_FALSE(kex_currentUInt32(server, "number", &number));
    EXPECT_FALSE(kex_currentUInt32(nullptr, "number", &number));
}

// Lets calls run whose argument "text" is "yes".
int only_yes(kex_t *bus, void *userdata) {
    kex_text_t argument;
    ++*static_cast<int *>(userdata);
    return kex_currentText(bus, "text", &argument) && string_of(argument) == "yes";
}

TEST_F(Call, HostMayRejectACallBeforeItsFunctionRuns) {
    int asked = 0;
    kex_onCall(server, only_yes, &asked);
    request_t *r = call("Probe", "echo", {{"text", text("yes")}});
    EXPECT_THAT(lines_of(r), ElementsAre("value text \"yes\""));
    request_destroy(r);
    r = call("Probe", "echo", {{"text", text("no")}});
    EXPECT_THAT(lines_of(r), ElementsAre("error 65539 Not allowed: echo"));
    request_destroy(r);
    EXPECT_EQ(asked, 2);
    EXPECT_THAT(served::log, ElementsAre("echo"));
    kex_onCall(server, nullptr, nullptr);
    r = call("Probe", "echo", {{"text", text("no")}});
    EXPECT_THAT(lines_of(r), ElementsAre("value text \"no\""));
    request_destroy(r);
    kex_onCall(nullptr, only_yes, nullptr);
}

// Writes down what the host is told, and who may still be asked about the call then.
void failed_note(const kex_failed_call_t *call, void *userdata) {
    kex_call_t current = {};
    kex_text_t name = {};
    EXPECT_TRUE(kex_currentCall(call->bus, &current));
    EXPECT_EQ(current.peer, call->peer);
    EXPECT_TRUE(kex_currentText(call->bus, "name", &name));
    uint32_t number = 0;
    EXPECT_FALSE(kex_currentUInt32(call->bus, "name", &number));
    static_cast<std::vector<std::string> *>(userdata)->push_back(string_of(call->path) + " " +
                                                                 string_of(call->function) + " " + string_of(name));
    EXPECT_STREQ(call->process_name, "client");
    EXPECT_EQ(call->process_id, getpid());
}

TEST_F(Call, HostIsToldOfAFunctionThatFailed) {
    std::vector<std::string> told;
    const auto end_with = [&](int status) {
        return probe(
            [status](function_call_t *call, argument_list_t *, variant_t *value) {
                fcall_destroy(call);
                variant_setUInt32(value, 7);
                return status;
            },
            {{"name", text("fxs1")}});
    };
    kex_onFailed(server, failed_note, &told);
    EXPECT_THAT(end_with(KEX_FUNCTION_DONE), ElementsAre("value u32 7"));
    EXPECT_THAT(told, ElementsAre());
    EXPECT_THAT(end_with(KEX_FUNCTION_FAILED), ElementsAre("value u32 7")) << "the status adds nothing";
    EXPECT_THAT(told, ElementsAre("Probe run fxs1"));
    request_destroy(call("nobody", "run"));
    request_destroy(call("Probe", "nothing"));
    EXPECT_EQ(told.size(), 1u) << "no function ended";
    kex_onFailed(server, nullptr, nullptr);
    EXPECT_THAT(end_with(KEX_FUNCTION_FAILED), ElementsAre("value u32 7"));
    EXPECT_EQ(told.size(), 1u);
    kex_onFailed(nullptr, failed_note, &told);
}

TEST_F(Call, WhatTheHostSendsAboutAFailureArrivesBeforeTheReply) {
    static std::vector<std::string> order;
    order.clear();
    served::declare(client);
    kex_onFailed(
        server,
        [](const kex_failed_call_t *call, void *) {
            request_t *r = request_create_executeFunction("Plain", "plain", 0);
            EXPECT_TRUE(kex_sendRequest(call->bus, call->peer, r));
            request_destroy(r);
        },
        nullptr);
    served::probe = [](function_call_t *call, argument_list_t *, variant_t *) {
        fcall_destroy(call);
        return int{KEX_FUNCTION_FAILED};
    };
    request_t *r = request_create_executeFunction("Probe", "run", 0);
    request_setDoneHandler(r, [](request_t *done) {
        order = served::log;
        request_destroy(done);
    });
    ASSERT_TRUE(kex_sendRequest(client, to_server, r));
    EXPECT_TRUE(turn_until([] { return !order.empty(); })) << "the call has run when the reply comes";
    EXPECT_THAT(order, ElementsAre("plain Plain"));
}

TEST_F(Call, ReturnValueMayBeSetAfterTheCallIsDestroyed) {
    EXPECT_THAT(probe([](function_call_t *call, argument_list_t *, variant_t *value) {
                    EXPECT_EQ(variant_type(value), uint32_t{VARIANT_NONE});
                    fcall_destroy(call);
                    variant_setUInt32(value, 7);
                    return 2;
                }),
                ElementsAre("value u32 7"))
        << "the status adds nothing";
}

TEST_F(Call, ErrorsStandInFrontOfTheValue) {
    EXPECT_THAT(probe([](function_call_t *call, argument_list_t *, variant_t *value) {
                    reply_t *reply = request_reply(fcall_request(call));
                    EXPECT_TRUE(reply_addError(reply, 1, "first", "a"));
                    EXPECT_TRUE(reply_addError(reply, 2, "second", ""));
                    EXPECT_FALSE(reply_addError(reply, 3, nullptr, ""));
                    EXPECT_FALSE(reply_addError(nullptr, 3, "x", "y"));
                    fcall_destroy(call);
                    variant_setBool(value, 0);
                    return 2;
                }),
                ElementsAre("error 1 first: a", "error 2 second: ", "value false"));
}

TEST_F(Call, ReplyMayCarryADescriptor) {
    probe([](function_call_t *call, argument_list_t *, variant_t *value) {
        fcall_destroy(call);
        variant_setFd(value, STDERR_FILENO);
        return 0;
    });
    request_t *r = call("Probe", "run");
    reply_item_t *item = reply_firstItem(request_reply(r));
    int fd = variant_fd(reply_item_returnValue(item));
    EXPECT_GT(fd, STDERR_FILENO);
    request_destroy(r);
    EXPECT_EQ(close(fd), 0) << "it was read: it is ours";
}

TEST_F(Call, CallbackMayDeleteItsOwnObject) {
    kex_declareTemplate(server, "T", "Probe");
    object_t *instance = object_createInstance(kex_getObject(server, "T", 1), 0, "one");
    object_commit(instance);
    std::string name;
    served::probe = [&](function_call_t *call, argument_list_t *, variant_t *value) {
        object_t *object = fcall_object(call);
        EXPECT_TRUE(object_delete(object));
        EXPECT_TRUE(object_commit(kex_getObject(server, "T", 1)));
        EXPECT_EQ(kex_getObject(server, "T.one", 1), nullptr);
        name = object_name(object, 0); // still valid
        fcall_destroy(call);
        variant_setBool(value, 1);
        return 0;
    };
    request_t *r = call("T.one", "run");
    EXPECT_THAT(lines_of(r), ElementsAre("value true"));
    EXPECT_EQ(name, "one");
    request_destroy(r);
    r = call("T.one", "run");
    EXPECT_THAT(lines_of(r), ElementsAre("error 65537 No such object: T.one"));
    request_destroy(r);
}

// Its getters still know by which names an argument goes.
TEST_F(Call, FunctionMayBeDeclaredAnewWhileItRuns) {
    const char *const before[] = {"Probe", "run", "number|no"};
    const char *const after[] = {"Probe", "run", "count"};
    ASSERT_TRUE(kex_declareFunctions(server, before, 1, 3));
    uint32_t number = 0;
    auto read_again = [&](function_call_t *call, argument_list_t *arguments, variant_t *) {
        for (int i = 0; i < 2; i++)
            EXPECT_TRUE(kex_declareFunctions(server, after, 1, 3));
        number = 0;
        argument_getUInt32(arguments, "number", 0, &number);
        fcall_destroy(call);
        return 0;
    };
    EXPECT_THAT(probe(read_again, {{"no", u32(7)}}), ElementsAre());
    EXPECT_EQ(number, 7u);
    EXPECT_THAT(probe(read_again, {{"no", u32(7)}}), ElementsAre());
    EXPECT_EQ(number, 0u) << "it goes by another name now";
}

TEST_F(Call, PeerStaysValidWhileItsCallRuns) {
    served::probe = [&](function_call_t *call, argument_list_t *, variant_t *) {
        peer_t *caller = fcall_peer(call);
        EXPECT_STREQ(peer_processName(caller), "client");
        EXPECT_TRUE(peer_disconnect(caller));
        EXPECT_FALSE(peer_disconnect(caller));
        EXPECT_EQ(fcall_peer(call), caller);
        request_t *back = request_create_executeFunction("X", "y", 0);
        EXPECT_FALSE(kex_sendRequest(server, caller, back)) << "it is closed";
        request_destroy(back);
        fcall_destroy(call);
        return 0;
    };
    request_t *r = call("Probe", "run");
    EXPECT_THAT(lines_of(r), ElementsAre(testing::StartsWith("error 65541 Peer closed")));
    request_destroy(r);
}

TEST_F(Call, RequestOfARunningCallBelongsToTheBus) {
    EXPECT_THAT(probe([](function_call_t *call, argument_list_t *, variant_t *value) {
                    request_destroy(fcall_request(call));
                    variant_setBool(value, 1);
                    fcall_destroy(call);
                    return 0;
                }),
                ElementsAre("value true"));
}

TEST_F(Call, SixtyFourErrorEntriesAndNoMore) {
    auto lines = probe([](function_call_t *call, argument_list_t *, variant_t *) {
        reply_t *reply = request_reply(fcall_request(call));
        for (uint32_t i = 0; i < 64; i++)
            EXPECT_TRUE(reply_addError(reply, i, "d", "i"));
        EXPECT_FALSE(reply_addError(reply, 64, "d", "i"));
        fcall_destroy(call);
        return 2;
    });
    EXPECT_EQ(lines.size(), 64u);
}

TEST_F(Call, ReceivedReplyTakesNoErrors) {
    request_t *r = call("Probe", "note");
    EXPECT_FALSE(reply_addError(request_reply(r), 1, "d", "i"));
    request_destroy(r);
}

TEST_F(Call, ReplyTooLargeToSendBecomesAnError) {
    EXPECT_THAT(probe([](function_call_t *call, argument_list_t *, variant_t *value) {
                    std::string huge(96 * 1024 + 1, 'x');
                    variant_setByteArray(value, huge.data(), static_cast<uint32_t>(huge.size()));
                    fcall_destroy(call);
                    return 0;
                }),
                ElementsAre("error 65540 The reply cannot be sent: a byte array is too long"));
}

TEST_F(Call, BuiltInListingShowsTheTree) {
    kex_declareTemplate(server, "P.EndPoint", "Probe");
    object_commit(object_createInstance(kex_getObject(server, "P.EndPoint", 1), 0, "FXS1"));
    object_createInstance(kex_getObject(server, "P.EndPoint", 1), 0, "pending");
    request_t *r = call(KEX_BUILTIN_PATH, KEX_BUILTIN_LIST);
    EXPECT_THAT(lines_of(r), ElementsAre("value list [text \"Probe object Probe echo(text) note(number|no) run()\", "
                                         "text \"Plain object - plain()\", text \"P object - plain()\", "
                                         "text \"P.EndPoint template Probe echo(text) note(number|no) run()\", "
                                         "text \"P.EndPoint.FXS1 instance Probe echo(text) note(number|no) run()\"]"));
    request_destroy(r);
}

TEST_F(Call, NullHandlesAreAnswered) {
    EXPECT_EQ(fcall_request(nullptr), nullptr);
    EXPECT_EQ(fcall_object(nullptr), nullptr);
    EXPECT_EQ(fcall_peer(nullptr), nullptr);
    fcall_destroy(nullptr);
    char *chars;
    uint16_t u16_value;
    uint32_t u32_value;
    int32_t i32_value;
    void *data;
    variant_list_t *items;
    EXPECT_FALSE(argument_getChar(nullptr, "x", 0, nullptr));
    EXPECT_FALSE(argument_getByteArray(nullptr, "x", 0, nullptr, &u32_value));
    EXPECT_FALSE(argument_getByteArray(nullptr, "x", 0, &data, nullptr));
    EXPECT_FALSE(argument_getList(nullptr, "x", 0, nullptr));
    EXPECT_FALSE(argument_getChar(nullptr, "x", 0, &chars));
    EXPECT_FALSE(argument_getUInt16(nullptr, "x", 0, &u16_value));
    EXPECT_FALSE(argument_getUInt32(nullptr, "x", 0, &u32_value));
    EXPECT_FALSE(argument_getInt32(nullptr, "x", 0, &i32_value));
    EXPECT_FALSE(argument_getByteArray(nullptr, "x", 0, &data, &u32_value));
    EXPECT_FALSE(argument_getList(nullptr, "x", 0, &items));
}

TEST_F(Call, OtherFunctionsOfTheBuiltInObjectAreNotThere) {
    request_t *r = call(KEX_BUILTIN_PATH, "other");
    EXPECT_THAT(lines_of(r), ElementsAre(testing::StartsWith("error 65537 No such object")));
    request_destroy(r);
}

TEST_F(Call, ListingThatNobodyWaitsForIsNotMade) {
    request_t *r = request_create_executeFunction(KEX_BUILTIN_PATH, KEX_BUILTIN_LIST, 0);
    ASSERT_TRUE(kex_sendRequest(client, to_server, r));
    request_destroy(r); // before it has left: it goes without an answer
    turn_until_idle();
    request_destroy(call("Probe", "echo", {{"text", text("still here")}}));
}

TEST_F(Call, ListingShowsTheArgumentsOfAFunctionAndNoObjectThatIsToGo) {
    const char *const row[] = {"Two", "run", "first", "second|2nd"};
    EXPECT_FALSE(kex_declareFunctions(server, row, 1, 4)) << "the program has none of this name";
    const char *const other[] = {"Probe", "run", "first", "second|2nd"};
    ASSERT_TRUE(kex_declareFunctions(server, other, 1, 4));
    kex_declareTemplate(server, "T", "");
    object_delete(object_createInstance(kex_getObject(server, "T", 1), 0, "gone")); // cancelled, until the commit
    request_t *r = call(KEX_BUILTIN_PATH, KEX_BUILTIN_LIST);
    EXPECT_THAT(lines_of(r), ElementsAre(testing::AllOf(HasSubstr("run(first,second|2nd)\""), HasSubstr("\"T template"),
                                                        testing::Not(HasSubstr("gone")))));
    request_destroy(r);
}

TEST_F(Call, ListingThatIsTooLargeIsAnError) {
    const std::string long_name(9000, 'x');
    const char *const row[] = {"Probe", "run", long_name.c_str(), nullptr};
    ASSERT_TRUE(kex_declareFunctions(server, row, 1, 4));
    request_t *r = call(KEX_BUILTIN_PATH, KEX_BUILTIN_LIST);
    EXPECT_THAT(lines_of(r), ElementsAre("error 65540 The listing is too large: kex"));
    request_destroy(r);
}

TEST_F(Call, FunctionOfAnObjectThatItHasDeletedCannotDeleteItAgain) {
    kex_declareTemplate(server, "T", "Probe");
    object_commit(object_createInstance(kex_getObject(server, "T", 1), 0, "one"));
    served::probe = [&](function_call_t *call, argument_list_t *, variant_t *) {
        object_t *self = fcall_object(call);
        EXPECT_TRUE(object_delete(self));
        EXPECT_TRUE(object_commit(self));
        EXPECT_FALSE(object_delete(self));
        EXPECT_FALSE(object_commit(self));
        EXPECT_STREQ(object_name(self, 0), "one");
        fcall_destroy(call);
        return 0;
    };
    request_destroy(call("T.one", "run"));
    EXPECT_EQ(kex_getObject(server, "T.one", 1), nullptr);
}

// Both calls run although nobody reads their replies; that is no reason to say that they are not read.
TEST_F(Call, RepliesToOneThatHasGoneAreLeftAlone) {
    CapturedTrace trace;
    RawPeer raw(socket);
    raw.send(hello());
    turn_until_idle();
    raw.receive_all();
    served::log.clear();
    const std::string large(70 * 1024, 'x'); // beyond it a reply is sent at once
    for (uint32_t serial : {1u, 2u})
        ASSERT_TRUE(
            raw.send(Packet(kCall, serial).text("Probe").text("echo").byte(1).text("text").byte(0).text(large)));
    shutdown(raw.fd(), SHUT_RD);
    turn_until_idle();
    EXPECT_THAT(served::log, ElementsAre("echo", "echo"));
    EXPECT_EQ(trace.text(), "");
}

} // namespace
