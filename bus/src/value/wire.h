// SPDX-License-Identifier: MIT
// Packets: reading and writing them. The bytes are drawn in wire.cpp, which alone knows them.
#ifndef KEX_WIRE_H
#define KEX_WIRE_H

#include "base/contract.h"
#include "base/limits.h"

namespace bus::wire {

enum Kind : uint8_t {
    kHello = 1,
    kCall = 2,
    kOneWayCall = 3,
    kReply = 4,
    kRefused = 5,
    kWaiting = 6,
    kTapHello = 7,
    kTapRecord = 8,
};

struct Head {
    uint8_t kind;
    uint32_t serial;
    uint32_t flags;
};

// Bytes inside a packet; not zero-terminated, and a zero byte may stand anywhere.
struct Text {
    const char *bytes;
    uint32_t length;
};

// ----------------------------------------------------------------------------------------------------- Writing

// A packet under construction. The first problem wins and stays in `why`; everything after it does nothing.
struct Writer {
    uint8_t *data;
    uint32_t limit;
    uint32_t size;
    const char *why;
    uint32_t values;
    uint32_t fd_count;
    int fds[kMaxDescriptors]; // duplicates, the writer's until they are taken
};

Writer start(uint8_t *memory, uint32_t limit, Kind kind, uint32_t serial, uint32_t flags);
void put_byte(Writer &writer, uint8_t byte);
void put_word(Writer &writer, uint32_t word);
void put_long(Writer &writer, uint64_t number);
void put_text(Writer &writer, const char *text);
void put_bytes(Writer &writer, const void *bytes, uint32_t length); // without their length
void put_value(Writer &writer, const variant_t *value);             // duplicates descriptors
// Closes the descriptors of a packet that does not leave after all.
void discard(Writer &writer);
// A call that has been written but not sent becomes one that wants no reply.
void make_one_way(uint8_t *packet);

// ----------------------------------------------------------------------------------------------------- Reading

// Descriptors that came with a packet. One that has been handed out is -1.
struct Descriptors {
    int *fds;
    uint32_t count;
};
void close_all(Descriptors &descriptors);

// A packet being read. The first problem wins and stays in `why`; everything after it reads as nothing.
struct Reader {
    const uint8_t *data;
    uint32_t size;
    uint32_t at;
    const char *why;
    uint32_t values;
    uint32_t announced;       // descriptors that came; indices must stay below
    uint64_t used;            // one bit per index
    Descriptors *descriptors; // where values take theirs from; null: their numbers are shown, as to a tap
};

// What stands in front of every packet. A sentence when the other side is none of ours, else null.
const char *read_head(const void *packet, uint32_t size, Head &head);
// Behind the head.
Reader open(const void *packet, uint32_t size);
uint8_t get_byte(Reader &reader);
uint32_t get_word(Reader &reader);
uint64_t get_long(Reader &reader);
Text get_text(Reader &reader);
// The type code of the value that comes next, without reading it.
uint32_t next_type(const Reader &reader);
// Reads one value. With a null `value` it is only checked. False: broken or no memory; *value is valid and empty.
bool get_value(Reader &reader, variant_t *value);

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
bool get_call(Reader &reader, Call &call);
// Reads a reply into *reply, or only checks it when that is null.
bool get_reply(Reader &reader, reply_t *reply);
// A value whose place get_call found.
Reader open_at(const void *packet, uint32_t size, uint32_t at, Descriptors *descriptors);

// The whole of a packet from a stranger, descriptors included. A sentence what is wrong with it, else null.
const char *check(const void *packet, uint32_t size, uint32_t descriptors, Head &head);

} // namespace bus::wire

#endif
