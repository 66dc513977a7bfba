// SPDX-License-Identifier: MIT
// Faults on request: what the variable KEX_FAULTS asks for happens, so that a host can be tried without a tired kernel.
// Its grammar stands in README.md.
#ifndef KEX_FAULTS_H
#define KEX_FAULTS_H

#include <stdint.h>

namespace bus {

enum class Fault : uint8_t {
    memory, // an allocation
    send,   // system calls, from here
    receive,
    accept,
    socket,
    connect,
    bind,
    listen,
    epoll,
    timer,
    dup,
    lock,
    open,   // to here
    refuse, // a request, which kex_sendRequest says no to
    delay,  // a message that leaves
    close,  // the connection that a message is to leave on
    kinds,
};

extern bool faults_on;

// Reads the plan, and counts from the beginning. Says what is planned, or what cannot be read: then nothing is.
void faults_read(const char *plan);
// Behind fault_is_due(): counts, and decides.
bool fault_strikes(Fault fault);
// By how many milliseconds the message that was struck last is delayed.
uint32_t fault_delay();

// Whether this one fails; errno says then what a kernel would say. Without a plan it costs a look at one variable.
inline bool fault_is_due(Fault fault) {
    return __builtin_expect(faults_on, false) && fault_strikes(fault);
}

} // namespace bus

#endif
