// SPDX-License-Identifier: MIT
// Signals to an endpoint, and records that are not there, in all requests that take one.
#include "kex_api_calls_fixture.h"

namespace voice_test {
namespace {

const char *const kSignal = "libvoice_send_signal";

class SendSignal : public Requests {};

// A host's slip is one trace message and nothing sent.
TEST_F(SendSignal, NullRecordsAreRefusedHereAndInTheOtherRequests) {
    libvoice_send_signal(nullptr);
    EXPECT_EQ(libvoice_create_media(5, 1, nullptr, -1, -1, -1), 5u);
    EXPECT_EQ(libvoice_modify_media(5, 1, nullptr, -1, -1, -1), 5u);
    const int32_t fds[3] = {-1, -1, -1};
    char stream[712] = {};
    EXPECT_EQ(libvoice_add_stream("fxs", 5, 1, nullptr, fds, 1), 4u);
    EXPECT_EQ(libvoice_add_stream("fxs", 5, 1, stream, nullptr, 1), 4u);
    EXPECT_EQ(libvoice_modify_stream("fxs", 1, nullptr), 4u);
    EXPECT_EQ(param_set_add(kId, "AT", 3, nullptr), 9u);
    EXPECT_EQ(bus().complaints().size(), 7u);
    EXPECT_THAT(bus().acts(), IsEmpty()) << "nothing is made, nothing is sent";
}

TEST_F(SendSignal, TheWholeMessageTravelsToItsEndpoint) {
    for (const uint8_t convert : {0, 1})
        for (const size_t length : {0u, 3u, 500u}) {
            again();
            libvoice_set_convert_media(convert);
            const std::string bytes = signal_bytes(5, std::string(length, 'p'), 0x12345678);
            Block<libvoice_signal_t> signal(bytes);
            libvoice_send_signal(signal.get());
            EXPECT_CORE_LOG(made(kPath, "signal", 0x8001), added("signal", Value::bytes(bytes)), sent("fxs"),
                            kDestroyed);
            EXPECT_EQ(bus().record(1).parameter("signal").data, bytes);
            expect_settled(text("%zu parameter bytes", length));
        }
}

TEST_F(SendSignal, TheMessageMayStandAtAnyAddress) {
    for (const size_t at : {1u, 2u, 3u}) {
        const std::string bytes = signal_bytes(5, "params");
        Block<libvoice_signal_t> signal(bytes, at);
        libvoice_send_signal(signal.get());
        EXPECT_EQ(bus().record(static_cast<unsigned>(at)).parameter("signal").data, bytes) << at;
    }
    EXPECT_THAT(bus().complaints(), IsEmpty());
}

TEST_F(SendSignal, AnUnknownEndpointIsSaidInZoneSignal) {
    Block<libvoice_signal_t> signal(signal_bytes(6, ""));
    libvoice_send_signal(signal.get());
    EXPECT_CORE_LOG(said("x[SIGNAL]", kSignal, "Failed to create endpoint object path"));
}

TEST_F(SendSignal, FailuresShowInZoneSignal) {
    Block<libvoice_signal_t> signal(signal_bytes(5, ""));
    bus().fail("request_create_executeFunction");
    libvoice_send_signal(signal.get());
    EXPECT_CORE_LOG(not_made(kPath, "signal", 0x8001),
                    said("x[SIGNAL]", kSignal, "Not able to create function request for 'signal'."));
    again();
    bus().fail("kex_sendRequest");
    libvoice_send_signal(signal.get());
    EXPECT_CORE_LOG(made(kPath, "signal", 0x8001), added("signal", Value::bytes(signal_bytes(5, ""))), sent("fxs", 0),
                    said("x[SIGNAL]", kSignal, "Failed to send request."), kDestroyed);
}

TEST_F(SendSignal, AnEndpointWithoutAnOwnerIsSentToNobody) {
    endpt_table[3].plugin_table = nullptr;
    Block<libvoice_signal_t> signal(signal_bytes(5, ""));
    libvoice_send_signal(signal.get());
    EXPECT_THAT(bus().acts(), testing::Contains(sent("null", 0)));
}

} // namespace
} // namespace voice_test
