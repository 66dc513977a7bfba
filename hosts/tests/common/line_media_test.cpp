// SPDX-License-Identifier: MIT
// Media: what the driver is given, who closes which descriptor on every path, contexts and streams.
#include "line_fixture.h"

#include <stdlib.h>

namespace {

constexpr char kLost[] = "1 refuses media: ";

class LineMedia : public LineTest {
protected:
    LineMedia() {
        add();
        init(7);
        connection_of(&info_, LIBVOICE_CODEC_PCMA, 8);
        news();
    }
    // The two calls of plain media, with `count` descriptors. Afterwards sent_ holds them.
    int32_t create(uint32_t appearance, int count, int32_t endpoint = 7) {
        return call(callbacks_.voice_plugin_create, appearance, count, endpoint);
    }
    int32_t modify(uint32_t appearance, int count, int32_t endpoint = 7) {
        return call(callbacks_.voice_plugin_modify, appearance, count, endpoint);
    }
    // A stream, as the application sends it with three descriptors, or as somebody else does.
    int32_t add_stream(uint32_t context, uint32_t stream, uint32_t appearance, int count = 3, int32_t endpoint = 7,
                       uint32_t codec = LIBVOICE_CODEC_PCMA) {
        fill_descriptors(sent_, count);
        int32_t *given = sent_;
        return callbacks_.voice_plugin_add_stream(context, record(stream, codec), &given, endpoint, appearance);
    }
    int32_t modify_stream(uint32_t context, uint32_t stream, uint32_t version = VOICE_CNX_VERSION) {
        voice_stream_info_t *info = record(stream, LIBVOICE_CODEC_PCMU);
        info->version = version;
        return callbacks_.voice_plugin_modify_stream(context, info);
    }
    // Which of the sent descriptors are open: "01" the first two.
    std::string open_ones() const {
        std::string text;
        for (int i = 0; i < LIBVOICE_DESCRIPTORS; i++)
            if (sent_[i] >= 0 && is_open(sent_[i]))
                text += static_cast<char>('0' + i);
        return text;
    }
    // Media that was rejected: said, reported with the reason, and every descriptor closed.
    void expect_rejected(const char *why) {
        EXPECT_EQ(news().back(), std::string("says: ") + kLost + why);
        EXPECT_EQ(open_ones(), "") << why;
        EXPECT_EQ(event_text(LIBVOICE_PARAM_g_cause_failurecause), why);
        int32_t cause = 0;
        EXPECT_TRUE(event_int(LIBVOICE_PARAM_g_cause_generalcause, &cause));
        EXPECT_EQ(cause, VOICE_CAUSE_UNSUPPORTED);
    }

    voice_cnx_info_t info_;
    int32_t sent_[LIBVOICE_DESCRIPTORS];

private:
    template <typename Callback>
    int32_t call(Callback callback, uint32_t appearance, int count, int32_t endpoint) {
        fill_descriptors(sent_, count);
        int32_t *given = sent_;
        return callback(endpoint, appearance, &info_, &given);
    }
    // As the library hands it over: the callback frees it.
    static voice_stream_info_t *record(uint32_t stream, uint32_t codec) {
        voice_stream_info_t *info = static_cast<voice_stream_info_t *>(malloc(sizeof *info));
        stream_of(info, stream, codec, codec == LIBVOICE_CODEC_PCMA ? 8 : 0);
        return info;
    }
};

const std::string kAlaw = "mode=3 codec=" + std::to_string(LIBVOICE_CODEC_PCMA) + " payload=8 ptime=20";
const std::string kUlaw = "mode=3 codec=" + std::to_string(LIBVOICE_CODEC_PCMU) + " payload=0 ptime=20";

} // namespace

TEST_F(LineMedia, IsClosedWhenTheProcessLeaves) {
    EXPECT_EQ(create(0, 2), 0);
    EXPECT_EQ(create(1, 2), 0);
    news();
    const size_t sent = events().size();
    line_plugin_close_media();
    EXPECT_EQ(news(), (Texts{"L1 close 0", "L1 close 1"}));
    EXPECT_EQ(open_ones(), "");
    EXPECT_EQ(events().size(), sent) << "its number may be another line's";
    line_plugin_close_media();
    EXPECT_EQ(news(), Texts{});
}

