// SPDX-License-Identifier: MIT
// The two processes of a check: the second one listens and serves until the first hangs up. Beside the bus they have a
// line of single words, which is in order with nothing on the bus.
#ifndef CONFORMANCE_FAR_H
#define CONFORMANCE_FAR_H

#include "host.h"

namespace conformance {

extern int line; // this process's end; -1: it is alone

// In the second process: begins the host, listens, and tells the first one so.
void far_listen();
// Turns until the first process hangs up, or for one of these words, which it says.
void far_serve();
void far_serve_until(char word);
// Most second processes are no more than this: listen, serve, end.
void far_plain();

// In the first process: begins the host and connects once the second one listens.
peer_t *far_connect();
// Another connection to it.
peer_t *far_connect_again();

void line_say(char word);
// Waits for the word; without turning the loop, or turning it.
void line_hear(char word);
void line_hear_in_turns(char word);
// Ends this process at once, as a crash would: nothing of the bus is finished.
[[noreturn]] void process_vanish();

} // namespace conformance

#endif
