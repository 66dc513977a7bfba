// SPDX-License-Identifier: MIT
// What the targets of the bus share: generated packets with their descriptors, a socket's path, a look at what the bus
// sends, and requests that must end once.
#ifndef FUZZ_PACKETS_H
#define FUZZ_PACKETS_H

#include "input.h"
#include "kex_host.h"
#include "require.h"

#include "support/raw_peer.h"

#include <string>
#include <vector>

namespace fuzz {

struct GeneratedPacket {
    std::string bytes;
    std::vector<int> descriptors; // the process's own; the kernel copies them
};

// A whole packet of one message of any kind or of several, one that is changed in a few places, or any bytes. `serials` are those that a reply may
// answer.
GeneratedPacket packet(Input &in, const std::vector<uint32_t> &serials);
// One message of a kind, as it should be.
GeneratedPacket packet_of_kind(Input &in, uint8_t kind, uint32_t serial);

// A path of this process, in $TMPDIR.
const std::string &socket_path();
// As kex_client_connect() and kex_tap_open() take it.
std::string socket_uri();

// Holds for every message that the bus sends: a head of its own order, its size, a known kind.
void sent_check(const std::string &message);
// Reads what the bus has sent to a peer, checks each message, and keeps the serials of its calls, 16 in all at most.
void messages_take(support::RawPeer &peer, std::vector<uint32_t> &serials);

// Turns until there is nothing to do, at most so often that a bus at rest has come to it.
void bus_settle(kex_t *bus);

// Open descriptors of this process.
size_t descriptors_open();
// As many as before must be open again soon: what came from a peer may be closed beside the loop.
void descriptors_settle(size_t before);

// Sends a request with handlers to a peer. Each handler must run as the contract says.
void request_send(Input &in, kex_t *bus, peer_t *peer);
// The same, and waits for its reply, a millisecond at most.
void request_wait(Input &in, kex_t *bus, peer_t *peer);
// Requests whose handlers have not run for the last time.
unsigned requests_open();

// Takes steps of a session as long as the input lasts, 80 at most, then ends it: neither requests nor descriptors stay.
template <typename Session>
void session_run(Input in, void (Session::*end_check)() = nullptr) {
    constexpr unsigned kMostSteps = 80;
    const size_t before = descriptors_open();
    {
        Session session;
        for (unsigned i = 0; i < kMostSteps && !in.is_empty(); ++i)
            session.step(in);
        if (end_check != nullptr)
            (session.*end_check)();
    }
    require(requests_open() == 0, "every request has ended");
    descriptors_settle(before);
}

// Declares the functions below for object "Probe", with arguments "text", "u16", "u32", "i32", "bytes", "list".
void functions_declare(kex_t *bus);

} // namespace fuzz

#endif
