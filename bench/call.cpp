// SPDX-License-Identifier: MIT
// A call over the bundled bus against a raw SOCK_SEQPACKET socket and against sd-bus (libsystemd, peer to peer), with
// the same payload: a plugin name and an event record of 56 bytes. Round trip: call, reply, one after another. One way:
// a run of calls without replies, timed until the receiver has handled the last. Both processes run on one CPU.
//
//   ./bench/run call          prints one row per path and the two ratios
//   bench_call --once         one iteration of each path, as a test

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include "kex_host.h"
#include "measure.h"

namespace {

constexpr const char *kPlugin = "fxs1";
unsigned char event_record[56];

int round_trips = 20000;
int one_way_calls = 20000;
int rounds = 7;

[[noreturn]] void die(const char *what) {
    std::fprintf(stderr, "bench_call: %s: %s\n", what, std::strerror(errno));
    std::exit(1);
}

// One path between two processes: the child serves, the parent measures.
struct Times {
    double round_trip_ns;
    double one_way_ns;
};

void write_all(int fd, const char *byte) {
    if (write(fd, byte, 1) != 1)
        die("write");
}

void read_byte(int fd) {
    char byte;
    if (read(fd, &byte, 1) != 1)
        die("the serving process is gone");
}

// ---- Raw socket: as many bytes as the bus's packets carry, copied out of and into the payload.

constexpr size_t kRawCall = 180;
constexpr size_t kRawReply = 48;

void raw_serve(int fd) {
    char in[512];
    char out[kRawReply] = {};
    int handled = 0;
    for (;;) {
        const ssize_t n = recv(fd, in, sizeof in, 0);
        if (n <= 0)
            _exit(0);
        const bool wants_reply = in[0] != 0;
        if (wants_reply && send(fd, out, sizeof out, 0) < 0)
            _exit(1);
        if (!wants_reply && ++handled == one_way_calls) {
            handled = 0;
            send(fd, out, sizeof out, 0);
        }
    }
}

Times raw_measure(int fd) {
    char call[kRawCall] = {};
    char reply[512];
    std::memcpy(call + 100, event_record, sizeof event_record);
    call[0] = 1;
    double start = now_ns();
    for (int i = 0; i < round_trips; ++i)
        if (send(fd, call, sizeof call, 0) < 0 || recv(fd, reply, sizeof reply, 0) <= 0)
            die("raw socket");
    Times times = {(now_ns() - start) / round_trips, 0};
    call[0] = 0;
    start = now_ns();
    for (int i = 0; i < one_way_calls; ++i)
        if (send(fd, call, sizeof call, 0) < 0)
            die("raw socket");
    if (recv(fd, reply, sizeof reply, 0) <= 0)
        die("raw socket");
    times.one_way_ns = (now_ns() - start) / one_way_calls;
    return times;
}

// ---- sd-bus, peer to peer over a socket pair.

int sd_handled;

int sd_event(sd_bus_message *m, void *, sd_bus_error *) {
    const char *plugin = nullptr;
    const void *record = nullptr;
    size_t length = 0;
    if (sd_bus_message_read(m, "s", &plugin) < 0 || sd_bus_message_read_array(m, 'y', &record, &length) < 0)
        return -EINVAL;
    keep(record);
    ++sd_handled;
    if (sd_bus_message_get_expect_reply(m))
        return sd_bus_reply_method_return(m, "b", 1);
    return 1;
}

const sd_bus_vtable sd_functions[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("event", "say", "b", sd_event, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

sd_bus *sd_open(int fd, bool server) {
    sd_bus *bus = nullptr;
    if (sd_bus_new(&bus) < 0 || sd_bus_set_fd(bus, fd, fd) < 0)
        die("sd_bus_new");
    if (server) {
        sd_id128_t id = {};
        id.bytes[0] = 1;
        sd_bus_set_server(bus, 1, id);
    }
    sd_bus_set_anonymous(bus, 1);
    if (sd_bus_start(bus) < 0)
        die("sd_bus_start");
    return bus;
}

void sd_serve(int fd) {
    sd_bus *bus = sd_open(fd, true);
    sd_bus_add_object_vtable(bus, nullptr, "/VoiceService", "voice.Service", sd_functions, nullptr);
    for (;;) {
        const int r = sd_bus_process(bus, nullptr);
        if (r < 0)
            _exit(0);
        if (sd_handled >= round_trips + one_way_calls) { // the measuring side has sent all of a round
            sd_handled = 0;
            sd_bus_message *done = nullptr;
            sd_bus_message_new_signal(bus, &done, "/VoiceService", "voice.Service", "done");
            sd_bus_send(bus, done, nullptr);
            sd_bus_message_unref(done);
        }
        if (r == 0 && sd_bus_wait(bus, UINT64_MAX) < 0)
            _exit(0);
    }
}

sd_bus_message *sd_call(sd_bus *bus) {
    sd_bus_message *m = nullptr;
    if (sd_bus_message_new_method_call(bus, &m, nullptr, "/VoiceService", "voice.Service", "event") < 0)
        die("sd-bus message");
    sd_bus_message_append(m, "s", kPlugin);
    sd_bus_message_append_array(m, 'y', event_record, sizeof event_record);
    return m;
}

Times sd_measure(sd_bus *bus) {
    double start = now_ns();
    for (int i = 0; i < round_trips; ++i) {
        sd_bus_message *m = sd_call(bus);
        sd_bus_message *reply = nullptr;
        if (sd_bus_call(bus, m, 0, nullptr, &reply) < 0)
            die("sd-bus call");
        int answer = 0;
        sd_bus_message_read(reply, "b", &answer);
        sd_bus_message_unref(reply);
        sd_bus_message_unref(m);
    }
    Times times = {(now_ns() - start) / round_trips, 0};
    start = now_ns();
    for (int i = 0; i < one_way_calls; ++i) {
        sd_bus_message *m = sd_call(bus);
        sd_bus_message_set_expect_reply(m, 0);
        if (sd_bus_send(bus, m, nullptr) < 0)
            die("sd-bus send");
        sd_bus_message_unref(m);
    }
    for (;;) { // until the signal that says all were handled
        sd_bus_message *m = nullptr;
        const int r = sd_bus_process(bus, &m);
        if (r < 0)
            die("sd-bus");
        const bool done = m && sd_bus_message_is_signal(m, "voice.Service", "done");
        sd_bus_message_unref(m);
        if (done)
            break;
        if (r == 0)
            sd_bus_wait(bus, UINT64_MAX);
    }
    times.one_way_ns = (now_ns() - start) / one_way_calls;
    return times;
}

// ---- The bundled bus.

int handled;
int done_pipe[2];

void kex_serve(const char *path) {
    kex_t *bus = kex_create("bench_server");
    static const char *const rows[] = {"Bench", "event", "plugin_name", "event"};
    if (!bus || !kex_declareFunctions(bus, rows, 1, 4) ||
        !kex_declareObject(bus, "VoiceService.VoiceApplication", "Bench"))
        die("serving bus");
    if (!connection_listenOnIPC(kex_connection(bus), path))
        die("listening");
    write_all(done_pipe[1], "l");
    kex_run(bus);
    _exit(0);
}

request_t *kex_call() {
    request_t *r = request_create_executeFunction("VoiceService.VoiceApplication", "event", 1);
    variant_t v;
    variant_initialize(&v, VARIANT_TEXT);
    variant_setChar(&v, kPlugin);
    request_addParameter(r, "plugin_name", &v);
    variant_cleanup(&v);
    variant_initialize(&v, VARIANT_BYTES);
    variant_setByteArray(&v, event_record, sizeof event_record);
    request_addParameter(r, "event", &v);
    variant_cleanup(&v);
    return r;
}

Times kex_measure(kex_t *bus, peer_t *server) {
    double start = now_ns();
    for (int i = 0; i < round_trips; ++i) {
        request_t *r = kex_call();
        if (!kex_sendRequest(bus, server, r) || !kex_waitForReply(bus, r, nullptr))
            die("bus call");
        int answer = 0;
        for (reply_item_t *item = reply_firstItem(request_reply(r)); item; item = reply_nextItem(item))
            variant_toBool(reply_item_returnValue(item), &answer);
        if (!answer)
            die("bus answer");
        request_destroy(r);
    }
    Times times = {(now_ns() - start) / round_trips, 0};
    start = now_ns();
    for (int i = 0; i < one_way_calls; ++i) {
        request_t *r = kex_call();
        while (!kex_sendRequest(bus, server, r)) { // the queue is full: let it drain, as a host's loop does
            pollfd p = {kex_pollDescriptor(bus), POLLIN, 0};
            poll(&p, 1, 1000);
            kex_dispatch(bus);
        }
        request_destroy(r);
        if (i % 32 == 31)
            kex_dispatch(bus); // a turn of the loop sends what was queued
    }
    pollfd ready[2] = {{done_pipe[0], POLLIN, 0}, {kex_pollDescriptor(bus), POLLIN, 0}};
    do {
        kex_dispatch(bus);
        if (poll(ready, 2, 10000) <= 0)
            die("one-way calls were not handled");
    } while (!(ready[0].revents & POLLIN));
    read_byte(done_pipe[0]);
    times.one_way_ns = (now_ns() - start) / one_way_calls;
    return times;
}

struct Row {
    std::vector<double> round_trip;
    std::vector<double> one_way;

    void add(const Times &t) {
        round_trip.push_back(t.round_trip_ns);
        one_way.push_back(t.one_way_ns);
    }
};

} // namespace

extern "C" __attribute__((visibility("default"))) int __Bench_event(function_call_t *call, argument_list_t *arguments,
                                                                    variant_t *return_value);
int __Bench_event(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    char *plugin = nullptr;
    void *record = nullptr;
    uint32_t length = 0;
    argument_getChar(arguments, "plugin_name", 0, &plugin);
    argument_getByteArray(arguments, "event", 0, &record, &length);
    keep(record);
    std::free(plugin);
    std::free(record);
    variant_setBool(return_value, 1);
    fcall_destroy(call);
    if (++handled == round_trips + one_way_calls) {
        handled = 0;
        write_all(done_pipe[1], "d");
    }
    return 0;
}

int main(int argc, char **argv) {
    if (argc > 1 && std::strcmp(argv[1], "--once") == 0)
        round_trips = one_way_calls = rounds = 1;
    stay_on_one_cpu();
    setenv("ZIL_TRACE_LEVEL", "100", 1); // a full queue is part of the measurement, not news
    for (size_t i = 0; i < sizeof event_record; ++i)
        event_record[i] = static_cast<unsigned char>(i);

    int raw[2];
    int sd[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, raw) != 0 || pipe(done_pipe) != 0 ||
        socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, sd) != 0)
        die("sockets");
    char folder[] = "/tmp/bench-call-XXXXXX";
    if (!mkdtemp(folder))
        die("mkdtemp");
    const std::string path = std::string(folder) + "/sock";

