// SPDX-License-Identifier: MIT
// The harness under test: it must notice leaks, misuse and wrong logs, and stay silent where nothing is wrong.
#include "voice_fake/gtest.h"
#include "voice_fake/memory.h"

#include "kex_host.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <unistd.h>

using fake::bus;
using fake::Call;
using fake::Reply;
using fake::Value;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

struct Pipe {
    int ends[2] = {-1, -1};
    Pipe() { EXPECT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0); }
    ~Pipe() {
        close(ends[0]);
        close(ends[1]);
    }
    void fill() const { EXPECT_EQ(write(ends[1], "x", 1), 1); }
    void drain() const {
        char byte = 0;
        while (read(ends[0], &byte, 1) == 1)
            ;
    }
};

// Open before the bus counts descriptors.
const Pipe &shared_pipe() {
    static const Pipe the_pipe;
    return the_pipe;
}

class Harness : public testing::Test {
protected:
    Harness() {
        shared_pipe().drain();
        bus().reset();
    }
    void TearDown() override { EXPECT_THAT(bus().check(), IsEmpty()) << "left by the test itself"; }
};

request_t *make_request() {
    return request_create_executeFunction("A.B", "do", 0x8001);
}

// ---- the log

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

// ---- what is left behind

TEST_F(Harness, ALeakedRequestIsNoticed) {
    make_request();
    EXPECT_THAT(bus().check(), ElementsAre(HasSubstr("1 requests left alive, expected 0: r1 \"do\"")));
}

TEST_F(Harness, ADeclaredRequestIsAccepted) {
    make_request();
    bus().leaves_requests(1, "as documented");
    EXPECT_THAT(bus().check(), IsEmpty());
}

TEST_F(Harness, ADeclaredLeakThatDoesNotHappenIsNoticed) {
    bus().leaves_requests(1, "as documented");
    EXPECT_THAT(bus().check(), ElementsAre(HasSubstr("0 requests left alive, expected 1 (declared: as documented)")));
}

TEST_F(Harness, AFilledVariantIsNoticed) {
    variant_t v{};
    variant_setChar(&v, "hello");
    EXPECT_THAT(bus().check(), ElementsAre(HasSubstr("never cleaned up: \"hello\"")));
}

TEST_F(Harness, AVariantInitialisedAgainWhileFilledIsNoticed) {
    variant_t v{};
    variant_setUInt32(&v, 5);
    variant_initialize(&v, VARIANT_TEXT);
    variant_cleanup(&v);
    EXPECT_THAT(bus().check(), ElementsAre(HasSubstr("it held u32 5")));
}

TEST_F(Harness, AnUninitialisedVariantIsNoticed) {
    variant_t v;
    memset(&v, 0xa5, sizeof(v));
    EXPECT_FALSE(variant_setInt32(&v, 5));
    EXPECT_THAT(bus().check(), ElementsAre(HasSubstr("never initialised")));
}

TEST_F(Harness, InitialiseServesOnUninitialisedMemory) {
    variant_t v;
    memset(&v, 0xa5, sizeof(v));
    EXPECT_TRUE(variant_initialize(&v, VARIANT_INT32));
    EXPECT_TRUE(variant_setInt32(&v, -5));
    variant_cleanup(&v);
    variant_cleanup(&v);
    EXPECT_FALSE(variant_initialize(&v, 77));
}

TEST_F(Harness, UseOfADestroyedRequestIsNoticed) {
    request_t *r = make_request();
    request_destroy(r);
    request_destroy(r);
    kex_sendRequest(bus().handle(), bus().peer("fxs"), r);
    EXPECT_THAT(bus().check(), ElementsAre(HasSubstr("request_destroy on r1"), HasSubstr("kex_sendRequest on r1")));
}

TEST_F(Harness, ALeakedDescriptorIsNoticed) {
    const int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_THAT(bus().check(), ElementsAre(HasSubstr("1 descriptors more than at the start, expected 0")));
    close(descriptor);
    EXPECT_THAT(bus().check(), ElementsAre(HasSubstr("-1 descriptors more")));
}

