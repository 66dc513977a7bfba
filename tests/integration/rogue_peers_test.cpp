// SPDX-License-Identifier: MIT
// Real hosts against peers that send them broken records: each is refused, nothing is left open, and the host goes on.
#include "host_process.h"
#include "udp_pair.h"
#include "voice_records.h"

#include "kex_host.h"

#include <gtest/gtest.h>

#include <optional>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using bytes = std::vector<uint8_t>;

// One call with its arguments, sent as it is, and what came back.
class Call {
public:
    Call(kex_t *bus, peer_t *peer, const std::string &path, const char *function)
        : bus_(bus), peer_(peer), request_(request_create_executeFunction(path.c_str(), function, 0x8001)) {}
    ~Call() { request_destroy(request_); }
    Call &with(const char *name, const bytes &value) {
        variant_t v;
        variant_initialize(&v, VARIANT_BYTES);
        variant_setByteArray(&v, value.data(), static_cast<uint32_t>(value.size()));
        return add(name, &v);
    }
    Call &with(const char *name, uint32_t value) {
        variant_t v;
        variant_initialize(&v, VARIANT_UINT32);
        variant_setUInt32(&v, value);
        return add(name, &v);
    }
    Call &with_signed(const char *name, int32_t value) {
        variant_t v;
        variant_initialize(&v, VARIANT_INT32);
        variant_setInt32(&v, value);
        return add(name, &v);
    }
    Call &with_type(uint16_t value) {
        variant_t v;
        variant_initialize(&v, VARIANT_UINT16);
        variant_setUInt16(&v, value);
        return add("type", &v);
    }
    Call &with(const char *name, const std::string &value) {
        variant_t v;
        variant_initialize(&v, VARIANT_TEXT);
        variant_setChar(&v, value.c_str());
        return add(name, &v);
    }
    Call &with_descriptors(const std::vector<int> &descriptors) {
        variant_t list, v;
        variant_initialize(&list, VARIANT_LIST);
        for (int descriptor : descriptors) {
            variant_initialize(&v, VARIANT_FD);
            variant_setFd(&v, descriptor);
            variant_list_add(variant_da_list(&list), &v);
        }
        return add("filedesc", &list);
    }
    // 1 true, 0 false or no boolean, -1 no reply within 5 s.
    int answer() {
        timeval limit = {5, 0};
        if (!kex_sendRequest(bus_, peer_, request_) || !kex_waitForReply(bus_, request_, &limit))
            return -1;
        int yes = 0;
        for (reply_item_t *item = reply_firstItem(request_reply(request_)); item != nullptr;
             item = reply_nextItem(item))
            if (reply_item_type(item) == REPLY_ITEM_RETURN_VALUE)
                variant_toBool(reply_item_returnValue(item), &yes);
        return yes;
    }

private:
    Call &add(const char *name, variant_t *v) {
        request_addParameter(request_, name, v);
        variant_cleanup(v);
        return *this;
    }
    kex_t *bus_;
    peer_t *peer_;
    request_t *request_;
};

template <typename Message>
bytes bytes_of(const Message &message) {
    const uint8_t *first = reinterpret_cast<const uint8_t *>(&message);
    return bytes(first, first + sizeof message.record + message.record.length);
}

bytes signal_of(int32_t endpoint, uint32_t signal, uint32_t parameter = 0, const std::string &value = "") {
    voice_signal_message_t message;
    voice_signal_begin(&message, endpoint, signal, 0);
    if (parameter != 0)
        voice_signal_add(&message, parameter, voice_id_value_type(parameter), value.data(),
                         static_cast<uint32_t>(value.size()));
    return bytes_of(message);
}

bytes resized(bytes value, size_t size) {
    value.resize(size);
    return value;
}

void word_add(voice_cnx_info_t *info, uint32_t id, uint32_t value) {
    voice_params_add(info->params, sizeof info->params, &info->length, id, VOICE_VALUE_INTEGER, &value, sizeof value);
}

voice_cnx_info_t good_connection() {
    voice_cnx_info_t info = {};
    info.version = VOICE_CNX_VERSION;
    for (uint32_t id : {LIBVOICE_PARAM_sdp_upstream_codec, LIBVOICE_PARAM_sdp_upstream_payload,
                        LIBVOICE_PARAM_sdp_downstream_codec, LIBVOICE_PARAM_sdp_downstream_payload})
        word_add(&info, id, LIBVOICE_CODEC_PCMA);
    word_add(&info, LIBVOICE_PARAM_sdp_upstream_ptime, 20);
    return info;
}

