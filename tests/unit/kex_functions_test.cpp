// SPDX-License-Identifier: MIT
// The bus functions of plugins and of the voice application: arguments in reading order, the callback they reach, the
// reply, the order of return value, destruction and exit marker, and who owns what arrived.
#include "handler_test.h"

#include "local_sockets.h"

namespace voice_test {
namespace {

constexpr uint32_t kId = 0x11090207;

// ------------------------------------------------------------------------------------------- the host's callbacks

// What the next callback answers, and what it saw.
struct Host {
    int32_t result = 0;
    std::vector<int32_t> descriptors; // the ten of the last media callback
    std::string bytes;                // the last record, as far as its length says
    uint32_t pointer_word = 0;
    const void *params = nullptr; // where its parameters really are
    size_t cnx_bytes = 0;         // how many bytes of "cnx_info" to copy
    std::string result_set;       // what voice_plugin_get hands out; empty: nothing
    bool result_given = false;
    bool release_endpoint = false; // voice_app_register_endpoint takes the entry back by itself
    int32_t endpoint = 7;          // the number it assigns
    libvoice_endpoint_t entry;     // what it saw
    const char *country = "AT";
};
Host host;

int32_t on_init(const char *country) {
    bus().note(text("voice_plugin_init(%s)", country));
    return host.result;
}
int32_t on_exit_call(uint32_t reason) {
    bus().note(text("voice_plugin_exit(%u)", reason));
    return host.result;
}
int32_t on_signal(libvoice_signal_t *message) {
    bus().note("voice_plugin_signal()");
    host.bytes.assign(reinterpret_cast<char *>(message), 28 + message->length);
    host.pointer_word = message->params;
    host.params = libvoice_signal_params(message);
    return host.result;
}
int32_t on_event(libvoice_event_t *message, uint32_t channel) {
    bus().note(text("voice_plugin_event(endpoint %d, channel %u)", message->endpoint, channel));
    host.bytes.assign(reinterpret_cast<char *>(message), 20 + message->length);
    host.pointer_word = message->params;
    host.params = libvoice_event_params(message);
    return host.result;
}
void take_media(void *cnx_info, int32_t **descriptors) {
    EXPECT_EQ(bus().live().lists, 0u) << "the list is released before the callback";
    host.bytes.assign(static_cast<char *>(cnx_info), host.cnx_bytes);
    host.descriptors.assign(*descriptors, *descriptors + 10);
}
int32_t on_create(int32_t endpoint, uint32_t line, void *cnx_info, int32_t **descriptors) {
    bus().note(text("voice_plugin_create(%d, %u)", endpoint, line));
    take_media(cnx_info, descriptors);
    return host.result;
}
int32_t on_modify(int32_t endpoint, uint32_t line, void *cnx_info, int32_t **descriptors) {
    bus().note(text("voice_plugin_modify(%d, %u)", endpoint, line));
    take_media(cnx_info, descriptors);
    return host.result;
}
int32_t on_destroy(int32_t endpoint, uint32_t line) {
    bus().note(text("voice_plugin_destroy(%d, %u)", endpoint, line));
    return host.result;
}
int32_t on_get(libvoice_param_set_t *request, libvoice_param_set_t **result, int32_t reserved) {
    bus().note(text("voice_plugin_get(result %s, %d)", *result ? "set" : "empty", reserved));
    host.bytes.assign(reinterpret_cast<char *>(request), 8 + request->length);
    host.pointer_word = request->params;
    host.params = libvoice_set_params_of(request);
    if (host.result_given) {
        void *block = malloc(host.result_set.size());
        memcpy(block, host.result_set.data(), host.result_set.size());
        *result = static_cast<libvoice_param_set_t *>(block);
    }
    return host.result;
}
int32_t on_set(libvoice_param_set_t *set) {
    bus().note("voice_plugin_set()");
    host.bytes.assign(reinterpret_cast<char *>(set), 8 + set->length);
    host.pointer_word = set->params;
    host.params = libvoice_set_params_of(set);
    return host.result;
}
int32_t on_create_ctx(uint32_t context) {
    bus().note(text("voice_plugin_create_ctx(%u)", context));
    return host.result;
}
int32_t on_add_stream(uint32_t context, void *stream_info, int32_t **descriptors, int32_t endpoint, uint32_t line) {
    bus().note(text("voice_plugin_add_stream(%u, endpoint %d, line %u)", context, endpoint, line));
    EXPECT_EQ(bus().live().lists, 0u) << "the list is released before the callback";
    host.bytes.assign(static_cast<char *>(stream_info), host.cnx_bytes);
    host.descriptors.assign(*descriptors, *descriptors + host.descriptors.size());
    free(stream_info);
    return host.result;
}
int32_t on_modify_stream(uint32_t context, void *stream_info) {
    bus().note(text("voice_plugin_modify_stream(%u)", context));
    host.bytes.assign(static_cast<char *>(stream_info), host.cnx_bytes);
    free(stream_info);
    return host.result;
}
int32_t on_remove_stream(uint32_t context, uint32_t stream) {
    bus().note(text("voice_plugin_remove_stream(%u, %u)", context, stream));
    return host.result;
}
int32_t on_destroy_ctx(uint32_t context) {
    bus().note(text("voice_plugin_destroy_ctx(%u)", context));
    return host.result;
}

int32_t on_get_country(char *country, uint32_t size) {
    bus().note(text("voice_app_get_country(%02x %02x %02x, %u)", country[0], country[1], country[2], size));
    if (host.country)
        strcpy(country, host.country);
    return host.result;
}
int32_t on_app_event(libvoice_event_t *message) {
    bus().note(text("voice_app_event(endpoint %d)", message->endpoint));
    host.bytes.assign(reinterpret_cast<char *>(message), 20 + message->length);
    host.pointer_word = message->params;
    host.params = libvoice_event_params(message);
    return host.result;
}
int32_t on_register_endpoint(libvoice_endpoint_t *entry) {
    bus().note(text("voice_app_register_endpoint(endpt_table[%d])", static_cast<int>(entry - endpt_table)));
    host.entry = *entry;
    if (host.release_endpoint)
        entry->used = 0;
    entry->endpoint = host.endpoint;
    return host.result;
}
void on_endpoint_deleted(libvoice_endpoint_t *entry) {
    bus().note(text("voice_app_endpoint_deleted(endpt_table[%d], used %u)", static_cast<int>(entry - endpt_table),
                    entry->used));
}
void on_init_reply(request_t *, reply_item_t *) {}

class Handlers : public HandlerTest {
protected:
    Handlers() { prepare(); }

    void prepare() override {
        host = Host();
        have_endpoint(3, "FXS1", 5);
        libvoice_registered_callbacks = {
            on_init, on_exit_call, on_signal,     on_event,      on_create,        on_modify,        on_destroy,
            on_get,  on_set,       on_create_ctx, on_add_stream, on_modify_stream, on_remove_stream, on_destroy_ctx};
        libvoice_app_registered_callbacks = {on_get_country, on_app_event, on_register_endpoint, nullptr, nullptr,
                                             nullptr,        nullptr};
        bus().clear_log();
    }