int ends_without_destroy(function_call_t *, argument_list_t *, variant_t *) {
    return 0;
}

int destroys_twice(function_call_t *call, argument_list_t *, variant_t *) {
    fcall_destroy(call);
    fcall_destroy(call);
    return 0;
}

int reads_after_destroy(function_call_t *call, argument_list_t *arguments, variant_t *) {
    fcall_destroy(call);
    uint32_t value = 0;
    argument_getUInt32(arguments, "a", 0, &value);
    return 0;
}

int takes_a_list_and_forgets_it(function_call_t *call, argument_list_t *arguments, variant_t *) {
    variant_list_t *list = nullptr;
    argument_getList(arguments, "filedesc", 0, &list);
    fcall_destroy(call);
    return 0;
}

TEST_F(Harness, ACallNeverOrTwiceDestroyedIsNoticed) {
    Call().run(ends_without_destroy);
    Call().run(destroys_twice);
    EXPECT_THAT(bus().check(), ElementsAre("call1 was destroyed 0 times", "call2 was destroyed 2 times"));
}

TEST_F(Harness, ReadingAfterTheCallIsDestroyedIsNoticed) {
    Call().with("a", Value::u32(1)).run(reads_after_destroy);
    EXPECT_THAT(bus().check(), ElementsAre(HasSubstr("argument_getUInt32 after fcall_destroy(call1)")));
}

TEST_F(Harness, AForgottenListIsNoticedAndItsDescriptorsClosed) {
    Call().with("filedesc", Value::fds({STDERR_FILENO, -1})).run(takes_a_list_and_forgets_it);
    EXPECT_THAT(bus().check(), ElementsAre("1 argument lists were never destroyed"));
}

// ---- calls that arrive

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

// ---- faults

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

// ---- replies, handlers

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

// ---- peers, timers, data model

std::vector<uint64_t> fired;

void on_timer(kex_timer_t *timer) {
    fired.push_back(bus().now());
    if (fired.size() < 3)
        kex_timer_start(timer, 10000);
    else
        kex_timer_destroy(timer);
}

TEST_F(Harness, TimersFireByTheVirtualClock) {
    fired.clear();
    kex_timer_t *timer = kex_timer_create();
    kex_timer_setHandler(timer, on_timer);
    kex_timer_start(timer, 0);
    EXPECT_TRUE(fired.empty()) << "never inside the caller";
    bus().advance(15000);
    EXPECT_THAT(fired, ElementsAre(0u, 10000u));
    EXPECT_EQ(bus().timers_armed(), 1u);
    bus().advance(15000);
    EXPECT_THAT(fired, ElementsAre(0u, 10000u, 20000u));
    EXPECT_EQ(bus().timers_armed(), 0u);
    EXPECT_EQ(bus().live().timers, 0u);
}

int closed_peers;

int on_close(peer_t *, int event, void *) {
    EXPECT_EQ(event, PEER_EVENT_CLOSED);
    ++closed_peers;
    return 1;
}

TEST_F(Harness, AClosedPeerTellsItsHandlerAndTakesNothingMore) {
    closed_peers = 0;
    peer_t *peer = bus().peer("application");
    EXPECT_TRUE(peer_setEventHandler(peer, PEER_EVENT_CLOSED, nullptr, on_close));
    EXPECT_EQ(bus().close(peer), 1);
    EXPECT_EQ(closed_peers, 1);
    request_t *r = make_request();
    EXPECT_FALSE(kex_sendRequest(bus().handle(), peer, r));
    EXPECT_FALSE(peer_setEventHandler(peer, PEER_EVENT_CLOSED, nullptr, on_close));
    request_destroy(r);
}

