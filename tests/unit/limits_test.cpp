// SPDX-License-Identifier: MIT
// Where something ends, in any file of the library: memory, the range of a count, what a host asked to be told.
#include "voice_test.h"

#include <climits>
#include <memory>
#include <netinet/in.h>
#include <sys/mman.h>

namespace voice_test {
namespace {

constexpr uint32_t kEpId = 0x01FE0003; // LIBVOICE_PARAM_zil_ep_id
constexpr uint32_t kName = 0x02FE000A; // LIBVOICE_PARAM_zil_ep_dispname

std::string said_by_requests(const char *tag, const char *function, const char *message) {
    return text("%s %s@kex_api_calls: %s", tag, function, message);
}

const char *const kNoSpace =
    "libvoice_add_param() failed, rc = 0x00000009 (\"insufficient space in parameter buffer\")";

// ---------------------------------------------------------------------------------------------------------- memory

class NoMemory : public VoiceTest {
protected:
    NoMemory() {
        have_endpoint(3, "FXS1", 5, have_plugin(1, "FXS", bus().peer("fxs")));
        bus().clear_log();
    }
};

TEST_F(NoMemory, ASetThatCannotBeMadeIsAFullOne) {
    libvoice_param_block_t *set = reinterpret_cast<libvoice_param_block_t *>(this);
    fake::memory_fail();
    EXPECT_EQ(param_set_initialize(kEpId, "1234", 4, &set), LIBVOICE_ERR_PARAM_NO_SPACE);
    EXPECT_EQ(set, nullptr);
    EXPECT_THAT(bus().complaints(), ElementsAre(said_by_requests("x[SIGNAL]", "param_set_initialize", kNoSpace)));
}

TEST_F(NoMemory, ParametersThatNeedASetAreNotSent) {
    struct {
        const char *function;
        int (*send)();
    } const rows[] = {
        {"libvoice_set_params", [] { return libvoice_set_params(5, kName, "AT", 3); }},
        {"libvoice_get_params", [] { return libvoice_get_params(5, kName, 77); }},
    };
    for (const auto &row : rows) {
        bus().clear_log();
        fake::memory_fail();
        EXPECT_EQ(row.send(), 0) << row.function;
        EXPECT_THAT(bus().complaints(),
                    ElementsAre(said_by_requests("x[SIGNAL]", "param_set_initialize", kNoSpace),
                                said_by_requests("x[VOIPCFG]", row.function, "param_set_initialize failed")));
        EXPECT_THAT(bus().acts(), IsEmpty()) << row.function;
    }
}

TEST_F(NoMemory, AQuestionWithoutItsContextIsNotSent) {
    // The set is the first block, the context word the second.
    fake::memory_fail(2);
    EXPECT_EQ(libvoice_get_params(5, kName, 77), 0);
    EXPECT_THAT(bus().complaints(),
                ElementsAre(said_by_requests("x[]", "libvoice_get_params", "Failed to send request.")));
    EXPECT_THAT(bus().acts(), testing::Not(testing::Contains(testing::StartsWith("kex_sendRequest"))));
    EXPECT_EQ(bus().acts().back(), "request_destroy(r1)");
}

// ---------------------------------------------------------------------------------------------------------- counts

class Counts : public VoiceTest {};

TEST_F(Counts, ASetThatSaysMoreThanItHoldsTakesNothing) {
    libvoice_param_block_t *set = nullptr;
    ASSERT_EQ(param_set_initialize(kEpId, "1234", 4, &set), LIBVOICE_OK);
    for (const uint32_t length : {257u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        bus().clear_log();
        set->head.length = length;
        EXPECT_EQ(param_set_add(kName, "AT", 3, set), LIBVOICE_ERR_PARAM_NO_SPACE) << length;
        EXPECT_EQ(set->head.length, length);
        EXPECT_THAT(bus().complaints(), ElementsAre(said_by_requests("x[SIGNAL]", "param_set_add", kNoSpace)));
    }
    free(set);
}

TEST_F(Counts, ARecordWhoseSizeIsNoCountIsNotSent) {
    // Only the head is there: a sanitizer sees a look behind it.
    have_endpoint(3, "FXS1", 5, have_plugin(1, "FXS", bus().peer("fxs")));
    strcpy(_PLUGIN_NAME, "FXS");
    libvoice_set_kex_peer_handler(bus().peer("application"));
    auto signal = std::make_unique<libvoice_signal_t>();
    signal->endpoint = 5;
    signal->length = UINT32_MAX - 27;
    bus().clear_log();
    libvoice_send_signal(signal.get());
    EXPECT_THAT(bus().complaints(),
                ElementsAre(said_by_requests("x[SIGNAL]", "libvoice_send_signal", "Failed to send request.")));
    EXPECT_EQ(bus().acts().back(), "request_destroy(r1)");
    EXPECT_FALSE(bus().record(1).sent);

    auto event = std::make_unique<libvoice_event_t>();
    event->length = UINT32_MAX - 19;
    bus().clear_log();
    EXPECT_EQ(libvoice_send_event(event.get()), 1u);
    EXPECT_THAT(bus().complaints(),
                ElementsAre(said_by_requests("x", "libvoice_send_event", "Error sending kex request")));
    EXPECT_FALSE(bus().record(2).sent);
    bus().leaves_requests(1, "an event that was not sent is left as it is");
}

TEST_F(Counts, ATextItemOfTwoGigabytesIsShownToItsFirstZero) {
    if (sizeof(void *) < 8)
        GTEST_SKIP() << "no room for two gigabytes";
    constexpr size_t kBytes = size_t{1} << 31 | 4096; // never written, so never there
    void *block = mmap(nullptr, kBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(block, MAP_FAILED);
    for (const uint32_t length : {static_cast<uint32_t>(INT_MAX) - 1, static_cast<uint32_t>(INT_MAX), 1u << 31}) {
        const std::string head = word(kName) + word(length) + "Kitchen";
        memcpy(block, head.data(), head.size());
        char line[100];
        dump_msg(line, 0, sizeof(line), block, static_cast<uint32_t>((uint64_t{length} + 8 + 3) & ~uint64_t{3}));
        EXPECT_EQ(line, text("prop %s Kitchen ", libvoice_param_str(kName))) << length;
    }
    munmap(block, kBytes);
}

// ------------------------------------------------------------------------------------------------- nobody wants it

class Unwanted : public VoiceTest {};

TEST_F(Unwanted, TheNumberOfARegistration) {
    strcpy(_PLUGIN_NAME, "FXS");
    libvoice_set_kex_peer_handler(bus().peer("application"));
    bus().object("FXS.EndPoint");
    bus().answer("register_endpoint", Reply().value(Value::i16(7)));
    const void *no_codecs = nullptr;
    EXPECT_EQ(libvoice_kex_register_endpoint(3, "FXS1", nullptr, &no_codecs, nullptr), 1);
    bus().answer("register_endpoint", Reply().value(Value::i16(8)));
    EXPECT_EQ(libvoice_register_endpoint(3, "FXS2", nullptr, &no_codecs, nullptr), LIBVOICE_OK);
    EXPECT_EQ(endpt_table[0].endpoint, 8);
}

TEST_F(Unwanted, ABufferThatIsNotThere) {
    debug_libvoice_print_buffer(nullptr, 64);
    EXPECT_THAT(bus().complaints(), IsEmpty());
}

TEST_F(Unwanted, OneOfTheSocketsOrAddresses) {
    sockaddr_in local{}, remote{};
    int32_t stream = -7, control = -7;
    const int before = fake::open_descriptors();
    EXPECT_EQ(libvoice_connectMediaSockets(nullptr, &remote, &stream, &control), 0);
    EXPECT_EQ(libvoice_connectMediaSockets(&local, nullptr, &stream, &control), 0);
    EXPECT_EQ(libvoice_connectMediaSockets(&local, &remote, nullptr, &control), 0);
    EXPECT_EQ(libvoice_connectMediaSockets(&local, &remote, &stream, nullptr), 0);
    EXPECT_EQ(stream, -7);
    EXPECT_EQ(control, -7);
    EXPECT_EQ(fake::open_descriptors(), before);
    EXPECT_EQ(bus().complaints().size(), 4u);
}

TEST_F(Unwanted, TheVersionIsThatOfTheHeader) {
    EXPECT_STREQ(libvoice_version(), LIBVOICE_VERSION);
}

} // namespace
} // namespace voice_test