TEST_F(LineMedia, TheDriverTakesTwoDescriptorsOfTen) {
    EXPECT_EQ(create(0, LIBVOICE_DESCRIPTORS), 0);
    EXPECT_EQ(news(), (Texts{"L1 open 0 " + kAlaw + " context=0 stream=0"}));
    EXPECT_EQ(open_ones(), "01") << "the rest is of no use here, and closed";
    EXPECT_EQ(callbacks_.voice_plugin_destroy(7, 0), 0);
    EXPECT_EQ(news(), (Texts{"L1 close 0"}));
    EXPECT_EQ(open_ones(), "");
    EXPECT_EQ(callbacks_.voice_plugin_destroy(7, 0), 1) << "there is none any more";
}

TEST_F(LineMedia, BothAppearancesAtOnce) {
    EXPECT_EQ(create(0, 2), 0);
    EXPECT_EQ(create(1, 1), 0);
    EXPECT_EQ(news(), (Texts{"L1 open 0 " + kAlaw + " context=0 stream=0",
                             "L1 open 1 " + kAlaw + " context=0 stream=0 no control"}));
}

TEST_F(LineMedia, AChangeKeepsSocketsOrBringsNewOnes) {
    ASSERT_EQ(create(0, 2), 0);
    connection_of(&info_, LIBVOICE_CODEC_PCMU, 0);
    news();
    EXPECT_EQ(modify(0, 0), 0);
    EXPECT_EQ(news(), (Texts{"L1 change 0 " + kUlaw + " context=0 stream=0 no media no control"}));
    EXPECT_EQ(modify(0, 3), 0);
    EXPECT_EQ(open_ones(), "01");
}

TEST_F(LineMedia, WhatIsRejectedIsClosedAndReported) {
    const int all = LIBVOICE_DESCRIPTORS;
    EXPECT_EQ(create(2, all), 1);
    expect_rejected("no such line");
    EXPECT_EQ(create(0xFFFFFFFF, all), 1);
    expect_rejected("no such line");
    EXPECT_EQ(create(0, 0), 1);
    expect_rejected("media descriptor is no connected socket");
    EXPECT_EQ(modify(0, all), 1);
    expect_rejected("there is no media to change");
    EXPECT_EQ(modify(7, all), 1);
    expect_rejected("there is no media to change");
    info_.version = 9;
    EXPECT_EQ(create(0, all), 1);
    expect_rejected("media record of another version");
    EXPECT_EQ(modify(0, all), 1);
    expect_rejected("media record of another version");
    connection_of(&info_, LIBVOICE_CODEC_PCMA, 8);
    answers("no G729 here");
    EXPECT_EQ(create(0, all), 1);
    expect_rejected("no G729 here");
    answers(nullptr);
    ASSERT_EQ(create(0, 2), 0) << "what was rejected left nothing behind";
    EXPECT_EQ(create(0, all), 1);
    expect_rejected("media is set up already");
    answers("cannot");
    EXPECT_EQ(modify(0, all), 1);
    expect_rejected("cannot");
}

TEST_F(LineMedia, UnknownEndpointsAreClosedWithoutAWord) {
    for (int32_t endpoint : {-1, 0, 8}) {
        EXPECT_EQ(create(0, LIBVOICE_DESCRIPTORS, endpoint), 1);
        EXPECT_EQ(open_ones(), "");
        EXPECT_EQ(modify(0, LIBVOICE_DESCRIPTORS, endpoint), 1);
        EXPECT_EQ(open_ones(), "");
        EXPECT_EQ(callbacks_.voice_plugin_destroy(endpoint, 0), 1);
        EXPECT_EQ(add_stream(0, 1, 0, 3, endpoint), 1);
        EXPECT_EQ(open_ones(), "");
    }
    EXPECT_EQ(news(), Texts{});
    EXPECT_EQ(events(), Texts{});
}