    pid_t children[3];
    for (int i = 0; i < 3; ++i) {
        children[i] = fork();
        if (children[i] != 0)
            continue;
        if (i == 0)
            raw_serve(raw[1]);
        if (i == 1)
            sd_serve(sd[1]);
        kex_serve(path.c_str());
    }
    read_byte(done_pipe[0]); // the bus listens
    sd_bus *sd_client = sd_open(sd[0], false);
    kex_t *bus = kex_create("bench_client");
    peer_t *server = kex_client_connect(bus, ("kex://ipc:[" + path + "]").c_str());
    if (!server)
        die("connecting");

    Row rows[3];
    for (int i = 0; i < rounds; ++i) { // taken in turns, so that what else the machine does hits all alike
        rows[0].add(raw_measure(raw[0]));
        rows[1].add(sd_measure(sd_client));
        rows[2].add(kex_measure(bus, server));
    }
    const char *names[] = {"raw SOCK_SEQPACKET", "sd-bus peer to peer", "bundled bus"};
    std::printf("%-22s %14s %14s   (median of %d rounds)\n", "path", "round trip", "one way", rounds);
    for (int i = 0; i < 3; ++i)
        std::printf("%-22s %11.0f ns %11.0f ns\n", names[i], median(rows[i].round_trip), median(rows[i].one_way));
    const double rt = median(rows[2].round_trip);
    const double ow = median(rows[2].one_way);
    std::printf("bundled bus / raw socket: round trip %.2f, one way %.2f\n", rt / median(rows[0].round_trip),
                ow / median(rows[0].one_way));
    std::printf("bundled bus / sd-bus:     round trip %.2f, one way %.2f\n", rt / median(rows[1].round_trip),
                ow / median(rows[1].one_way));

    kex_destroy(bus);
    for (const pid_t child : children) {
        kill(child, SIGTERM);
        waitpid(child, nullptr, 0);
    }
    unlink(path.c_str());
    unlink((path + ".lock").c_str());
    rmdir(folder);
    return 0;
}
