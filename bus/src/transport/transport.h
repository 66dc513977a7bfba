// SPDX-License-Identifier: MIT
// Connections to other processes: what the layer keeps, and what it reports to the layer above.
#ifndef KEX_TRANSPORT_H
#define KEX_TRANSPORT_H

#include "base/limits.h"
#include "base/list.h"
#include "loop/loop.h"
#include "transport/socket.h"
#include "transport/spare.h"
#include "value/message.h"

namespace bus {

struct Batch;
struct Calls;
struct Connection;
struct Listener;

// What the transport knows of the layer above: each function is there.
struct Reports {
    // The peer has said hello. False: no memory.
    bool (*hello)(Connection *connection);
    // A call or a reply, validated; descriptors that are taken are marked so. False: no memory.
    bool (*call)(Connection *connection, const wire::Message &message, wire::Descriptors &descriptors);
    bool (*reply)(Connection *connection, const wire::Message &message, wire::Descriptors &descriptors);
    // The peer waits for the reply to its call of this serial.
    void (*waiting)(Connection *connection, uint32_t serial);
    // The message of a request is on its way, or could not be sent after all.
    void (*sent)(request_t *request);
    void (*unsent)(request_t *request, const char *why);
    // The connection has ended, at once; and again in its turn, behind the last call that came on it.
    void (*ended)(Connection *connection, const char *why);
    void (*closed)(Connection *connection);
};

// Places for connections of a user, kept also while they are not used. No places: this one is not in use.
struct Reservation {
    uint32_t user_id;
    uint32_t places;
};

struct Transport {
    Loop *loop;
    Calls *calls;
    const Reports *reports;
    char name[kMaxProcessName + 1]; // of this process
    Access access;
    SpareDescriptors spare;
    List<Connection> connections; // oldest first
    List<Listener> listeners;
    Reservation reservations[kMaxReservations];
    uint32_t held_places; // connections whose close event has not run
    uint32_t taps;
    int32_t process_id;   // this one's, for taps: asking the kernel for each record would cost as much as writing it
    uint64_t last_number; // of a connection
    uint64_t ends;        // noticed so far
    int32_t passing;    // a process whose places are about to become free: nobody is taken in before; 0: there is none
    uint64_t accept_at; // listeners pause until then; kNever: they do not
    uint64_t read_last; // number of the connection behind which reading begins; 0: at the oldest
    uint64_t waits_first; // of the first one in this turn whose packet found no room for its descriptors; 0: all did
    bool any_readable;    // the loop has seen something to read on some connection
    bool output_waits;    // something was queued outside a turn
    bool ending;          // nothing new begins
    Batch *incoming;      // so that none is read on the stack
    uint8_t *outgoing;    // one message or tap record, so that none is built there
};

// False: no memory, or no descriptors. transport_end() releases what was taken, also then.
bool transport_begin(Transport *transport, Loop *loop, const char *process_name, const Access &access);
void transport_report_to(Transport *transport, Calls *calls, const Reports *reports);
// Sends what is queued, for at most this long.
void transport_drain(Transport *transport, uint64_t nanoseconds);
// Closes all connections, and no new one begins. Their close events are in the loop's queue.
void transport_close(Transport *transport, const char *why);
void transport_end(Transport *transport);

} // namespace bus

#endif
