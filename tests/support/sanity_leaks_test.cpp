// SPDX-License-Identifier: MIT
// What is left behind, used when it is gone or destroyed where it must not be: noticed.
#include "sanity_fixture.h"

#include "voice_fake/memory.h"
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace sanity {
namespace {

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
} // namespace sanity