bytes record_of(const void *record, size_t size) {
    const uint8_t *first = static_cast<const uint8_t *>(record);
    return bytes(first, first + size);
}

class Rogue : public testing::Test {
protected:
    void SetUp() override {
        char name[] = "/tmp/hosts-rogue-XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        directory_ = name;
        socket_ = directory_ + "/bus";
        bus_ = kex_create("rogue");
        libvoice_set_kex_handler(bus_);
        ASSERT_TRUE(kex_declareFunctions(bus_, libvoice_bus_functions(), LIBVOICE_BUS_FUNCTIONS,
                                         LIBVOICE_BUS_FUNCTION_COLUMNS));
    }
    void TearDown() override {
        kex_destroy(bus_);
        libvoice_set_kex_handler(nullptr);
        std::string command = "rm -rf " + directory_;
        EXPECT_EQ(system(command.c_str()), 0);
    }
    static void turn() { kex_dispatch(bus_); }

    static inline kex_t *bus_;
    std::string directory_, socket_;
};

// ------------------------------------------------------------------------------------------------ A rogue application

class RogueApplication : public Rogue {
protected:
    void SetUp() override {
        Rogue::SetUp();
        kex_declareObject(bus_, LIBVOICE_APPLICATION_PATH, LIBVOICE_APPLICATION_CLASS);
        libvoice_app_callbacks_t callbacks = {};
        callbacks.voice_app_get_country = [](char *country, uint32_t) -> int32_t {
            memcpy(country, "DE", 3);
            return 0;
        };
        callbacks.voice_app_event = [](libvoice_event_t *) -> int32_t { return 0; };
        callbacks.voice_app_register_endpoint = [](libvoice_endpoint_t *) -> int32_t { return refuse_endpoints_; };
        libvoice_app_init(callbacks);
        libvoice_plugin_init_table();
        refuse_endpoints_ = 0;
        ASSERT_NE(libvoice_app_connect(kex_connection(bus_), socket_.c_str()), nullptr);
    }
    Call call(const char *path, const char *function) {
        return Call(bus_, libvoice_plugin_get_peer_by_name("fxs1"), path, function);
    }
    static inline int32_t refuse_endpoints_;
};

constexpr char kLine[] = "fxs1.EndPoint.FXS1";

// An fxs_plugin with two lines, and what a test hands over as descriptors.
class CalledFxsPlugin : public RogueApplication {
protected:
    void SetUp() override {
        RogueApplication::SetUp();
        host_.emplace(HOST_FXS, socket_);
        host_->turn_ = turn;
        ASSERT_TRUE(host_->says("ready country=DE lines=2"));
        endpoint_ = libvoice_get_endpoint_by_name("FXS1");
        ASSERT_EQ(pipe(pipe_), 0);
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, local_), 0);
        make_udp_pair(pair_);
        // The clock of all sound is made with the first try, and stays.
        EXPECT_EQ(call(kLine, "create")
                      .with("cnx_info", info_)
                      .with_descriptors({pipe_[0], pipe_[1], -1})
                      .with("ep_line_id", 0u)
                      .answer(),
                  0);
        before_ = host_->descriptors();
    }
    // Whatever it was sent, it goes on, and holds what it held at first.
    void TearDown() override {
        EXPECT_EQ(call(kLine, "signal").with("signal", signal_of(endpoint_, LIBVOICE_SIGNAL_cg_dt)).answer(), 1);
        EXPECT_TRUE(host_->says("1 plays dial-tone"));
        expect_nothing_more("at the end");
        EXPECT_EQ(host_->leave(), 0);
        for (const int descriptor : {pipe_[0], pipe_[1], pair_[0], pair_[1], local_[0], local_[1]})
            close(descriptor);
        host_.reset();
        RogueApplication::TearDown();
    }
    void expect_nothing_more(const char *what) {
        EXPECT_TRUE(host_->comes_to_hold(before_)) << what << ": " << host_->descriptors() << ", not " << before_;
    }

    const voice_cnx_info_t good_ = good_connection();
    const bytes info_ = record_of(&good_, LIBVOICE_CNX_INFO_BYTES);
    std::optional<Host> host_;
    int32_t endpoint_ = -1;
    int pipe_[2], pair_[2], local_[2];
    int before_ = 0;
};

} // namespace