TEST_F(LineMedia, StreamsBelongToAContext) {
    EXPECT_EQ(callbacks_.voice_plugin_create_ctx(5), 0);
    EXPECT_EQ(add_stream(5, 1, 0), 0);
    EXPECT_EQ(open_ones(), "01");
    EXPECT_EQ(add_stream(5, 2, 1, LIBVOICE_DESCRIPTORS), 0);
    EXPECT_EQ(open_ones(), "01") << "no application sends so many: closed all the same";
    EXPECT_EQ(modify_stream(5, 2), 0);
    EXPECT_EQ(callbacks_.voice_plugin_remove_stream(5, 1), 0);
    EXPECT_EQ(callbacks_.voice_plugin_remove_stream(5, 1), 1) << "it is gone";
    EXPECT_EQ(modify_stream(5, 1), 1);
    EXPECT_EQ(callbacks_.voice_plugin_destroy_ctx(5), 0) << "streams that nobody removed go with it";
    EXPECT_EQ(callbacks_.voice_plugin_destroy_ctx(5), 1);
    EXPECT_EQ(news(),
              (Texts{"L1 open 0 " + kAlaw + " context=5 stream=1", "L1 open 1 " + kAlaw + " context=5 stream=2",
                     "L1 change 1 " + kUlaw + " context=5 stream=2 no media no control", "L1 close 0", "L1 close 1"}));
}

TEST_F(LineMedia, StreamsThatCannotBeAreClosedAndReported) {
    ASSERT_EQ(callbacks_.voice_plugin_create_ctx(5), 0);
    EXPECT_EQ(add_stream(6, 1, 0), 1);
    expect_rejected("no such context");
    EXPECT_EQ(add_stream(0, 1, 0), 1);
    expect_rejected("no such context");
    EXPECT_EQ(add_stream(5, 0, 0), 1);
    expect_rejected("streams are numbered from 1");
    EXPECT_EQ(add_stream(5, 1, 2), 1);
    expect_rejected("no such line");
    answers("no room");
    EXPECT_EQ(add_stream(5, 1, 0), 1);
    expect_rejected("no room");
    answers(nullptr);
    EXPECT_EQ(add_stream(5, 1, 0), 0);
    EXPECT_EQ(add_stream(5, 2, 0), 1);
    expect_rejected("media is set up already");
    EXPECT_EQ(modify_stream(5, 1, 9), 1);
    EXPECT_EQ(news().back(), std::string("says: ") + kLost + "media record of another version");
}

// "create" as the bus runs it, with what the line plugin looks at around it.
class LineMediaOfCalls : public LineMedia {
protected:
    LineMediaOfCalls() {
        libvoice_registered_callbacks = callbacks_;
        kex_onCall(fake::bus().handle(), line_plugin_call_begins, nullptr);
        kex_onFailed(fake::bus().handle(), line_plugin_call_failed, nullptr);
    }
    ~LineMediaOfCalls() override {
        kex_onCall(fake::bus().handle(), nullptr, nullptr);
        kex_onFailed(fake::bus().handle(), nullptr, nullptr);
        libvoice_registered_callbacks = {};
        libvoice_set_convert_media(0);
    }

    // Without information: the argument is missing.
    static int create(const char *path, const std::string &info, const std::vector<int> &descriptors = {-1, -1, -1}) {
        fake::Call call;
        call.on(fake::bus().object(path)).named("create").with("ep_line_id", fake::Value::u32(1));
        if (!info.empty())
            call.with("cnx_info", fake::Value::bytes(info));
        return call.with("filedesc", fake::Value::fds(descriptors)).run(__EndPoint_create);
    }
};

