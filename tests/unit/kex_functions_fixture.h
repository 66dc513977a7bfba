// SPDX-License-Identifier: MIT
// What the tests of kex_functions.cpp share: a host whose callbacks write themselves into the common log, keep what they
// saw and answer what the test says.
#ifndef KEX_FUNCTIONS_FIXTURE_H
#define KEX_FUNCTIONS_FIXTURE_H

#include "handler_test.h"

namespace voice_test {

constexpr uint32_t kId = 0x11090207;

// What the next callback answers, and what it saw.
struct Host {
    int32_t result = 0;
    std::vector<int32_t> descriptors; // the ten of the last media callback
    std::string bytes;                // the last record, as far as its length says
    uint32_t pointer_word = 0;
    const void *params = nullptr; // where its parameters really are
    size_t cnx_bytes = 0;         // how many bytes of "cnx_info" to copy
    std::string result_set;       // what voice_plugin_get hands out; empty: nothing
    bool result_given = false;
    bool release_endpoint = false; // voice_app_register_endpoint takes the entry back by itself
    int32_t endpoint = 7;          // the number it assigns
    libvoice_endpoint_t entry;     // what it saw
    const char *country = "AT";
};
extern Host host;

// For tests that want to be told of endpoints that go.
void on_endpoint_deleted(libvoice_endpoint_t *entry);

class Handlers : public HandlerTest {
protected:
    Handlers() { prepare(); }

    // The callbacks of both sides and the endpoint FXS1, number 5, in the fourth entry.
    void prepare() override;

    object_t *endpoint_object() { return bus().object("FXS.EndPoint.FXS1"); }
    // Of each kind of object that is no endpoint's: what it lacks, and one on the bus as it is now.
    struct OtherObject {
        const char *what;
        object_t *(*get)();
    };
    static constexpr OtherObject kOtherObjects[] = {
        {"unknown name", [] { return bus().object("FXS.EndPoint.other"); }},
        {"no name", [] { return bus().nameless_object(); }},
        {"no object", []() -> object_t * { return nullptr; }},
    };
    static void close_received() { close_all(host.descriptors); }
};

} // namespace voice_test

#endif