TEST_F(CalledFxsPlugin, RejectsBrokenSignals) {
    bytes too_long = signal_of(endpoint_, LIBVOICE_SIGNAL_cg_dt);
    const bytes good = too_long;
    too_long[24] = too_long[25] = too_long[26] = too_long[27] = 0xFF;
    const auto display = [this](const std::string &block) {
        return signal_of(endpoint_, LIBVOICE_SIGNAL_andisp_data, LIBVOICE_PARAM_andisp_data_db, block);
    };
    const struct {
        const char *what;
        bytes signal;
    } rows[] = {
        {"no bytes", {}},
        {"half a head", resized(good, 5)},
        {"one byte short", resized(good, 27)},
        {"a length beyond the bytes", too_long},
        {"unknown endpoint", signal_of(99, LIBVOICE_SIGNAL_cg_dt)},
        {"no endpoint", signal_of(-1, LIBVOICE_SIGNAL_cg_dt)},
        {"unknown signal", signal_of(endpoint_, 0x12345678)},
        {"no data block", signal_of(endpoint_, LIBVOICE_SIGNAL_andisp_data)},
        {"an empty data block", display("")},
        {"a data block without its bytes", display("80FF02")},
        {"a data block of a wrong sum", display("800081")},
        {"a data block that is no text", display(std::string(400, '\xFF'))},
        {"half a tone", signal_of(endpoint_, LIBVOICE_SIGNAL_tonegen_pt, LIBVOICE_PARAM_tonegen_pt_tl, "abc")},
    };
    for (const auto &row : rows)
        EXPECT_EQ(call(kLine, "signal").with("signal", row.signal).answer(), 0) << row.what;
}

TEST_F(CalledFxsPlugin, RejectsBrokenMediaAndKeepsNothing) {
    voice_cnx_info_t old = good_, overlong = good_, video = good_;
    old.version = 7;
    overlong.length = 0xFFFFFFFF;
    video.length = 0;
    const std::vector<int> sockets = {pair_[0], pair_[1], -1};
    const struct {
        const char *what;
        bytes info;
        std::vector<int> descriptors;
        uint32_t line;
    } rows[] = {
        {"no record", {}, sockets, 0},
        {"another version", record_of(&old, LIBVOICE_CNX_INFO_BYTES), sockets, 0},
        {"a length beyond its room", record_of(&overlong, LIBVOICE_CNX_INFO_BYTES), sockets, 0},
        {"no codec", record_of(&video, LIBVOICE_CNX_INFO_BYTES), sockets, 0},
        {"no descriptors", info_, {}, 0},
        {"descriptors of none", info_, {-1, -1, -1}, 0},
        {"pipes for sockets", info_, {pipe_[0], pipe_[1], -1}, 0},
        {"a pipe for the control socket", info_, {pair_[0], pipe_[0], -1}, 0},
        {"sockets of another kind", info_, {local_[0], local_[1], -1}, 0},
        {"twelve descriptors and no such line", info_, std::vector<int>(12, pair_[0]), 7},
        {"the last line there could be", info_, sockets, 0xFFFFFFFF},
        {"addresses cut off", resized(info_, 705), {}, 0},
        {"addresses cut off by a byte", resized(info_, 735), {}, 0},
        {"addresses of nothing", resized(info_, 736), {}, 0},
    };
    for (const auto &row : rows) {
        for (const char *function : {"create", "modify"})
            EXPECT_EQ(call(kLine, function)
                          .with("cnx_info", row.info)
                          .with_descriptors(row.descriptors)
                          .with("ep_line_id", row.line)
                          .answer(),
                      0)
                << function << ": " << row.what;
        expect_nothing_more(row.what);
    }
    EXPECT_EQ(call(kLine, "destroy").with("ep_line_id", 0u).answer(), 0);
    EXPECT_EQ(call(kLine, "destroy").with("ep_line_id", 0xFFFFFFFFu).answer(), 0);
}

