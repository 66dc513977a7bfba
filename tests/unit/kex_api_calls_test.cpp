// SPDX-License-Identifier: MIT
// Requests: argument order and types, flags, the peer they travel to, what their sender answers, and who destroys them.
#include "voice_test.h"

#include <memory>
#include <sys/mman.h>
#include <unistd.h>

namespace voice_test {
namespace {

constexpr uint32_t kEpId = 0x01FE0003; // LIBVOICE_PARAM_zil_ep_id
constexpr uint32_t kId = 0x02FE000A;
const char *const kService = "VoiceService.VoiceApplication";

std::string made(const char *path, const char *function, unsigned flags) {
    return text("r1 = request_create_executeFunction(\"%s\", \"%s\", 0x%04x)", path, function, flags);
}
std::string not_made(const char *path, const char *function, unsigned flags) {
    return text("null = request_create_executeFunction(\"%s\", \"%s\", 0x%04x)", path, function, flags);
}
std::string added(const char *name, const Value &value) {
    return text("request_addParameter(r1, \"%s\", ", name) + value.str() + ")";
}
std::string sent(const char *peer, int answer = 1) {
    return text("kex_sendRequest(bus, %s, r1) = %d", peer, answer);
}
const std::string kDestroyed = "request_destroy(r1)", kWaited = "kex_waitForReply(bus, r1, no limit) = 1";

void on_get_done(request_t *) {}
void on_init_reply(request_t *, reply_item_t *) {}
void on_exit_reply(request_t *, reply_item_t *) {}

// A record at the end of a heap block: a read past its end shows in the sanitizer. The block begins `at` bytes before
// it; where that is no whole word, a read that expects its words on word boundaries shows too.
template <typename Record>
class Block {
public:
    explicit Block(const std::string &bytes, size_t at = 0) : bytes_(new char[at + bytes.size()]), at_(at) {
        memcpy(bytes_.get() + at, bytes.data(), bytes.size());
    }
    Record *get() { return reinterpret_cast<Record *>(bytes_.get() + at_); }

private:
    std::unique_ptr<char[]> bytes_;
    size_t at_;
};

class Requests : public VoiceTest {
protected:
    Requests() { prepare(); }

    void prepare() override {
        plugin_ = have_plugin(1, "FXS", bus().peer("fxs"));
        have_endpoint(3, "FXS1", 5, plugin_);
        strcpy(_PLUGIN_NAME, "FXS");
        libvoice_set_kex_peer_handler(bus().peer("application"));
        bus().name_function(reinterpret_cast<const void *>(on_get_done), "voice_app_get_done");
        bus().name_function(reinterpret_cast<const void *>(on_init_reply), "voice_app_init_reply");
        bus().name_function(reinterpret_cast<const void *>(on_exit_reply), "voice_app_exit_reply");
        bus().clear_log();
    }

    // Without markers and without the plugin table's own messages.
    static std::vector<std::string> core_log() {
        std::vector<std::string> result;
        for (const std::string &line : bus().log_without_markers())
            if (line.find("@plugin_table: ") == std::string::npos)
                result.push_back(line);
        return result;
    }