TEST_F(Harness, ObjectsAreCreatedAndDeletedOnCommit) {
    object_t *root = bus().object("FXS.EndPoint");
    object_t *made = object_createInstance(root, 0, "FXS1");
    EXPECT_EQ(kex_getObject(bus().handle(), "FXS.EndPoint.FXS1", 1), made);
    EXPECT_EQ(object_getObject(root, "FXS1", 1, nullptr), made);
    EXPECT_EQ(object_createInstance(root, 0, "FXS1"), nullptr);
    EXPECT_TRUE(object_delete(made));
    EXPECT_TRUE(bus().exists("FXS.EndPoint.FXS1")) << "until it is committed";
    EXPECT_TRUE(object_commit(root));
    EXPECT_FALSE(bus().exists("FXS.EndPoint.FXS1"));
    EXPECT_TRUE(bus().exists("FXS"));
}

// ---- answers

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

// ---- what kex_host.h adds

void counts(int, void *userdata) {
    ++*static_cast<int *>(userdata);
}

void reads(int fd, void *userdata) {
    char byte = 0;
    EXPECT_EQ(read(fd, &byte, 1), 1);
    counts(fd, userdata);
}

void ends_its_watch(int fd, void *userdata) {
    counts(fd, userdata);
    EXPECT_TRUE(kex_unwatch(bus().handle(), fd));
}

TEST_F(Harness, TheHostsCallsAreLinesToo) {
    const char *const rows[] = {"EndPoint", "signal", "signal", "", "init", nullptr};
    kex_t *made = kex_create("tel");
    kex_declareFunctions(made, rows, 2, 3);
    kex_declareObject(made, "tel", nullptr);
    kex_declareTemplate(made, "tel.EndPoint", "EndPoint");
    kex_onPeerClosed(made, nullptr, nullptr);
    EXPECT_TRUE(kex_reserve(made, 7, 2));
    kex_setClock(made, nullptr, nullptr);
    bus().name_function(reinterpret_cast<const void *>(counts), "counts");
    int count = 0;
    kex_watch(made, STDERR_FILENO, &count, counts);
    kex_unwatch(made, STDERR_FILENO);
    kex_unwatch(made, STDERR_FILENO);
    kex_stop(made);
    kex_destroy(made);
    EXPECT_LOG("kex_create(\"tel\") = bus", "kex_declareFunctions(bus, 2 rows of 3) = 1",
               "kex_declareObject(bus, \"tel\", null) = <tel>",
               "kex_declareTemplate(bus, \"tel.EndPoint\", \"EndPoint\") = <tel.EndPoint>",
               "kex_onPeerClosed(bus, null, null)", "kex_reserve(bus, 7, 2)", "kex_setClock(bus, null, null)",
               "kex_watch(bus, 2, data, counts) = 1", "kex_unwatch(bus, 2) = 1", "kex_unwatch(bus, 2) = 0",
               "kex_stop(bus)", "kex_destroy(bus)");
}

TEST_F(Harness, AWatchRunsWhenItsDescriptorCanBeRead) {
    const Pipe &one = shared_pipe();
    int count = 0;
    EXPECT_TRUE(kex_watch(bus().handle(), one.ends[0], &count, reads));
    EXPECT_EQ(bus().turn(), 0);
    one.fill();
    one.fill();
    EXPECT_EQ(count, 0) << "only in a turn";
    EXPECT_EQ(bus().turn(), 1);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(kex_dispatch(bus().handle()), 1);
    EXPECT_EQ(kex_dispatch(bus().handle()), 0);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(bus().live().watches, 1u);
    EXPECT_TRUE(kex_unwatch(bus().handle(), one.ends[0]));
    one.fill();
    EXPECT_EQ(bus().turn(), 0);
    EXPECT_EQ(bus().live().watches, 0u);
}

TEST_F(Harness, AWatchRunsOnceWhenTheTestSaysSo) {
    const Pipe &one = shared_pipe();
    int count = 0;
    kex_watch(bus().handle(), one.ends[0], &count, counts);
    bus().watch_ready(one.ends[0]);
    EXPECT_EQ(bus().turn(), 1);
    EXPECT_EQ(bus().turn(), 0);
    EXPECT_EQ(count, 1);
    kex_watch(bus().handle(), one.ends[0], &count, ends_its_watch);
    bus().watch_ready(one.ends[0]);
    EXPECT_EQ(bus().turn(), 1);
    EXPECT_FALSE(bus().is_watched(one.ends[0]));
    bus().watch_ready(one.ends[0]);
    EXPECT_THAT(bus().check(), ElementsAre(HasSubstr("nobody watches it")));
}

