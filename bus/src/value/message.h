// SPDX-License-Identifier: MIT
// Messages, written and read as a whole. What they look like is drawn in layout.h.
#ifndef KEX_MESSAGE_H
#define KEX_MESSAGE_H

#include "value/parameters.h"
#include "value/reply.h"
#include "value/text.h"
#include "value/wire.h"

namespace bus::wire {

// ----------------------------------------------------------------------------------------------------- Writing

// Room for one message of at most `limit` bytes, which the functions below write.
Writer message_begin(uint8_t *memory, uint32_t limit);
// Closes the descriptors of a message that does not leave after all.
void message_discard(Writer &writer);

void hello_write(Writer &writer, const char *name);
void tap_hello_write(Writer &writer, const char *name);
void call_write(Writer &writer, uint32_t serial, uint32_t flags, Text path, Text function,
                const Parameters &parameters);
// Error items, then the value unless it is null or none.
void reply_write(Writer &writer, Kind kind, uint32_t serial, const reply_t *reply, const variant_t *value);
void refusal_write(Writer &writer, const char *why);
void waiting_write(Writer &writer, uint32_t serial);

// A call that has been written but not sent becomes one that wants no reply.
void call_make_one_way(uint8_t *message);

// ----------------------------------------------------------------------------------------------------- Reading

void descriptors_close(Descriptors &descriptors);

// A message where it lies.
struct Message {
    uint8_t kind;
    uint32_t serial;
    uint32_t flags;
    uint32_t descriptors; // that are its own
    const uint8_t *data;  // head included
    uint32_t size;
};

// Looks at the head only, which says where in the `size` bytes the message ends. A sentence when this is no message of
// ours, else null.
const char *message_open(const void *bytes, uint32_t size, Message &message);
// What the messages of a packet have together, as far as they have been looked at.
struct Totals {
    uint32_t values;
    uint32_t errors; // error items
};
// The body of a message that has been opened. A sentence what is wrong with it, else null.
const char *message_validate(const Message &message, Totals &totals);
// Of one that is in order.
inline uint8_t message_kind(const uint8_t *data) {
    return data[kKindAt];
}
// Whether it may not share its packet with others: until the far side has said who it is, nothing else counts.
inline bool message_comes_alone(const uint8_t *data) {
    return message_kind(data) == kHello || message_kind(data) == kTapHello;
}

// The functions below expect a message of their kind. On one that has been validated they fail for want of memory only.

// Of a hello or a tap hello.
Text hello_name(const Message &message);
Text refusal_reason(const Message &message);

struct Argument {
    Text name;
    uint32_t at; // of its value
};

struct Call {
    Text path;
    Text function;
    uint32_t count;
    Argument arguments[kMaxArguments];
};

// Reads a call, checking every value on the way.
bool call_read(const Message &message, Call &call);
// The type code of an argument's value, without reading it.
uint32_t argument_type(const Message &message, const Argument &argument);
// Null as descriptors: they are shown as numbers, as to a tap.
bool argument_read(const Message &message, const Argument &argument, Descriptors *descriptors, variant_t *value);
// Where it lies. False: the argument is no text; no byte array.
bool argument_text(const Message &message, const Argument &argument, Text &text);
bool argument_bytes(const Message &message, const Argument &argument, Text &bytes);
bool reply_read(const Message &message, Descriptors *descriptors, reply_t *reply);

} // namespace bus::wire

#endif
