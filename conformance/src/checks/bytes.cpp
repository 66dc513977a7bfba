// SPDX-License-Identifier: MIT
// Byte arrays around the length that a block has at least.
#include "far.h"
#include "groups.h"
#include "request.h"

#include <stdlib.h>
#include <string.h>

namespace conformance {

namespace {

constexpr Level kMust = Level::must;
constexpr uint32_t kShortest = 1024; // of a block
constexpr uint32_t kLongest = 65536;

uint8_t byte_at(uint32_t at) {
    return static_cast<uint8_t>(at * 31 + at / 251 + 1);
}

int bytes_check(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    void *data = nullptr;
    uint32_t length = UINT32_MAX;
    expect(lib.argument_getByteArray(arguments, "value", 0, &data, &length) != 0, "argument_getByteArray answers no");
    expect(data != nullptr, "there is no block");
    const uint8_t *bytes = static_cast<const uint8_t *>(data);
    for (uint32_t i = 0; i < length; i++)
        expect(bytes[i] == byte_at(i), "byte %u of %u is %#x", i, length, bytes[i]);
    for (uint32_t i = length; i < kShortest; i++)
        expect(bytes[i] == 0, "byte %u, behind %u of data, is %#x", i, length, bytes[i]);
    free(data);
    lib.fcall_destroy(call);
    return lib.variant_setUInt32(return_value, length) ? KEX_FUNCTION_DONE : KEX_FUNCTION_FAILED;
}

void serve() {
    on_run = bytes_check;
    far_plain();
}

// Twice, with a long one in between: a block that was used before must be as zero behind its data as a new one.
template <uint32_t length>
void bytes() {
    static uint8_t sent[kLongest];
    peer_t *peer = far_connect();
    for (uint32_t i = 0; i < kLongest; i++)
        sent[i] = byte_at(i);
    for (const uint32_t one : {length, 2000u, length}) {
        request_t *r = request_make();
        request_add_bytes(r, "value", sent, one);
        const uint32_t arrived = reply_number(request_call(peer, r));
        expect(arrived == one, "%u bytes arrive as %u", one, arrived);
        lib.request_destroy(r);
    }
    saw("%u bytes, twice", length);
    host_end();
}

constexpr char kBlock[] = "Bytes come in a block of at least 1,024 bytes, zero-filled behind the data, so that a fixed "
                          "head can always be read.";
constexpr char kEmpty[] = "An empty byte array has a pointer and length 0.";

constexpr Check kChecks[] = {
    {"bytes.0", kMust, kEmpty, bytes<0>, serve, 0, false},
    {"bytes.1", kMust, kBlock, bytes<1>, serve, 0, false},
    {"bytes.704", kMust, kBlock, bytes<704>, serve, 0, false},
    {"bytes.1023", kMust, kBlock, bytes<1023>, serve, 0, false},
    {"bytes.1024", kMust, kBlock, bytes<1024>, serve, 0, false},
    {"bytes.1025", kMust, kBlock, bytes<1025>, serve, 0, false},
    {"bytes.65536", Level::should, kBlock, bytes<65536>, serve, 0, false},
};

} // namespace

const Group kBytes = group_of(kChecks);

} // namespace conformance