TEST_F(Harness, AWatchedDescriptorThatIsClosedIsNoticed) {
    int count = 0, closed = -1;
    {
        const Pipe one;
        closed = one.ends[0];
        kex_watch(bus().handle(), closed, &count, counts);
        EXPECT_THAT(bus().check(), ElementsAre(HasSubstr("2 descriptors more")));
        EXPECT_THAT(bus().check(), IsEmpty());
    }
    EXPECT_THAT(bus().check(),
                ElementsAre(fake::text("descriptor %d is watched, but closed", closed), HasSubstr("-2")));
    kex_unwatch(bus().handle(), closed);
}

TEST_F(Harness, BadWatchesAreRejected) {
    EXPECT_FALSE(kex_watch(bus().handle(), -1, nullptr, counts));
    EXPECT_FALSE(kex_watch(bus().handle(), STDERR_FILENO, nullptr, nullptr));
    EXPECT_FALSE(kex_watch(nullptr, STDERR_FILENO, nullptr, counts));
    EXPECT_FALSE(kex_unwatch(nullptr, STDERR_FILENO));
    bus().fail("kex_watch");
    EXPECT_FALSE(kex_watch(bus().handle(), STDERR_FILENO, nullptr, counts));
}

TEST_F(Harness, RunEndsWithAStopAtItsVirtualTime) {
    fired.clear();
    kex_timer_t *timer = kex_timer_create();
    kex_timer_setHandler(timer, on_timer);
    kex_timer_start(timer, 500);
    kex_stop(nullptr);
    bus().at(2000, [] { bus().note("at 2 s"); });
    bus().at(12000, [] { kex_stop(bus().handle()); });
    EXPECT_EQ(kex_run(bus().handle()), 0);
    EXPECT_EQ(bus().now(), 12000u);
    EXPECT_THAT(fired, ElementsAre(500u, 10500u));
    EXPECT_TRUE(bus().is_stopped());
    EXPECT_EQ(kex_dispatch(bus().handle()), -1);
    EXPECT_EQ(bus().turn(), -1);
}

TEST_F(Harness, ARunThatCannotEndIsNoticed) {
    EXPECT_EQ(kex_run(bus().handle()), -1);
    EXPECT_EQ(errno, EDEADLK);
    EXPECT_THAT(bus().check(), ElementsAre(HasSubstr("nothing is left that could happen")));
    kex_timer_t *timer = kex_timer_create();
    kex_timer_setHandler(timer, [](kex_timer_t *again) { kex_timer_start(again, 60000); });
    kex_timer_start(timer, 0);
    EXPECT_EQ(kex_run(bus().handle()), -1);
    EXPECT_THAT(bus().check(), ElementsAre(HasSubstr("nobody called kex_stop() for an hour")));
}

TEST_F(Harness, ALoopThatDoesNotComeToRestIsNoticed) {
    const Pipe &one = shared_pipe();
    one.fill();
    int count = 0;
    kex_watch(bus().handle(), one.ends[0], &count, counts);
    bus().run_for(0);
    kex_unwatch(bus().handle(), one.ends[0]);
    EXPECT_GT(count, 1);
    EXPECT_THAT(bus().check(), ElementsAre(HasSubstr("does not come to rest at 0 ms")));
}

TEST_F(Harness, RunForTurnsAtEachTimeThatIsDue) {
    const Pipe &one = shared_pipe();
    int count = 0;
    kex_watch(bus().handle(), one.ends[0], &count, reads);
    bus().at(20, [&] { one.fill(); });
    bus().at(40, [&] { one.fill(); });
    bus().run_for(30);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(bus().now(), 30u);
    bus().run_for(10);
    EXPECT_EQ(count, 2);
    kex_unwatch(bus().handle(), one.ends[0]);
}