TEST_F(CalledFxsPlugin, RejectsBrokenParameterSets) {
    for (const char *function : {"set", "get"}) {
        const char *argument = strcmp(function, "set") == 0 ? "param_set_params" : "param_set_request";
        const bytes empty(8, 0), cut = {0, 0, 0, 0, 100, 0, 0, 0, 1, 2, 3};
        bytes stranger(20, 0);
        const uint32_t words[] = {0, 12, LIBVOICE_PARAM_zil_ep_id, 4, 77};
        memcpy(stranger.data(), words, sizeof words);
        for (const bytes &set : {bytes(), resized(empty, 7), empty, cut, stranger})
            EXPECT_EQ(call(kLine, function).with(argument, set).answer(), 0) << function << " of " << set.size();
    }
}

TEST_F(CalledFxsPlugin, RejectsBrokenStreamsAndHasRoomForSoManyContexts) {
    voice_stream_info_t stream = {};
    stream.stream = 1;
    stream.mode = 99;
    const bytes streams[] = {{}, bytes(10, 0xFF), record_of(&stream, sizeof stream)};
    for (const bytes &row : streams) {
        EXPECT_EQ(call("fxs1", "add_stream")
                      .with_signed("ep_id", endpoint_)
                      .with("ctx_id", 5u)
                      .with("line_id", 0u)
                      .with("stream_info", row)
                      .with_descriptors({pair_[0], pair_[1], pipe_[0]})
                      .answer(),
                  0);
        EXPECT_EQ(call("fxs1", "modify_stream").with("ctx_id", 5u).with("stream_info", row).answer(), 0);
    }
    EXPECT_EQ(call("fxs1", "create_ctx").with("ctx_id", 0u).answer(), 0);
    EXPECT_EQ(call("fxs1", "remove_stream").with("ctx_id", 0u).with("stream_id", 0u).answer(), 0);
    EXPECT_EQ(call("fxs1", "destroy_ctx").with("ctx_id", 12345u).answer(), 0);
    for (uint32_t context = 1; context <= 40; context++) // more than it has room for
        EXPECT_GE(call("fxs1", "create_ctx").with("ctx_id", context).answer(), 0);
}

TEST_F(RogueApplication, RefusedLinesAreTakenOutAgain) {
    refuse_endpoints_ = 1;
    Host host(HOST_FXS, socket_);
    host.turn_ = turn;
    ASSERT_TRUE(host.says("1 refused: the application does not take FXS1"));
    ASSERT_TRUE(host.says("ready country=DE lines=0"));
    EXPECT_EQ(call("fxs1.EndPoint.FXS1", "destroy").with("ep_line_id", 0u).answer(), 0) << "there is no such object";
    refuse_endpoints_ = 0;
    host.forget();
    EXPECT_TRUE(libvoice_kex_init_plugin("fxs1", "AT")); // "init" may come twice
    ASSERT_TRUE(host.says("ready country=AT lines=2"));
    host.forget();
    EXPECT_TRUE(libvoice_kex_init_plugin("fxs1", "AT"));
    ASSERT_TRUE(host.says("ready country=AT lines=2"));
    int used = 0;
    for (const libvoice_endpoint_t &entry : endpt_table)
        used += static_cast<int>(entry.used);
    EXPECT_EQ(used, 2) << "a line that is registered is not registered again";
    EXPECT_EQ(host.leave(), 0);
}

// ------------------------------------------------------------------------------------------------------ A rogue plugin

namespace {

struct Offered {
    const char *what;
    std::string plugin, name, path;
    uint16_t type;
};
// A good one.
const Offered kA1 = {"", "bad1", "A1", "bad1.EndPoint.A1", VOICE_ENDPOINT_FXS};

// A voice_application, where we are registered as the plugin bad1.
class CalledApplication : public Rogue {
protected:
    void SetUp() override {
        Rogue::SetUp();
        host_.emplace(HOST_APPLICATION, socket_);
        host_->turn_ = turn; // answers "init": with an error, for there is no such object here
        ASSERT_TRUE(host_->says("ready"));
        peer_ = kex_client_connect(bus_, ("kex://ipc:[" + socket_ + "]").c_str());
        ASSERT_NE(peer_, nullptr);
        ASSERT_EQ(call("register_plugin").with("plugin_name", std::string("bad1")).answer(), 1);
        ASSERT_TRUE(host_->says("plugin bad1 registered"));
        before_ = host_->descriptors();
    }
    // Whatever it was sent, it takes notice when we go, and holds no more than it did before.
    void TearDown() override {
        peer_disconnect(peer_);
        while (kex_dispatch(bus_) > 0) {
        }
        EXPECT_TRUE(host_->says("plugin bad1 lost"));
        EXPECT_EQ(host_->descriptors(), before_ - 1) << "the connection, and nothing else";
        EXPECT_EQ(host_->leave(), 0);
        host_.reset();
        Rogue::TearDown();
    }
    Call call(const char *function) { return Call(bus_, peer_, LIBVOICE_APPLICATION_PATH, function); }
    int add(const Offered &endpoint, const bytes &codecs) {
        host_->forget();
        return call("register_endpoint")
            .with("plugin_name", endpoint.plugin)
            .with("endpoint_name", endpoint.name)
            .with("endpoint_path", endpoint.path)
            .with_type(endpoint.type)
            .with("codeclist", codecs)
            .answer();
    }
    int send(const bytes &event) {
        return call("event").with("plugin_name", std::string("bad1")).with("event", event).answer();
    }

