// SPDX-License-Identifier: MIT
// Media of a line: both forms of connection information, and what each failure answers.
#include "kex_api_calls_fixture.h"

#include <unistd.h>

namespace voice_test {
namespace {

const char *const kMedia = "_libvoice_create_media";

struct MediaRequest : Named {
    uint32_t (*send)(int32_t, uint32_t, void *, int32_t, int32_t, int32_t);
};

class MediaRequests : public Requests, public testing::WithParamInterface<MediaRequest> {
protected:
    static std::string info(size_t bytes) {
        std::string result;
        for (size_t i = 0; i < bytes; ++i)
            result += static_cast<char>('A' + i % 50);
        return result;
    }
    uint32_t send(int32_t endpoint, void *cnx, int32_t fd0, int32_t fd1, int32_t fd2) {
        return GetParam().send(endpoint, 9, cnx, fd0, fd1, fd2);
    }
    std::string made_ = made(kPath, GetParam().name, 0x8001), line_ = added("ep_line_id", Value::u32(9));
};

INSTANTIATE_TEST_SUITE_P(, MediaRequests,
                         testing::Values(MediaRequest{"create", libvoice_create_media},
                                         MediaRequest{"modify", libvoice_modify_media}),
                         [](const auto &row) { return row.param.name; });

TEST_P(MediaRequests, ThreeDescriptorsTravelBesideTheShortForm) {
    Block<char> cnx(info(704));
    EXPECT_EQ(send(5, cnx.get(), STDIN_FILENO, STDERR_FILENO, -1), 0u);
    EXPECT_CORE_LOG(made_, line_, added("filedesc", Value::fds({STDIN_FILENO, STDERR_FILENO, -1})),
                    added("cnx_info", Value::bytes(info(704))), sent("fxs"), kDestroyed);
    EXPECT_EQ(bus().record(1).parameter("cnx_info").data, info(704));
    EXPECT_EQ(bus().record(1).parameter("filedesc").items.size(), 3u);
}

TEST_P(MediaRequests, TheLongFormTravelsWithoutDescriptors) {
    for (const uint8_t flag : {1, 0x80, 0xFF}) {
        again();
        libvoice_set_convert_media(flag);
        Block<char> cnx(info(736));
        EXPECT_EQ(send(5, cnx.get(), 999, 998, 997), 0u) << "the descriptors are not looked at";
        EXPECT_CORE_LOG(made_, line_, added("cnx_info", Value::bytes(info(736))), sent("fxs"), kDestroyed);
        EXPECT_EQ(bus().record(1).parameter("cnx_info").data, info(736));
        expect_settled(text("flag %u", flag));
    }
}

TEST_P(MediaRequests, AnUnknownEndpointIsTwoAndSendsNothing) {
    Block<char> cnx(info(704));
    EXPECT_EQ(send(6, cnx.get(), -1, -1, -1), 2u);
    EXPECT_CORE_LOG(said("x", kMedia, "Failed to create endpoint object path"));
}

TEST_P(MediaRequests, ARequestThatCannotBeMadeIsTwelveAndSaysSignal) {
    bus().fail("request_create_executeFunction");
    Block<char> cnx(info(704));
    EXPECT_EQ(send(5, cnx.get(), -1, -1, -1), 12u);
    EXPECT_CORE_LOG(not_made(kPath, GetParam().name, 0x8001),
                    said("x", kMedia, "Not able to create function request for 'signal'."));
}

TEST_P(MediaRequests, AListThatCannotBeMadeIsFive) {
    bus().fail("variant_da_list");
    Block<char> cnx(info(704));
    EXPECT_EQ(send(5, cnx.get(), -1, -1, -1), 5u);
    EXPECT_CORE_LOG(made_, line_, said("x", kMedia, "Allocation failure list == NULL"), kDestroyed);
}

TEST_P(MediaRequests, AFailedSendIsFive) {
    bus().fail("kex_sendRequest");
    Block<char> cnx(info(704));
    EXPECT_EQ(send(5, cnx.get(), -1, -1, -1), 5u);
    EXPECT_CORE_LOG(made_, line_, added("filedesc", Value::fds({-1, -1, -1})),
                    added("cnx_info", Value::bytes(info(704))), sent("fxs", 0),
                    said("x", kMedia, "Failed to send request."), kDestroyed);
}

TEST_P(MediaRequests, ADescriptorThatIsNotOpenCannotBeSent) {
    Block<char> cnx(info(704));
    EXPECT_EQ(send(5, cnx.get(), 999, -1, -1), 5u);
    EXPECT_THAT(bus().complaints(), ElementsAre(said("x", kMedia, "Failed to send request.")));
}

class DestroyMedia : public Requests {
protected:
    const char *const function_ = "libvoice_destroy_media";
};

TEST_F(DestroyMedia, ANoticeThenTheRequest) {
    libvoice_destroy_media(5, 9);
    EXPECT_CORE_LOG(said("n", function_, "endpoint_name = 'FXS1' destroy media, line = 9"),
                    made(kPath, "destroy", 0x8001), added("ep_line_id", Value::u32(9)), sent("fxs"), kDestroyed);
    bool notice = false;
    for (const fake::TraceLine &line : bus().traces())
        notice =
            notice || (line.level == 300 && line.message_format == "endpoint_name = '%s' destroy media, line = %d");
    EXPECT_TRUE(notice);
}

TEST_F(DestroyMedia, EachFailureIsSaidAndNothingStays) {
    libvoice_destroy_media(6, 9);
    EXPECT_CORE_LOG(said("x", function_, "Failed to create endpoint object path"));
    again();
    bus().fail("request_create_executeFunction");
    libvoice_destroy_media(5, 9);
    EXPECT_CORE_LOG(said("n", function_, "endpoint_name = 'FXS1' destroy media, line = 9"),
                    not_made(kPath, "destroy", 0x8001),
                    said("x", function_, "Not able to create function request for 'destroy'."));
    again();
    bus().fail("kex_sendRequest");
    libvoice_destroy_media(5, 9);
    EXPECT_CORE_LOG(said("n", function_, "endpoint_name = 'FXS1' destroy media, line = 9"),
                    made(kPath, "destroy", 0x8001), added("ep_line_id", Value::u32(9)), sent("fxs", 0),
                    said("x", function_, "Failed to send request."), kDestroyed);
}

} // namespace
} // namespace voice_test