TEST_F(Harness, WhatIsPostedInATurnWaitsForTheNext) {
    bus().post([] { bus().post([] { bus().note("second"); }); });
    EXPECT_EQ(bus().turn(), 1);
    EXPECT_LOG();
    EXPECT_EQ(bus().turn(), 1);
    EXPECT_LOG("second");
    bus().post([] { EXPECT_EQ(kex_dispatch(bus().handle()), 0) << "a turn is no place for another"; });
    EXPECT_EQ(bus().turn(), 1);
}

TEST_F(Harness, ThePollDescriptorIsReadableWhileThereIsWork) {
    const Pipe &one = shared_pipe();
    int count = 0;
    kex_watch(bus().handle(), one.ends[0], &count, reads);
    pollfd entry = {kex_pollDescriptor(bus().handle()), POLLIN, 0};
    const auto readable = [&] { return poll(&entry, 1, 0) == 1; };
    EXPECT_FALSE(readable());
    one.fill();
    EXPECT_TRUE(readable());
    EXPECT_EQ(kex_dispatch(bus().handle()), 1);
    EXPECT_FALSE(readable());
    kex_timer_t *timer = kex_timer_create();
    kex_timer_start(timer, 10);
    EXPECT_FALSE(readable());
    bus().post([] {});
    EXPECT_TRUE(readable());
    EXPECT_EQ(kex_dispatch(bus().handle()), 1);
    EXPECT_FALSE(readable());
    kex_stop(bus().handle());
    EXPECT_TRUE(readable());
    EXPECT_EQ(kex_dispatch(bus().handle()), -1);
    kex_timer_destroy(timer);
    kex_unwatch(bus().handle(), one.ends[0]);
}

uint64_t hosts_clock(void *userdata) {
    return *static_cast<uint64_t *>(userdata);
}

TEST_F(Harness, TimersFollowTheHostsClock) {
    fired.clear();
    uint64_t nanoseconds = 5000000000;
    kex_setClock(bus().handle(), hosts_clock, &nanoseconds);
    EXPECT_EQ(bus().now(), 5000u);
    kex_timer_t *timer = kex_timer_create();
    kex_timer_setHandler(timer, on_timer);
    kex_timer_start(timer, 100);
    nanoseconds += 99000000;
    EXPECT_EQ(kex_dispatch(bus().handle()), 0);
    nanoseconds += 1000000;
    EXPECT_EQ(kex_dispatch(bus().handle()), 1);
    EXPECT_THAT(fired, ElementsAre(5100u));
    bus().advance(1);
    bus().run_for(1);
    EXPECT_THAT(bus().check(), ElementsAre(HasSubstr("advance() while"), HasSubstr("run_for() while")));
}

TEST_F(Harness, ObjectsAreWhatTheyWereDeclaredAs) {
    kex_t *on = bus().handle();
    EXPECT_NE(kex_declareObject(on, "A.B", "Service"), nullptr);
    EXPECT_EQ(bus().class_of("A.B"), "Service");
    EXPECT_EQ(bus().class_of("A"), "");
    EXPECT_NE(kex_declareObject(on, "A.B", "Service"), nullptr);
    EXPECT_EQ(kex_declareObject(on, "A.B", "Another"), nullptr);
    EXPECT_EQ(kex_declareTemplate(on, "A.B", "Service"), nullptr);
    for (const char *path : {"", ".", "A.", ".A", "A..B"})
        EXPECT_EQ(kex_declareObject(on, path, nullptr), nullptr) << path;
    EXPECT_EQ(kex_declareObject(on, nullptr, nullptr), nullptr);
    EXPECT_EQ(object_createInstance(kex_getObject(on, "A.B", 0), 0, "X"), nullptr) << "no template";
}

