// SPDX-License-Identifier: MIT
// The echo from its start to its end without an application: the fake bus registers it, calls it, and runs its loop.
#include "echo.h"
#include "libvoice_plugin.h"
#include "voice_fake/bus.h"
#include "voice_records.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <unistd.h>

using fake::bus;
using fake::Call;
using fake::Reply;
using fake::Value;

namespace {

void expect(bool holds, const char *what) {
    if (holds)
        return;
    std::fprintf(stderr, "not so: %s\n", what);
    for (const std::string &line : bus().log())
        std::fprintf(stderr, "  %s\n", line.c_str());
    std::exit(1);
}

void expect_nothing_wrong() {
    for (const std::string &wrong : bus().check())
        expect(false, wrong.c_str());
}

// The far ends of a line's media and control socket.
struct Far {
    int media[2], control[2];
    Far() {
        expect(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, media) == 0, "a media socket");
        expect(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, control) == 0, "a control socket");
    }
    ~Far() {
        for (const int one : {media[0], media[1], control[0], control[1]})
            close(one);
    }
    void send(const char *packet) const { expect(write(media[0], packet, strlen(packet)) > 0, "a packet leaves"); }
    std::string received() const {
        char packet[100];
        const ssize_t got = recv(media[0], packet, sizeof packet, MSG_DONTWAIT);
        return got < 0 ? "" : std::string(packet, static_cast<size_t>(got));
    }
};

kex_t *start() {
    bus().reset();
    bus().answer("register_plugin", Reply().value(Value::boolean(true)));
    // Each line has a number of its own.
    bus().answer_when("register_endpoint", "endpoint_name", Value::chars("ECHO1"), Reply().value(Value::i32(3)));
    bus().answer_when("register_endpoint", "endpoint_name", Value::chars("ECHO2"), Reply().value(Value::i32(4)));
    kex_t *made = echo_start();
    expect(made != nullptr, "it starts");
    bus().run_for(1000);
    Call call;
    expect(call.on(bus().object("echo")).with("country", Value::chars("DE")).run(__init) == KEX_FUNCTION_DONE,
           "\"init\"");
    expect(bus().class_of("echo.EndPoint.ECHO2") == "EndPoint", "both lines are objects");
    return made;
}

void end(kex_t *made) {
    if (peer_t *application = libvoice_get_kex_peer_handler())
        bus().close(application); // the library forgets its connection and its lines
    echo_end(made);
    expect_nothing_wrong();
}

int create(const char *line, const Far &far) {
    const voice_cnx_info_t info = {VOICE_CNX_VERSION, 0, {}, {}, {}};
    Call call;
    call.on(bus().object(std::string("echo.EndPoint.") + line));
    call.with("cnx_info", Value::bytes(&info, LIBVOICE_CNX_INFO_BYTES)).with("ep_line_id", Value::u32(0));
    return call.with("filedesc", Value::fds({far.media[1], far.control[1], -1})).run(__EndPoint_create);
}

void sends_back_what_comes() {
    kex_t *made = start();
    {
        const Far first, second;
        expect(create("ECHO1", first) == KEX_FUNCTION_DONE, "media is taken");
        expect(create("ECHO2", second) == KEX_FUNCTION_DONE, "on both lines");
        expect(bus().live().watches == 4, "two sockets of each are watched");
        first.send("one");
        expect(first.received().empty(), "nothing comes before the loop runs");
        bus().turn();
        expect(first.received() == "one", "the packet comes back");
        expect(second.received().empty(), "to that line only");

        bus().at(bus().now() + 20, [&] { second.send("two"); });
        bus().run_for(20);
        expect(second.received() == "two", "20 ms later on the other");

        Call call;
        call.on(bus().object("echo.EndPoint.ECHO1")).with("ep_line_id", Value::u32(0));
        expect(call.run(__EndPoint_destroy) == KEX_FUNCTION_DONE, "media ends");
        expect(bus().live().watches == 2, "and its sockets are not watched any more");
        first.send("three");
        bus().turn();
        expect(first.received().empty(), "nothing comes back");
    }
    end(made);
}

void closes_media_with_the_application() {
    kex_t *made = start();
    {
        const Far far;
        expect(create("ECHO1", far) == KEX_FUNCTION_DONE, "media is taken");
        bus().close(bus().peer("application"));
        expect(bus().live().watches == 0, "no socket is watched any more");
    }
    end(made);
}

void media_that_cannot_be_watched_is_closed() {
    kex_t *made = start();
    {
        const Far far;
        bus().fail("kex_watch", 2);
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

void does_not_start_by_halves() {
    for (const char *function : {"kex_create", "kex_declareFunctions", "kex_declareObject", "kex_declareTemplate"}) {
        bus().reset();
        bus().fail(function);
        expect(echo_start() == nullptr, function);
        expect_nothing_wrong();
    }
}

} // namespace

int main() {
    sends_back_what_comes();
    closes_media_with_the_application();
    media_that_cannot_be_watched_is_closed();
    answers_and_leaves();
    does_not_start_by_halves();
    std::puts("echo: all holds");
}