    voice_plugin_entry_t *plugin_;
};

#define EXPECT_CORE_LOG(...) EXPECT_LINES(core_log(), __VA_ARGS__)

// -------------------------------------------------------------------------------------------------------- plumbing

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

const char *const kRegister = "libvoice_kex_register_plugin";

class KexRegisterPlugin : public Requests {
protected:
    const std::string enter_ = text("> %s@kex_api_calls", kRegister), leave_ = text("< %s@kex_api_calls", kRegister);
    const std::string made_ = made(kService, "register_plugin", 1), added_ = added("plugin_name", Value::chars("FXS"));
};

TEST_F(KexRegisterPlugin, TheAnswerIsTheResult) {
    const struct {
        Value value;
        int result;
    } rows[] = {{Value::boolean(true), 1}, {Value::boolean(false), 0}, {Value::u32(2), 1},
                {Value::i16(0), 0},        {Value::chars("true"), 0},  {Value(), 0}};
    for (const auto &row : rows) {
        again();
        bus().answer("register_plugin", Reply().value(row.value));
        EXPECT_EQ(libvoice_kex_register_plugin("FXS"), row.result) << row.value.str();
        EXPECT_LOG_OF(kRegister, enter_, made_, added_, sent("application"), kWaited, kDestroyed, leave_);
        expect_settled(row.value.str());
    }
}

TEST_F(KexRegisterPlugin, AReplyWithoutAValueIsFalse) {
    bus().answer("register_plugin", Reply());
    EXPECT_EQ(libvoice_kex_register_plugin("FXS"), 0);
    EXPECT_THAT(bus().complaints(), IsEmpty());
}

TEST_F(KexRegisterPlugin, EachFailureHasItsTraceMessage) {
    bus().fail("request_create_executeFunction");
    EXPECT_EQ(libvoice_kex_register_plugin("FXS"), 0);
    const std::vector<std::string> log = log_of(kRegister);
    ASSERT_GE(log.size(), 3u);
    EXPECT_LINES(std::vector<std::string>(log.begin(), log.begin() + 3), enter_,
                 not_made(kService, "register_plugin", 1),
                 said("x", kRegister, "Failed to create request 'register_plugin'"));

    again();
    bus().fail("kex_sendRequest");
    EXPECT_EQ(libvoice_kex_register_plugin("FXS"), 0);
    EXPECT_LOG_OF(kRegister, enter_, made_, added_, sent("application", 0),
                  said("x", kRegister, "Failed to send 'register_plugin' request."), kDestroyed, leave_);
    expect_settled("send");

    again();
    bus().fail("kex_waitForReply");
    EXPECT_EQ(libvoice_kex_register_plugin("FXS"), 0);
    EXPECT_LOG_OF(kRegister, enter_, made_, added_, sent("application"), "kex_waitForReply(bus, r1, no limit) = 0",
                  said("x", kRegister, "Communication failed."), kDestroyed, leave_);
    expect_settled("wait");

    again();
    bus().answer("register_plugin", Reply::none());
    EXPECT_EQ(libvoice_kex_register_plugin("FXS"), 0);
    EXPECT_LOG_OF(kRegister, enter_, made_, added_, sent("application"), kWaited,
                  said("x", kRegister, "No reply available."), kDestroyed, leave_);
    expect_settled("no reply");

    again();
    bus().answer("register_plugin", Reply().error(7, "no", "way").value(Value::boolean(true)));
    EXPECT_EQ(libvoice_kex_register_plugin("FXS"), 0);
    EXPECT_LOG_OF(kRegister, enter_, made_, added_, sent("application"), kWaited,
                  said("x", "_reply_ok", "Function call error (7) - no - way"),
                  said("x", kRegister, "Function call error."), kDestroyed, leave_);
    expect_settled("error item");
}

TEST_F(KexRegisterPlugin, WithoutAPeerTheRequestIsMadeAndRefused) {
    libvoice_set_kex_peer_handler(nullptr);
    bus().clear_log();
    EXPECT_EQ(libvoice_kex_register_plugin("FXS"), 0);
    EXPECT_LOG_OF(kRegister, enter_, made_, added_, sent("null", 0),
                  said("x", kRegister, "Failed to send 'register_plugin' request."), kDestroyed, leave_);
}

// ------------------------------------------------------------------------------------------------------ send event

const char *const kEvent = "libvoice_send_event";

class SendEvent : public Requests {
protected:
    const std::string enter_ = text("> %s@kex_api_calls", kEvent), leave_ = text("< %s@kex_api_calls", kEvent);
    const std::string made_ = made(kService, "event", 1), named_ = added("plugin_name", Value::chars("FXS"));
};

TEST_F(SendEvent, TheWholeMessageTravelsAsItStands) {
    for (const size_t length : {0u, 1u, 8u, 200u}) {
        again();
        const std::string bytes = event_bytes(5, std::string(length, 'p'), 0x12345678);
        Block<libvoice_event_t> event(bytes);
        EXPECT_EQ(libvoice_send_event(event.get()), 0u);
        EXPECT_LOG_OF(kEvent, enter_, made_, named_, added("event", Value::bytes(bytes)), sent("application"),
                      kDestroyed, leave_);
        EXPECT_EQ(bus().record(1).parameter("event").data, bytes) << "the pointer word goes out as it stands";
        expect_settled(text("%zu parameter bytes", length));
    }
}

TEST_F(SendEvent, TheMessageMayStandAtAnyAddress) {
    for (const size_t at : {1u, 2u, 3u}) {
        const std::string bytes = event_bytes(5, "params");
        Block<libvoice_event_t> event(bytes, at);
        EXPECT_EQ(libvoice_send_event(event.get()), 0u);
        EXPECT_EQ(bus().record(static_cast<unsigned>(at)).parameter("event").data, bytes) << at;
    }
}

TEST_F(SendEvent, BeforeInitialisationNothingElseIsLookedAt) {
    _PLUGIN_NAME[0] = '\0';
    Block<libvoice_event_t> event(event_bytes(5, ""));
    for (libvoice_event_t *message : {static_cast<libvoice_event_t *>(nullptr), event.get()}) {
        bus().clear_log();
        EXPECT_EQ(libvoice_send_event(message), 1u);
        EXPECT_LOG_OF(kEvent, enter_,
                      said("x", kEvent, "libvoiceplugin has not been initialized, please call libvoice_kex_init"),
                      leave_);
    }
}

TEST_F(SendEvent, NoEvent) {
    EXPECT_EQ(libvoice_send_event(nullptr), 1u);
    EXPECT_LOG_OF(kEvent, enter_, said("x", kEvent, "Event can't be NULL."), leave_);
}

TEST_F(SendEvent, ARequestThatCannotBeMade) {
    bus().fail("request_create_executeFunction");
    Block<libvoice_event_t> event(event_bytes(5, ""));
    EXPECT_EQ(libvoice_send_event(event.get()), 1u);
    EXPECT_LOG_OF(kEvent, enter_, not_made(kService, "event", 1),
                  said("x", kEvent, "Can't create request to send event."), leave_);
}

TEST_F(SendEvent, AFailedSendLeavesTheRequestAsItIs) {
    bus().fail("kex_sendRequest");
    const std::string bytes = event_bytes(5, "");
    Block<libvoice_event_t> event(bytes);
    EXPECT_EQ(libvoice_send_event(event.get()), 1u);
    EXPECT_LOG_OF(kEvent, enter_, made_, named_, added("event", Value::bytes(bytes)), sent("application", 0),
                  said("x", kEvent, "Error sending kex request"), leave_);
    bus().leaves_requests(1, "an event that was not sent is left as it is");
}

TEST_F(SendEvent, WithoutAPeerTheRequestIsMadeAndRefused) {
    libvoice_set_kex_peer_handler(nullptr);
    Block<libvoice_event_t> event(event_bytes(5, ""));
    EXPECT_EQ(libvoice_send_event(event.get()), 1u);
    EXPECT_THAT(bus().acts(), testing::Contains(sent("null", 0)));
    bus().leaves_requests(1, "an event that was not sent is left as it is");
}

// --------------------------------------------------------------------------------------------------- init and exit

const char *const kInit = "libvoice_kex_init_plugin";
const char *const kExit = "libvoice_kex_exit_plugin";

class InitPlugin : public Requests {
protected:
    const std::string enter_ = text("> %s@kex_api_calls", kInit), leave_ = text("< %s@kex_api_calls", kInit);
    const std::string made_ = made("FXS", "init", 1), added_ = added("country", Value::chars("AT"));
    const std::string searched_ = "i libvoice_plugin_get_entry@plugin_table: getting plugin entry for plugin FXS",
                      found_ =
                          "i libvoice_plugin_get_entry@plugin_table: voice_plugin_table[1] matches plugin name FXS";
};

TEST_F(InitPlugin, WithoutACallbackTheRequestIsDestroyedAfterTheMarker) {
    EXPECT_EQ(libvoice_kex_init_plugin("FXS", "AT"), 1);
    EXPECT_LOG_OF(kInit, enter_, made_, added_, searched_, found_, sent("fxs"), leave_, kDestroyed);
}

TEST_F(InitPlugin, WithACallbackTheRequestIsTheHandlers) {
    libvoice_app_registered_callbacks.voice_app_init_reply = on_init_reply;
    libvoice_app_registered_callbacks.voice_app_exit_reply = on_exit_reply;
    EXPECT_EQ(libvoice_kex_init_plugin("FXS", "AT"), 1);
    EXPECT_LOG_OF(kInit, enter_, made_, added_, "request_setReplyHandler(r1, voice_app_init_reply)", searched_, found_,
                  sent("fxs"), leave_);
    bus().leaves_requests(1, "the reply handler owns it");
}

TEST_F(InitPlugin, TheExitCallbackDoesNotCount) {
    libvoice_app_registered_callbacks.voice_app_exit_reply = on_exit_reply;
    EXPECT_EQ(libvoice_kex_init_plugin("FXS", "AT"), 1);
    EXPECT_EQ(bus().acts().back(), kDestroyed);
}

TEST_F(InitPlugin, AFailedSendWithACallbackLeavesTheRequest) {
    libvoice_app_registered_callbacks.voice_app_init_reply = on_init_reply;
    bus().fail("kex_sendRequest");
    EXPECT_EQ(libvoice_kex_init_plugin("FXS", "AT"), 0);
    EXPECT_EQ(log_of(kInit).back(), leave_);
    EXPECT_THAT(bus().complaints(), IsEmpty());
    bus().leaves_requests(1, "left to a handler that never runs");
}

TEST_F(InitPlugin, AFailedSendWithoutACallbackDestroysTheRequest) {
    bus().fail("kex_sendRequest");
    EXPECT_EQ(libvoice_kex_init_plugin("FXS", "AT"), 0);
    EXPECT_LOG_OF(kInit, enter_, made_, added_, searched_, found_, sent("fxs", 0), leave_, kDestroyed);
}

TEST_F(InitPlugin, BadArgumentsStillDestroyNothing) {
    const struct {
        const char *name, *country, *said;
    } rows[] = {{nullptr, "AT", "Entry parameter error, plugin_name == NULL"},
                {nullptr, nullptr, "Entry parameter error, plugin_name == NULL"},
                {"FXS", nullptr, "Country Code can't be NULL."}};
    for (const auto &row : rows)
        for (const bool set : {false, true}) {
            again();
            if (set)
                libvoice_app_registered_callbacks.voice_app_init_reply = on_init_reply;
            EXPECT_EQ(libvoice_kex_init_plugin(row.name, row.country), 0);
            std::vector<std::string> expected = {enter_, said("x", kInit, row.said), leave_};
            if (!set)
                expected.push_back("request_destroy(null)");
            EXPECT_EQ(fake::difference(expected, log_of(kInit)), "");
            expect_settled(row.said);
        }
}

TEST_F(InitPlugin, ARequestThatCannotBeMade) {
    for (const bool set : {false, true}) {
        again();
        if (set)
            libvoice_app_registered_callbacks.voice_app_init_reply = on_init_reply;
        bus().fail("request_create_executeFunction");
        EXPECT_EQ(libvoice_kex_init_plugin("FXS", "AT"), 0);
        std::vector<std::string> expected = {enter_, not_made("FXS", "init", 1),
                                             said("x", kInit, "Can't create request to send init."), leave_};
        if (!set)
            expected.push_back("request_destroy(null)");
        EXPECT_EQ(fake::difference(expected, log_of(kInit)), "");
        expect_settled("not made");
    }
}

TEST_F(InitPlugin, AnUnknownPluginIsSentToNobody) {
    EXPECT_EQ(libvoice_kex_init_plugin("DECT", "AT"), 0);
    EXPECT_THAT(bus().acts(), testing::Contains(sent("null", 0)));
}

class ExitPlugin : public Requests {
protected:
    const std::string enter_ = text("> %s@kex_api_calls", kExit), leave_ = text("< %s@kex_api_calls", kExit);
    const std::string made_ = made("FXS", "exit", 1);
    const std::string searched_ = "i libvoice_plugin_get_entry@plugin_table: getting plugin entry for plugin FXS",
                      found_ =
                          "i libvoice_plugin_get_entry@plugin_table: voice_plugin_table[1] matches plugin name FXS";
};

TEST_F(ExitPlugin, TheReasonTravels) {
    for (const uint32_t reason : {0u, 32u, 0xFFFFFFFFu}) {
        again();
        EXPECT_EQ(libvoice_kex_exit_plugin("FXS", reason), 1);
        EXPECT_LOG_OF(kExit, enter_, made_, added("reason", Value::u32(reason)), searched_, found_, sent("fxs"), leave_,
                      kDestroyed);
        expect_settled("exit");
    }
}

TEST_F(ExitPlugin, WithACallbackTheRequestIsTheHandlers) {
    libvoice_app_registered_callbacks.voice_app_init_reply = on_init_reply;
    libvoice_app_registered_callbacks.voice_app_exit_reply = on_exit_reply;
    EXPECT_EQ(libvoice_kex_exit_plugin("FXS", 32), 1);
    EXPECT_LOG_OF(kExit, enter_, made_, added("reason", Value::u32(32)),
                  "request_setReplyHandler(r1, voice_app_exit_reply)", searched_, found_, sent("fxs"), leave_);
    bus().leaves_requests(1, "the reply handler owns it");
}

TEST_F(ExitPlugin, AFailedSendWithACallbackLeavesTheRequest) {
    libvoice_app_registered_callbacks.voice_app_exit_reply = on_exit_reply;
    bus().fail("kex_sendRequest");
    EXPECT_EQ(libvoice_kex_exit_plugin("FXS", 32), 0);
    bus().leaves_requests(1, "left to a handler that never runs");
}

TEST_F(ExitPlugin, BadArgumentsAndARequestThatCannotBeMade) {
    EXPECT_EQ(libvoice_kex_exit_plugin(nullptr, 1), 0);
    EXPECT_LOG_OF(kExit, enter_, said("x", kExit, "Entry parameter error, plugin_name == NULL"), leave_,
                  "request_destroy(null)");
    again();
    bus().fail("request_create_executeFunction");
    EXPECT_EQ(libvoice_kex_exit_plugin("FXS", 1), 0);
    EXPECT_LOG_OF(kExit, enter_, not_made("FXS", "exit", 1), said("x", kExit, "Can't create request to send exit."),
                  leave_, "request_destroy(null)");
}

// ---------------------------------------------------------------------------------------------------------- signal

const char *const kSignal = "libvoice_send_signal";
const char *const kPath = "FXS.EndPoint.FXS1";

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

TEST_F(SendSignal, AnUnknownEndpoint) {
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

// ----------------------------------------------------------------------------------------------------------- media

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

TEST_F(DestroyMedia, Failures) {
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

// -------------------------------------------------------------------------------------------------- parameter sets

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

// ---------------------------------------------------------------------------------------------- contexts, streams

std::string stream_info() {
    std::string result;
    for (size_t i = 0; i < 712; ++i)
        result += static_cast<char>('0' + i % 70);
    return result;
}

struct ContextRequest : Named { // the bus function's name
    const char *function;
    uint32_t (*send)(const char *plugin, void *stream_info);
    std::vector<std::pair<const char *, Value>> arguments;
};

const int32_t kDescriptors[3] = {STDERR_FILENO, -1, STDIN_FILENO};

class ContextRequests : public Requests, public testing::WithParamInterface<ContextRequest> {
protected:
    std::vector<std::string> expected(const char *peer, int answer) {
        std::vector<std::string> lines = {made("FXS", GetParam().name, 0x8001)};
        for (const auto &argument : GetParam().arguments)
            lines.push_back(added(argument.first, argument.second));
        lines.push_back(sent(peer, answer));
        if (!answer)
            lines.push_back(said("x", GetParam().function, "Failed to send request."));
        lines.push_back(kDestroyed);
        return lines;
    }
    uint32_t send(const char *plugin = "FXS") {
        Block<char> info(stream_info());
        return GetParam().send(plugin, info.get());
    }
};

INSTANTIATE_TEST_SUITE_P(
    , ContextRequests,
    testing::Values(ContextRequest{"create_ctx",
                                   "libvoice_create_ctx",
                                   [](const char *plugin, void *) { return libvoice_create_ctx(plugin, 4); },
                                   {{"ctx_id", Value::u32(4)}}},
                    ContextRequest{"add_stream",
                                   "libvoice_add_stream",
                                   [](const char *plugin, void *info) {
                                       return libvoice_add_stream(plugin, -5, 0xFFFFFFFFu, info, kDescriptors, 9);
                                   },
                                   {{"ep_id", Value::i32(-5)},
                                    {"ctx_id", Value::u32(0xFFFFFFFFu)},
                                    {"line_id", Value::u32(9)},
                                    {"stream_info", Value::bytes(stream_info())},
                                    {"filedesc", Value::fds({STDERR_FILENO, -1, STDIN_FILENO})}}},
                    ContextRequest{
                        "modify_stream",
                        "libvoice_modify_stream",
                        [](const char *plugin, void *info) { return libvoice_modify_stream(plugin, 4, info); },
                        {{"ctx_id", Value::u32(4)}, {"stream_info", Value::bytes(stream_info())}}},
                    ContextRequest{"remove_stream",
                                   "libvoice_remove_stream",
                                   [](const char *plugin, void *) { return libvoice_remove_stream(plugin, 4, 6); },
                                   {{"ctx_id", Value::u32(4)}, {"stream_id", Value::u32(6)}}},
                    ContextRequest{"destroy_ctx",
                                   "libvoice_destroy_ctx",
                                   [](const char *plugin, void *) { return libvoice_destroy_ctx(plugin, 4); },
                                   {{"ctx_id", Value::u32(4)}}}),
    [](const auto &row) { return row.param.name; });

TEST_P(ContextRequests, ArgumentsTravelInOrderWhateverTheMediaFlag) {
    for (const uint8_t convert : {0, 1}) {
        again();
        libvoice_set_convert_media(convert);
        EXPECT_EQ(send(), 0u);
        EXPECT_EQ(fake::difference(expected("fxs", 1), core_log()), "");
        for (const auto &argument : GetParam().arguments)
            EXPECT_EQ(bus().record(1).parameter(argument.first).data, argument.second.data) << argument.first;
        expect_settled("sent");
    }
}

TEST_P(ContextRequests, AFailedSendIsFour) {
    bus().fail("kex_sendRequest");
    EXPECT_EQ(send(), 4u);
    EXPECT_EQ(fake::difference(expected("fxs", 0), core_log()), "");
}

TEST_P(ContextRequests, AnUnknownPluginIsStillHandedToTheBusWithoutAPeer) {
    plugin_->used = 0;
    EXPECT_EQ(send(), 4u);
    EXPECT_EQ(fake::difference(expected("null", 0), core_log()), "");
}

TEST_P(ContextRequests, ARequestThatCannotBeMadeIsTwelve) {
    const std::string complaint =
        said("x", GetParam().function, text("Not able to create function request for '%s'.", GetParam().name));
    bus().fail("request_create_executeFunction");
    EXPECT_EQ(send(), 12u);
    EXPECT_CORE_LOG(not_made("FXS", GetParam().name, 0x8001), complaint);
    again();
    EXPECT_EQ(send(""), 12u) << "a bus takes no empty path";
    EXPECT_CORE_LOG(not_made("", GetParam().name, 0x8001), complaint);
}

class AddStreamRequest : public Requests {};

TEST_F(AddStreamRequest, AListThatCannotBeMadeIsFour) {
    bus().fail("variant_da_list");
    Block<char> info(stream_info());
    EXPECT_EQ(libvoice_add_stream("FXS", 5, 4, info.get(), kDescriptors, 9), 4u);
    EXPECT_THAT(bus().complaints(), ElementsAre(said("x", "libvoice_add_stream", "Allocation failure list == NULL")));
    EXPECT_EQ(bus().acts().back(), kDestroyed);
    EXPECT_FALSE(bus().record(1).sent);
}

// ----------------------------------------------------------------------------------------------- the n-th call fails

struct Sender : Named {
    int64_t (*send)();
    int64_t success;
    // What the sender answers, the requests and the blocks it leaves when a function fails; others change nothing.
    struct Failure {
        const char *function;
        int64_t answer;
        unsigned lines;
        unsigned requests;
    };
    std::vector<Failure> failures;
    unsigned requests_left = 0; // after success
    unsigned blocks_left = 0;
};

class NthFailure : public Requests, public testing::WithParamInterface<Sender> {};

TEST_P(NthFailure, EveryRunEndsAsPromised) {
    const Sender &row = GetParam();
    for (unsigned n = 1;; ++n) {
        ASSERT_LT(n, 60u);
        again();
        libvoice_app_registered_callbacks.voice_app_get_done = on_get_done;
        bus().answer("register_plugin", Reply().value(Value::boolean(true)));
        bus().fail_call(n);
        const int64_t answer = row.send();
        const std::string failed = bus().failed();
        Sender::Failure expected = {"", row.success, 0, row.requests_left};
        unsigned blocks = row.blocks_left;
        for (const Sender::Failure &failure : row.failures)
            if (failed == failure.function) {
                expected = failure;
                blocks = 0;
            }
        SCOPED_TRACE(text("call %u, %s, failed", n, failed.empty() ? "none" : failed.c_str()));
        EXPECT_EQ(answer, expected.answer);
        EXPECT_EQ(bus().complaints().size(), expected.lines);
        if (expected.requests)
            bus().leaves_requests(expected.requests, "as documented");
        leaves_memory(blocks);
        expect_settled(text("%s, call %u (%s) fails", row.name, n, failed.c_str()));
        if (failed.empty())
            break;
    }
}

#define CREATE "request_create_executeFunction"
#define SEND "kex_sendRequest"

alignas(8) char media[736], stream[712];
libvoice_signal_t small_signal = {5, {}, 0, 0};
libvoice_event_t small_event = {5, {}, 0, 0};

INSTANTIATE_TEST_SUITE_P(
    , NthFailure,
    testing::Values(Sender{"register_plugin",
                           [] { return int64_t{libvoice_kex_register_plugin("FXS")}; },
                           1,
                           {{CREATE, 0, 1, 0},
                            {SEND, 0, 1, 0},
                            {"kex_waitForReply", 0, 1, 0},
                            {"request_reply", 0, 1, 0},
                            {"variant_toBool", 0, 0, 0}}},
                    Sender{"event",
                           [] { return int64_t{libvoice_send_event(&small_event)}; },
                           0,
                           {{CREATE, 1, 1, 0}, {SEND, 1, 1, 1}}},
                    Sender{"init",
                           [] { return int64_t{libvoice_kex_init_plugin("FXS", "AT")}; },
                           1,
                           {{CREATE, 0, 1, 0}, {SEND, 0, 0, 0}}},
                    Sender{"exit",
                           [] { return int64_t{libvoice_kex_exit_plugin("FXS", 1)}; },
                           1,
                           {{CREATE, 0, 1, 0}, {SEND, 0, 0, 0}}},
                    Sender{"signal",
                           [] { return libvoice_send_signal(&small_signal), int64_t{0}; },
                           0,
                           {{CREATE, 0, 1, 0}, {SEND, 0, 1, 0}}},
                    Sender{"create",
                           [] { return int64_t{libvoice_create_media(5, 1, media, -1, -1, -1)}; },
                           0,
                           {{CREATE, 12, 1, 0}, {SEND, 5, 1, 0}, {"variant_da_list", 5, 1, 0}}},
                    Sender{"modify",
                           [] { return int64_t{libvoice_modify_media(5, 1, media, -1, -1, -1)}; },
                           0,
                           {{CREATE, 12, 1, 0}, {SEND, 5, 1, 0}, {"variant_da_list", 5, 1, 0}}},
                    Sender{"destroy",
                           [] { return libvoice_destroy_media(5, 1), int64_t{0}; },
                           0,
                           {{CREATE, 0, 1, 0}, {SEND, 0, 1, 0}}},
                    Sender{"set",
                           [] { return int64_t{libvoice_set_params(5, kId, "x", 1)}; },
                           1,
                           {{CREATE, 0, 1, 0}, {SEND, 0, 1, 0}}},
                    Sender{"get",
                           [] { return int64_t{libvoice_get_params(5, kId, 1)}; },
                           1,
                           {{CREATE, 0, 1, 0}, {SEND, 0, 1, 0}},
                           1,
                           1},
                    Sender{"create_ctx",
                           [] { return int64_t{libvoice_create_ctx("FXS", 1)}; },
                           0,
                           {{CREATE, 12, 1, 0}, {SEND, 4, 1, 0}}},
                    Sender{"add_stream",
                           [] { return int64_t{libvoice_add_stream("FXS", 5, 1, stream, kDescriptors, 1)}; },
                           0,
                           {{CREATE, 12, 1, 0}, {SEND, 4, 1, 0}, {"variant_da_list", 4, 1, 0}}},
                    Sender{"modify_stream",
                           [] { return int64_t{libvoice_modify_stream("FXS", 1, stream)}; },
                           0,
                           {{CREATE, 12, 1, 0}, {SEND, 4, 1, 0}}},
                    Sender{"remove_stream",
                           [] { return int64_t{libvoice_remove_stream("FXS", 1, 1)}; },
                           0,
                           {{CREATE, 12, 1, 0}, {SEND, 4, 1, 0}}},
                    Sender{"destroy_ctx",
                           [] { return int64_t{libvoice_destroy_ctx("FXS", 1)}; },
                           0,
                           {{CREATE, 12, 1, 0}, {SEND, 4, 1, 0}}}),
    [](const auto &row) { return row.param.name; });

} // namespace
} // namespace voice_test
