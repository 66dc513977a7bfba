// SPDX-License-Identifier: MIT
// Each allocation of whole scenarios fails once: the answer is no, nothing crashes, nothing is left behind.
#include "kex_tap.h"
#include "memory_fixture.h"
#include "support/heap.h"
#include "support/raw_peer.h"
#include "value/wire.h"

#include <cstdlib>
#include <functional>
#include <unistd.h>

using namespace support;

extern "C" int __Memory_all(function_call_t *call, argument_list_t *arguments, variant_t *return_value);

// Reads one argument of every kind that allocates.
extern "C" int __Memory_all(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    char *chars = nullptr;
    void *data = nullptr;
    uint32_t length = 0;
    variant_list_t *items = nullptr;
    argument_getChar(arguments, "text", 0, &chars);
    argument_getByteArray(arguments, "bytes", 0, &data, &length);
    argument_getList(arguments, "list", 0, &items);
    free(chars);
    free(data);
    variant_list_destroy(items);
    reply_addError(request_reply(fcall_request(call)), 1, "description", "info");
    fcall_destroy(call);
    return variant_setChar(return_value, "answer") ? 0 : 2;
}

namespace {

// Runs the scenario with the first, the second, the third ... allocation failing, until none of them does.
void fail_each(const std::function<void()> &scenario) {
    // The expected trace messages would bury a report of the sanitizers.
    set_trace_level("0");
    for (uint32_t n = 1; n < 2000; n++) {
        SCOPED_TRACE(n);
        FailingAllocation failing(n);
        scenario();
        if (!failing.has_failed()) {
            EXPECT_GT(n, 1u) << "the scenario allocates nothing";
            return;
        }
    }
    FAIL() << "there is no end to it";
}

TEST_F(Memory, VariantsAndLists) {
    fail_each([] {
        variant_t v = {};
        variant_t items;
        variant_initialize(&items, VARIANT_LIST);
        variant_setChar(&v, "text");
        variant_list_add(variant_da_list(&items), &v);
        variant_setByteArray(&v, "bytes", 5);
        variant_list_add(variant_da_list(&items), &v);
        variant_list_add(variant_da_list(&items), &items);
        variant_cleanup(&v);
        variant_cleanup(&items);
    });
}

TEST_F(Memory, ObjectsAndFunctions) {
    fail_each([] {
        kex_t *bus = kex_create("bus");
        const char *const rows[] = {"Memory", "all", "text|words", "bytes"};
        kex_declareFunctions(bus, rows, 1, 4);
        kex_declareObject(bus, "A.B", "Memory");
        kex_declareTemplate(bus, "T", "Memory");
        kex_declareTemplate(bus, "T.U", "Memory");
        kex_declareTemplate(bus, "T.U.V", "Memory");
        object_commit(object_createInstance(kex_getObject(bus, "T", 1), 0, "one"));
        kex_timer_start(kex_timer_create(), 5);
        kex_watch(bus, STDIN_FILENO, nullptr, [](int, void *) {});
        kex_destroy(bus);
    });
}

// Everything between two processes, and a tap on it. Turns are counted, since a lost answer never comes.
TEST_F(Memory, ConnectionsAndCalls) {
    fail_each([&] {
        kex_t *server = kex_create("server");
        kex_t *client = kex_create("client");
        const char *const rows[] = {"Memory", "all"};
        kex_declareFunctions(server, rows, 1, 2);
        kex_declareObject(server, "M", "Memory");
        kex_declareObject(server, "M.Inner", "Memory");
        connection_listenOnIPC(kex_connection(server), socket.c_str());
        kex_tap_t *tap = kex_tap_open(uri.c_str(), nullptr, 0);
        peer_t *peer = kex_client_connect(client, uri.c_str());
        auto turns = [&] {
            for (int i = 0; i < 4; i++) {
                kex_dispatch(server);
                kex_dispatch(client);
            }
        };
        turns();
        request_t *r = request_create_executeFunction("M", "all", 0);
        static int done;
        done = 0;
        request_setDoneHandler(r, [](request_t *) { done++; });
        request_setReplyHandler(r, [](request_t *, reply_item_t *) {});
        request_setData(r, nullptr);
        variant_t chars = {};
        variant_t data = {};
        variant_t items;
        variant_t fd;
        variant_initialize(&items, VARIANT_LIST);
        variant_initialize(&fd, VARIANT_FD);
        variant_setChar(&chars, "text");
        variant_setByteArray(&data, "bytes", 5);
        variant_setFd(&fd, STDIN_FILENO);
        variant_list_add(variant_da_list(&items), &fd);
        request_addParameter(r, "text", &chars);
        request_addParameter(r, "bytes", &data);
        request_addParameter(r, "list", &items);
        bool sent = kex_sendRequest(client, peer, r) != 0;
        request_t *listing = request_create_executeFunction(KEX_BUILTIN_PATH, KEX_BUILTIN_LIST, 0);
        kex_sendRequest(client, peer, listing);
        turns();
        kex_tap_record_t record;
        while (kex_tap_next(tap, &record) == 1)
            ;
        kex_tap_close(tap);
        kex_destroy(server);
        server = nullptr;
        EXPECT_NE(access(socket.c_str(), F_OK), 0) << "the socket is left behind";
        turns();
        EXPECT_EQ(done, sent ? 1 : 0) << "the done handler runs exactly once, or never after a failed send";
        request_destroy(listing);
        request_destroy(r);
        variant_cleanup(&chars);
        variant_cleanup(&data);
        variant_cleanup(&items);
        kex_destroy(client);
    });
}

// It announces more than a message may have, so that its memory is not taken at once.
TEST_F(Memory, ListThatGrowsWhileItIsReadIsNoneWithoutMemory) {
    const std::string bytes = body_of(Packet(0).byte(13).word(UINT32_MAX).raw(std::string(5000, '\xFF')));
    fail_each([&] {
        bus::wire::Reader reader = bus::wire::reader_at(reinterpret_cast<const uint8_t *>(bytes.data()),
                                                        static_cast<uint32_t>(bytes.size()), 0, nullptr);
        variant_t value;
        EXPECT_FALSE(bus::wire::get_value(reader, &value));
    });
}

} // namespace
