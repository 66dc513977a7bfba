// SPDX-License-Identifier: MIT
// Calls that arrive, what a host is told of them, and functions of the platform that fail.
#include "sanity_fixture.h"

#include "voice_fake/memory.h"
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

namespace sanity {
namespace {

int answers(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    char *text = nullptr;
    uint16_t small = 7;
    void *data = nullptr;
    uint32_t length = 99;
    const uint32_t attributes = request_attributes(fcall_request(call));
    if (argument_getChar(arguments, "text", attributes, &text))
        bus().note(std::string("text ") + (text ? text : "(null)"));
    EXPECT_FALSE(argument_getUInt16(arguments, "large", attributes, &small));
    EXPECT_EQ(small, 7);
    EXPECT_TRUE(argument_getByteArray(arguments, "bytes", attributes, &data, &length));
    EXPECT_NE(data, nullptr);
    EXPECT_EQ(length, 0u);
    EXPECT_TRUE(argument_getByteArray(arguments, "nothing", attributes, &data, &length) && !data);
    reply_addError(request_reply(fcall_request(call)), 196640, "Missing mandatory argument", "a");
    variant_setBool(return_value, 1);
    fcall_destroy(call);
    variant_setBool(return_value, 0); // the return value stays valid
    free(text);
    return 2;
}

TEST_F(Harness, ACallBringsArgumentsAndKeepsTheReply) {
    Call call;
    call.on(bus().object("FXS.EndPoint.FXS1")).attributes(0x11);
    call.with("text", Value::without_value(VARIANT_TEXT)).with("large", Value::u32(65536));
    call.with("bytes", Value::bytes("")).with("nothing", Value::without_value(VARIANT_BYTES));
    fake::memory_start();
    EXPECT_EQ(call.run(answers), 2);
    EXPECT_EQ(fake::memory_check(1), "") << "the empty byte array is a block of its own";
    EXPECT_EQ(call.returned().str(), "bool false");
    EXPECT_THAT(call.errors(), ElementsAre("196640 \"Missing mandatory argument\" \"a\""));
    EXPECT_LOG("argument_getChar(\"text\", 0x0011) = null", "text (null)",
               "argument_getUInt16(\"large\", 0x0011) = missing", "argument_getByteArray(\"bytes\", 0x0011) = bytes(0)",
               "argument_getByteArray(\"nothing\", 0x0011) = null",
               "reply_addError(call1, 196640, \"Missing mandatory argument\", \"a\")", "return_value = bool true",
               "fcall_destroy(call1)", "return_value = bool false");
}

int reads_one_descriptor(function_call_t *call, argument_list_t *arguments, variant_t *) {
    variant_list_t *list = nullptr;
    EXPECT_TRUE(argument_getList(arguments, "filedesc", 0, &list));
    EXPECT_EQ(variant_list_size(list), 2u);
    EXPECT_EQ(variant_list_at(list, 2), nullptr);
    const int mine = variant_fd(variant_list_at(list, 1));
    variant_list_destroy(list);
    EXPECT_GE(fcntl(mine, F_GETFD), 0) << "a descriptor that was read belongs to the reader";
    close(mine);
    fcall_destroy(call);
    return 0;
}

TEST_F(Harness, DescriptorsNobodyReadAreClosedWithTheirList) {
    Call().with("filedesc", Value::fds({STDERR_FILENO, STDERR_FILENO})).run(reads_one_descriptor);
}

TEST_F(Harness, TheNthCallFails) {
    bus().fail_call(2);
    request_t *r = make_request();
    variant_t v{};
    EXPECT_FALSE(variant_setChar(&v, "x"));
    EXPECT_TRUE(variant_setChar(&v, "y"));
    EXPECT_EQ(bus().failed(), "variant_setChar");
    variant_cleanup(&v);
    request_destroy(r);
    bus().fail_call(100);
    request_destroy(make_request());
    EXPECT_EQ(bus().failed(), "");
}

TEST_F(Harness, AFunctionFailsByName) {
    bus().fail("request_create_executeFunction", 2);
    request_t *r = make_request();
    EXPECT_NE(r, nullptr);
    EXPECT_EQ(make_request(), nullptr);
    request_destroy(r);
    EXPECT_THAT(bus().log()[1], HasSubstr("null = request_create_executeFunction"));
}

TEST_F(Harness, ASendWithAClosedDescriptorFails) {
    request_t *r = make_request();
    variant_t list{}, item{};
    variant_initialize(&list, VARIANT_LIST);
    variant_initialize(&item, VARIANT_FD);
    variant_setFd(&item, 999);
    EXPECT_TRUE(variant_list_add(variant_da_list(&list), &item));
    EXPECT_TRUE(request_addParameter(r, "filedesc", &list));
    EXPECT_FALSE(kex_sendRequest(bus().handle(), bus().peer("fxs"), r));
    variant_cleanup(&list);
    variant_cleanup(&item);
    request_destroy(r);
}

std::string text_of(kex_text_t text) {
    return {text.bytes, text.length};
}

// Notes which call runs, and lets it run when its argument "name" is "yes".
int on_call(kex_t *on, void *userdata) {
    kex_call_t call;
    kex_text_t name;
    const bool runs = kex_currentCall(on, &call) != 0;
    const bool named = kex_currentText(on, "name", &name) != 0;
    bus().note(
        *static_cast<std::string *>(userdata) +
        (runs ? text_of(call.path) + " " + text_of(call.function) + " from " + peer_processName(call.peer) : "") +
        (named ? " " + text_of(name) : ""));
    return named && text_of(name) == "yes";
}

int ends_the_call(function_call_t *call, argument_list_t *, variant_t *) {
    fcall_destroy(call);
    return KEX_FUNCTION_DONE;
}

TEST_F(Harness, TheHostIsToldWhichCallRunsAndMayRejectIt) {
    std::string text = "before ";
    kex_onCall(bus().handle(), on_call, &text);
    bus().clear_log();
    fake::Call call;
    call.on(bus().object("tel")).from(bus().peer("fxs1")).named("init").with("name", Value::chars("yes"));
    EXPECT_EQ(call.run(ends_the_call), KEX_FUNCTION_DONE);
    EXPECT_LOG("before tel init from fxs1 yes", "fcall_destroy(call1)");
    fake::Call rejected;
    rejected.named("init").with("name", Value::u32(1));
    EXPECT_EQ(rejected.run(ends_the_call), KEX_FUNCTION_FAILED);
    EXPECT_THAT(rejected.errors(), testing::ElementsAre("65539 \"Not allowed\" \"init\""));
    kex_call_t none;
    EXPECT_FALSE(kex_currentCall(bus().handle(), &none));
    kex_onCall(bus().handle(), nullptr, nullptr);
}

int fails_the_call(function_call_t *call, argument_list_t *, variant_t *) {
    fcall_destroy(call);
    return KEX_FUNCTION_FAILED;
}

TEST_F(Harness, TheHostIsToldOfAFunctionThatFailed) {
    const auto told = [](const kex_failed_call_t *call, void *userdata) {
        uint32_t line = 7;
        bus().note(*static_cast<std::string *>(userdata) + text_of(call->path) + " " + text_of(call->function) +
                   " from " + call->process_name);
        EXPECT_TRUE(kex_currentUInt32(call->bus, "line", &line));
        EXPECT_EQ(line, 1u);
        EXPECT_FALSE(kex_currentUInt32(call->bus, "name", &line)) << "no number";
        EXPECT_FALSE(kex_currentUInt32(call->bus, "less", &line)) << "does not fit";
        EXPECT_FALSE(kex_currentUInt32(call->bus, "nothing", &line));
        EXPECT_FALSE(kex_currentUInt32(nullptr, "line", &line));
        EXPECT_EQ(call->bus, bus().handle());
        EXPECT_EQ(call->process_id, peer_processId(call->peer));
    };
    std::string text = "failed ";
    kex_onFailed(bus().handle(), told, &text);
    bus().clear_log();
    fake::Call call;
    call.on(bus().object("tel")).from(bus().peer("fxs1")).named("create").with("line", Value::u32(1));
    call.with("name", Value::chars("x")).with("less", Value::i32(-1));
    EXPECT_EQ(call.run(ends_the_call), KEX_FUNCTION_DONE);
    EXPECT_EQ(call.run(fails_the_call), KEX_FUNCTION_FAILED);
    EXPECT_LOG("fcall_destroy(call1)", "fcall_destroy(call1)", "failed tel create from fxs1");
    kex_onFailed(bus().handle(), nullptr, nullptr);
    bus().clear_log();
    EXPECT_EQ(call.run(fails_the_call), KEX_FUNCTION_FAILED);
    EXPECT_LOG("fcall_destroy(call1)");
    kex_onFailed(nullptr, told, &text);
}

} // namespace
} // namespace sanity
