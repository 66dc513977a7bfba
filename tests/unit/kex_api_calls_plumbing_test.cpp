// SPDX-License-Identifier: MIT
// What requests stand on: the bus and the peer that are kept, and what is found in a reply.
#include "kex_api_calls_fixture.h"

namespace voice_test {
namespace {

class Plumbing : public Requests {};

TEST_F(Plumbing, TheBusIsKept) {
    libvoice_set_kex_handler(nullptr);
    EXPECT_EQ(libvoice_get_kex_handler(), nullptr);
    libvoice_set_kex_handler(bus().handle());
    EXPECT_EQ(libvoice_get_kex_handler(), bus().handle());
}

TEST_F(Plumbing, ThePeerIsKeptAndWatched) {
    peer_t *peer = bus().peer("another");
    EXPECT_NE(libvoice_set_kex_peer_handler(peer), 0);
    EXPECT_EQ(libvoice_get_kex_peer_handler(), peer);
    EXPECT_LOG_WITHOUT_MARKERS("peer_setEventHandler(another, 6, null, handler) = 1");
}

TEST_F(Plumbing, ThePeerIsKeptEvenWhenItCannotBeWatched) {
    bus().fail("peer_setEventHandler");
    peer_t *peer = bus().peer("another");
    EXPECT_EQ(libvoice_set_kex_peer_handler(peer), 0);
    EXPECT_EQ(libvoice_get_kex_peer_handler(), peer);
    EXPECT_EQ(libvoice_set_kex_peer_handler(nullptr), 0);
    EXPECT_EQ(libvoice_get_kex_peer_handler(), nullptr);
}

TEST_F(Plumbing, OnlyTheLowEightBitsOfTheMediaFlagCount) {
    libvoice_set_convert_media(static_cast<uint8_t>(0x100));
    EXPECT_EQ(libvoice_get_convert_media(), 0);
    libvoice_set_convert_media(1);
    EXPECT_EQ(libvoice_get_convert_media(), 1);
    libvoice_set_convert_media(0xFF);
    EXPECT_EQ(libvoice_get_convert_media(), 0xFF);
}

TEST_F(Plumbing, FinalDoesNothing) {
    libvoice_kex_final();
    EXPECT_LOG_WITHOUT_MARKERS();
    EXPECT_EQ(libvoice_get_kex_handler(), bus().handle());
}

TEST_F(Plumbing, FlagsAndItemTypesHaveTheirNumbers) {
    EXPECT_EQ(LIBVOICE_REQUEST_FLAGS_LIFECYCLE, 0x0001u);
    EXPECT_EQ(LIBVOICE_REQUEST_FLAGS_MEDIA, 0x8001u);
    EXPECT_EQ(REPLY_ITEM_TYPE_ERROR, 3);
    EXPECT_EQ(REPLY_ITEM_TYPE_RETURN_VALUE, 4);
    EXPECT_EQ(PEER_EVENT_CLOSED, 6);
}

class ReplyHelpers : public Requests {
protected:
    reply_t *reply(const Reply &script) {
        request_ = request_create_executeFunction("A", "b", 0);
        bus().complete(request_, script);
        bus().clear_log();
        return request_reply(request_);
    }
    void TearDown() override {
        if (request_)
            request_destroy(request_);
        Requests::TearDown();
    }
    request_t *request_ = nullptr;
};

TEST_F(ReplyHelpers, TheFirstOfATypeIsFound) {
    reply_t *r = reply(Reply().error(1, "one", "").error(2, "two", "").value(Value::u32(3)));
    EXPECT_EQ(reply_item_error(_find_reply_of_type(r, 3)), 1u);
    EXPECT_EQ(_find_reply_of_type(r, 4), reply_nextItem(reply_nextItem(reply_firstItem(r))));
    EXPECT_EQ(_find_reply_of_type(r, 5), nullptr);
    EXPECT_EQ(_find_reply_of_type(nullptr, 3), nullptr);
}

TEST_F(ReplyHelpers, AnEmptyReplyIsGood) {
    reply_t *r = reply(Reply());
    EXPECT_EQ(_find_reply_of_type(r, 3), nullptr);
    EXPECT_EQ(_reply_ok(r), 1);
    EXPECT_EQ(_reply_return_value(r), nullptr);
    EXPECT_THAT(bus().complaints(), IsEmpty());
}

TEST_F(ReplyHelpers, OnlyTheFirstErrorIsReported) {
    EXPECT_EQ(_reply_ok(reply(Reply().error(196640, "Missing", "country").error(2, "two", "second"))), 0);
    EXPECT_LOG_WITHOUT_MARKERS(said("x", "_reply_ok", "Function call error (196640) - Missing - country"));
    EXPECT_EQ(bus().traces().back().message_format, "Function call error (%d) - %s - %s");
}

TEST_F(ReplyHelpers, AnErrorBesideAValueIsBad) {
    EXPECT_EQ(_reply_ok(reply(Reply().error(0xFFFFFFFFu, "", "").value(Value::boolean(true)))), 0);
    EXPECT_LOG_WITHOUT_MARKERS(said("x", "_reply_ok", "Function call error (-1) -  - "));
}

TEST_F(ReplyHelpers, AnErrorBehindTheValueIsBadToo) {
    EXPECT_EQ(_reply_ok(reply(Reply().value(Value::boolean(true)).error(1, "late", "x"))), 0);
}

TEST_F(ReplyHelpers, TheValueIsTheFirstReturnItems) {
    reply_t *r = reply(Reply().error(1, "", "").value(Value::i16(12)));
    int16_t value = 0;
    EXPECT_TRUE(variant_toInt16(_reply_return_value(r), &value));
    EXPECT_EQ(value, 12);
}

// ------------------------------------------------------------------------------------------------- register plugin

} // namespace
} // namespace voice_test
