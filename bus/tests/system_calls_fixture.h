// SPDX-License-Identifier: MIT
// What the tests of failing system calls share: two buses, and a call between them that shows whether they still serve.
#ifndef BUS_TESTS_SYSTEM_CALLS_FIXTURE_H
#define BUS_TESTS_SYSTEM_CALLS_FIXTURE_H

#include "served_functions.h"
#include "support/failing_call.h"
#include "support/served_bus.h"

namespace support {

class SystemCalls : public TwoBuses {
protected:
    SystemCalls() {
        served::reset();
        served::declare(server);
        kex_onPeerClosed(client, count, &closed);
        turn_until_idle();
    }
    ~SystemCalls() override { served::reset(); }

    static void count(kex_t *, peer_t *, void *counter) { ++*static_cast<int *>(counter); }
    // What a call is answered.
    std::vector<std::string> echo() {
        request_t *r = call("Probe", "echo", {{"text", text("x")}});
        std::vector<std::string> lines = lines_of(r);
        request_destroy(r);
        return lines;
    }

    int closed = 0;
};

constexpr const char *kAnswer = "value text \"x\"";

} // namespace support

#endif
