// SPDX-License-Identifier: MIT
// Helpers of requests: making one, adding arguments, and the ways it ends.
//
// A sender makes its request, adds arguments in the order of its contract, and ends in one of three ways:
//   request_send_and_forget         the request is destroyed here, sent or not; no reply is read
//   request_send, then reply_await  waits without limit and checks; the sender destroys the request
//   request_send with a handler     the handler owns the request after a successful send
#ifndef VOICE_REQUEST_H
#define VOICE_REQUEST_H

#include "libvoice_plugin.h"
#include "trace.h"

namespace voice {

// A variant that cleans itself.
class Value {
public:
    explicit Value(uint32_t type) { variant_initialize(&variant_, type); }
    ~Value() { variant_cleanup(&variant_); }
    Value(const Value &) = delete;
    Value &operator=(const Value &) = delete;

    variant_t *get() { return &variant_; }

private:
    variant_t variant_ = {}; // valid whatever the initialisation answers
};

inline void request_add_text(request_t *request, const char *name, const char *text) {
    Value value(VARIANT_TEXT);
    variant_setChar(value.get(), text);
    request_addParameter(request, name, value.get());
}

inline void request_add_u16(request_t *request, const char *name, uint16_t number) {
    Value value(VARIANT_UINT16);
    variant_setUInt16(value.get(), number);
    request_addParameter(request, name, value.get());
}

inline void request_add_u32(request_t *request, const char *name, uint32_t number) {
    Value value(VARIANT_UINT32);
    variant_setUInt32(value.get(), number);
    request_addParameter(request, name, value.get());
}

inline void request_add_i32(request_t *request, const char *name, int32_t number) {
    Value value(VARIANT_INT32);
    variant_setInt32(value.get(), number);
    request_addParameter(request, name, value.get());
}

inline void request_add_bytes(request_t *request, const char *name, const void *data, uint32_t length) {
    Value value(VARIANT_BYTES);
    variant_setByteArray(value.get(), data, length);
    request_addParameter(request, name, value.get());
}

// Media, control and fax descriptors in that order; they stay the caller's. No: the list could not be made.
inline bool request_add_fds(request_t *request, const char *name, const int32_t (&fds)[3]) {
    Value list(VARIANT_LIST);
    variant_list_t *items = variant_da_list(list.get());
    if (!items)
        return false;
    for (const int32_t fd : fds) {
        Value item(VARIANT_FD);
        variant_setFd(item.get(), fd);
        variant_list_add(items, item.get());
    }
    request_addParameter(request, name, list.get());
    return true;
}

inline bool request_send(request_t *request, peer_t *peer) {
    return kex_sendRequest(libvoice_get_kex_handler(), peer, request) != 0;
}

// Writes the caller's trace message when it cannot be sent. The request is gone afterwards in both cases.
inline bool request_send_and_forget(request_t *request, peer_t *peer, Zone zone, Where here = Where::caller()) {
    const bool sent = request_send(request, peer);
    if (!sent)
        TRACE_ERROR_Z_AT(zone, here, "Failed to send request.");
    request_destroy(request);
    return sent;
}

// Waits for the reply of a request that was sent. Null, and the caller's trace message, when there is none or it holds
// an error. The reply lives with the request, which the caller destroys.
inline reply_t *reply_await(request_t *request, Where here = Where::caller()) {
    if (!kex_waitForReply(libvoice_get_kex_handler(), request, nullptr)) {
        TRACE_ERROR_AT(here, "Communication failed.");
        return nullptr;
    }
    reply_t *reply = request_reply(request);
    if (!reply) {
        TRACE_ERROR_AT(here, "No reply available.");
        return nullptr;
    }
    if (!_reply_ok(reply)) {
        TRACE_ERROR_AT(here, "Function call error.");
        return nullptr;
    }
    return reply;
}

} // namespace voice

#endif
