// SPDX-License-Identifier: MIT
// The same over the bundled bus, and over the binding on sd-bus, which is loaded beside it.
#include <cstdlib>

#include <dlfcn.h>
#include <poll.h>
#include <unistd.h>

#include "../support/measure.h"
#include "kex_host.h"
#include "peer.h"

namespace {

constexpr const char *kObject = "Bench.Object";

// Of a binding: both define the same names.
struct Functions {
#define FUNCTION(name) decltype(&::name) name;
#include "functions.inc"
#undef FUNCTION
};

constexpr Functions kLinked = {
#define FUNCTION(name) &::name,
#include "functions.inc"
#undef FUNCTION
};

const Functions *serving; // of this process

class Binding : public Caller {
public:
    Binding(const char *its_name, const Functions &lib) : Caller(its_name), lib_(lib), path_(socket_path(its_name)) {}

    [[noreturn]] void serve() override {
        serving = &lib_;
        bus_ = lib_.kex_create("bench_server");
        static const char *const rows[] = {"Bench", "event", "plugin_name", "event", nullptr, //
                                           "Bench", "media", "plugin_name", "event", "filedesc"};
        if (!bus_ || !lib_.kex_declareFunctions(bus_, rows, 2, 5) || !lib_.kex_declareObject(bus_, kObject, "Bench") ||
            !lib_.connection_listenOnIPC(lib_.kex_connection(bus_), path_.c_str()))
            die(name);
        tell_ready();
        lib_.kex_run(bus_);
        _exit(0);
    }

    void connect() override {
        bus_ = lib_.kex_create("bench_client");
        peer_ = lib_.kex_client_connect(bus_, ("kex://ipc:[" + path_ + "]").c_str());
        if (!peer_)
            die("kex_client_connect");
    }

    void calls_without_reply(int count) override {
        for (int i = 1; i < count; ++i) {
            request_t *r = request_create("event");
            while (!lib_.kex_sendRequest(bus_, peer_, r)) { // the queue is full: let it drain, as a host's loop does
                pollfd p = {lib_.kex_pollDescriptor(bus_), POLLIN, 0};
                poll(&p, 1, 1000);
                lib_.kex_dispatch(bus_);
            }
            lib_.request_destroy(r);
            if (i % kTurn == 0)
                lib_.kex_dispatch(bus_);
        }
        call("event");
    }

private:
    request_t *request_create(const char *function) {
        request_t *r = lib_.request_create_executeFunction(kObject, function, 1);
        variant_t v;
        lib_.variant_initialize(&v, VARIANT_TEXT);
        lib_.variant_setChar(&v, kPlugin);
        lib_.request_addParameter(r, "plugin_name", &v);
        lib_.variant_cleanup(&v);
        lib_.variant_initialize(&v, VARIANT_BYTES);
        lib_.variant_setByteArray(&v, event_record, kRecordBytes);
        lib_.request_addParameter(r, "event", &v);
        lib_.variant_cleanup(&v);
        if (function[0] != 'm')
            return r;
        lib_.variant_initialize(&v, VARIANT_LIST);
        variant_t fd;
        for (int i = 0; i < kDescriptors; ++i) {
            lib_.variant_initialize(&fd, VARIANT_FD);
            lib_.variant_setFd(&fd, null_device);
            lib_.variant_list_add(lib_.variant_da_list(&v), &fd);
            lib_.variant_cleanup(&fd);
        }
        lib_.request_addParameter(r, "filedesc", &v);
        lib_.variant_cleanup(&v);
        return r;
    }

    void call(const char *function) override {
        request_t *r = request_create(function);
        if (!lib_.kex_sendRequest(bus_, peer_, r) || !lib_.kex_waitForReply(bus_, r, nullptr))
            die("a call");
        int answer = 0;
        for (reply_item_t *item = lib_.reply_firstItem(lib_.request_reply(r)); item; item = lib_.reply_nextItem(item))
            lib_.variant_toBool(lib_.reply_item_returnValue(item), &answer);
        if (!answer)
            die("an answer");
        lib_.request_destroy(r);
    }

    const Functions lib_;
    std::string path_;
    kex_t *bus_ = nullptr;
    peer_t *peer_ = nullptr;
};

void take_payload(argument_list_t *arguments) {
    char *plugin = nullptr;
    void *record = nullptr;
    uint32_t length = 0;
    serving->argument_getChar(arguments, "plugin_name", 0, &plugin);
    serving->argument_getByteArray(arguments, "event", 0, &record, &length);
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
    serving->variant_setBool(return_value, 1);
    serving->fcall_destroy(call);
    return KEX_FUNCTION_DONE;
}

int __Bench_media(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    take_payload(arguments);
    variant_list_t *list = nullptr;
    serving->argument_getList(arguments, "filedesc", 0, &list);
    for (uint32_t i = 0; i < serving->variant_list_size(list); ++i)
        close(serving->variant_fd(serving->variant_list_at(list, i)));
    serving->variant_list_destroy(list);
    serving->variant_setBool(return_value, 1);
    serving->fcall_destroy(call);
    return KEX_FUNCTION_DONE;
}

std::unique_ptr<Peer> bundled_bus_peer() {
    return std::make_unique<Binding>("bundled bus", kLinked);
}

#ifdef BENCH_SDBUS
std::unique_ptr<Peer> sd_bus_binding_peer() {
    // It finds its own functions before those of the same name in this program.
    void *library = dlopen(BENCH_SDBUS, RTLD_NOW | RTLD_LOCAL | RTLD_DEEPBIND);
    if (library == nullptr)
        die(dlerror());
    const Functions loaded = {
#define FUNCTION(name) reinterpret_cast<decltype(&::name)>(dlsym(library, #name)),
#include "functions.inc"
#undef FUNCTION
    };
    return std::make_unique<Binding>("binding on sd-bus", loaded);
}
#endif
