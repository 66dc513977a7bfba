// SPDX-License-Identifier: MIT
// What the tests of memory that runs out share: a place for a socket, and two buses connected before any allocation fails.
#ifndef BUS_TESTS_MEMORY_FIXTURE_H
#define BUS_TESTS_MEMORY_FIXTURE_H

#include "base/trace.h"
#include "support/bus_test.h"

#include <cstdlib>

namespace support {

inline void set_trace_level(const char *level) {
    setenv("ZIL_TRACE_LEVEL", level, 1);
    bus::trace_configure();
}

class Memory : public DescriptorTest {
protected:
    ScratchDirectory scratch;
    std::string socket = scratch.path("bus");
    std::string uri = uri_of(socket);
};

// Server and client, connected before any allocation fails.
struct Connected {
    explicit Connected(const ScratchDirectory &scratch) {
        const std::string socket = scratch.path("bus");
        const char *const rows[] = {"Memory", "whole"};
        kex_declareFunctions(server, rows, 1, 2);
        kex_declareObject(server, "M", "Memory");
        connection_listenOnIPC(kex_connection(server), socket.c_str());
        peer = kex_client_connect(client, uri_of(socket).c_str());
        kex_onPeerClosed(server, count_closed, &closed_at_server);
        kex_onPeerClosed(client, count_closed, &closed_at_client);
        turns();
    }
    ~Connected() {
        kex_destroy(client);
        kex_destroy(server);
    }
    Connected(const Connected &) = delete;
    Connected &operator=(const Connected &) = delete;

    static void count_closed(kex_t *, peer_t *, void *counter) { ++*static_cast<int *>(counter); }
    void turns() {
        for (int i = 0; i < 4; i++) {
            kex_dispatch(client);
            kex_dispatch(server);
        }
    }
    // A call with a text and a list, as the library makes it: no step is looked at but the sending.
    bool send(void (*done)(request_t *r)) {
        variant_t chars = {};
        variant_t items;
        variant_initialize(&items, VARIANT_LIST);
        request_t *r = request_create_executeFunction("M", "whole", 0);
        variant_setChar(&chars, "text");
        variant_list_add(variant_da_list(&items), &chars);
        request_addParameter(r, "text", &chars);
        request_addParameter(r, "list", &items);
        request_setDoneHandler(r, done);
        const bool sent = kex_sendRequest(client, peer, r) != 0;
        variant_cleanup(&chars);
        variant_cleanup(&items);
        if (!sent || done == nullptr)
            request_destroy(r);
        return sent;
    }

    kex_t *server = kex_create("server");
    kex_t *client = kex_create("client");
    peer_t *peer = nullptr;
    int closed_at_server = 0;
    int closed_at_client = 0;
};

} // namespace support

#endif
