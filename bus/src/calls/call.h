// SPDX-License-Identifier: MIT
// Calls that arrive (kex.h, "Calls that arrive"): queued as they came, read by their function's getters, answered.
#ifndef KEX_CALL_H
#define KEX_CALL_H

#include "calls/function.h"
#include "calls/peer.h"
#include "calls/request.h"
#include "value/message.h"

// Its task runs the function.
struct function_call : bus::Task, bus::Node<function_call> {
    bus::Peer *peer;
    object_t *object;
    request_t request; // the caller's side as the function sees it
    bool one_way;
    bool missed_told; // it found nothing, and that was traced
    uint32_t footprint;
    bus::wire::Descriptors descriptors;
    bus::wire::Message message; // a copy; it stands behind this structure, after the descriptors
};

// The arguments stay in the message until a getter asks for one.
struct argument_list {
    function_call_t *call;
    const bus::Function *function;
    bus::wire::Call parsed;
};

namespace bus {

constexpr size_t kShownName = 64;                  // bytes of a name from a peer that are shown
constexpr size_t kCallTitle = 2 * kShownName + 16; // room for both of them

// Queues a call that is well formed. False: no memory; the descriptors are still the caller's.
bool call_queue(Peer *peer, const wire::Message &message, wire::Descriptors &descriptors);
// Whether a call of the peer stands in the queue or runs now.
bool call_is_queued(const Peer *peer, uint32_t serial);
// For messages: "'signal' of 'P.EndPoint.1'", of a call that stands in the queue or runs.
const char *call_title(const Peer *peer, uint32_t serial, char *buffer, size_t size);
const char *call_title(const wire::Call &call, char *buffer, size_t size);
// A text argument by one of its names, where it lies. False: there is none, or it is no text.
bool argument_find_text(const argument_list_t *arguments, const char *name, Text &text);

} // namespace bus

#endif
