// SPDX-License-Identifier: MIT
// The echo lines without an application and without a network: the fake bus calls them and logs what they do.
#include "echo_lines.h"
#include "voice_fake/gtest.h"
#include "voice_records.h"

#include <sys/socket.h>

namespace {

using fake::bus;
using fake::Call;
using fake::Reply;
using fake::Value;

class EchoLines : public fake::BusTest {
protected:
    // The application has said "init", and gives the lines the numbers 7 and 8.
    void SetUp() override {
        libvoice_set_kex_handler(bus().handle());
        libvoice_set_kex_peer_handler(bus().peer("application"));
        libvoice_set_pluginname("echo3");
        libvoice_registered_callbacks = echo_lines_callbacks();
        bus().object("echo3.EndPoint");
        bus().answer_next("register_endpoint", Reply().value(Value::i16(7)));
        bus().answer_next("register_endpoint", Reply().value(Value::i16(8)));
        Call call;
        ASSERT_EQ(call.on(bus().object("echo3")).with("country", Value::chars("DE")).run(__init), KEX_FUNCTION_DONE);
    }
    void TearDown() override {
        echo_lines_lost();
        memset(endpt_table, 0, sizeof endpt_table);
        BusTest::TearDown();
    }

    static object_t *first_line() { return bus().object("echo3.EndPoint.ECHO1"); }

    static int signal(uint32_t id) {
        const voice_signal_t head = {7, id, 0, 1, 0, 0, 0};
        return Call().on(first_line()).with("signal", Value::bytes(&head, sizeof head)).run(__EndPoint_signal);
    }
    static int create(const voice_codec_t &sent, int media) {
        voice_media_t format = voice_media_of(&sent, VOICE_MODE_SEND_RECEIVE);
        voice_cnx_info_t info;
        voice_connection_begin(&info, &format);
        return Call()
            .on(first_line())
            .with("cnx_info", Value::bytes(&info, LIBVOICE_CNX_INFO_BYTES))
            .with("filedesc", Value::fds({media, -1, -1}))
            .with("ep_line_id", Value::u32(0))
            .run(__EndPoint_create);
    }
    static void set_echo_cancellation(int on) {
        libvoice_param_block_t block;
        libvoice_param_set_t *head;
        voice_set_message_t set;
        voice_set_begin(&set, &block, 7);
        voice_set_add_bool(&set, LIBVOICE_PARAM_tdmc_ec, on);
        ASSERT_EQ(voice_set_end(&set, &head), nullptr);
        Call call;
        EXPECT_EQ(call.on(first_line())
                      .with("param_set_params", Value::bytes(head, sizeof *head + head->length))
                      .run(__EndPoint_set),
                  KEX_FUNCTION_DONE);
    }
    // The event that left last.
    static voice_event_t last_event() {
        voice_event_t head = {};
        const std::string bytes = bus().record(bus().requests_made()).parameter("event").data;
        if (bytes.size() >= sizeof head)
            memcpy(&head, bytes.data(), sizeof head);
        return head;
    }

    const voice_codec_t pcma = VOICE_CODEC_PCMA;
};

TEST_F(EchoLines, BothAreRegistered) {
    EXPECT_EQ(bus().record(1).parameter("endpoint_name").str(), "\"ECHO1\"");
    EXPECT_EQ(bus().record(2).parameter("endpoint_name").str(), "\"ECHO2\"");
    EXPECT_EQ(libvoice_get_endpoint_by_name("ECHO2"), 8);
}

TEST_F(EchoLines, RingingIsAnsweredAndBusyToneEndsTheCall) {
    EXPECT_EQ(signal(LIBVOICE_SIGNAL_al_ri), KEX_FUNCTION_DONE);
    EXPECT_EQ(last_event().event, LIBVOICE_EVENT_al_of);
    EXPECT_EQ(last_event().endpoint, 7);
    EXPECT_EQ(signal(LIBVOICE_SIGNAL_cg_bt), KEX_FUNCTION_DONE);
    EXPECT_EQ(last_event().event, LIBVOICE_EVENT_al_on);
}

TEST_F(EchoLines, PacketsComeBackAsAStreamOfTheirOwn) {
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, pair), 0);
    ASSERT_EQ(create(pcma, pair[1]), KEX_FUNCTION_DONE);
    const uint8_t sent[] = {0x80, 0x88, 0, 1, 0, 0, 0, 160, 1, 2, 3, 4, 'e', 'c', 'h', 'o'};
    ASSERT_EQ(send(pair[0], sent, sizeof sent, 0), ssize_t{sizeof sent});

    bus().run_for(0); // one turn finds the socket readable

    uint8_t back[64] = {};
    ASSERT_EQ(recv(pair[0], back, sizeof back, MSG_DONTWAIT), ssize_t{sizeof sent});
    EXPECT_EQ(memcmp(back, sent, 8), 0) << "head, sequence number, timestamp";
    EXPECT_EQ(back[8], 0xFE) << "another source";
    EXPECT_EQ(memcmp(back + 12, "echo", 4), 0);

    Call destroy;
    EXPECT_EQ(destroy.on(first_line()).with("ep_line_id", Value::u32(0)).run(__EndPoint_destroy), KEX_FUNCTION_DONE);
    close(pair[0]);
    close(pair[1]); // the call had a copy of its own
}

TEST_F(EchoLines, NothingComesBackWithEchoCancellation) {
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, pair), 0);
    ASSERT_EQ(create(pcma, pair[1]), KEX_FUNCTION_DONE);
    set_echo_cancellation(1);
    const uint8_t sent[16] = {0x80, 0x88};
    uint8_t back[16];
    ASSERT_EQ(send(pair[0], sent, sizeof sent, 0), ssize_t{sizeof sent});
    bus().run_for(0);
    EXPECT_EQ(recv(pair[0], back, sizeof back, MSG_DONTWAIT), -1);
    set_echo_cancellation(0);
    close(pair[0]);
    close(pair[1]);
}

TEST_F(EchoLines, MediaWithoutASocketIsRejectedWithACause) {
    EXPECT_EQ(create(pcma, -1), KEX_FUNCTION_FAILED);
    EXPECT_EQ(last_event().event, LIBVOICE_EVENT_g_cause);
}

TEST_F(EchoLines, WhatIsSetCanBeAskedFor) {
    libvoice_param_block_t question;
    libvoice_param_set_t *head;
    voice_set_message_t set;
    set_echo_cancellation(1);

    voice_set_begin(&set, &question, 7);
    voice_set_ask(&set, LIBVOICE_PARAM_tdmc_ec);
    ASSERT_EQ(voice_set_end(&set, &head), nullptr);
    Call ask;
    EXPECT_EQ(ask.on(first_line())
                  .with("param_set_request", Value::bytes(head, sizeof *head + head->length))
                  .run(__EndPoint_get),
              KEX_FUNCTION_DONE);
    const std::string answer = ask.returned().data.substr(sizeof *head);
    const voice_params_t params = {reinterpret_cast<const uint8_t *>(answer.data()),
                                   static_cast<uint32_t>(answer.size())};
    int silent = 0;
    EXPECT_TRUE(voice_params_get_bool(params, LIBVOICE_PARAM_tdmc_ec, &silent));
    EXPECT_TRUE(silent);
    set_echo_cancellation(0);
}

} // namespace
