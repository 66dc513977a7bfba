// SPDX-License-Identifier: MIT
// A plugin of a measured world: registers its endpoints, and sends the events that signals ask for.
#include <cstdio>
#include <cstdlib>

#include <dlfcn.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include "../support/measure.h"
#include "../support/program.h"
#include "record.h"
#include "voice_start.h"
#include "world.h"

namespace {

constexpr uint32_t kOfTurn = 32; // events, in a stream
constexpr uint64_t kSecond = 1000000000;

Place place;
kex_t *bus;
Record<libvoice_event_t> answer;
uint32_t to_send;
int more;  // eventfd: the next turn sends the next events of a stream
int timer; // timerfd, of paced events
uint64_t due;
uint64_t interval;
int32_t first_endpoint;

int32_t endpoints_register(const char *) {
    const voice_codec_t pcma = VOICE_CODEC_PCMA;
    int32_t numbers[LIBVOICE_ENDPOINTS] = {};
    const double start = now_ns();
    for (int i = 0; i < place.endpoints; ++i) {
        char name[LIBVOICE_ENDPOINT_NAME_BYTES];
        std::snprintf(name, sizeof name, "P%dE%d", place.index, i + 1);
        if (voice_endpoint_register(VOICE_ENDPOINT_FXS, name, &pcma, 1, &numbers[i], nullptr))
            die("registering an endpoint");
    }
    place.notes->registering[place.index] = now_ns() - start;
    first_endpoint = numbers[0];
    for (int i = 0; i < place.endpoints; ++i) {
        record_fill(answer, numbers[i], {0, 0, 0});
        libvoice_send_event(&answer.head); // the endpoint is there
    }
    return 0;
}

int32_t leave(uint32_t) {
    kex_stop(bus);
    return 0;
}

uint64_t descriptor_read(int fd) {
    uint64_t count = 0;
    return read(fd, &count, sizeof count) == sizeof count ? count : 0;
}

void next_turn() {
    const uint64_t one = 1;
    if (write(more, &one, sizeof one) != sizeof one)
        die("write");
}

void stream_goes_on(int fd, void *) {
    descriptor_read(fd);
    // A full queue drains in the turns to come.
    for (uint32_t i = 0; i < kOfTurn && to_send > 0 && libvoice_send_event(&answer.head) == 0; ++i)
        --to_send;
    if (to_send > 0)
        next_turn();
}

void event_is_due(int fd, void *) {
    for (uint64_t left = descriptor_read(fd); left > 0 && to_send > 0; --left, --to_send) {
        record_fill(answer, first_endpoint, {0, static_cast<uint32_t>(due), static_cast<uint32_t>(due >> 32)});
        libvoice_send_event(&answer.head);
        due += interval;
    }
    const itimerspec never = {};
    if (to_send == 0)
        timerfd_settime(timer, 0, &never, nullptr);
}

// The first events of the plugins are due one after the other.
void pace_begin(uint32_t a_second) {
    interval = kSecond / a_second;
    due = static_cast<uint64_t>(now_ns()) + kSecond / 1000 +
          interval * static_cast<uint32_t>(place.index) / LIBVOICE_PLUGINS;
    const auto spec = [](uint64_t ns) {
        timespec t = {};
        t.tv_sec = static_cast<time_t>(ns / kSecond);
        t.tv_nsec = static_cast<long>(ns % kSecond);
        return t;
    };
    const itimerspec times = {spec(interval), spec(due)};
    timerfd_settime(timer, TFD_TIMER_ABSTIME, &times, nullptr);
}

int32_t signal_take(libvoice_signal_t *signal) {
    uint32_t words[kWords] = {};
    words_read(libvoice_signal_params(signal), signal->length, words);
    answer.head.endpoint = signal->endpoint;
    const Work work = static_cast<Work>(words[0]);
    if (work == Work::exchange)
        return static_cast<int32_t>(libvoice_send_event(&answer.head));
    to_send = words[1];
    if (work == Work::stream)
        next_turn();
    else
        pace_begin(words[2]);
    return 0;
}

} // namespace

// Stands before that of the bus: notes when the connection cycle makes an attempt.
extern "C" __attribute__((visibility("default"))) peer_t *kex_client_connect(kex_t *its_bus, const char *uri) {
    using Connect = peer_t *(kex_t *, const char *);
    static Connect *const connect = reinterpret_cast<Connect *>(dlsym(RTLD_NEXT, "kex_client_connect"));
    if (place.notes)
        place.notes->attempt[place.index] = now_ns();
    return connect(its_bus, uri);
}

void plugin_serve(const Place &its_place) {
    place = its_place;
    setenv("ZIL_VOIP_IPC_SOCKET_URI", ("kex://ipc:[" + place.socket + "]").c_str(), 1);
    const std::string name = "bench" + std::to_string(place.index);
    bus = kex_create(name.c_str());
    more = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    timer = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
    libvoice_callbacks_t callbacks = voice_plugin_rejections();
    callbacks.voice_plugin_init = endpoints_register;
    callbacks.voice_plugin_exit = leave;
    callbacks.voice_plugin_signal = signal_take;
    if (more < 0 || timer < 0 || voice_plugin_start(bus, name.c_str(), &callbacks) ||
        !kex_watch(bus, more, nullptr, stream_goes_on) || !kex_watch(bus, timer, nullptr, event_is_due))
        die("the plugin does not start");
    kex_run(bus);
    _exit(0);
}