    object_t *endpoint_object() { return bus().object("FXS.EndPoint.FXS1"); }
    // Of each kind of object that is no endpoint's: what it lacks, and one on the bus as it is now.
    struct OtherObject {
        const char *what;
        object_t *(*get)();
    };
    static constexpr OtherObject kOtherObjects[] = {
        {"unknown name", [] { return bus().object("FXS.EndPoint.other"); }},
        {"no name", [] { return bus().nameless_object(); }},
        {"no object", []() -> object_t * { return nullptr; }},
    };
    static void close_received() { close_all(host.descriptors); }
};

// ------------------------------------------------------------------------------------------------------- lifecycle

class PluginInit : public Handlers {};

TEST_F(PluginInit, CountryReachesThePlugin) {
    Call call;
    EXPECT_EQ(call.with("country", Value::chars("AT")).run(__init), 0);
    EXPECT_LOG(enter("__init"), read("Char", "country", Value::chars("AT")), "voice_plugin_init(AT)", kTrue, kDestroyed,
               leave("__init"));
    EXPECT_THAT(call.errors(), IsEmpty());
}

TEST_F(PluginInit, MissingCountryLeavesThePluginRunning) {
    Call call;
    EXPECT_EQ(call.run(__init), 2);
    EXPECT_LOG(enter("__init"), missing("Char", "country"), said("x", "__init", "Missing argument 'country'"),
               entry("country"), kFalse, kDestroyed, leave("__init"));
    EXPECT_THAT(call.errors(), ElementsAre("196640 \"Missing mandatory argument\" \"country\""));
}

TEST_F(PluginInit, CountryWithoutAValueCountsAsMissing) {
    Call call;
    EXPECT_EQ(call.with("country", Value::without_value(VARIANT_TEXT)).run(__init), 2);
    EXPECT_LOG(enter("__init"), read("Char", "country", Value::without_value(VARIANT_TEXT)),
               said("x", "__init", "Missing argument 'country'"), entry("country"), kFalse, kDestroyed,
               leave("__init"));
}

TEST_F(PluginInit, CountryOfAnotherKindCountsAsMissing) {
    EXPECT_EQ(Call().with("country", Value::u32(43)).run(__init), 2);
    EXPECT_THAT(bus().complaints(), ElementsAre(said("x", "__init", "Missing argument 'country'")));
}

TEST_F(PluginInit, AttributesAreTheRequests) {
    Call().attributes(0x0001).with("country", Value::chars("AT")).run(__init);
    EXPECT_EQ(bus().log()[1], read("Char", "country", Value::chars("AT"), 0x0001));
}

class PluginInitDeathTest : public Handlers {};

void init_that_fails(int32_t result) {
    host.result = result;
    libvoice_registered_callbacks.voice_plugin_init = [](const char *) {
        errno = ENODEV;
        return host.result;
    };
    Call call;
    call.with("country", Value::chars("AT")).run(__init);
}

TEST_F(PluginInitDeathTest, AFailingCallbackAbortsTheProcess) {
    for (const int32_t result : {1, -1, 256}) {
        EXPECT_EXIT(init_that_fails(result), testing::KilledBySignal(SIGABRT),
                    "Error initializing plugin.*No such device")
            << "result " << result;
    }
}

// The parent cannot see the child's log, so the child prints it on its way out.
void print_complaints(int) {
    for (const std::string &line : bus().complaints())
        fprintf(stderr, "TRACE %s\n", line.c_str());
    signal(SIGABRT, SIG_DFL);
    raise(SIGABRT);
}

TEST_F(PluginInitDeathTest, TheAbortIsTracedFirst) {
    EXPECT_EXIT(
        {
            signal(SIGABRT, print_complaints);
            init_that_fails(1);
        },
        testing::KilledBySignal(SIGABRT), "TRACE x __init@kex_functions: Error initializing plugin\n");
}

class PluginExit : public Handlers {};

TEST_F(PluginExit, ReasonReachesThePlugin) {
    for (const uint32_t reason : {0u, 32u, 0xFFFFFFFFu}) {
        again();
        Call call;
        EXPECT_EQ(call.with("reason", Value::u32(reason)).run(__exit), 0);
        EXPECT_LOG(enter("__exit"), read("UInt32", "reason", Value::u32(reason)), text("voice_plugin_exit(%u)", reason),
                   kTrue, kDestroyed, leave("__exit"));
        expect_settled(text("reason %u", reason));
    }
}

TEST_F(PluginExit, TheCallbacksResultIsIgnored) {
    host.result = -1;
    Call call;
    EXPECT_EQ(call.with("reason", Value::u32(1)).run(__exit), 0);
    EXPECT_EQ(call.returned().str(), "bool true");
    EXPECT_THAT(bus().complaints(), IsEmpty());
}

TEST_F(PluginExit, AMissingReasonSetsTheValueLast) {
    Call call;
    EXPECT_EQ(call.run(__exit), 2);
    EXPECT_LOG(enter("__exit"), missing("UInt32", "reason"), said("x", "__exit", "Missing argument reason"),
               entry("reason"), kDestroyed, leave("__exit"), kFalse);
}

// ---------------------------------------------------------------------------------------------------------- signal

const char *const kSignal = "__EndPoint_signal";

class EndPointSignal : public Handlers {};

TEST_F(EndPointSignal, TheMessageReachesThePluginAtItsOwnParameters) {
    const std::string message = signal_bytes(5, item(kId, "abcd"), 0x12345678);
    Call call;
    EXPECT_EQ(call.on(endpoint_object()).with("signal", Value::bytes(message)).run(__EndPoint_signal), 0);
    EXPECT_LOG(enter(kSignal), read("ByteArray", "signal", Value::bytes(message)), "voice_plugin_signal()", kTrue,
               kDestroyed, leave(kSignal));
    std::string seen = message;
    seen.replace(20, 4, word(pointer_word_of(host.params)));
    EXPECT_EQ(Value::bytes(host.bytes).str(), Value::bytes(seen).str()) << "only the pointer word is rewritten";
    EXPECT_EQ(host.bytes, seen);
}

TEST_F(EndPointSignal, AnEmptyMessageKeepsItsPointer) {
    const std::string message = signal_bytes(5, "", 0x12345678);
    EXPECT_EQ(Call().with("signal", Value::bytes(message)).run(__EndPoint_signal), 0);
    EXPECT_EQ(host.pointer_word, 0x12345678u);
    EXPECT_EQ(host.bytes, message);
}

TEST_F(EndPointSignal, TheEndpointIsNotLookedUp) {
    EXPECT_EQ(Call().on(nullptr).with("signal", Value::bytes(signal_bytes(99, ""))).run(__EndPoint_signal), 0);
}

TEST_F(EndPointSignal, BytesBehindTheLengthAreAccepted) {
    const std::string message = signal_bytes(5, item(kId, "abcd")) + "trailing";
    EXPECT_EQ(Call().with("signal", Value::bytes(message)).run(__EndPoint_signal), 0);
    EXPECT_EQ(host.bytes.size(), 40u);
}

TEST_F(EndPointSignal, MissingSignal) {
    Call call;
    EXPECT_EQ(call.run(__EndPoint_signal), 2);
    EXPECT_LOG(enter(kSignal), missing("ByteArray", "signal"), said("x", kSignal, "Missing argument 'signal'"),
               entry("signal"), kFalse, kDestroyed, leave(kSignal));
}

TEST_F(EndPointSignal, AFailingCallbackAnswersFalseWithoutATrace) {
    host.result = 17;
    Call call;
    EXPECT_EQ(call.with("signal", Value::bytes(signal_bytes(5, ""))).run(__EndPoint_signal), 2);
    EXPECT_LOG(enter(kSignal), read("ByteArray", "signal", Value::bytes(signal_bytes(5, ""))), "voice_plugin_signal()",
               kFalse, kDestroyed, leave(kSignal));
    EXPECT_THAT(call.errors(), IsEmpty());
}

// Whatever a callback answers that is not 0 is a failure, on either side of it.
TEST_F(EndPointSignal, AnyOtherAnswerThanZeroIsAFailure) {
    const std::string set = set_bytes(item(kId, "abcd"));
    for (const int32_t result : {1, -1, INT32_MAX, INT32_MIN}) {
        host.result = result;
        EXPECT_EQ(Call().with("signal", Value::bytes(signal_bytes(5, ""))).run(__EndPoint_signal), 2) << result;
        EXPECT_EQ(Call().with("param_set_params", Value::bytes(set)).run(__EndPoint_set), 2) << result;
        EXPECT_EQ(Call().with("param_set_request", Value::bytes(set)).run(__EndPoint_get), 2) << result;
        EXPECT_EQ(Call().attributes(0).with("ctx_id", Value::u32(1)).run(__create_ctx), 2) << result;
        EXPECT_EQ(Call().attributes(0).with("ctx_id", Value::u32(1)).run(__destroy_ctx), 2) << result;
        Call remove;
        remove.attributes(0).with("ctx_id", Value::u32(1)).with("stream_id", Value::u32(2));
        EXPECT_EQ(remove.run(__remove_stream), 2) << result;
    }
}

TEST_F(EndPointSignal, BrokenRecordsNeverReachTheCallback) {
    for (const BrokenRecord &broken : kBrokenRecords) {
        again();
        const Value bytes = broken.make(28);
        Call call;
        EXPECT_EQ(call.with("signal", bytes).run(__EndPoint_signal), 2) << broken.name;
        SCOPED_TRACE(broken.name);
        EXPECT_LOG(enter(kSignal), read("ByteArray", "signal", bytes), said("x", kSignal, "<any>"), kFalse, kDestroyed,
                   leave(kSignal));
        EXPECT_THAT(call.errors(), IsEmpty());
        expect_settled(broken.name);
    }
}

// ----------------------------------------------------------------------------------------------------------- event

const char *const kEvent = "__EndPoint_event";

class EndPointEvent : public Handlers {
protected:
    std::string message_ = event_bytes(77, item(kId, "abcd"), 0x12345678);
};

TEST_F(EndPointEvent, TheMessageCarriesTheLocalEndpoint) {
    Call call;
    call.on(endpoint_object()).with("event", Value::bytes(message_)).with("channel_id", Value::u32(2));
    EXPECT_EQ(call.run(__EndPoint_event), 0);
    EXPECT_LOG_OF(kEvent, enter(kEvent), read("ByteArray", "event", Value::bytes(message_)),
                  read("UInt32", "channel_id", Value::u32(2)), "voice_plugin_event(endpoint 5, channel 2)", kTrue,
                  kDestroyed, leave(kEvent), kTrue);
    std::string seen = message_;
    seen.replace(0, 4, word(5));
    seen.replace(12, 4, word(pointer_word_of(host.params)));
    EXPECT_EQ(host.bytes, seen);
}

TEST_F(EndPointEvent, AnEmptyMessageKeepsItsPointer) {
    Call call;
    call.on(endpoint_object()).with("event", Value::bytes(event_bytes(77, "", 9))).with("channel_id", Value::u32(2));
    EXPECT_EQ(call.run(__EndPoint_event), 0);
    EXPECT_EQ(host.pointer_word, 9u);
}

TEST_F(EndPointEvent, AnUnknownEndpointFailsSilentlyAndAnswersTrue) {
    for (const OtherObject &other : kOtherObjects) {
        again();
        SCOPED_TRACE(other.what);
        Call call;
        call.on(other.get()).with("event", Value::bytes(message_)).with("channel_id", Value::u32(2));
        EXPECT_EQ(call.run(__EndPoint_event), 0);
        EXPECT_LOG_OF(kEvent, enter(kEvent), kFalse, kDestroyed, leave(kEvent), kTrue);
        EXPECT_THAT(call.errors(), IsEmpty());
        expect_settled(other.what);
    }
}

TEST_F(EndPointEvent, OnlyANegativeNumberIsNoEndpoint) {
    for (const int32_t number : {0, -7}) {
        again();
        have_endpoint(3, "FXS1", number);
        Call call;
        call.on(endpoint_object()).with("event", Value::bytes(message_)).with("channel_id", Value::u32(2));
        EXPECT_EQ(call.run(__EndPoint_event), 0);
        const auto reached = testing::Contains("voice_plugin_event(endpoint 0, channel 2)");
        if (number == 0) {
            EXPECT_THAT(bus().acts(), reached);
        } else {
            EXPECT_LOG_OF(kEvent, enter(kEvent), kFalse, kDestroyed, leave(kEvent), kTrue);
        }
        expect_settled(text("number %d", number));
    }
}

TEST_F(EndPointEvent, MissingEventAnswersTrueToo) {
    Call call;
    EXPECT_EQ(call.on(endpoint_object()).with("channel_id", Value::u32(2)).run(__EndPoint_event), 0);
    EXPECT_LOG_OF(kEvent, enter(kEvent), missing("ByteArray", "event"), said("x", kEvent, "Missing argument 'event'"),
                  entry("event"), kFalse, kDestroyed, leave(kEvent), kTrue);
}

TEST_F(EndPointEvent, MissingChannel) {
    Call call;
    EXPECT_EQ(call.on(endpoint_object()).with("event", Value::bytes(message_)).run(__EndPoint_event), 0);
    EXPECT_LOG_OF(kEvent, enter(kEvent), read("ByteArray", "event", Value::bytes(message_)),
                  missing("UInt32", "channel_id"), said("x", kEvent, "Missing argument channel_id"),
                  entry("channel_id"), kFalse, kDestroyed, leave(kEvent), kTrue);
}

TEST_F(EndPointEvent, AnUnsetCallbackIsTracedAndTheCallerSeesTrue) {
    libvoice_registered_callbacks.voice_plugin_event = nullptr;
    Call call;
    call.on(endpoint_object()).with("event", Value::bytes(message_)).with("channel_id", Value::u32(2));
    EXPECT_EQ(call.run(__EndPoint_event), 0);
    EXPECT_LOG_OF(kEvent, enter(kEvent), read("ByteArray", "event", Value::bytes(message_)),
                  read("UInt32", "channel_id", Value::u32(2)),
                  said("x", kEvent, "No voice_plugin_event callback registered"), kFalse, kDestroyed, leave(kEvent),
                  kTrue);
    EXPECT_EQ(call.returned().str(), "bool true");
    EXPECT_THAT(call.errors(), IsEmpty());
}

TEST_F(EndPointEvent, AFailingCallbackShowsNowhereInTheReply) {
    host.result = -4;
    Call call;
    call.on(endpoint_object()).with("event", Value::bytes(message_)).with("channel_id", Value::u32(2));
    EXPECT_EQ(call.run(__EndPoint_event), 0);
    EXPECT_END_OF_LOG_OF(kEvent, kFalse, kDestroyed, leave(kEvent), kTrue);
    EXPECT_EQ(call.returned().str(), "bool true");
}

TEST_F(EndPointEvent, BrokenRecordsNeverReachTheCallback) {
    for (const BrokenRecord &broken : kBrokenRecords) {
        again();
        SCOPED_TRACE(broken.name);
        Call call;
        call.on(endpoint_object()).with("event", broken.make(20)).with("channel_id", Value::u32(2));
        EXPECT_EQ(call.run(__EndPoint_event), 0);
        EXPECT_LOG_OF(kEvent, enter(kEvent), read("ByteArray", "event", broken.make(20)),
                      read("UInt32", "channel_id", Value::u32(2)), said("x", kEvent, "<any>"), kFalse, kDestroyed,
                      leave(kEvent), kTrue);
        EXPECT_THAT(call.errors(), IsEmpty());
        expect_settled(broken.name);
    }
}

// ----------------------------------------------------------------------------------------------- create and modify

struct MediaFunction : Named {
    const char *function;
    kex_function_t *run;
    const char *called;
    const char *failed;
};

class EndPointMedia : public Handlers, public testing::WithParamInterface<MediaFunction> {
protected:
    const char *function() const { return GetParam().function; }
    int run(Call &call) { return call.run(GetParam().run); }

    static std::string cnx(size_t bytes) {
        std::string result;
        for (size_t i = 0; i < bytes; ++i)
            result += static_cast<char>('a' + i % 26);
        host.cnx_bytes = bytes;
        return result;
    }

