// SPDX-License-Identifier: MIT
// A message of which no more than the first byte is wanted: what it brings besides, or that it goes. The kernel takes a
// call without any room, too, but an emulator of another processor does not hand that on, and answers 0.
#ifndef KEX_FIRST_BYTE_H
#define KEX_FIRST_BYTE_H

#include <stdint.h>
#include <sys/socket.h>

namespace bus {

struct FirstByte {
    uint8_t byte;
    iovec part;
    msghdr message;
};

// Ready to be received into; the message points into the structure.
inline msghdr *first_byte_prepare(FirstByte &to) {
    to.part = {&to.byte, sizeof to.byte};
    to.message = {};
    to.message.msg_iov = &to.part;
    to.message.msg_iovlen = 1;
    return &to.message;
}

} // namespace bus

#endif