// With addresses in place of descriptors the library opens the sockets, and asks nobody when it cannot.
TEST_F(LineMediaOfCalls, SocketsThatTheLibraryCannotOpenAreReportedOnce) {
    libvoice_set_convert_media(1);
    const std::string by_address(LIBVOICE_CNX_INFO_SOCKET_BYTES, '\xFF'); // of no family
    EXPECT_EQ(create("stub.EndPoint.L1", by_address), KEX_FUNCTION_FAILED);
    EXPECT_EQ(news(), (Texts{std::string("says: ") + kLost + "no media sockets"}));
    EXPECT_EQ(event_text(LIBVOICE_PARAM_g_cause_failurecause), "no media sockets");
    int32_t cause = 0;
    EXPECT_TRUE(event_int(LIBVOICE_PARAM_g_cause_generalcause, &cause));
    EXPECT_EQ(cause, VOICE_CAUSE_FAILURE_TEMPORARY);
    EXPECT_EQ(events().back(), "7 LIBVOICE_EVENT_g_cause line=1");

    // What we reject ourselves is reported there.
    const std::string broken(LIBVOICE_CNX_INFO_BYTES, '\0');
    EXPECT_EQ(create("stub.EndPoint.L1", broken), KEX_FUNCTION_FAILED);
    EXPECT_EQ(news().size(), 1u);
    EXPECT_EQ(create("stub.EndPoint.L9", by_address), KEX_FUNCTION_FAILED) << "none of ours";
    EXPECT_EQ(news(), Texts());
}

// Then the library opens none, and what the call lacks is its sender's fault: other ports would not help.
TEST_F(LineMediaOfCalls, WithDescriptorsACallThatTheLibraryRejectsIsNoMatterOfSockets) {
    EXPECT_EQ(create("stub.EndPoint.L1", ""), KEX_FUNCTION_FAILED);
    EXPECT_EQ(create("stub.EndPoint.L1", std::string(LIBVOICE_CNX_INFO_BYTES, '\0'), {}), KEX_FUNCTION_FAILED);
    EXPECT_EQ(news(), Texts());
    EXPECT_EQ(events(), Texts());
}

TEST_F(LineMedia, SixteenContextsAndEachOnce) {
    EXPECT_EQ(callbacks_.voice_plugin_create_ctx(0), 1) << "0 is no context";
    for (uint32_t id = 1; id <= 16; id++)
        EXPECT_EQ(callbacks_.voice_plugin_create_ctx(id), 0);
    EXPECT_EQ(callbacks_.voice_plugin_create_ctx(17), 1);
    EXPECT_EQ(callbacks_.voice_plugin_destroy_ctx(4), 0);
    EXPECT_EQ(callbacks_.voice_plugin_create_ctx(5), 1) << "it exists";
    EXPECT_EQ(callbacks_.voice_plugin_create_ctx(17), 0);
    EXPECT_EQ(callbacks_.voice_plugin_destroy_ctx(0), 1);
    EXPECT_EQ(callbacks_.voice_plugin_remove_stream(0, 0), 1);
}

TEST_F(LineTest, APluginWithoutLinesHasNoContexts) {
    EXPECT_EQ(callbacks_.voice_plugin_create_ctx(1), 1);
}

TEST_F(LineTest, ADriverWithoutMediaRejectsItWithACause) {
    line_driver_t silent = {};
    add("L1", &silent);
    init(7);
    news();
    voice_cnx_info_t info;
    connection_of(&info, LIBVOICE_CODEC_PCMA, 8);
    int32_t descriptors[LIBVOICE_DESCRIPTORS], *given = descriptors;
    fill_descriptors(descriptors, LIBVOICE_DESCRIPTORS);
    EXPECT_EQ(callbacks_.voice_plugin_create(7, 0, &info, &given), 1);
    EXPECT_EQ(news(), (Texts{"says: 1 refuses media: no media here"}));
    EXPECT_EQ(event_text(LIBVOICE_PARAM_g_cause_failurecause), "no media here");
    for (int32_t descriptor : descriptors)
        EXPECT_FALSE(is_open(descriptor));
    // Media that can be opened but not changed.
    silent.open = driver_.open;
    silent.close = driver_.close;
    fill_descriptors(descriptors, 2);
    ASSERT_EQ(callbacks_.voice_plugin_create(7, 0, &info, &given), 0);
    fill_descriptors(descriptors, 1);
    EXPECT_EQ(callbacks_.voice_plugin_modify(7, 0, &info, &given), 1);
    EXPECT_EQ(news().back(), "says: 1 refuses media: media cannot be changed here");
    EXPECT_FALSE(is_open(descriptors[0]));
}