    std::vector<std::string> descriptor_lines(size_t count) {
        std::vector<std::string> lines;
        for (size_t i = 0; i < count; ++i)
            lines.push_back(said("i", function(), text("\\nfd[%zu] = %d\\n", i, host.descriptors[i])));
        return lines;
    }
};

INSTANTIATE_TEST_SUITE_P(, EndPointMedia,
                         testing::Values(MediaFunction{"create", "__EndPoint_create", __EndPoint_create,
                                                       "voice_plugin_create(5, 9)", "voice plugin create FAILED"},
                                         MediaFunction{"modify", "__EndPoint_modify", __EndPoint_modify,
                                                       "voice_plugin_modify(5, 9)", "voice plugin modify FAILED"}),
                         [](const auto &row) { return row.param.name; });

TEST_P(EndPointMedia, DescriptorsAndConnectionReachThePlugin) {
    for (const size_t bytes : {0ul, 1ul, 703ul, 704ul}) {
        have_files(3);
        const std::string info = cnx(bytes);
        const std::vector<int> sent = files(3);
        Call call;
        call.on(endpoint_object()).with("cnx_info", Value::bytes(info)).with("filedesc", Value::fds(sent));
        EXPECT_EQ(run(call.with("ep_line_id", Value::u32(9))), 0) << bytes << " bytes";
        ASSERT_EQ(host.descriptors.size(), 10u);
        std::vector<std::string> expected = {enter(function()), read("ByteArray", "cnx_info", Value::bytes(info)),
                                             read("List", "filedesc", Value::fds(sent))};
        for (const std::string &line : descriptor_lines(3))
            expected.push_back(line);
        for (const std::string &line : {read("UInt32", "ep_line_id", Value::u32(9)), std::string(GetParam().called),
                                        kTrue, kDestroyed, leave(function())})
            expected.push_back(line);
        EXPECT_EQ(fake::difference(expected, log_of(function())), "");
        for (size_t i = 0; i < 3; ++i)
            EXPECT_TRUE(same_file(host.descriptors[i], sent[i])) << "position " << i;
        for (size_t i = 3; i < 10; ++i)
            EXPECT_EQ(host.descriptors[i], -1) << "position " << i;
        EXPECT_EQ(host.bytes, info);
        close_received();
        expect_settled(text("%zu bytes", bytes));
    }
}

TEST_P(EndPointMedia, ANegativeDescriptorKeepsItsPlace) {
    have_files(2);
    Call call;
    call.on(endpoint_object()).with("cnx_info", Value::bytes(cnx(704)));
    call.with("filedesc", Value::fds({files(2)[0], -1, files(2)[1]})).with("ep_line_id", Value::u32(9));
    EXPECT_EQ(run(call), 0);
    EXPECT_TRUE(same_file(host.descriptors[0], files(2)[0]));
    EXPECT_EQ(host.descriptors[1], -1);
    EXPECT_TRUE(same_file(host.descriptors[2], files(2)[1]));
    close_received();
}

TEST_P(EndPointMedia, OfTwelveDescriptorsTheFirstTenAreTakenAndTheRestClosed) {
    for (const size_t count : {9u, 10u, 11u, 12u}) {
        have_files(12);
        Call call;
        call.on(endpoint_object()).with("cnx_info", Value::bytes(cnx(704)));
        call.with("filedesc", Value::fds(files(count))).with("ep_line_id", Value::u32(9));
        EXPECT_EQ(run(call), 0);
        for (size_t i = 0; i < std::min<size_t>(count, 10); ++i)
            EXPECT_TRUE(same_file(host.descriptors[i], files(count)[i])) << "position " << i;
        size_t lines = 0;
        for (const std::string &line : bus().trace_log())
            lines += line.find("fd[") != std::string::npos;
        EXPECT_EQ(lines, std::min<size_t>(count, 10));
        close_received();
        expect_settled(text("%zu descriptors", count));
    }
}

TEST_P(EndPointMedia, AnUnknownEndpointIsRefused) {
    for (const OtherObject &other : kOtherObjects) {
        have_files(3);
        SCOPED_TRACE(other.what);
        Call call;
        call.on(other.get()).with("cnx_info", Value::bytes(cnx(704))).with("filedesc", Value::fds(files(3)));
        EXPECT_EQ(run(call.with("ep_line_id", Value::u32(9))), 2);
        EXPECT_LOG_OF(function(), enter(function()), said("x", function(), "Invalid endpoint id -1"),
                      "reply_addError(call1, 196640, \"Invalid endpoint\", \"id\")", kFalse, kDestroyed,
                      leave(function()));
        expect_settled(other.what);
    }
}

TEST_P(EndPointMedia, ANegativeNumberIsNoEndpointAndIsShown) {
    have_endpoint(3, "FXS1", -7);
    Call call;
    EXPECT_EQ(run(call.on(endpoint_object()).with("cnx_info", Value::bytes(cnx(704)))), 2);
    EXPECT_THAT(bus().complaints(), ElementsAre(said("x", function(), "Invalid endpoint id -7")));
    EXPECT_THAT(call.errors(), ElementsAre("196640 \"Invalid endpoint\" \"id\""));
}

TEST_P(EndPointMedia, MissingConnectionInformation) {
    for (const bool empty : {false, true}) {
        have_files(3);
        Call call;
        call.on(endpoint_object()).with("filedesc", Value::fds(files(3))).with("ep_line_id", Value::u32(9));
        if (empty)
            call.with("cnx_info", Value::without_value(VARIANT_BYTES));
        EXPECT_EQ(run(call), 2);
        EXPECT_LOG_OF(function(), enter(function()),
                      empty ? read("ByteArray", "cnx_info", Value::without_value(VARIANT_BYTES))
                            : missing("ByteArray", "cnx_info"),
                      said("x", function(), "Missing argument cnx_info"), entry("cnx_info"), kFalse, kDestroyed,
                      leave(function()));
        expect_settled(empty ? "without a value" : "missing");
    }
}

TEST_P(EndPointMedia, MissingDescriptors) {
    Call call;
    call.on(endpoint_object()).with("cnx_info", Value::bytes(cnx(704))).with("ep_line_id", Value::u32(9));
    EXPECT_EQ(run(call), 2);
    EXPECT_LOG_OF(function(), enter(function()), read("ByteArray", "cnx_info", Value::bytes(cnx(704))),
                  missing("List", "filedesc"), said("x", function(), "Missing argument filedesc"), entry("filedesc"),
                  kFalse, kDestroyed, leave(function()));
}

TEST_P(EndPointMedia, AnEmptyDescriptorListFailsWithoutAnErrorEntry) {
    Call call;
    call.on(endpoint_object()).with("cnx_info", Value::bytes(cnx(704))).with("filedesc", Value::fds({}));
    EXPECT_EQ(run(call.with("ep_line_id", Value::u32(9))), 2);
    EXPECT_LOG_OF(function(), enter(function()), read("ByteArray", "cnx_info", Value::bytes(cnx(704))),
                  read("List", "filedesc", Value::fds({})), said("x", function(), "Empty argument filedesc"), kFalse,
                  kDestroyed, leave(function()));
    EXPECT_THAT(call.errors(), IsEmpty());
}

TEST_P(EndPointMedia, DescriptorsWithoutAValueAreNeverPassedOn) {
    Call call;
    call.on(endpoint_object()).with("cnx_info", Value::bytes(cnx(704)));
    call.with("filedesc", Value::without_value(VARIANT_LIST)).with("ep_line_id", Value::u32(9));
    EXPECT_EQ(run(call), 2);
    EXPECT_EQ(call.returned().str(), "bool false");
    EXPECT_EQ(bus().complaints().size(), 1u);
}

TEST_P(EndPointMedia, MissingLineClosesTheDescriptorsTaken) {
    for (const size_t count : {1u, 3u, 10u, 12u}) {
        have_files(12);
        Call call;
        call.on(endpoint_object()).with("cnx_info", Value::bytes(cnx(704))).with("filedesc", Value::fds(files(count)));
        EXPECT_EQ(run(call), 2);
        EXPECT_END_OF_LOG_OF(function(), missing("UInt32", "ep_line_id"),
                             said("x", function(), "Missing argument line_id"), entry("ep_line_id"), kFalse, kDestroyed,
                             leave(function()));
        EXPECT_TRUE(host.descriptors.empty()) << "the callback was reached";
        expect_settled(text("%zu descriptors", count));
    }
}

TEST_P(EndPointMedia, AFailingCallbackKeepsItsDescriptors) {
    for (const int32_t result : {-1, 1}) {
        have_files(3);
        host.result = result;
        Call call;
        call.on(endpoint_object()).with("cnx_info", Value::bytes(cnx(704))).with("filedesc", Value::fds(files(3)));
        EXPECT_EQ(run(call.with("ep_line_id", Value::u32(9))), 2) << result;
        EXPECT_END_OF_LOG_OF(function(), GetParam().called, said("x", function(), GetParam().failed), kFalse,
                             kDestroyed, leave(function()));
        EXPECT_THAT(call.errors(), IsEmpty());
        for (size_t i = 0; i < 3; ++i)
            EXPECT_TRUE(same_file(host.descriptors[i], files(3)[i])) << "still the callback's, position " << i;
        close_received();
        expect_settled(text("callback answers %d", result));
    }
}

// ---- media sockets

// An address as it stands in the connection information.
std::string bytes_of(const sockaddr_in &a) {
    return std::string(reinterpret_cast<const char *>(&a), sizeof(a));
}

const char *const kCreate = "__EndPoint_create";

class EndPointCreateSockets : public Handlers {
protected:
    static std::string info(const sockaddr_in &local, const sockaddr_in &remote, size_t bytes = 736) {
        std::string result = std::string(704, 'c') + bytes_of(local) + bytes_of(remote);
        result.resize(bytes, 'z');
        host.cnx_bytes = bytes;
        return result;
    }
};

TEST_F(EndPointCreateSockets, TheLongFormOpensThePairAndReadsNoDescriptors) {
    for (const size_t bytes : {736ul, 737ul, 1000ul}) {
        again();
        const uint16_t port = free_pair();
        const std::string cnx = info(address(own_host(), port), address("127.0.0.1", 6000), bytes);
        Call call;
        call.on(endpoint_object()).with("cnx_info", Value::bytes(cnx)).with("filedesc", Value::fds({STDERR_FILENO}));
        EXPECT_EQ(call.with("ep_line_id", Value::u32(9)).run(__EndPoint_create), 0) << bytes;
        EXPECT_LOG_OF(kCreate, enter(kCreate), read("ByteArray", "cnx_info", Value::bytes(cnx)),
                      read("UInt32", "ep_line_id", Value::u32(9)), "voice_plugin_create(5, 9)", kTrue, kDestroyed,
                      leave(kCreate));
        ASSERT_EQ(host.descriptors.size(), 10u);
        EXPECT_EQ(local_port(host.descriptors[0]), port);
        EXPECT_EQ(remote_port(host.descriptors[0]), 6000);
        EXPECT_EQ(local_port(host.descriptors[1]), port + 1);
        EXPECT_EQ(remote_port(host.descriptors[1]), 6001);
        for (size_t i = 2; i < 10; ++i)
            EXPECT_EQ(host.descriptors[i], -1);
        EXPECT_EQ(host.bytes, cnx);
        close_received();
        expect_settled(text("%zu bytes", bytes));
    }
}

TEST_F(EndPointCreateSockets, BetweenTheTwoFormsIsAFailedConnection) {
    for (const size_t bytes : {705ul, 719ul, 720ul, 735ul}) {
        again();
        const std::string cnx = info(address(own_host(), free_pair()), address("127.0.0.1", 6000), bytes);
        Call call;
        call.on(endpoint_object()).with("cnx_info", Value::bytes(cnx)).with("filedesc", Value::fds({STDERR_FILENO}));
        EXPECT_EQ(call.with("ep_line_id", Value::u32(9)).run(__EndPoint_create), 2) << bytes;
        EXPECT_LOG_OF(kCreate, enter(kCreate), read("ByteArray", "cnx_info", Value::bytes(cnx)),
                      said("x", kCreate, "Failed to create and connect to media sockets"), kFalse, kDestroyed,
                      leave(kCreate));
        EXPECT_THAT(call.errors(), IsEmpty());
        expect_settled(text("%zu bytes", bytes));
    }
}

TEST_F(EndPointCreateSockets, AnAddressThatIsNotOursFails) {
    Call call;
    call.on(endpoint_object());
    call.with("cnx_info", Value::bytes(info(address("192.0.2.1", 5000), address("127.0.0.1", 6000))));
    EXPECT_EQ(call.with("ep_line_id", Value::u32(9)).run(__EndPoint_create), 2);
    EXPECT_THAT(bus().complaints(),
                ElementsAre("x libvoice_connectMediaSockets@generic: failed to bind to local socket - Cannot assign "
                            "requested address",
                            said("x", kCreate, "Failed to create and connect to media sockets")));
    EXPECT_EQ(call.returned().str(), "bool false");
    EXPECT_THAT(call.errors(), IsEmpty());
}

TEST_F(EndPointCreateSockets, AMissingLineClosesTheSocketsOpened) {
    Call call;
    call.on(endpoint_object());
    call.with("cnx_info", Value::bytes(info(address(own_host(), free_pair()), address("127.0.0.1", 6000))));
    EXPECT_EQ(call.run(__EndPoint_create), 2);
    EXPECT_THAT(bus().complaints(), ElementsAre(said("x", kCreate, "Missing argument line_id")));
    EXPECT_THAT(call.errors(), ElementsAre("196640 \"Missing mandatory argument\" \"ep_line_id\""));
}

TEST_F(EndPointCreateSockets, AFailingCallbackKeepsItsSockets) {
    host.result = 3;
    Call call;
    call.on(endpoint_object());
    call.with("cnx_info", Value::bytes(info(address(own_host(), free_pair()), address("127.0.0.1", 6000))));
    EXPECT_EQ(call.with("ep_line_id", Value::u32(9)).run(__EndPoint_create), 2);
    EXPECT_THAT(bus().complaints(), ElementsAre(said("x", kCreate, "voice plugin create FAILED")));
    ASSERT_EQ(host.descriptors.size(), 10u);
    EXPECT_EQ(remote_port(host.descriptors[1]), 6001);
    close_received();
}

class EndPointModify : public Handlers {};

TEST_F(EndPointModify, TheLongFormStillWantsDescriptors) {
    host.cnx_bytes = 736;
    Call call;
    call.on(endpoint_object()).with("cnx_info", Value::bytes(std::string(736, 'c'))).with("ep_line_id", Value::u32(9));
    EXPECT_EQ(call.run(__EndPoint_modify), 2);
    EXPECT_THAT(bus().complaints(), ElementsAre(said("x", "__EndPoint_modify", "Missing argument filedesc")));
    EXPECT_THAT(call.errors(), ElementsAre("196640 \"Missing mandatory argument\" \"filedesc\""));
}

TEST_F(EndPointModify, AnyLengthIsPassedWithItsDescriptors) {
    for (const size_t bytes : {705ul, 736ul, 2000ul}) {
        have_files(1);
        host.cnx_bytes = bytes;
        Call call;
        call.on(endpoint_object()).with("cnx_info", Value::bytes(std::string(bytes, 'c')));
        call.with("filedesc", Value::fds(files(1))).with("ep_line_id", Value::u32(9));
        EXPECT_EQ(call.run(__EndPoint_modify), 0) << bytes;
        EXPECT_TRUE(same_file(host.descriptors[0], files(1)[0]));
        EXPECT_EQ(host.descriptors[1], -1);
        close_received();
        expect_settled(text("%zu bytes", bytes));
    }
}

TEST_F(EndPointModify, EndpointZeroIsOneLikeOthers) {
    have_files(1);
    have_endpoint(3, "FXS1", 0);
    host.cnx_bytes = 705;
    Call call;
    call.on(endpoint_object()).with("cnx_info", Value::bytes(std::string(705, 'c')));
    call.with("filedesc", Value::fds(files(1))).with("ep_line_id", Value::u32(9));
    EXPECT_EQ(call.run(__EndPoint_modify), 0);
    ASSERT_EQ(host.descriptors.size(), 10u);
    EXPECT_TRUE(same_file(host.descriptors[0], files(1)[0]));
    EXPECT_TRUE(call.errors().empty());
    close_received();
}

// --------------------------------------------------------------------------------------------------------- destroy

const char *const kDestroy = "__EndPoint_destroy";

class EndPointDestroy : public Handlers {};

TEST_F(EndPointDestroy, EndpointZeroIsOneLikeOthers) {
    have_endpoint(3, "FXS1", 0);
    Call call;
    call.on(endpoint_object()).with("ep_line_id", Value::u32(9));
    EXPECT_EQ(call.run(__EndPoint_destroy), 0);
    EXPECT_TRUE(call.errors().empty());
}

TEST_F(EndPointDestroy, TheLineReachesThePlugin) {
    Call call;
    EXPECT_EQ(call.on(endpoint_object()).with("ep_line_id", Value::u32(9)).run(__EndPoint_destroy), 0);
    EXPECT_LOG_OF(kDestroy, enter(kDestroy), read("UInt32", "ep_line_id", Value::u32(9)), "voice_plugin_destroy(5, 9)",
                  kTrue, kDestroyed, leave(kDestroy));
}

TEST_F(EndPointDestroy, AFailingCallbackIsTracedWithItsCode) {
    for (const int32_t result : {-12, 1, INT32_MIN}) {
        again();
        host.result = result;
        Call call;
        EXPECT_EQ(call.on(endpoint_object()).with("ep_line_id", Value::u32(9)).run(__EndPoint_destroy), 2);
        EXPECT_LOG_OF(kDestroy, enter(kDestroy), read("UInt32", "ep_line_id", Value::u32(9)),
                      "voice_plugin_destroy(5, 9)",
                      said("x", kDestroy, text("Error destroying media, got error code %d.", result)), kFalse,
                      kDestroyed, leave(kDestroy));
        expect_settled(text("callback answers %d", result));
    }
}

TEST_F(EndPointDestroy, AnUnknownEndpointEndsWithoutValueAndMarker) {
    for (const OtherObject &other : kOtherObjects) {
        again();
        SCOPED_TRACE(other.what);
        Call call;
        EXPECT_EQ(call.on(other.get()).with("ep_line_id", Value::u32(9)).run(__EndPoint_destroy), 2);
        EXPECT_LOG_OF(kDestroy, enter(kDestroy), said("x", kDestroy, "Invalid endpoint id -1"),
                      "reply_addError(call1, 196640, \"Invalid endpoint\", \"id\")", kDestroyed);
        EXPECT_EQ(call.returned().str(), "none");
        expect_settled(other.what);
    }
}

TEST_F(EndPointDestroy, AMissingLineEndsWithoutValueAndMarker) {
    Call call;
    EXPECT_EQ(call.on(endpoint_object()).run(__EndPoint_destroy), 2);
    EXPECT_LOG_OF(kDestroy, enter(kDestroy), missing("UInt32", "ep_line_id"),
                  said("x", kDestroy, "Missing argument line_id"), entry("ep_line_id"), kDestroyed);
    EXPECT_EQ(call.returned().str(), "none");
}

// ------------------------------------------------------------------------------------------------------ get and set

const char *const kGet = "__EndPoint_get";
const char *const kSet = "__EndPoint_set";

class EndPointGet : public Handlers {
protected:
    std::string request_ = set_bytes(item(0x01FE0003, word(5)) + item(kId, ""));
};

TEST_F(EndPointGet, TheResultIsReturnedWholeWithoutAnExitMarker) {
    host.result_given = true;
    host.result_set = set_bytes(item(kId, "answer"));
    Call call;
    EXPECT_EQ(call.with("param_set_request", Value::bytes(request_)).run(__EndPoint_get), 0);
    EXPECT_LOG_OF(kGet, enter(kGet), read("ByteArray", "param_set_request", Value::bytes(request_)),
                  "voice_plugin_get(result empty, 0)", "return_value = " + Value::bytes(host.result_set).str(),
                  kDestroyed);
    EXPECT_EQ(call.returned().data, host.result_set);
    std::string seen = request_;
    seen.replace(0, 4, word(pointer_word_of(host.params)));
    EXPECT_EQ(host.bytes, seen);
}

TEST_F(EndPointGet, AnEmptyResultSetIsEightBytes) {
    host.result_given = true;
    host.result_set = set_bytes("");
    Call call;
    EXPECT_EQ(call.with("param_set_request", Value::bytes(request_)).run(__EndPoint_get), 0);
    EXPECT_EQ(call.returned().data.size(), 8u);
}

TEST_F(EndPointGet, SuccessWithoutAResultReturnsNoValue) {
    Call call;
    EXPECT_EQ(call.with("param_set_request", Value::bytes(request_)).run(__EndPoint_get), 0);
    EXPECT_LOG_OF(kGet, enter(kGet), read("ByteArray", "param_set_request", Value::bytes(request_)),
                  "voice_plugin_get(result empty, 0)", kDestroyed);
    EXPECT_EQ(call.returned().str(), "none");
}

TEST_F(EndPointGet, AnEmptyRequestKeepsItsPointer) {
    EXPECT_EQ(Call().with("param_set_request", Value::bytes(set_bytes("", 0x77))).run(__EndPoint_get), 0);
    EXPECT_EQ(host.pointer_word, 0x77u);
}

TEST_F(EndPointGet, AFailingCallbackReturnsNoValueAndItsResultIsFreed) {
    for (const bool given : {false, true}) {
        again();
        host.result = 1;
        host.result_given = given;
        host.result_set = set_bytes(item(kId, "answer"));
        Call call;
        EXPECT_EQ(call.with("param_set_request", Value::bytes(request_)).run(__EndPoint_get), 2);
        EXPECT_LOG_OF(kGet, enter(kGet), read("ByteArray", "param_set_request", Value::bytes(request_)),
                      "voice_plugin_get(result empty, 0)", said("x", kGet, "voice_plugin_get FAILED"), kDestroyed,
                      leave(kGet));
        EXPECT_EQ(call.returned().str(), "none");
        EXPECT_THAT(call.errors(), IsEmpty());
        expect_settled(given ? "with a result" : "without a result");
    }
}

TEST_F(EndPointGet, MissingRequest) {
    Call call;
    EXPECT_EQ(call.run(__EndPoint_get), 2);
    EXPECT_LOG_OF(kGet, enter(kGet), missing("ByteArray", "param_set_request"),
                  said("x", kGet, "Missing argument 'param_set_request'"), entry("param_set_request"), kDestroyed,
                  leave(kGet));
    EXPECT_EQ(call.returned().str(), "none");
}

TEST_F(EndPointGet, BrokenRecordsNeverReachTheCallback) {
    for (const BrokenRecord &broken : kBrokenRecords) {
        again();
        SCOPED_TRACE(broken.name);
        Call call;
        EXPECT_EQ(call.with("param_set_request", broken.make(8)).run(__EndPoint_get), 2);
        EXPECT_LOG_OF(kGet, enter(kGet), read("ByteArray", "param_set_request", broken.make(8)),
                      said("x", kGet, "<any>"), kDestroyed, leave(kGet));
        EXPECT_THAT(call.errors(), IsEmpty());
        expect_settled(broken.name);
    }
}

class EndPointSet : public Handlers {
protected:
    std::string set_ = set_bytes(item(0x01FE0003, word(5)) + item(kId, "abcd"));
};

TEST_F(EndPointSet, TheSetReachesThePlugin) {
    Call call;
    EXPECT_EQ(call.with("param_set_params", Value::bytes(set_)).run(__EndPoint_set), 0);
    EXPECT_LOG_OF(kSet, enter(kSet), read("ByteArray", "param_set_params", Value::bytes(set_)), "voice_plugin_set()",
                  kTrue, kDestroyed, leave(kSet));
    std::string seen = set_;
    seen.replace(0, 4, word(pointer_word_of(host.params)));
    EXPECT_EQ(host.bytes, seen);
}

TEST_F(EndPointSet, AnEmptySetAnswersFalseWithoutTheCallback) {
    for (const std::string &empty : {set_bytes(""), set_bytes("") + item(kId, "abcd")}) {
        again();
        Call call;
        EXPECT_EQ(call.with("param_set_params", Value::bytes(empty)).run(__EndPoint_set), 2);
        EXPECT_LOG_OF(kSet, enter(kSet), read("ByteArray", "param_set_params", Value::bytes(empty)), kFalse, kDestroyed,
                      leave(kSet));
        expect_settled(text("%zu bytes", empty.size()));
    }
}

TEST_F(EndPointSet, AFailingCallbackAnswersFalse) {
    host.result = 1;
    Call call;
    EXPECT_EQ(call.with("param_set_params", Value::bytes(set_)).run(__EndPoint_set), 2);
    EXPECT_LOG_OF(kSet, enter(kSet), read("ByteArray", "param_set_params", Value::bytes(set_)), "voice_plugin_set()",
                  kFalse, kDestroyed, leave(kSet));
}

TEST_F(EndPointSet, MissingSet) {
    Call call;
    EXPECT_EQ(call.run(__EndPoint_set), 2);
    EXPECT_LOG_OF(kSet, enter(kSet), missing("ByteArray", "param_set_params"),
                  said("x", kSet, "Missing argument 'param_set_params'"), entry("param_set_params"), kFalse, kDestroyed,
                  leave(kSet));
}

TEST_F(EndPointSet, BrokenRecordsNeverReachTheCallback) {
    for (const BrokenRecord &broken : kBrokenRecords) {
        again();
        SCOPED_TRACE(broken.name);
        Call call;
        EXPECT_EQ(call.with("param_set_params", broken.make(8)).run(__EndPoint_set), 2);
        EXPECT_LOG_OF(kSet, enter(kSet), read("ByteArray", "param_set_params", broken.make(8)),
                      said("x", kSet, "<any>"), kFalse, kDestroyed, leave(kSet));
        EXPECT_THAT(call.errors(), IsEmpty());
        expect_settled(broken.name);
    }
}

// ---------------------------------------------------------------------------------------------- contexts, streams

const std::string kStream(712, 's');

class Contexts : public Handlers {};

struct ContextFunction : Named {
    const char *function;
    kex_function_t *run;
    std::vector<std::pair<const char *, Value>> arguments;
    std::vector<std::string> reads; // getter names
    const char *called;
};

const ContextFunction kContextFunctions[] = {
    {"create", "__create_ctx", __create_ctx, {{"ctx_id", Value::u32(4)}}, {"UInt32"}, "voice_plugin_create_ctx(4)"},
    {"modify_stream",
     "__modify_stream",
     __modify_stream,
     {{"ctx_id", Value::u32(4)}, {"stream_info", Value::bytes(kStream)}},
     {"UInt32", "ByteArray"},
     "voice_plugin_modify_stream(4)"},
    {"remove_stream",
     "__remove_stream",
     __remove_stream,
     {{"ctx_id", Value::u32(4)}, {"stream_id", Value::u32(6)}},
     {"UInt32", "UInt32"},
     "voice_plugin_remove_stream(4, 6)"},
    {"destroy", "__destroy_ctx", __destroy_ctx, {{"ctx_id", Value::u32(4)}}, {"UInt32"}, "voice_plugin_destroy_ctx(4)"},
    {"add_stream",
     "__add_stream",
     __add_stream,
     {{"ep_id", Value::i32(-5)},
      {"ctx_id", Value::u32(4)},
      {"line_id", Value::u32(9)},
      {"stream_info", Value::bytes(kStream)},
      {"filedesc", Value::fds({-1, -1})}},
     {"Int32", "UInt32", "UInt32", "ByteArray", "List"},
     "voice_plugin_add_stream(4, endpoint -5, line 9)"},
};

TEST_F(Contexts, ArgumentsAreReadInOrderWithoutAttributesAndReachTheirCallback) {
    for (const ContextFunction &f : kContextFunctions)
        for (const int32_t result : {0, 7, -7}) {
            again();
            SCOPED_TRACE(text("%s, callback answers %d", f.function, result));
            host.result = result;
            host.cnx_bytes = 712;
            host.descriptors.resize(2);
            Call call;
            std::vector<std::string> expected = {enter(f.function)};
            for (size_t i = 0; i < f.arguments.size(); ++i) {
                call.with(f.arguments[i].first, f.arguments[i].second);
                expected.push_back(plain(f.reads[i].c_str(), f.arguments[i].first, f.arguments[i].second));
            }
            if (strcmp(f.function, "__add_stream") == 0) {
                expected.push_back(said("i", f.function, "\\nfd[0] = -1\\n"));
                expected.push_back(said("i", f.function, "\\nfd[1] = -1\\n"));
            }
            expected.push_back(f.called);
            if (result)
                expected.push_back(said("x", f.function, "voice plugin modify FAILED"));
            for (const std::string &line : {result ? kFalse : kTrue, kDestroyed, leave(f.function)})
                expected.push_back(line);
            EXPECT_EQ(call.run(f.run), result ? 2 : 0);
            EXPECT_EQ(fake::difference(expected, log_of(f.function)), "");
            EXPECT_THAT(call.errors(), IsEmpty());
            if (f.reads.size() > 1 && f.reads[1] == "ByteArray") {
                EXPECT_EQ(host.bytes, kStream);
            }
            expect_settled(f.function);
        }
}

struct MissingRow {
    const char *function, *argument, *said, *entry;
    bool complete; // with a return value and an exit marker
};

const MissingRow kMissingRows[] = {
    {"__create_ctx", "ctx_id", "Missing argument ctx_id", "ctx_id", false},
    {"__destroy_ctx", "ctx_id", "Missing argument ctx_id", "ctx_id", false},
    {"__modify_stream", "ctx_id", "Missing argument ctx_id", "ctx_id", false},
    {"__modify_stream", "stream_info", "Missing argument stream_info", "cnx_info", true},
    {"__remove_stream", "ctx_id", "Missing argument ctx_id", "ctx_id", false},
    {"__remove_stream", "stream_id", "Missing argument stream_id", "stream_id", false},
    {"__add_stream", "ep_id", "Missing argument ep_id", "ep_id", false},
    {"__add_stream", "ctx_id", "Missing argument ctx_id", "ctx_id", false},
    {"__add_stream", "line_id", "Missing argument line_id", "line_id", true},
    {"__add_stream", "stream_info", "Missing argument stream_info", "cnx_info", true},
    {"__add_stream", "filedesc", "Missing argument filedesc", "filedesc", true},
};

TEST_F(Contexts, AMissingArgumentEndsTheCallAsItsKindDoes) {
    for (const MissingRow &row : kMissingRows)
        for (const bool without_value : {false, true}) {
            if (without_value && strcmp(row.argument, "stream_info") != 0)
                continue;
            again();
            SCOPED_TRACE(text("%s / missing \"%s\"", row.function, row.argument));
            const ContextFunction *f = kContextFunctions;
            while (strcmp(f->function, row.function) != 0)
                ++f;
            Call call;
            std::vector<std::string> expected = {enter(f->function)};
            bool reached = false;
            for (size_t i = 0; i < f->arguments.size(); ++i) {
                const bool left_out = strcmp(f->arguments[i].first, row.argument) == 0;
                if (!left_out)
                    call.with(f->arguments[i].first, f->arguments[i].second);
                else if (without_value)
                    call.with(row.argument, Value::without_value(VARIANT_BYTES));
                if (!reached)
                    expected.push_back(
                        !left_out       ? plain(f->reads[i].c_str(), f->arguments[i].first, f->arguments[i].second)
                        : without_value ? plain("ByteArray", row.argument, Value::without_value(VARIANT_BYTES))
                                        : absent(f->reads[i].c_str(), row.argument));
                reached = reached || left_out;
            }
            expected.push_back(said("x", row.function, row.said));
            expected.push_back(entry(row.entry));
            if (row.complete)
                expected.push_back(kFalse);
            expected.push_back(kDestroyed);
            if (row.complete)
                expected.push_back(leave(row.function));
            EXPECT_EQ(call.run(f->run), 2);
            EXPECT_EQ(fake::difference(expected, log_of(row.function)), "");
            EXPECT_EQ(call.returned().str(), row.complete ? "bool false" : "none");
            expect_settled(text("%s / missing \"%s\"", row.function, row.argument));
        }
}

class AddStream : public Contexts {
protected:
    Call &fill(Call &call, const Value &descriptors) {
        call.with("ep_id", Value::i32(5)).with("ctx_id", Value::u32(4)).with("line_id", Value::u32(9));
        return call.with("stream_info", Value::bytes(kStream)).with("filedesc", descriptors);
    }
};

TEST_F(AddStream, AnEmptyDescriptorListNeverReachesTheCallback) {
    Call call;
    EXPECT_EQ(fill(call, Value::fds({})).run(__add_stream), 2);
    EXPECT_END_OF_LOG_OF("__add_stream", said("x", "__add_stream", "Empty argument filedesc"), kFalse, kDestroyed,
                         leave("__add_stream"));
    EXPECT_THAT(call.errors(), IsEmpty());
}

TEST_F(AddStream, DescriptorsReachTheCallbackInOrderAtMostTen) {
    for (const size_t count : {1u, 3u, 10u, 12u}) {
        have_files(12);
        host.cnx_bytes = 712;
        host.descriptors.resize(std::min<size_t>(count, 10));
        Call call;
        EXPECT_EQ(fill(call, Value::fds(files(count))).run(__add_stream), 0);
        for (size_t i = 0; i < host.descriptors.size(); ++i) {
            EXPECT_TRUE(same_file(host.descriptors[i], files(count)[i])) << "position " << i;
            EXPECT_THAT(bus().trace_log(), testing::Contains(said("i", "__add_stream",
                                                                  text("\\nfd[%zu] = %d\\n", i, host.descriptors[i]))));
        }
        EXPECT_EQ(host.bytes, kStream);
        close_received();
        expect_settled(text("%zu descriptors", count));
    }
}

// Hosts close all ten places, whatever came.
TEST_F(AddStream, PlacesThatTheListDidNotFillHoldMinusOne) {
    for (const size_t count : {1u, 3u, 9u}) {
        have_files(count);
        host.cnx_bytes = 712;
        host.descriptors.assign(LIBVOICE_DESCRIPTORS, 77);
        Call call;
        EXPECT_EQ(fill(call, Value::fds(files(count))).run(__add_stream), 0);
        ASSERT_EQ(host.descriptors.size(), 10u);
        EXPECT_THAT(std::vector<int32_t>(host.descriptors.begin() + static_cast<long>(count), host.descriptors.end()),
                    testing::Each(-1))
            << count << " descriptors";
        close_received();
    }
}

TEST_F(AddStream, AFailingCallbackKeepsItsDescriptors) {
    have_files(3);
    host.result = 1;
    host.cnx_bytes = 712;
    host.descriptors.resize(3);
    Call call;
    EXPECT_EQ(fill(call, Value::fds(files(3))).run(__add_stream), 2);
    for (size_t i = 0; i < 3; ++i)
        EXPECT_TRUE(same_file(host.descriptors[i], files(3)[i]));
    close_received();
}

// --------------------------------------------------------------------------------------------------- voice service

std::string sentence(const char *words, const char *info) {
    return text("reply_addError(call1, 196638, \"%s\", \"%s\")", words, info);
}

const char *const kRegister = "__VoiceService_register_plugin";
const char *const kDeregister = "__VoiceService_deregister_plugin";

class RegisterPlugin : public Handlers {
protected:
    peer_t *peer_ = bus().peer("caller");
};

TEST_F(RegisterPlugin, ThePluginIsKeptAndStartedWithItsCountry) {
    Call call;
    EXPECT_EQ(call.attributes(0).with("plugin_name", Value::chars("FXS")).run(__VoiceService_register_plugin), 0);
    const void *peer = bus().peer("caller");
    EXPECT_LOG_OF(
        kRegister, enter(kRegister), said("i", kRegister, "Trying to register plugin"),
        plain("Char", "plugin_name", Value::chars("FXS")), "voice_app_get_country(00 00 00, 3)",
        said("i", kRegister, "Trying to register plugin: FXS"),
        text("i libvoice_plugin_get_index_by_peer@plugin_table: getting plugin entry for peer %p", peer),
        "i libvoice_plugin_get_next_free_index@plugin_table: getting plugin next free index",
        "i libvoice_plugin_get_next_free_index@plugin_table: voice_plugin_table[ plugin_table_index = 0 ] is free",
        "r1 = request_create_executeFunction(\"FXS\", \"init\", 0x0001)",
        "request_addParameter(r1, \"country\", \"AT\")",
        "i libvoice_plugin_get_entry@plugin_table: getting plugin entry for plugin FXS",
        "i libvoice_plugin_get_entry@plugin_table: voice_plugin_table[0] matches plugin name FXS",
        "kex_sendRequest(bus, caller, r1) = 1", "request_destroy(r1)",
        said("i", kRegister, text("Registered plugin: FXS Peer %p", peer)), kTrue, kDestroyed, leave(kRegister));
    EXPECT_EQ(voice_plugin_table[0].used, 1u);
    EXPECT_STREQ(voice_plugin_table[0].plugin_name, "FXS");
    EXPECT_EQ(voice_plugin_table[0].peer, bus().peer("caller"));
}

TEST_F(RegisterPlugin, WithAReplyCallbackTheRequestBelongsToItsHandler) {
    libvoice_app_registered_callbacks.voice_app_init_reply = on_init_reply;
    bus().name_function(reinterpret_cast<const void *>(on_init_reply), "voice_app_init_reply");
    Call call;
    EXPECT_EQ(call.with("plugin_name", Value::chars("FXS")).run(__VoiceService_register_plugin), 0);
    EXPECT_THAT(bus().acts(), testing::Contains("request_setReplyHandler(r1, voice_app_init_reply)"));
    bus().leaves_requests(1, "the handler owns it");
}

TEST_F(RegisterPlugin, TheSamePeerTwiceKeepsOneEntryWithTheSecondName) {
    EXPECT_EQ(Call().with("plugin_name", Value::chars("FXS")).run(__VoiceService_register_plugin), 0);
    EXPECT_EQ(Call().with("plugin_name", Value::chars("DECT")).run(__VoiceService_register_plugin), 0);
    EXPECT_STREQ(voice_plugin_table[0].plugin_name, "DECT");
    EXPECT_EQ(voice_plugin_table[1].used, 0u);
}

TEST_F(RegisterPlugin, MissingName) {
    for (const bool empty : {false, true}) {
        again();
        Call call;
        if (empty)
            call.with("plugin_name", Value::without_value(VARIANT_TEXT));
        EXPECT_EQ(call.attributes(0).run(__VoiceService_register_plugin), 2);
        EXPECT_LOG_OF(
            kRegister, enter(kRegister), said("i", kRegister, "Trying to register plugin"),
            empty ? plain("Char", "plugin_name", Value::without_value(VARIANT_TEXT)) : absent("Char", "plugin_name"),
            said("x", kRegister, "Missing 'plugin_name' parameter."),
            sentence("Missing 'plugin_name' parameter.", "plugin_name"), kFalse, kDestroyed, leave(kRegister));
        EXPECT_EQ(voice_plugin_table[0].used, 0u);
        expect_settled(empty ? "without a value" : "missing");
    }
}

TEST_F(RegisterPlugin, ACountryThatCannotBeReadFails) {
    host.result = -1;
    Call call;
    EXPECT_EQ(call.attributes(0).with("plugin_name", Value::chars("FXS")).run(__VoiceService_register_plugin), 2);
    EXPECT_LOG_OF(kRegister, enter(kRegister), said("i", kRegister, "Trying to register plugin"),
                  plain("Char", "plugin_name", Value::chars("FXS")), "voice_app_get_country(00 00 00, 3)",
                  said("x", kRegister, "Error retrieving country code"), kFalse, kDestroyed, leave(kRegister));
    EXPECT_THAT(call.errors(), IsEmpty());
    EXPECT_EQ(voice_plugin_table[0].used, 0u);
}

TEST_F(RegisterPlugin, APositiveCountryResultIsNoFailure) {
    host.result = 2;
    EXPECT_EQ(Call().with("plugin_name", Value::chars("FXS")).run(__VoiceService_register_plugin), 0);
}

TEST_F(RegisterPlugin, ACountryNobodyWroteIsEmpty) {
    host.country = nullptr;
    EXPECT_EQ(Call().with("plugin_name", Value::chars("FXS")).run(__VoiceService_register_plugin), 0);
    EXPECT_EQ(bus().record(1).parameter("country").str(), "\"\"");
}

TEST_F(RegisterPlugin, ACountryWithoutATerminatorEndsAfterTwoLetters) {
    libvoice_app_registered_callbacks.voice_app_get_country = [](char *country, uint32_t size) {
        memset(country, 'X', size);
        return int32_t{0};
    };
    EXPECT_EQ(Call().with("plugin_name", Value::chars("FXS")).run(__VoiceService_register_plugin), 0);
    EXPECT_EQ(bus().record(1).parameter("country").str(), "\"XX\"");
}

TEST_F(RegisterPlugin, AnInitThatCannotBeSentFails) {
    bus().fail("kex_sendRequest");
    Call call;
    EXPECT_EQ(call.with("plugin_name", Value::chars("FXS")).run(__VoiceService_register_plugin), 2);
    EXPECT_END_OF_LOG_OF(kRegister, "request_destroy(r1)", said("x", kRegister, "Error initializing plugin FXS"),
                         kFalse, kDestroyed, leave(kRegister));
    EXPECT_THAT(call.errors(), IsEmpty());
}

TEST_F(RegisterPlugin, ANinthPluginIsRefusedByItsMissingPeer) {
    for (unsigned i = 0; i < 8; ++i)
        have_plugin(i, text("plugin%u", i).c_str(), bus().peer(text("peer%u", i)));
    Call call;
    EXPECT_EQ(call.with("plugin_name", Value::chars("FXS")).run(__VoiceService_register_plugin), 2);
    EXPECT_THAT(bus().complaints(),
                ElementsAre("x libvoice_plugin_set_name_by_peer@plugin_table: No more free slots availabe",
                            said("x", kRegister, "Error initializing plugin FXS")));
}

class DeregisterPlugin : public Handlers {
protected:
    DeregisterPlugin() { have(); }
    void have() {
        plugin_ = have_plugin(2, "FXS", bus().peer("fxs"));
        have_endpoint(4, "FXS2", 6, plugin_);
        libvoice_app_registered_callbacks.voice_app_endpoint_deleted = on_endpoint_deleted;
    }
    voice_plugin_entry_t *plugin_;
};

TEST_F(DeregisterPlugin, ThePluginIsToldAndItsEndpointsGo) {
    Call call;
    EXPECT_EQ(call.attributes(0).with("plugin_name", Value::chars("FXS")).run(__VoiceService_deregister_plugin), 0);
    EXPECT_LOG_OF(kDeregister, enter(kDeregister), plain("Char", "plugin_name", Value::chars("FXS")),
                  "r1 = request_create_executeFunction(\"FXS\", \"exit\", 0x0001)",
                  "request_addParameter(r1, \"reason\", u32 32)",
                  "i libvoice_plugin_get_entry@plugin_table: getting plugin entry for plugin FXS",
                  "i libvoice_plugin_get_entry@plugin_table: voice_plugin_table[2] matches plugin name FXS",
                  "kex_sendRequest(bus, fxs, r1) = 1", "request_destroy(r1)",
                  "i libvoice_plugin_get_entry@plugin_table: getting plugin entry for plugin FXS",
                  "i libvoice_plugin_get_entry@plugin_table: voice_plugin_table[2] matches plugin name FXS",
                  "voice_app_endpoint_deleted(endpt_table[4], used 0)", kDestroyed, kTrue, leave(kDeregister));
    EXPECT_EQ(plugin_->used, 0u);
    EXPECT_EQ(endpt_table[4].used, 0u);
    EXPECT_EQ(endpt_table[3].used, 1u) << "another plugin's endpoint stays";
}

TEST_F(DeregisterPlugin, MissingNameIsReportedAsName) {
    for (const bool empty : {false, true}) {
        again();
        Call call;
        if (empty)
            call.with("plugin_name", Value::without_value(VARIANT_TEXT));
        EXPECT_EQ(call.attributes(0).run(__VoiceService_deregister_plugin), 2);
        EXPECT_LOG_OF(kDeregister, enter(kDeregister),
                      empty ? plain("Char", "plugin_name", Value::without_value(VARIANT_TEXT))
                            : absent("Char", "plugin_name"),
                      said("x", kDeregister, "Missing 'name' parameter."),
                      sentence("Missing 'name' parameter.", "name"), kDestroyed, kFalse, leave(kDeregister));
        expect_settled(empty ? "without a value" : "missing");
    }
}

TEST_F(DeregisterPlugin, AnExitThatCannotBeSentKeepsThePlugin) {
    bus().fail("kex_sendRequest");
    Call call;
    EXPECT_EQ(call.with("plugin_name", Value::chars("FXS")).run(__VoiceService_deregister_plugin), 2);
    EXPECT_END_OF_LOG_OF(kDeregister, said("x", kDeregister, "Error exiting plugin FXS"), kDestroyed, kFalse,
                         leave(kDeregister));
    EXPECT_EQ(plugin_->used, 1u);
    EXPECT_EQ(endpt_table[4].used, 1u);
}

TEST_F(DeregisterPlugin, AnUnknownPluginCannotBeTold) {
    Call call;
    EXPECT_EQ(call.with("plugin_name", Value::chars("DECT")).run(__VoiceService_deregister_plugin), 2);
    EXPECT_THAT(bus().acts(), testing::Contains("kex_sendRequest(bus, null, r1) = 0"));
    EXPECT_THAT(bus().complaints(), ElementsAre(said("x", kDeregister, "Error exiting plugin DECT")));
}

const char *const kRegisterEndpoint = "__VoiceService_register_endpoint";

class RegisterEndpoint : public Handlers {
protected:
    RegisterEndpoint() { have(); }

