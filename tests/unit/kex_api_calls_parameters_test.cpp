// SPDX-License-Identifier: MIT
// Parameter sets and the requests that carry them: room for items, and who frees a set.
#include "kex_api_calls_fixture.h"

namespace voice_test {
namespace {

class ParamSet : public Requests {};

TEST_F(ParamSet, ASetStartsWithItsItem) {
    libvoice_param_block_t *set = nullptr;
    const int32_t endpoint = 5;
    EXPECT_EQ(param_set_initialize(kEpId, &endpoint, 4, &set), 0u);
    ASSERT_NE(set, nullptr);
    EXPECT_EQ(set->head.params, pointer_word_of(set->buffer));
    EXPECT_EQ(set->head.length, 12u);
    std::string expected = item(kEpId, word(5));
    expected.resize(256, '\0');
    EXPECT_EQ(std::string(reinterpret_cast<char *>(set->buffer), 256), expected) << "zeroed behind the item";
    EXPECT_EQ(param_set_add(kId, "AT", 3, set), 0u);
    EXPECT_EQ(set->head.length, 24u);
    EXPECT_EQ(param_set_add(kId, nullptr, 0, set), 0u);
    EXPECT_EQ(set->head.length, 32u);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(set->buffer), 32),
              item(kEpId, word(5)) + item(kId, std::string("AT\0", 3)) + item(kId, ""));
    EXPECT_EQ(fake::memory_blocks(), 1u) << "one allocation of fixed size";
    free(set);
    EXPECT_THAT(bus().complaints(), IsEmpty());
}

TEST_F(ParamSet, TheFirstItemMayFillIt) {
    const std::string value(300, 'v');
    for (const uint32_t length : {244u, 245u, 248u}) {
        libvoice_param_block_t *set = nullptr;
        EXPECT_EQ(param_set_initialize(kId, value.data(), length, &set), 0u) << length;
        EXPECT_EQ(set->head.length, 8 + (length + 3) / 4 * 4);
        free(set);
    }
}

TEST_F(ParamSet, AFirstItemThatDoesNotFitLeavesThePointerSetAndTheBlockFreed) {
    const std::string value(300, 'v');
    for (const uint32_t length : {249u, 300u, 0xFFFFFFF5u, 0xFFFFFFFFu}) {
        bus().clear_log();
        libvoice_param_block_t *set = nullptr;
        EXPECT_EQ(param_set_initialize(kId, value.data(), length, &set), 9u) << length;
        EXPECT_NE(set, nullptr);
        EXPECT_EQ(fake::memory_blocks(), 0u);
        EXPECT_LOG_WITHOUT_MARKERS(
            said("x[SIGNAL]", "param_set_initialize",
                 "libvoice_add_param() failed, rc = 0x00000009 (\"insufficient space in parameter "
                 "buffer\")"));
    }
}

TEST_F(ParamSet, AnItemThatDoesNotFitChangesNothing) {
    libvoice_param_block_t *set = nullptr;
    ASSERT_EQ(param_set_initialize(kEpId, "1234", 4, &set), 0u);
    const std::string before(reinterpret_cast<char *>(set), sizeof(*set));
    const std::string value(300, 'v');
    for (const uint32_t length : {237u, 300u, 0xFFFFFFF5u}) {
        bus().clear_log();
        EXPECT_EQ(param_set_add(kId, value.data(), length, set), 9u) << length;
        EXPECT_LOG_WITHOUT_MARKERS(
            said("x[SIGNAL]", "param_set_add",
                 "libvoice_add_param() failed, rc = 0x00000009 (\"insufficient space in parameter "
                 "buffer\")"));
        EXPECT_EQ(std::string(reinterpret_cast<char *>(set), sizeof(*set)), before);
    }
    EXPECT_EQ(param_set_add(kId, value.data(), 236, set), 0u);
    EXPECT_EQ(set->head.length, 256u);
    EXPECT_EQ(param_set_add(kId, nullptr, 0, set), 9u) << "full";
    free(set);
}

class SetParams : public Requests {
protected:
    const char *const function_ = "libvoice_set_params";
};

TEST_F(SetParams, TheSetTravelsBehindItsEndpoint) {
    const std::string value(300, 'v');
    for (const uint32_t length : {0u, 1u, 4u, 5u, 236u}) {
        again();
        Block<char> exact(value.substr(0, length));
        EXPECT_EQ(libvoice_set_params(5, kId, exact.get(), length), 1) << length;
        const std::string items = item(kEpId, word(5)) + item(kId, value.substr(0, length));
        const std::string bytes = bus().record(1).parameter("param_set_params").data;
        ASSERT_EQ(bytes.size(), 8 + items.size());
        EXPECT_EQ(bytes.substr(4), word(static_cast<uint32_t>(items.size())) + items);
        EXPECT_CORE_LOG(made(kPath, "set", 0x8001), added("param_set_params", Value::bytes(bytes)), sent("fxs"),
                        kDestroyed);
        expect_settled(text("%u bytes", length));
    }
}

