// SPDX-License-Identifier: MIT
// Short ways to make requests, and to read what came back.
#ifndef CONFORMANCE_REQUEST_H
#define CONFORMANCE_REQUEST_H

#include "binding.h"

#include <stdint.h>

namespace conformance {

// To function of the object "Conformance".
request_t *request_make(const char *function = "run", uint32_t flags = 0);
request_t *request_make_to(const char *path, const char *function, uint32_t flags = 0);
void request_add_text(request_t *r, const char *name, const char *text);
void request_add_number(request_t *r, const char *name, uint32_t number);
void request_add_bytes(request_t *r, const char *name, const void *bytes, uint32_t length);
void request_add_descriptors(request_t *r, const char *name, const int *descriptors, unsigned count);

void request_send(peer_t *peer, request_t *r);
// One-way: sent and destroyed before it leaves, without a handler.
void call_one_way(peer_t *peer, const char *function, uint32_t number);
// Waits; the check fails when there is no answer.
void request_wait(request_t *r);
// Sends, waits and gives the reply, which lives as long as the request. The check fails when no function ran.
reply_t *request_call(peer_t *peer, request_t *r);
// The same for one that is to find nothing.
reply_t *request_call_in_vain(peer_t *peer, request_t *r);
// A call that takes its turn behind all that was sent before: run(number), answered.
void call_and_wait(peer_t *peer, const char *function, uint32_t number);

// The value of a reply that has no error.
const variant_t *reply_value(reply_t *reply);
uint32_t reply_number(reply_t *reply);
const char *reply_text(reply_t *reply);
unsigned reply_count(reply_t *reply);

// In a function: its argument "value" as a number; 0 without one.
uint32_t argument_number(argument_list_t *arguments);

} // namespace conformance

#endif