TEST_F(Harness, ATemplatesTemplatesAreMadeWithEachInstance) {
    kex_t *on = bus().handle();
    object_t *dsps = kex_declareTemplate(on, "P.DSPPlugin", "DSPPlugin");
    kex_declareTemplate(on, "P.DSPPlugin.DSP", "DSP");
    kex_declareTemplate(on, "P.DSPPlugin.DSP.CHANNEL", "DSP_CHANNEL");
    object_t *first = object_createInstance(dsps, 0, "dsp0");
    object_t *channels = object_createInstance(object_getObject(first, "DSP", 1, nullptr), 0, "0");
    EXPECT_NE(object_createInstance(object_getObject(channels, "CHANNEL", 1, nullptr), 0, "3"), nullptr);
    EXPECT_EQ(bus().class_of("P.DSPPlugin.dsp0"), "DSPPlugin");
    EXPECT_EQ(bus().class_of("P.DSPPlugin.dsp0.DSP.0"), "DSP");
    EXPECT_EQ(bus().class_of("P.DSPPlugin.dsp0.DSP.0.CHANNEL.3"), "DSP_CHANNEL");
    object_createInstance(dsps, 0, "dsp1");
    EXPECT_TRUE(bus().exists("P.DSPPlugin.dsp1.DSP"));
    EXPECT_FALSE(bus().exists("P.DSPPlugin.dsp1.dsp0")) << "an instance is no part of its template";
    EXPECT_FALSE(bus().exists("P.DSPPlugin.dsp1.dsp0.DSP"));
    object_delete(first);
    object_commit(dsps);
    EXPECT_FALSE(bus().exists("P.DSPPlugin.dsp0.DSP.0.CHANNEL.3"));
}

TEST_F(Harness, DeclaredFunctionsAreKept) {
    const char *const rows[] = {"EndPoint", "signal", "signal", nullptr, "", "init", "country", nullptr};
    EXPECT_TRUE(kex_declareFunctions(bus().handle(), rows, 2, 4));
    EXPECT_THAT(bus().declared_functions(),
                ElementsAre(ElementsAre("EndPoint", "signal", "signal"), ElementsAre("", "init", "country")));
    const char *const nameless[] = {"EndPoint", ""};
    EXPECT_FALSE(kex_declareFunctions(bus().handle(), nameless, 1, 2));
    EXPECT_FALSE(kex_declareFunctions(bus().handle(), rows, 2, 1));
    EXPECT_FALSE(kex_declareFunctions(bus().handle(), nullptr, 2, 4));
    EXPECT_EQ(bus().declared_functions().size(), 2u);
}

void on_any_close(kex_t *on, peer_t *peer, void *userdata) {
    EXPECT_EQ(on, bus().handle());
    bus().note("closed " + *static_cast<std::string *>(userdata) + peer_processName(peer));
}