    void have() {
        memset(endpt_table, 0, sizeof(endpt_table));
        plugin_ = have_plugin(1, "FXS", bus().peer("fxs"));
    }

    Call &fill(Call &call, const std::string &codecs, const std::string &name = "FXS1",
               const std::string &path = "FXS.EndPoint.FXS1") {
        call.attributes(0).with("plugin_name", Value::chars("FXS")).with("endpoint_name", Value::chars(name));
        call.with("endpoint_path", Value::chars(path)).with("type", Value::u16(3));
        return call.with("codeclist", Value::bytes(codecs));
    }

    static std::string codecs(size_t bytes) {
        std::string result;
        for (size_t i = 0; i < bytes; ++i)
            result += static_cast<char>(i * 7 + 1);
        return result;
    }

    voice_plugin_entry_t *plugin_;
};

TEST_F(RegisterEndpoint, TheEntryIsFilledAndItsNumberAnswered) {
    have_endpoint(0, "used", 0);
    const std::string records = codecs(32);
    Call call;
    EXPECT_EQ(fill(call, records).run(__VoiceService_register_endpoint), 0);
    EXPECT_LOG_OF(kRegisterEndpoint, enter(kRegisterEndpoint), plain("Char", "plugin_name", Value::chars("FXS")),
                  plain("Char", "endpoint_name", Value::chars("FXS1")),
                  plain("Char", "endpoint_path", Value::chars("FXS.EndPoint.FXS1")),
                  plain("UInt16", "type", Value::u16(3)), plain("ByteArray", "codeclist", Value::bytes(records)),
                  said("i", kRegisterEndpoint, "Trying to registering endpoint FXS1"),
                  "i libvoice_plugin_get_entry@plugin_table: getting plugin entry for plugin FXS",
                  "i libvoice_plugin_get_entry@plugin_table: voice_plugin_table[1] matches plugin name FXS",
                  "voice_app_register_endpoint(endpt_table[1])", "return_value = i16 7", kDestroyed,
                  leave(kRegisterEndpoint));
    const libvoice_endpoint_t &entry = endpt_table[1];
    EXPECT_EQ(entry.used, 1u);
    EXPECT_STREQ(entry.name, "FXS1");
    EXPECT_EQ(entry.type, 3);
    EXPECT_EQ(entry.encaps_capab, 2u);
    EXPECT_EQ(entry.num_of_codecs, 2u);
    EXPECT_EQ(memcmp(entry.codec_list, records.data(), 32), 0);
    EXPECT_STREQ(entry.endpoint_path, "FXS.EndPoint.FXS1");
    EXPECT_EQ(entry.plugin_table, plugin_);
    EXPECT_EQ(memcmp(&host.entry.codec_list, &entry.codec_list, sizeof(entry.codec_list)), 0)
        << "filled before the callback";
}

TEST_F(RegisterEndpoint, TheNumberIsTheCallbacksBusiness) {
    endpt_table[0].endpoint = 321;
    endpt_table[0].userdata = plugin_;
    Call call;
    EXPECT_EQ(fill(call, "").run(__VoiceService_register_endpoint), 0);
    EXPECT_EQ(host.entry.endpoint, 321);
    EXPECT_EQ(host.entry.userdata, plugin_) << "user data is not touched";
}

TEST_F(RegisterEndpoint, OnlyTheLowSixteenBitsOfTheNumberTravel) {
    const struct {
        int32_t number;
        const char *answer;
    } rows[] = {{0, "i16 0"},      {31, "i16 31"},        {32767, "i16 32767"}, {32768, "i16 -32768"},
                {65535, "i16 -1"}, {0x12345, "i16 9029"}, {-1, "i16 -1"}};
    for (const auto &row : rows) {
        again();
        have();
        host.endpoint = row.number;
        Call call;
        EXPECT_EQ(fill(call, "").run(__VoiceService_register_endpoint), 0);
        EXPECT_EQ(call.returned().str(), row.answer) << "number " << row.number;
        expect_settled(row.answer);
    }
}

TEST_F(RegisterEndpoint, CodecRecordsAreCountedWhole) {
    const struct {
        size_t bytes;
        uint32_t records;
    } rows[] = {{0, 0},  {1, 0},    {15, 0},   {16, 1},   {20, 1},   {31, 1},
                {32, 2}, {255, 15}, {256, 16}, {257, 16}, {272, 16}, {5000, 16}};
    for (const auto &row : rows) {
        again();
        have();
        memset(endpt_table[0].codec_list, 0xa5, sizeof(endpt_table[0].codec_list));
        memset(endpt_table[0].endpoint_path, 0xa5, sizeof(endpt_table[0].endpoint_path));
        const std::string records = codecs(row.bytes);
        Call call;
        EXPECT_EQ(fill(call, records).run(__VoiceService_register_endpoint), 0) << row.bytes << " bytes";
        EXPECT_EQ(endpt_table[0].num_of_codecs, row.records) << row.bytes << " bytes";
        std::string expected = records.substr(0, row.records * 16);
        expected.resize(256, '\xa5');
        EXPECT_EQ(memcmp(endpt_table[0].codec_list, expected.data(), 256), 0) << row.bytes << " bytes";
        EXPECT_STREQ(endpt_table[0].endpoint_path, "FXS.EndPoint.FXS1") << "nothing written behind the records";
        expect_settled(text("%zu bytes", row.bytes));
    }
}

TEST_F(RegisterEndpoint, CodecsWithoutAValueAreNone) {
    Call call;
    call.with("plugin_name", Value::chars("FXS")).with("endpoint_name", Value::chars("FXS1"));
    call.with("endpoint_path", Value::chars("FXS.EndPoint.FXS1")).with("type", Value::u16(3));
    EXPECT_EQ(call.with("codeclist", Value::without_value(VARIANT_BYTES)).run(__VoiceService_register_endpoint), 0);
    EXPECT_EQ(endpt_table[0].num_of_codecs, 0u);
    EXPECT_THAT(bus().complaints(), IsEmpty());
    EXPECT_EQ(call.returned().str(), "i16 7");
}

TEST_F(RegisterEndpoint, NamesAndPathsAreCut) {
    for (const size_t length : {0u, 1u, 14u, 15u, 16u, 17u, 300u}) {
        again();
        have();
        Call call;
        fill(call, "", std::string(length, 'n'));
        EXPECT_EQ(call.run(__VoiceService_register_endpoint), 0);
        EXPECT_EQ(std::string(endpt_table[0].name), std::string(std::min<size_t>(length, 15), 'n'));
        expect_settled(text("name of %zu", length));
    }
    for (const size_t length : {0u, 254u, 255u, 256u, 257u, 3000u}) {
        again();
        have();
        endpt_table[0].plugin_table = nullptr;
        Call call;
        fill(call, "", "FXS1", std::string(length, 'p'));
        EXPECT_EQ(call.run(__VoiceService_register_endpoint), 0);
        EXPECT_EQ(std::string(endpt_table[0].endpoint_path), std::string(std::min<size_t>(length, 255), 'p'));
        EXPECT_EQ(endpt_table[0].plugin_table, plugin_);
        expect_settled(text("path of %zu", length));
    }
}

TEST_F(RegisterEndpoint, AMissingArgumentStopsTheReading) {
    const struct {
        const char *argument, *getter, *said, *entry;
    } rows[] = {
        {"plugin_name", "Char", "Missing 'name' parameter.", "196638, \"Missing 'name' parameter.\", \"name\""},
        {"endpoint_name", "Char", "Missing 'name' parameter.", "196638, \"Missing 'name' parameter.\", \"name\""},
        {"endpoint_path", "Char", "Missing 'name' parameter.", "196638, \"Missing 'name' parameter.\", \"name\""},
        {"type", "UInt16", "Missing 'type' parameter.", "196638, \"Missing 'type' parameter.\", \"type\""},
        {"codeclist", "ByteArray", "Missing argument 'codeclist'",
         "196640, \"Missing mandatory argument\", \"codeclist\""},
    };
    const std::pair<const char *, Value> arguments[] = {{"plugin_name", Value::chars("FXS")},
                                                        {"endpoint_name", Value::chars("FXS1")},
                                                        {"endpoint_path", Value::chars("FXS.EndPoint.FXS1")},
                                                        {"type", Value::u16(3)},
                                                        {"codeclist", Value::bytes("")}};
    for (size_t missing_one = 0; missing_one < 5; ++missing_one)
        for (const bool without_value : {false, true}) {
            if (without_value && missing_one > 2)
                continue;
            again();
            have();
            SCOPED_TRACE(text("missing \"%s\"", rows[missing_one].argument));
            Call call;
            call.attributes(0);
            std::vector<std::string> expected = {enter(kRegisterEndpoint)};
            for (size_t i = 0; i < 5; ++i) {
                Value value = arguments[i].second;
                if (i == missing_one && without_value)
                    value = Value::without_value(VARIANT_TEXT);
                if (i != missing_one || without_value)
                    call.with(arguments[i].first, value);
                if (i < missing_one || (i == missing_one && without_value))
                    expected.push_back(plain(rows[i].getter, arguments[i].first, value));
                else if (i == missing_one)
                    expected.push_back(absent(rows[i].getter, arguments[i].first));
            }
            expected.push_back(said("x", kRegisterEndpoint, rows[missing_one].said));
            expected.push_back(text("reply_addError(call1, %s)", rows[missing_one].entry));
            for (const std::string &line : {kFalse, kDestroyed, leave(kRegisterEndpoint)})
                expected.push_back(line);
            EXPECT_EQ(call.run(__VoiceService_register_endpoint), 2);
            EXPECT_EQ(fake::difference(expected, log_of(kRegisterEndpoint)), "");
            EXPECT_EQ(endpt_table[0].used, 0u);
            expect_settled(rows[missing_one].argument);
        }
}

TEST_F(RegisterEndpoint, ATypeThatDoesNotFitCountsAsMissing) {
    Call call;
    call.with("plugin_name", Value::chars("FXS")).with("endpoint_name", Value::chars("FXS1"));
    call.with("endpoint_path", Value::chars("p")).with("type", Value::u32(65536)).with("codeclist", Value::bytes(""));
    EXPECT_EQ(call.run(__VoiceService_register_endpoint), 2);
    EXPECT_THAT(bus().complaints(), ElementsAre(said("x", kRegisterEndpoint, "Missing 'type' parameter.")));
}

TEST_F(RegisterEndpoint, TheLargestTypeIsKept) {
    Call call;
    call.with("plugin_name", Value::chars("FXS")).with("endpoint_name", Value::chars("FXS1"));
    call.with("endpoint_path", Value::chars("p")).with("type", Value::u16(65535)).with("codeclist", Value::bytes(""));
    EXPECT_EQ(call.run(__VoiceService_register_endpoint), 0);
    EXPECT_EQ(endpt_table[0].type, 65535);
}

TEST_F(RegisterEndpoint, AnUnknownPluginIsRefusedBeforeAnEntryIsClaimed) {
    plugin_->used = 0;
    Call call;
    EXPECT_EQ(fill(call, "").run(__VoiceService_register_endpoint), 2);
    EXPECT_END_OF_LOG_OF(
        kRegisterEndpoint, "i libvoice_plugin_get_entry@plugin_table: getting plugin entry for plugin FXS",
        said("x", kRegisterEndpoint, "Failed regisering endpoint FXS1 - plugin_name FXS doesn't exist"), kFalse,
        kDestroyed, leave(kRegisterEndpoint));
    EXPECT_THAT(call.errors(), IsEmpty());
    EXPECT_EQ(endpt_table[0].used, 0u);
    EXPECT_STREQ(endpt_table[0].name, "");
}

TEST_F(RegisterEndpoint, TheThirtyThirdHasNoSpace) {
    for (unsigned i = 0; i < 32; ++i)
        have_endpoint(i, text("E%u", i).c_str(), static_cast<int32_t>(i));
    Call call;
    EXPECT_EQ(fill(call, "").run(__VoiceService_register_endpoint), 2);
    EXPECT_THAT(bus().complaints(), ElementsAre(said("x", kRegisterEndpoint, "No space to register the endpoint")));
    EXPECT_THAT(call.errors(), IsEmpty());
    EXPECT_EQ(call.returned().str(), "bool false");
}

TEST_F(RegisterEndpoint, ARefusalReleasesTheEntry) {
    libvoice_app_registered_callbacks.voice_app_endpoint_deleted = on_endpoint_deleted;
    for (const int32_t result : {1, -1}) {
        again();
        have();
        libvoice_app_registered_callbacks.voice_app_endpoint_deleted = on_endpoint_deleted;
        host.result = result;
        Call call;
        EXPECT_EQ(fill(call, "").run(__VoiceService_register_endpoint), 2);
        EXPECT_END_OF_LOG_OF(kRegisterEndpoint, "voice_app_register_endpoint(endpt_table[0])",
                             "voice_app_endpoint_deleted(endpt_table[0], used 0)", kFalse, kDestroyed,
                             leave(kRegisterEndpoint));
        EXPECT_EQ(endpt_table[0].used, 0u);
        EXPECT_THAT(call.errors(), IsEmpty());
        expect_settled("refused");
    }
}

TEST_F(RegisterEndpoint, ARefusalThatTookTheEntryBackIsNotDeletedAgain) {
    libvoice_app_registered_callbacks.voice_app_endpoint_deleted = on_endpoint_deleted;
    host.result = 1;
    host.release_endpoint = true;
    Call call;
    EXPECT_EQ(fill(call, "").run(__VoiceService_register_endpoint), 2);
    EXPECT_THAT(bus().acts(), testing::Not(testing::Contains(HasSubstr("endpoint_deleted"))));
}

TEST_F(RegisterEndpoint, ARefusalDeletesByNumberSoTheFirstOfThatNumberGoes) {
    libvoice_app_registered_callbacks.voice_app_endpoint_deleted = on_endpoint_deleted;
    have_endpoint(0, "older", 7);
    host.result = 1;
    Call call;
    EXPECT_EQ(fill(call, "").run(__VoiceService_register_endpoint), 2);
    EXPECT_THAT(bus().acts(), testing::Contains("voice_app_endpoint_deleted(endpt_table[0], used 0)"));
    EXPECT_EQ(endpt_table[1].used, 1u);
}

const char *const kDeregisterEndpoint = "__VoiceService_deregister_endpoint";

class DeregisterEndpoint : public Handlers {};

TEST_F(DeregisterEndpoint, TheEntryGoes) {
    libvoice_app_registered_callbacks.voice_app_endpoint_deleted = on_endpoint_deleted;
    Call call;
    EXPECT_EQ(call.attributes(0).with("endpoint", Value::u16(5)).run(__VoiceService_deregister_endpoint), 0);
    EXPECT_LOG_OF(kDeregisterEndpoint, enter(kDeregisterEndpoint), plain("UInt16", "endpoint", Value::u16(5)),
                  said("i", kDeregisterEndpoint, "Deregister endpoint '5'."),
                  "voice_app_endpoint_deleted(endpt_table[3], used 0)", kDestroyed, kTrue, leave(kDeregisterEndpoint));
    EXPECT_EQ(endpt_table[3].used, 0u);
}

TEST_F(DeregisterEndpoint, AnUnknownNumberIsNoError) {
    Call call;
    EXPECT_EQ(call.attributes(0).with("endpoint", Value::u16(65535)).run(__VoiceService_deregister_endpoint), 0);
    EXPECT_LOG_OF(kDeregisterEndpoint, enter(kDeregisterEndpoint), plain("UInt16", "endpoint", Value::u16(65535)),
                  said("i", kDeregisterEndpoint, "Deregister endpoint '65535'."), kDestroyed, kTrue,
                  leave(kDeregisterEndpoint));
    EXPECT_EQ(endpt_table[3].used, 1u);
}

TEST_F(DeregisterEndpoint, TheNumberIsReadWithoutASign) {
    have_endpoint(4, "FXS2", -1);
    EXPECT_EQ(Call().with("endpoint", Value::u16(65535)).run(__VoiceService_deregister_endpoint), 0);
    EXPECT_EQ(endpt_table[4].used, 1u);
}

TEST_F(DeregisterEndpoint, AMissingNumberIsReportedAsType) {
    Call call;
    EXPECT_EQ(call.attributes(0).run(__VoiceService_deregister_endpoint), 2);
    EXPECT_LOG_OF(kDeregisterEndpoint, enter(kDeregisterEndpoint), absent("UInt16", "endpoint"),
                  said("x", kDeregisterEndpoint, "Missing 'type' parameter."),
                  sentence("Missing 'type' parameter.", "type"), kDestroyed, kFalse, leave(kDeregisterEndpoint));
}

const char *const kServiceEvent = "__VoiceService_event";

class ServiceEvent : public Handlers {
protected:
    std::string message_ = event_bytes(5, item(kId, "abcd"), 0x12345678);
};

TEST_F(ServiceEvent, TheMessageReachesTheApplicationAndNoValueIsSet) {
    for (const int32_t result : {0, -1}) {
        again();
        host.result = result;
        Call call;
        call.attributes(0).with("plugin_name", Value::chars("FXS")).with("event", Value::bytes(message_));
        EXPECT_EQ(call.run(__VoiceService_event), 0) << "the callback's result is ignored";
        EXPECT_LOG_OF(kServiceEvent, enter(kServiceEvent), plain("Char", "plugin_name", Value::chars("FXS")),
                      plain("ByteArray", "event", Value::bytes(message_)),
                      said("i", kServiceEvent, "plugin_name = 'FXS' voice_plugin_idx = '5'"),
                      "voice_app_event(endpoint 5)", kDestroyed, leave(kServiceEvent));
        std::string seen = message_;
        seen.replace(12, 4, word(pointer_word_of(host.params)));
        EXPECT_EQ(host.bytes, seen);
        EXPECT_EQ(call.returned().str(), "none");
        expect_settled("event");
    }
}

TEST_F(ServiceEvent, AnEmptyMessageKeepsItsPointer) {
    Call call;
    call.with("plugin_name", Value::chars("FXS")).with("event", Value::bytes(event_bytes(-3, "", 0x99)));
    EXPECT_EQ(call.run(__VoiceService_event), 0);
    EXPECT_EQ(host.pointer_word, 0x99u);
    EXPECT_THAT(bus().trace_log(),
                testing::Contains(said("i", kServiceEvent, "plugin_name = 'FXS' voice_plugin_idx = '-3'")));
}

TEST_F(ServiceEvent, MissingName) {
    Call call;
    EXPECT_EQ(call.attributes(0).with("event", Value::bytes(message_)).run(__VoiceService_event), 2);
    EXPECT_LOG_OF(kServiceEvent, enter(kServiceEvent), absent("Char", "plugin_name"),
                  said("x", kServiceEvent, "Missing 'name' parameter."), sentence("Missing 'name' parameter.", "name"),
                  kDestroyed, leave(kServiceEvent));
    EXPECT_EQ(call.returned().str(), "none");
}

TEST_F(ServiceEvent, ANameWithoutAValueIsInvalid) {
    Call call;
    call.attributes(0).with("plugin_name", Value::without_value(VARIANT_TEXT)).with("event", Value::bytes(message_));
    EXPECT_EQ(call.run(__VoiceService_event), 2);
    EXPECT_LOG_OF(kServiceEvent, enter(kServiceEvent), plain("Char", "plugin_name", Value::without_value(VARIANT_TEXT)),
                  said("x", kServiceEvent, text("Invalid plugin name received %p", static_cast<void *>(nullptr))),
                  kDestroyed, leave(kServiceEvent));
    EXPECT_THAT(call.errors(), IsEmpty());
}

TEST_F(ServiceEvent, MissingEvent) {
    Call call;
    EXPECT_EQ(call.attributes(0).with("plugin_name", Value::chars("FXS")).run(__VoiceService_event), 2);
    EXPECT_LOG_OF(kServiceEvent, enter(kServiceEvent), plain("Char", "plugin_name", Value::chars("FXS")),
                  absent("ByteArray", "event"), said("x", kServiceEvent, "Missing argument 'event'"), entry("event"),
                  kDestroyed, leave(kServiceEvent));
}

TEST_F(ServiceEvent, AnEventWithoutDataIsInvalid) {
    Call call;
    call.attributes(0).with("plugin_name", Value::chars("FXS")).with("event", Value::without_value(VARIANT_BYTES));
    EXPECT_EQ(call.run(__VoiceService_event), 2);
    EXPECT_LOG_OF(
        kServiceEvent, enter(kServiceEvent), plain("Char", "plugin_name", Value::chars("FXS")),
        plain("ByteArray", "event", Value::without_value(VARIANT_BYTES)),
        said("x", kServiceEvent, text("Invalid Event received from FXS event = %p", static_cast<void *>(nullptr))),
        kDestroyed, leave(kServiceEvent));
    EXPECT_THAT(call.errors(), IsEmpty());
}

TEST_F(ServiceEvent, BrokenRecordsEndOnTheFailurePath) {
    for (const BrokenRecord &broken : kBrokenRecords) {
        if (!broken.make(20).present)
            continue; // has an answer of its own
        again();
        SCOPED_TRACE(broken.name);
        Call call;
        call.attributes(0).with("plugin_name", Value::chars("FXS")).with("event", broken.make(20));
        EXPECT_EQ(call.run(__VoiceService_event), 2);
        EXPECT_LINES(bus().acts(), plain("Char", "plugin_name", Value::chars("FXS")),
                     plain("ByteArray", "event", broken.make(20)), kDestroyed);
        EXPECT_EQ(bus().complaints().size(), 1u);
        EXPECT_EQ(call.returned().str(), "none");
        EXPECT_THAT(call.errors(), IsEmpty());
        expect_settled(broken.name);
    }
}

// ----------------------------------------------------------------------------------------------------- print buffer

class PrintBuffer : public Handlers {};

TEST_F(PrintBuffer, TheAddressAdvancesByOneByte) {
    const std::string bytes = "\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0a\x0b\x0c";
    for (const uint32_t length : {0u, 1u, 3u, 4u, 7u, 8u, 12u}) {
        bus().clear_log();
        char *block = static_cast<char *>(malloc(length + 1)) + 1; // an odd address, exact at its end
        memcpy(block, bytes.data(), length);
        debug_libvoice_print_buffer(block, length);
        std::vector<std::string> expected;
        for (uint32_t i = 0; i < length / 4; ++i)
            expected.push_back(text("x debug_libvoice_print_buffer@kex_functions: %p %08X",
                                    static_cast<void *>(block + i), word_at(block, i)));
        EXPECT_EQ(fake::difference(expected, bus().log_without_markers()), "") << "length " << length;
        free(block - 1);
    }
}

// ------------------------------------------------------------------------------------------------------ every call

struct WholeCall : Named {
    kex_function_t *run;
    std::vector<std::pair<const char *, Value>> arguments;
    std::string called; // the plugin's callback that it reaches; empty: it is for the voice application

