// SPDX-License-Identifier: MIT
// The guide's echo lines from their start to their end without an application: the fake bus registers them, calls them,
// and runs their loop. Their callbacks one by one are tested beside them.
#include "echo_lines.h"
#include "expect.h"
#include "voice_records.h"
#include "voice_start.h"

#include <cstring>
#include <sys/socket.h>

using fake::bus;
using fake::Call;
using fake::Reply;
using fake::Value;

namespace {

// A packet of RTP, its source and its first byte of sound; and what comes back.
const std::string kHead("\x80\x08\0\1\0\0\0\xa0", 8);
std::string packet(const char *sound) {
    return kHead + std::string("\1\2\3\4") + sound;
}
std::string echo(const char *sound) {
    return kHead + std::string("\xfe\2\3\4") + sound;
}

// The far end of a line's media.
struct Far {
    int media[2];
    Far() { expect(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, media) == 0, "a media socket"); }
    ~Far() {
        close(media[0]);
        close(media[1]);
    }
    void send(const std::string &bytes) const {
        expect(write(media[0], bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()), "a packet leaves");
    }
    std::string received() const {
        char bytes[100];
        const ssize_t got = recv(media[0], bytes, sizeof bytes, MSG_DONTWAIT);
        return got < 0 ? "" : std::string(bytes, static_cast<size_t>(got));
    }
};

int32_t leave(uint32_t) {
    kex_stop(libvoice_get_kex_handler());
    return 0;
}

void application_lost(kex_t *, peer_t *, void *) {
    echo_lines_lost();
}

// The application says that the plugin is registered: it has lines to register.
void init() {
    Call call;
    expect(call.on(bus().object("echo")).with("country", Value::chars("DE")).run(__init) == KEX_FUNCTION_DONE,
           "\"init\"");
}

kex_t *start() {
    bus().reset();
    bus().answer("register_plugin", Reply().value(Value::boolean(true)));
    // Each line has a number of its own.
    bus().answer_when("register_endpoint", "endpoint_name", Value::chars("ECHO1"), Reply().value(Value::i32(3)));
    bus().answer_when("register_endpoint", "endpoint_name", Value::chars("ECHO2"), Reply().value(Value::i32(4)));
    kex_t *made = kex_create("echo");
    libvoice_callbacks_t callbacks = echo_lines_callbacks();
    callbacks.voice_plugin_exit = leave;
    const char *wrong = voice_plugin_start(made, "echo", &callbacks);
    expect(wrong == nullptr, wrong);
    kex_onPeerClosed(made, application_lost, nullptr);
    bus().run_for(1000);
    init();
    expect(bus().class_of("echo.EndPoint.ECHO2") == "EndPoint", "both lines are objects");
    return made;
}

void end(kex_t *made) {
    if (peer_t *application = libvoice_get_kex_peer_handler())
        bus().close(application); // the library forgets its connection and its lines
    kex_destroy(made);
    expect_nothing_wrong();
}

int create(const char *line, const Far &far) {
    const voice_codec_t pcma = VOICE_CODEC_PCMA;
    const voice_media_t format = voice_media_of(&pcma, VOICE_MODE_SEND_RECEIVE);
    voice_cnx_info_t info;
    voice_connection_begin(&info, &format);
    Call call;
    call.on(bus().object(std::string("echo.EndPoint.") + line));
    call.with("cnx_info", Value::bytes(&info, LIBVOICE_CNX_INFO_BYTES)).with("ep_line_id", Value::u32(0));
    return call.with("filedesc", Value::fds({far.media[1], -1, -1})).run(__EndPoint_create);
}

void sends_back_what_comes() {
    kex_t *made = start();
    {
        const Far first, second;
        expect(create("ECHO1", first) == KEX_FUNCTION_DONE, "media is taken");
        expect(create("ECHO2", second) == KEX_FUNCTION_DONE, "on both lines");
        expect(bus().live().watches == 2, "a socket of each is watched");
        first.send(packet("one"));
        expect(first.received().empty(), "nothing comes before the loop runs");
        bus().turn();
        expect(first.received() == echo("one"), "the packet comes back");
        expect(second.received().empty(), "to that line only");

        bus().at(bus().now() + 20, [&] { second.send(packet("two")); });
        bus().run_for(20);
        expect(second.received() == echo("two"), "20 ms later on the other");

        Call call;
        call.on(bus().object("echo.EndPoint.ECHO1")).with("ep_line_id", Value::u32(0));
        expect(call.run(__EndPoint_destroy) == KEX_FUNCTION_DONE, "media ends");
        expect(bus().live().watches == 1, "and its socket is not watched any more");
        first.send(packet("three"));
        bus().turn();
        expect(first.received().empty(), "nothing comes back");
    }
    end(made);
}

void closes_media_with_the_application_and_comes_back() {
    kex_t *made = start();
    {
        const Far far;
        expect(create("ECHO1", far) == KEX_FUNCTION_DONE, "media is taken");
        bus().close(bus().peer("application"));
        expect(bus().live().watches == 0, "no socket is watched any more");

        bus().run_for(10000); // the library connects to the next application, which says "init" too
        init();
        expect(libvoice_get_endpoint_by_name("ECHO2") == 4, "the lines are registered again");
        expect(create("ECHO1", far) == KEX_FUNCTION_DONE, "and take media again");
    }
    end(made);
}

void media_that_cannot_be_watched_is_closed() {
    kex_t *made = start();
    {
        const Far far;
        bus().fail("kex_watch");
        expect(create("ECHO1", far) == KEX_FUNCTION_FAILED, "the application is told");
        expect(bus().live().watches == 0, "and nothing is watched");
    }
    end(made);
}

void answers_and_leaves() {
    kex_t *made = start();
    const voice_signal_t ring = {4, LIBVOICE_SIGNAL_al_ri, 0, 1, 0, 0, 0};
    bus().at(2000, [&] {
        Call call;
        call.on(bus().object("echo.EndPoint.ECHO2")).with("signal", Value::bytes(&ring, sizeof ring));
        call.run(__EndPoint_signal);
    });
    bus().at(3000, [] { Call().on(bus().object("echo")).with("reason", Value::u32(32)).run(__exit); });
    expect(kex_run(made) == 0, "its loop ends");
    expect(bus().now() == 3000, "with \"exit\"");
    const fake::RequestRecord &last = bus().record(bus().requests_made());
    const voice_event_t off_hook = {4, LIBVOICE_EVENT_al_of, 0, 0, 0};
    expect(last.parameter("event").str() == Value::bytes(&off_hook, sizeof off_hook).str(), "the call was answered");
    end(made);
}

} // namespace

int main() {
    sends_back_what_comes();
    closes_media_with_the_application_and_comes_back();
    media_that_cannot_be_watched_is_closed();
    answers_and_leaves();
    std::puts("echo: all holds");
}
