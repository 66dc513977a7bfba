// SPDX-License-Identifier: MIT
// Streams of a conference, and its end.
#include "media_fixture.h"

using fake::bus;
using testing::Contains;
using testing::HasSubstr;

namespace application_test {
namespace {

class Conference : public Media {
protected:
    int32_t host, first, second;

    Conference() : host(telephone("T1")), first(telephone("T2")), second(telephone("T3")) {
        talk(host, first);
        app().event(host, LIBVOICE_EVENT_al_fl);
        app().dial(host, "103");
        app().event(second, LIBVOICE_EVENT_al_of);
        app().sent();
        app().said();
    }
    void join() { app().event(host, LIBVOICE_EVENT_al_fl); }
};

TEST_F(Conference, StreamsBelongToTheContextAndToTheTwoCalls) {
    join();
    EXPECT_LINES(app().said(), "line 102 talking", "conference N 101: 102, 103");
    const fake::Value context = last("create_ctx").parameter("ctx_id");
    EXPECT_NE(context.number, 0);
    const fake::RequestRecord &stream = last("add_stream");
    EXPECT_EQ(stream.path, "fxs1");
    EXPECT_EQ(stream.parameter("ctx_id").str(), context.str());
    EXPECT_EQ(stream.parameter("ep_id").number, host);
    EXPECT_EQ(stream.parameter("line_id").number, 1);
    const std::string wanted = items(VOICE_MODE_SEND_RECEIVE, kPcma);
    EXPECT_EQ(stream.parameter("stream_info").data.substr(0, 16 + wanted.size()),
              word(2) + word(VOICE_MODE_SEND_RECEIVE) + word(VOICE_CNX_VERSION) +
                  word(static_cast<uint32_t>(wanted.size())) + wanted);
    EXPECT_EQ(stream.parameter("filedesc").items.size(), 3u);
}

TEST_F(Conference, StreamsHaveDescriptorsAlsoWhenAddressesTravel) {
    libvoice_set_convert_media(1);
    join();
    EXPECT_GE(last("add_stream").parameter("filedesc").items.at(0).number, 0);
}

TEST_F(Conference, ThatCannotBeMadeEndsBothCalls) {
    bus().fail("kex_sendRequest", 6); // a silence, four "destroy", and this one
    join();
    const std::vector<std::string> said = app().said();
    EXPECT_THAT(said, Contains(HasSubstr("conference of 101 refused: ")));
    EXPECT_THAT(said, Contains(HasSubstr("call N 101->102 ended: ")));
    EXPECT_THAT(said, Contains(HasSubstr("call N 101->103 ended: ")));
    EXPECT_EQ(app().state(host), "busy");
    EXPECT_EQ(app().state(first), "busy");
    EXPECT_EQ(app().state(second), "busy");
}

TEST_F(Conference, EndIsSaidAfterItsCalls) {
    join();
    app().said();
    app().event(host, LIBVOICE_EVENT_al_on);
    EXPECT_LINES(app().said(), "call N 101->102 ended: 101 hung up", "line 102 busy",
                 "call N 101->103 ended: 101 hung up", "line 103 busy", "conference N ended", "line 101 idle");
}

TEST_F(Conference, EndsWithItsEndpointAndItsPlugin) {
    join();
    app().said();
    app().deregister_endpoint(host);
    EXPECT_THAT(app().said(), Contains("conference N ended"));
}

} // namespace
} // namespace application_test