    std::optional<Host> host_;
    peer_t *peer_ = nullptr;
    int before_ = 0;
};

bytes event_of(int32_t endpoint, uint32_t event, uint32_t line = 0) {
    voice_event_message_t message;
    voice_event_begin(&message, endpoint, event, line);
    return bytes_of(message);
}

} // namespace

TEST_F(CalledApplication, RejectsEndpointsThatCannotBe) {
    const Offered rows[] = {
        {"no name", "bad1", "", "bad1.EndPoint.", VOICE_ENDPOINT_FXS},
        {"a dot", "bad1", "A.B", "bad1.EndPoint.A.B", VOICE_ENDPOINT_FXS},
        {"a line break", "bad1", "A\nB", "bad1.EndPoint.A\nB", VOICE_ENDPOINT_FXS},
        {"another's path", "bad1", "A1", "fxs1.EndPoint.A1", VOICE_ENDPOINT_FXS},
        {"a name that was cut", "bad1", "ABCDEFGHIJKLMNOPQ", "bad1.EndPoint.ABCDEFGHIJKLMNOPQ", VOICE_ENDPOINT_FXS},
        {"an unknown type", "bad1", "A1", "bad1.EndPoint.A1", 9},
        {"an unknown plugin", "bad2", "A1", "bad2.EndPoint.A1", VOICE_ENDPOINT_FXS},
    };
    for (const Offered &row : rows) {
        EXPECT_EQ(add(row, {}), 0);
        if (row.plugin == "bad1") {
            EXPECT_TRUE(host_->says("endpoint refused plugin=bad1")) << row.what;
        }
    }
    // One that is fine but for its codecs: 40 of them, and none that anybody knows.
    EXPECT_EQ(add(kA1, bytes(640, 0xFF)), 0) << "the answer is a number, no boolean";
    ASSERT_TRUE(host_->says("endpoint 0 bad1.A1 number=101"));
    EXPECT_EQ(add(kA1, {}), 0);
    EXPECT_TRUE(host_->says("endpoint refused plugin=bad1: registered already"));
}

TEST_F(CalledApplication, BrokenRecordsLeaveAnApplicationAlive) {
    add(kA1, bytes(640, 0xFF));
    ASSERT_TRUE(host_->says("endpoint 0 bad1.A1 number=101"));
    const bytes off_hook = event_of(0, LIBVOICE_EVENT_al_of);
    bytes too_long = off_hook;
    too_long[16] = too_long[17] = too_long[18] = too_long[19] = 0xFF;
    for (const bytes &row : {bytes(), resized(off_hook, 3), resized(off_hook, 19), too_long})
        EXPECT_EQ(send(row), 0);
    for (const int32_t endpoint : {-1, 1, 31, 32, 99, INT32_MIN, INT32_MAX})
        EXPECT_EQ(send(event_of(endpoint, LIBVOICE_EVENT_al_of)), 0);
    // Off hook, a number of its own, then gone without a word.
    host_->forget();
    EXPECT_EQ(send(off_hook), 0);
    EXPECT_TRUE(host_->says("line 101 dial-tone"));
    peer_disconnect(peer_);
    while (kex_dispatch(bus_) > 0) {
    }
    EXPECT_TRUE(host_->says("endpoint 0 bad1.A1 gone"));
}