TEST_F(Harness, TheHostIsToldOfEachClosingAfterThePeersOwnHandler) {
    closed_peers = 0;
    std::string text = "peer ";
    peer_t *peer = bus().peer("fxs1");
    kex_onPeerClosed(bus().handle(), on_any_close, &text);
    peer_setEventHandler(peer, PEER_EVENT_CLOSED, nullptr, on_close);
    bus().clear_log();
    EXPECT_TRUE(peer_disconnect(peer));
    EXPECT_FALSE(peer_disconnect(peer));
    EXPECT_EQ(closed_peers, 0) << "in a later turn";
    request_t *r = make_request();
    EXPECT_FALSE(kex_sendRequest(bus().handle(), peer, r));
    request_destroy(r);
    EXPECT_EQ(bus().turn(), 1);
    EXPECT_EQ(closed_peers, 1);
    EXPECT_EQ(bus().acts().back(), "closed peer fxs1");
    EXPECT_FALSE(peer_disconnect(peer));
    EXPECT_FALSE(peer_disconnect(nullptr));
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

TEST_F(Harness, PeersHaveProcesses) {
    peer_t *peer = bus().peer("application");
    EXPECT_STREQ(peer_processName(peer), "application");
    EXPECT_GT(peer_processId(peer), 0);
    EXPECT_NE(peer_processId(bus().peer("another")), peer_processId(peer));
    bus().process(peer, "voice_application", 77);
    EXPECT_STREQ(peer_processName(peer), "voice_application");
    EXPECT_EQ(peer_processId(peer), 77);
    EXPECT_STREQ(peer_processName(nullptr), "");
    EXPECT_EQ(peer_processId(nullptr), 0);
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

TEST_F(Harness, UseOfADestroyedBusIsNoticed) {
    kex_t *made = kex_create("tel");
    EXPECT_EQ(kex_create("tel"), nullptr);
    peer_t *peer = kex_client_connect(made, "local:x");
    kex_timer_t *timer = kex_timer_create();
    kex_timer_start(timer, 1);
    kex_declareObject(made, "tel", nullptr);
    bus().post([] { bus().note("never"); });
    kex_destroy(made);
    EXPECT_EQ(bus().timers_armed(), 0u);
    EXPECT_FALSE(bus().exists("tel"));
    request_t *r = make_request();
    EXPECT_FALSE(kex_sendRequest(made, peer, r)) << "its peers are closed";
    request_destroy(r);
    kex_destroy(made);
    EXPECT_EQ(kex_run(made), -1);
    EXPECT_EQ(kex_dispatch(made), 0);
    EXPECT_THAT(bus().check(),
                ElementsAre(HasSubstr("kex_create for a second time"), HasSubstr("kex_destroy on a destroyed bus"),
                            HasSubstr("kex_run on a destroyed bus"), HasSubstr("kex_dispatch on a destroyed bus")));
    EXPECT_EQ(kex_create("tel"), made) << "a host may start again";
    EXPECT_EQ(bus().turn(), 0);
    bus().fail("kex_create");
    kex_destroy(made);
    EXPECT_EQ(kex_create("tel"), nullptr);
}

TEST_F(Harness, DestroyInsideAHandlerIsNoticed) {
    bus().post([] { kex_destroy(bus().handle()); });
    EXPECT_EQ(bus().turn(), 1);
    EXPECT_THAT(bus().check(), ElementsAre(HasSubstr("kex_destroy inside a handler")));
    connection_t *other = kex_connection(bus().handle());
    kex_stop(reinterpret_cast<kex_t *>(other));
    EXPECT_THAT(bus().check(), ElementsAre(HasSubstr("not the bus")));
    EXPECT_EQ(other, bus().connection());
    EXPECT_EQ(kex_connection(nullptr), nullptr);
}

// ---- traces

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

// ---- memory

TEST(HarnessMemory, ALeakedBlockIsNoticed) {
    fake::memory_start();
    void *volatile block = malloc(10);
    EXPECT_NE(block, nullptr);
    EXPECT_EQ(fake::memory_blocks(), 1u);
    block = nullptr;
    EXPECT_EQ(fake::memory_check(0), "1 memory blocks left, expected 0; bytes: 10");
}

TEST(HarnessMemory, OneAllocationFailsAndNoOther) {
    fake::memory_start();
    fake::memory_fail(2);
    void *volatile first = malloc(10);
    void *volatile second = calloc(1, 10);
    void *volatile third = malloc(10);
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(second, nullptr);
    EXPECT_NE(third, nullptr);
    fake::memory_fail();
    EXPECT_EQ(realloc(first, 20), nullptr) << "the block stays";
    free(first);
    free(third);
    fake::memory_fail();
    EXPECT_EQ(fake::memory_check(0), "");
    fake::memory_start();
    void *volatile after = malloc(10);
    EXPECT_NE(after, nullptr) << "a new start forgets it";
    free(after);
    EXPECT_EQ(fake::memory_check(0), "");
}

TEST(HarnessMemory, FreedBlocksBalance) {
    fake::memory_start();
    void *volatile a = malloc(10);
    void *volatile b = calloc(2, 8);
    free(a);
    free(b);
    EXPECT_EQ(fake::memory_allocations(), 2u);
    EXPECT_EQ(fake::memory_check(0), "");
}

} // namespace
