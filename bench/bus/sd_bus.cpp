// SPDX-License-Identifier: MIT
// The same over sd-bus of libsystemd, from peer to peer without a broker.
#include <cerrno>

#include <sys/socket.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include "../support/measure.h"
#include "peer.h"

namespace {

constexpr const char *kPath = "/VoiceService";
constexpr const char *kInterface = "voice.Service";

int event_came(sd_bus_message *m, void *, sd_bus_error *) {
    const char *plugin = nullptr;
    const void *record = nullptr;
    size_t length = 0;
    if (sd_bus_message_read(m, "s", &plugin) < 0 || sd_bus_message_read_array(m, 'y', &record, &length) < 0)
        return -EINVAL;
    keep(record);
    return sd_bus_message_get_expect_reply(m) ? sd_bus_reply_method_return(m, "b", 1) : 1;
}

int media_came(sd_bus_message *m, void *, sd_bus_error *) {
    const char *plugin = nullptr;
    const void *record = nullptr;
    size_t length = 0;
    int fds[kDescriptors];
    if (sd_bus_message_read(m, "s", &plugin) < 0 || sd_bus_message_read_array(m, 'y', &record, &length) < 0 ||
        sd_bus_message_read(m, "hhh", &fds[0], &fds[1], &fds[2]) < 0)
        return -EINVAL;
    keep(record);
    return sd_bus_reply_method_return(m, "b", 1); // the message closes the descriptors
}

const sd_bus_vtable functions[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("event", "say", "b", event_came, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("media", "sayhhh", "b", media_came, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

class SdBus : public Caller {
public:
    SdBus() : Caller("sd-bus") {}

    void prepare() override {
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends_) != 0)
            die("socketpair");
    }

    [[noreturn]] void serve() override {
        open(ends_[1], true);
        sd_bus_add_object_vtable(bus_, nullptr, kPath, kInterface, functions, nullptr);
        tell_ready();
        for (;;) {
            const int r = sd_bus_process(bus_, nullptr);
            if (r < 0 || (r == 0 && sd_bus_wait(bus_, UINT64_MAX) < 0))
                _exit(0);
        }
    }

    void connect() override { open(ends_[0], false); }

    void calls_without_reply(int count) override {
        for (int i = 1; i < count; ++i) {
            sd_bus_message *m = message_create("event");
            sd_bus_message_set_expect_reply(m, 0);
            if (sd_bus_send(bus_, m, nullptr) < 0)
                die("sd_bus_send");
            sd_bus_message_unref(m);
        }
        call("event");
    }

private:
    void open(int fd, bool server) {
        sd_id128_t id = {};
        id.bytes[0] = 1;
        if (sd_bus_new(&bus_) < 0 || sd_bus_set_fd(bus_, fd, fd) < 0 || sd_bus_negotiate_fds(bus_, 1) < 0)
            die("sd_bus_new");
        if (server)
            sd_bus_set_server(bus_, 1, id);
        sd_bus_set_anonymous(bus_, 1);
        if (sd_bus_start(bus_) < 0)
            die("sd_bus_start");
    }

    sd_bus_message *message_create(const char *function) {
        sd_bus_message *m = nullptr;
        if (sd_bus_message_new_method_call(bus_, &m, nullptr, kPath, kInterface, function) < 0)
            die("sd_bus_message_new_method_call");
        sd_bus_message_append(m, "s", kPlugin);
        sd_bus_message_append_array(m, 'y', event_record, kRecordBytes);
        if (function[0] == 'm')
            sd_bus_message_append(m, "hhh", null_device, null_device, null_device);
        return m;
    }

    void call(const char *function) override {
        sd_bus_message *m = message_create(function);
        sd_bus_message *reply = nullptr;
        int answer = 0;
        if (sd_bus_call(bus_, m, 0, nullptr, &reply) < 0 || sd_bus_message_read(reply, "b", &answer) < 0 || !answer)
            die("sd_bus_call");
        sd_bus_message_unref(reply);
        sd_bus_message_unref(m);
    }

    int ends_[2] = {-1, -1};
    sd_bus *bus_ = nullptr;
};

} // namespace

std::unique_ptr<Peer> sd_bus_peer() {
    return std::make_unique<SdBus>();
}
