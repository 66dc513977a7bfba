// SPDX-License-Identifier: MIT
// The bytes of a packet. wire.h reads and writes numbers, texts and values; message.cpp and tap_record.cpp the bodies.
// No other file knows them.
//
// A packet carries one message or more, one behind the other; a hello comes alone. Every message begins with a head:
//
//   0        1        2        3        4        8        12       16            20
//  +--------+--------+--------+--------+--------+--------+--------+-------------+---------
//  |  'k'   |version | order  |  kind  | serial | flags  |  size  | descriptors | body ...
//  +--------+--------+--------+--------+--------+--------+--------+-------------+---------
//
// The first four are single bytes, so that processes of different version or byte order can tell that they differ.
// `order` is 'l' or 'B' (little, big): all numbers after it are in the sender's order, without padding. A text is its
// length (4) and its bytes. `serial` counts the calls of one side of a connection; a reply and a waiting notice, and
// only they, carry the serial of the call they are about. `flags` are the request's. `size` is that of the message, head
// included; `descriptors` says how many of those that travel with the packet are its own: first those of the first
// message, then those of the next one.
//
//   kind          body
//   1 hello       text: name of the process
//   2 call        text: path, text: function, count (1), then per argument text: name, value
//   3 one-way     as a call; no reply is sent
//   4 reply       count (1), then per error item code (4), text: description, text: info;
//                 then 0 (1), or 1 (1) and a value
//   5 refused     text: why; the connection closes after it
//   6 waiting     nothing
//   7 tap hello   text: name of the process
//   8 tap record  kind (4), time (8), from, to, lost (4), text: why, size (4), message
//   9 missed      as a reply: a one-way call found no object or no function; for taps, the caller drops it
//
// `from` and `to` of a tap record are each process (4), connection (4), text: name. Its message is the one that passed,
// head included, and as long as `size` says; events without a message have none. It shows how many descriptors the
// message had, which do not come with the record.
//
// A value is its type code (1) and
//
//     0 text             text
//     3, 7 16-bit        number (2)
//     4, 8 32-bit        number (4)
//    10 boolean          0 or 1 (1)
//    13 list             count (4), then that many values
//    18 descriptor       index (4) among the descriptors of the message, number (4) at the sender;
//                        both are -1 for a descriptor that is none
//    19 byte array       length (4), then its bytes
//   255 no value         nothing
//
// Each descriptor of a message is named by exactly one index.
#ifndef KEX_LAYOUT_H
#define KEX_LAYOUT_H

#include <stdint.h>

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
    kMissed = 9,
};

constexpr uint8_t kMagic = 'k';
constexpr uint8_t kVersion = 2;
constexpr uint8_t kOrder = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? 'l' : 'B';
constexpr uint32_t kKindAt = 3;
constexpr uint32_t kSerialAt = 4;
constexpr uint32_t kFlagsAt = 8;
constexpr uint32_t kSizeAt = 12;
constexpr uint32_t kDescriptorsAt = 16;
constexpr uint32_t kHeadSize = 20;
constexpr uint32_t kNoIndex = UINT32_MAX; // of a descriptor that is none

} // namespace bus::wire

#endif