    void fill(Call &call) const {
        for (const auto &[argument, value] : arguments)
            call.with(argument, value);
    }
};

std::vector<WholeCall> every_call() {
    const std::string message = item(kId, "x");
    const std::vector<std::pair<const char *, Value>> media = {{"cnx_info", Value::bytes(std::string(704, 'c'))},
                                                               {"filedesc", Value::fds({-1, -1, -1})},
                                                               {"ep_line_id", Value::u32(1)}};
    const Value context = Value::u32(1), stream = Value::u32(2), stream_info = Value::bytes(kStream);
    return {
        {{"init"}, __init, {{"country", Value::chars("AT")}}, "voice_plugin_init(AT)"},
        {{"exit"}, __exit, {{"reason", Value::u32(1)}}, "voice_plugin_exit(1)"},
        {{"signal"}, __EndPoint_signal, {{"signal", Value::bytes(signal_bytes(5, message))}}, "voice_plugin_signal()"},
        {{"event"},
         __EndPoint_event,
         {{"event", Value::bytes(event_bytes(5, message))}, {"channel_id", Value::u32(1)}},
         "voice_plugin_event(endpoint 5, channel 1)"},
        {{"create"}, __EndPoint_create, media, "voice_plugin_create(5, 1)"},
        {{"modify"}, __EndPoint_modify, media, "voice_plugin_modify(5, 1)"},
        {{"destroy"}, __EndPoint_destroy, {{"ep_line_id", Value::u32(1)}}, "voice_plugin_destroy(5, 1)"},
        {{"get"},
         __EndPoint_get,
         {{"param_set_request", Value::bytes(set_bytes(item(kId, "")))}},
         "voice_plugin_get(result empty, 0)"},
        {{"set"}, __EndPoint_set, {{"param_set_params", Value::bytes(set_bytes(item(kId, "")))}}, "voice_plugin_set()"},
        {{"create_ctx"}, __create_ctx, {{"ctx_id", context}}, "voice_plugin_create_ctx(1)"},
        {{"add_stream"},
         __add_stream,
         {{"ep_id", Value::i32(5)},
          {"ctx_id", context},
          {"line_id", Value::u32(9)},
          {"stream_info", stream_info},
          {"filedesc", Value::fds({-1, -1, -1})}},
         "voice_plugin_add_stream(1, endpoint 5, line 9)"},
        {{"modify_stream"},
         __modify_stream,
         {{"ctx_id", context}, {"stream_info", stream_info}},
         "voice_plugin_modify_stream(1)"},
        {{"remove_stream"},
         __remove_stream,
         {{"ctx_id", context}, {"stream_id", stream}},
         "voice_plugin_remove_stream(1, 2)"},
        {{"destroy_ctx"}, __destroy_ctx, {{"ctx_id", context}}, "voice_plugin_destroy_ctx(1)"},
        {{"register_plugin"}, __VoiceService_register_plugin, {{"plugin_name", Value::chars("DECT")}}, ""},
        {{"deregister_plugin"}, __VoiceService_deregister_plugin, {{"plugin_name", Value::chars("FXS")}}, ""},
        {{"register_endpoint"},
         __VoiceService_register_endpoint,
         {{"plugin_name", Value::chars("FXS")},
          {"endpoint_name", Value::chars("FXS2")},
          {"endpoint_path", Value::chars("FXS.EndPoint.FXS2")},
          {"type", Value::u16(1)},
          {"codeclist", Value::bytes(std::string(32, 'k'))}},
         ""},
        {{"deregister_endpoint"}, __VoiceService_deregister_endpoint, {{"endpoint", Value::u16(5)}}, ""},
        {{"service_event"},
         __VoiceService_event,
         {{"plugin_name", Value::chars("FXS")}, {"event", Value::bytes(event_bytes(5, message))}},
         ""},
    };
}

class WithoutEventCallback : public Handlers {};

TEST_F(WithoutEventCallback, EveryOtherCallReachesItsCallback) {
    int reached = 0;
    for (const WholeCall &row : every_call()) {
        if (row.called.empty() || row.run == __EndPoint_event)
            continue;
        again();
        SCOPED_TRACE(row.name);
        libvoice_registered_callbacks.voice_plugin_event = nullptr;
        Call call;
        row.fill(call);
        EXPECT_EQ(call.on(endpoint_object()).run(row.run), 0);
        EXPECT_THAT(bus().acts(), testing::Contains(row.called));
        EXPECT_THAT(bus().complaints(), IsEmpty());
        expect_settled(row.name);
        ++reached;
    }
    EXPECT_EQ(reached, 13);
}

class NthFailure : public Handlers, public testing::WithParamInterface<WholeCall> {
protected:
    void set_up() {
        again();
        voice_plugin_entry_t *plugin = have_plugin(0, "FXS", bus().peer("fxs"));
        endpt_table[3].plugin_table = plugin;
        host.cnx_bytes = 704;
        host.descriptors.assign(3, -1);
    }
};

// With the n-th platform call failing, for every n until a run needs no more: a getter that fails is a missing
// argument, any other failure changes no promise to the caller, and nothing is left.
TEST_P(NthFailure, EveryRunEndsAsPromised) {
    const WholeCall &row = GetParam();
    const bool always_done = row.run == __EndPoint_event;
    for (unsigned n = 1;; ++n) {
        set_up();
        ASSERT_LT(n, 50u);
        Call call;
        row.fill(call.on(endpoint_object()));
        bus().fail_call(n);
        const int status = call.run(row.run);
        const std::string failed = bus().failed();
        if (failed.empty()) {
            EXPECT_EQ(status, 0) << "with nothing failing";
            EXPECT_THAT(bus().complaints(), IsEmpty());
            EXPECT_GT(n, row.arguments.size()) << "every argument is read";
            break;
        }
        SCOPED_TRACE(text("call %u, %s, failed", n, failed.c_str()));
        const bool missing_argument = failed.compare(0, 12, "argument_get") == 0;
        const bool refused = failed == "kex_sendRequest" || failed == "request_create_executeFunction";
        EXPECT_EQ(status, (missing_argument || refused) && !always_done ? 2 : 0);
        if (missing_argument) {
            EXPECT_EQ(bus().complaints().size(), 1u);
            EXPECT_EQ(call.errors().size(), 1u);
            EXPECT_THAT(bus().acts(), testing::Not(testing::Contains(testing::StartsWith("voice_plugin_"))));
        } else if (!refused) {
            EXPECT_THAT(bus().complaints(), IsEmpty());
        }
        expect_settled(text("%s, call %u (%s) fails", row.name, n, failed.c_str()));
    }
}

INSTANTIATE_TEST_SUITE_P(, NthFailure, testing::ValuesIn(every_call()), [](const auto &row) { return row.param.name; });

} // namespace
} // namespace voice_test
