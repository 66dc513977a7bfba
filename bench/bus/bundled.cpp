// SPDX-License-Identifier: MIT
// The same over the bundled bus.
#include <cstdlib>

#include <poll.h>
#include <unistd.h>

#include "../support/measure.h"
#include "kex_host.h"
#include "peer.h"

namespace {

constexpr const char *kObject = "Bench.Object";

class BundledBus : public Peer {
public:
    BundledBus() : Peer("bundled bus"), path_(socket_path("bundled")) {}

    [[noreturn]] void serve() override {
        bus_ = kex_create("bench_server");
        static const char *const rows[] = {"Bench", "event", "plugin_name", "event", nullptr, //
                                           "Bench", "media", "plugin_name", "event", "filedesc"};
        if (!bus_ || !kex_declareFunctions(bus_, rows, 2, 5) || !kex_declareObject(bus_, kObject, "Bench") ||
            !connection_listenOnIPC(kex_connection(bus_), path_.c_str()))
            die("bundled bus");
        tell_ready();
        kex_run(bus_);
        _exit(0);
    }

    void connect() override {
        bus_ = kex_create("bench_client");
        peer_ = kex_client_connect(bus_, ("kex://ipc:[" + path_ + "]").c_str());
        if (!peer_)
            die("kex_client_connect");
    }

    void round_trips(int count) override {
        for (int i = 0; i < count; ++i)
            call("event");
    }

    void round_trips_with_descriptors(int count) override {
        for (int i = 0; i < count; ++i)
            call("media");
    }

    void calls_without_reply(int count) override {
        for (int i = 1; i < count; ++i) {
            request_t *r = request_create("event");
            while (!kex_sendRequest(bus_, peer_, r)) { // the queue is full: let it drain, as a host's loop does
                pollfd p = {kex_pollDescriptor(bus_), POLLIN, 0};
                poll(&p, 1, 1000);
                kex_dispatch(bus_);
            }
            request_destroy(r);
            if (i % kTurn == 0)
                kex_dispatch(bus_);
        }
        call("event");
    }

private:
    request_t *request_create(const char *function) {
        request_t *r = request_create_executeFunction(kObject, function, 1);
        variant_t v;
        variant_initialize(&v, VARIANT_TEXT);
        variant_setChar(&v, kPlugin);
        request_addParameter(r, "plugin_name", &v);
        variant_cleanup(&v);
        variant_initialize(&v, VARIANT_BYTES);
        variant_setByteArray(&v, event_record, kRecordBytes);
        request_addParameter(r, "event", &v);
        variant_cleanup(&v);
        if (function[0] != 'm')
            return r;
        variant_initialize(&v, VARIANT_LIST);
        variant_t fd;
        for (int i = 0; i < kDescriptors; ++i) {
            variant_initialize(&fd, VARIANT_FD);
            variant_setFd(&fd, null_device);
            variant_list_add(variant_da_list(&v), &fd);
            variant_cleanup(&fd);
        }
        request_addParameter(r, "filedesc", &v);
        variant_cleanup(&v);
        return r;
    }

    void call(const char *function) {
        request_t *r = request_create(function);
        if (!kex_sendRequest(bus_, peer_, r) || !kex_waitForReply(bus_, r, nullptr))
            die("bundled bus: call");
        int answer = 0;
        for (reply_item_t *item = reply_firstItem(request_reply(r)); item; item = reply_nextItem(item))
            variant_toBool(reply_item_returnValue(item), &answer);
        if (!answer)
            die("bundled bus: answer");
        request_destroy(r);
    }

    std::string path_;
    kex_t *bus_ = nullptr;
    peer_t *peer_ = nullptr;
};

void take_payload(argument_list_t *arguments) {
    char *plugin = nullptr;
    void *record = nullptr;
    uint32_t length = 0;
    argument_getChar(arguments, "plugin_name", 0, &plugin);
    argument_getByteArray(arguments, "event", 0, &record, &length);
    keep(record);
    std::free(plugin);
    std::free(record);
}

} // namespace

#define EXPORTED extern "C" __attribute__((visibility("default")))

EXPORTED int __Bench_event(function_call_t *call, argument_list_t *arguments, variant_t *return_value);
EXPORTED int __Bench_media(function_call_t *call, argument_list_t *arguments, variant_t *return_value);

int __Bench_event(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    take_payload(arguments);
    variant_setBool(return_value, 1);
    fcall_destroy(call);
    return KEX_FUNCTION_DONE;
}

int __Bench_media(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    take_payload(arguments);
    variant_list_t *list = nullptr;
    argument_getList(arguments, "filedesc", 0, &list);
    for (uint32_t i = 0; i < variant_list_size(list); ++i)
        close(variant_fd(variant_list_at(list, i)));
    variant_list_destroy(list);
    variant_setBool(return_value, 1);
    fcall_destroy(call);
    return KEX_FUNCTION_DONE;
}

std::unique_ptr<Peer> bundled_bus_peer() {
    return std::make_unique<BundledBus>();
}
