// SPDX-License-Identifier: MIT
// One connection to another process, from connect or accept until its close event.
#ifndef KEX_CONNECTION_H
#define KEX_CONNECTION_H

#include "transport/account.h"
#include "transport/transport.h"

namespace bus {

struct OutMessage;
struct Peer;

enum class Role : uint8_t {
    client, // we connected
    server, // it connected to us
    tap,    // it connected to look
};

// Whether a receive from its socket can sleep until something comes; found out when it is wanted first.
enum class Sleep : uint8_t { unknown, possible, impossible };

// Its task is the close event.
struct Connection : Source, Task, Node<Connection> {
    Transport *transport;
    Lane lane;  // its calls, replies and close event
    Peer *peer; // what the layer above keeps for it; null until the peer has said hello to us who listen, and for taps
    Role role;
    bool hello_received;
    bool readable; // the loop has seen something to read
    bool closed;
    bool write_closed; // nothing can be sent any more; what the peer sent before can still be read
    Sleep sleep_in_receive;
    uint8_t batch_power; // its next read takes up to 2 to the power of this many packets
    uint64_t number;     // rises: whoever keeps connecting cannot make it begin again
    uint64_t end_number; // its end was noticed as the so-many-th; 0: it has not ended
    uint64_t behind;     // how many ends had been noticed when it was accepted: those come first
    uint32_t batches;    // read in this turn
    uint32_t messages;   // that the last read has brought
    int32_t process_id;
    uint32_t user_id;
    char name[kMaxProcessName + 1];
    char refusal[128]; // the reason the peer gave for refusing us
    uint32_t packet_limit;
    uint64_t hello_deadline;
    uint64_t retry_at;
    uint64_t resume_at;       // not read until then; kNever: it is read unless it is full
    uint64_t ended_hold;      // since when its descriptors hold it back although it has ended; 0: they do not
    uint64_t ended_hold_read; // the same, since a packet of it was read
    List<OutMessage> output;
    Account queued;   // in `output`
    Account received; // calls that have not been run yet, and replies
    uint32_t lost;    // taps: copies that found no room
};

// Takes over a connected socket, also on failure. Null: too many connections or no memory.
Connection *connection_begin(Transport *transport, int fd, Role role);
// Ends it: tells the layer above and queues the close event behind what the peer had sent.
void connection_close(Connection *connection, const char *why);
// Tells the peer why, writes one trace message and closes.
void connection_refuse(Connection *connection, const char *why);
// The same for a socket that did not become a connection.
void socket_refuse(Transport *transport, int fd, const char *why);
// Closes a socket that leads to a listener which refuses this process. The listener hears who it was, so that its log and
// its taps show who cannot come in, each time.
void socket_give_up(Transport *transport, int fd);
// For messages: "'fxs_plugin' (process 12)".
const char *connection_title(const Connection *connection, char *buffer, size_t size);
constexpr size_t kTitleSize = kMaxProcessName + 32;

// Whether anything that is queued now can still reach the peer.
inline bool connection_is_writable(const Connection *connection) {
    return !connection->closed && !connection->write_closed;
}

// What waits from the peer has reached a limit.
inline bool connection_is_full(const Connection *connection) {
    const Account &received = connection->received;
    return received.messages >= kMaxReceivedCalls || received.bytes >= kMaxReceivedBytes ||
           received.descriptors >= kMaxReceivedDescriptors;
}

// Whether a packet more, as full as it may be, passes no limit on what waits from the peer.
inline bool connection_takes_packet(const Connection *connection) {
    const Account &received = connection->received;
    return account_fits(received.messages, kMaxMessages, kMaxReceivedCalls) &&
           account_fits(received.bytes, kPacketFootprint, kMaxReceivedBytes) &&
           account_fits(received.descriptors, kMaxDescriptors, kMaxReceivedDescriptors);
}

// Not read, so that a packet that brings descriptors stays where it is for the moment.
void connection_hold_back(Connection *connection);
// Of a newcomer that has to wait itself only the hello is read: what follows could not run, and is cheaper to read later.
inline bool connection_may_be_read(const Connection *connection) {
    return connection_takes_packet(connection) && connection->resume_at == kNever &&
           !(connection->lane.held && connection->hello_received);
}

// By the loop's clock.
uint64_t connections_deadline(const Transport *transport);
void connections_expire(Transport *transport, uint64_t now);
void connections_free(Transport *transport);

} // namespace bus

#endif