// Everything that an endpoint can report, at any time, with no parameters, with broken ones, from lines that are not there.
TEST_F(CalledApplication, EveryEventWithBrokenParametersLeavesItAlive) {
    add(kA1, bytes(640, 0xFF));
    ASSERT_TRUE(host_->says("endpoint 0 bad1.A1 number=101"));
    const std::pair<uint32_t, std::string> broken[] = {{LIBVOICE_PARAM_dd_ce_ds, "12\n\xFF"},
                                                       {LIBVOICE_PARAM_g_cause_failurecause, "xx"},
                                                       {LIBVOICE_PARAM_fxo_ri_cid, "80FF"},
                                                       {LIBVOICE_PARAM_zil_call_stats_txpkts, "x"}};
    for (const uint32_t id : {LIBVOICE_EVENT_al_fl, LIBVOICE_EVENT_al_on, LIBVOICE_EVENT_dd_ce, LIBVOICE_EVENT_dd_d5,
                              LIBVOICE_EVENT_g_cause, LIBVOICE_EVENT_fxo_ri, LIBVOICE_EVENT_fxo_rh,
                              LIBVOICE_EVENT_zil_call_stats, LIBVOICE_EVENT_zil_dect_property, 0xFFFFFFFFu})
        for (const uint32_t line : {0u, 1u, 2u, 0xFFFFFFFFu}) {
            EXPECT_EQ(send(event_of(0, id, line)), 0);
            voice_event_message_t event;
            voice_event_begin(&event, 0, id, line);
            for (const auto &[parameter, value] : broken)
                voice_event_add(&event, parameter, voice_id_value_type(parameter), value.data(),
                                static_cast<uint32_t>(value.size()));
            EXPECT_EQ(send(bytes_of(event)), 0);
        }
    host_->forget();
    EXPECT_EQ(send(event_of(0, LIBVOICE_EVENT_al_of)), 0);
    EXPECT_TRUE(host_->says("line 101 dial-tone")) << "it goes on";
}

TEST_F(Rogue, PluginsWithoutANameLeaveTheTableToo) {
    Host host(HOST_APPLICATION, socket_);
    ASSERT_TRUE(host.says("ready"));
    auto registers = [this](const char *name) {
        peer_t *peer = kex_client_connect(bus_, ("kex://ipc:[" + socket_ + "]").c_str());
        EXPECT_NE(peer, nullptr);
        Call(bus_, peer, LIBVOICE_APPLICATION_PATH, "register_plugin").with("plugin_name", std::string(name)).answer();
        peer_disconnect(peer);
        while (kex_dispatch(bus_) > 0) {
        }
    };
    for (int i = 0; i < LIBVOICE_PLUGINS; i++)
        registers("");
    registers("late");
    EXPECT_TRUE(host.says("plugin late registered"));
    EXPECT_TRUE(host.says("plugin late lost"));
    EXPECT_EQ(host.leave(), 0);
}

// In a process of its own: one may have as many connections as there are entries.
int registers_elsewhere(const std::string &socket, const std::string &name) {
    const pid_t child = fork();
    if (child == 0) {
        kex_t *bus = kex_create("late");
        peer_t *peer = kex_client_connect(bus, ("kex://ipc:[" + socket + "]").c_str());
        const bool registered =
            Call(bus, peer, LIBVOICE_APPLICATION_PATH, "register_plugin").with("plugin_name", name).answer() == 1;
        _exit(registered ? 1 : 0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(Rogue, PluginsBeyondTheTableAreHarmless) {
    Host host(HOST_APPLICATION, socket_);
    ASSERT_TRUE(host.says("ready"));
    std::vector<peer_t *> peers;
    for (int i = 0; i < LIBVOICE_PLUGINS; i++) {
        peers.push_back(kex_client_connect(bus_, ("kex://ipc:[" + socket_ + "]").c_str()));
        ASSERT_NE(peers.back(), nullptr);
        EXPECT_EQ(Call(bus_, peers.back(), LIBVOICE_APPLICATION_PATH, "register_plugin")
                      .with("plugin_name", "p" + std::to_string(i))
                      .answer(),
                  1)
            << i;
    }
    // The library sends "init" by name, and one without an entry has none.
    for (const char *name : {"p8", "p9"})
        EXPECT_EQ(registers_elsewhere(socket_, name), 0) << name;
    for (peer_t *peer : peers)
        peer_disconnect(peer);
    while (kex_dispatch(bus_) > 0) {
    }
    EXPECT_TRUE(host.says("plugin p7 lost"));
    EXPECT_EQ(host.leave(), 0);
}