TEST_F(SetParams, FromTwoHundredThirtySevenBytesOnItDoesNotFitAndTheSetStays) {
    const std::string value(300, 'v');
    for (const uint32_t length : {237u, 244u, 0xFFFFFFFFu}) {
        again();
        EXPECT_EQ(libvoice_set_params(5, kId, value.data(), length), 0) << length;
        EXPECT_CORE_LOG(
            said("x[SIGNAL]", "param_set_add",
                 "libvoice_add_param() failed, rc = 0x00000009 (\"insufficient space in parameter buffer\")"),
            said("x[VOIPCFG]", function_, "param_set_add failed"));
        leaves_memory(1);
        expect_settled(text("%u bytes", length));
    }
}

TEST_F(SetParams, AnUnknownEndpointLeavesTheSet) {
    EXPECT_EQ(libvoice_set_params(6, kId, "x", 1), 0);
    EXPECT_CORE_LOG(said("x[SIGNAL]", function_, "Failed to create endpoint object path"));
    leaves_memory(1);
}

TEST_F(SetParams, ARequestThatCannotBeMadeFreesTheSet) {
    bus().fail("request_create_executeFunction");
    EXPECT_EQ(libvoice_set_params(5, kId, "x", 1), 0);
    EXPECT_CORE_LOG(not_made(kPath, "set", 0x8001),
                    said("x[SIGNAL]", function_, "Not able to create function request for 'set'."));
}

TEST_F(SetParams, AFailedSendFreesAll) {
    bus().fail("kex_sendRequest");
    EXPECT_EQ(libvoice_set_params(5, kId, "x", 1), 0);
    const std::vector<std::string> log = core_log();
    ASSERT_EQ(log.size(), 5u);
    EXPECT_LINES(std::vector<std::string>(log.begin() + 2, log.end()), sent("fxs", 0),
                 said("x[SIGNAL]", function_, "Failed to send request."), kDestroyed);
}

uint32_t done_context;
int done_runs;

void takes_context(request_t *request) {
    ++done_runs;
    done_context = *static_cast<uint32_t *>(request_data(request));
    free(request_data(request));
    request_destroy(request);
}

class GetParams : public Requests {
protected:
    const char *const function_ = "libvoice_get_params";
};

TEST_F(GetParams, AnEmptyItemAsksAndTheContextTravels) {
    for (const uint32_t context : {0u, 77u, 0xFFFFFFFFu}) {
        again();
        done_runs = 0;
        libvoice_app_registered_callbacks.voice_app_get_done = takes_context;
        bus().name_function(reinterpret_cast<const void *>(takes_context), "voice_app_get_done");
        EXPECT_EQ(libvoice_get_params(5, kId, context), 1);
        const std::string bytes = bus().record(1).parameter("param_set_request").data;
        const std::string items = item(kEpId, word(5)) + item(kId, "");
        ASSERT_EQ(bytes.size(), 28u);
        EXPECT_EQ(bytes.substr(4), word(20) + items);
        EXPECT_CORE_LOG(made(kPath, "get", 0x8001), "request_setDoneHandler(r1, voice_app_get_done)",
                        "request_setData(r1, data)", added("param_set_request", Value::bytes(bytes)), sent("fxs"));
        EXPECT_EQ(fake::memory_blocks(), 1u) << "the set is freed, the context word travels";
        bus().complete(bus().request(1), Reply().value(Value::bytes(set_bytes(item(kId, "AT")))));
        EXPECT_EQ(done_runs, 1);
        EXPECT_EQ(done_context, context);
        expect_settled(text("context %u", context));
    }
}

TEST_F(GetParams, AnUnsetDoneCallbackIsInstalledAsItStands) {
    EXPECT_EQ(libvoice_get_params(5, kId, 1), 1);
    EXPECT_THAT(bus().acts(), testing::Contains("request_setDoneHandler(r1, null)"));
    bus().leaves_requests(1, "nobody takes the answer");
    leaves_memory(1);
}

TEST_F(GetParams, AnUnknownEndpointIsRefusedBeforeASetIsMade) {
    EXPECT_EQ(libvoice_get_params(6, kId, 1), 0);
    EXPECT_CORE_LOG(said("x", function_, "Failed to create endpoint object path"));
    EXPECT_EQ(fake::memory_allocations(), 0u);
}

TEST_F(GetParams, ARequestThatCannotBeMadeShowsWithAnEmptyZone) {
    bus().fail("request_create_executeFunction");
    EXPECT_EQ(libvoice_get_params(5, kId, 1), 0);
    EXPECT_CORE_LOG(not_made(kPath, "get", 0x8001),
                    said("x[]", function_, "Not able to create function request for 'get'."));
}

TEST_F(GetParams, AFailedSendFreesAllAndShowsWithAnEmptyZone) {
    libvoice_app_registered_callbacks.voice_app_get_done = on_get_done;
    bus().fail("kex_sendRequest");
    EXPECT_EQ(libvoice_get_params(5, kId, 1), 0);
    const std::vector<std::string> log = core_log();
    ASSERT_EQ(log.size(), 7u);
    EXPECT_LINES(std::vector<std::string>(log.begin() + 4, log.end()), sent("fxs", 0),
                 said("x[]", function_, "Failed to send request."), kDestroyed);
    EXPECT_EQ(bus().traces().back().rendered.substr(0, 10), "        - ");
}

} // namespace
} // namespace voice_test
