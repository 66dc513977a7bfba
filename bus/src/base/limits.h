// SPDX-License-Identifier: MIT
// The one table of limits: what the bus accepts from peers and how much it keeps for them.
#ifndef KEX_LIMITS_TABLE_H
#define KEX_LIMITS_TABLE_H

#include "base/clock.h"

#include <stdint.h>

namespace bus {

constexpr uint32_t kMaxPacket = 128 * 1024;   // less where the kernel's socket buffer is smaller
constexpr uint32_t kMaxMessages = 64;         // of a packet
constexpr uint32_t kMaxByteArray = 96 * 1024; // one byte-array value
constexpr uint32_t kMaxArguments = 64;        // named values of a call
constexpr uint32_t kMaxErrors = 64;           // error items of a reply, and of all replies of a packet
constexpr uint32_t kMaxDescriptors = 64;      // of a packet
constexpr uint32_t kGatheredDescriptors = 16; // of them, that a sender brings together from several messages
constexpr uint32_t kKernelDescriptors =
    253;                                   // that the kernel passes in one packet: room for all, so that all are closed
constexpr uint32_t kMaxValues = 4096;      // of a packet, those inside lists included
constexpr uint32_t kMaxNesting = 4;        // lists inside lists
constexpr uint32_t kMaxPath = 255;         // bytes of an object's path
constexpr uint32_t kMaxProcessName = 63;   // bytes kept of a process name
constexpr uint32_t kMaxPeers = 64;         // connections of one bus, taps included
constexpr uint32_t kMaxPeersOfProcess = 8; // of them, from one process
constexpr uint32_t kMaxLeavings = 2;       // of them, ended with much left to run; then it gets no further one
constexpr uint32_t kMaxForeignPeers = 32;  // of them, from users other than the own one and root, all together
constexpr uint32_t kMaxReservations = 8;   // users for whom a host may keep places
constexpr uint32_t kMaxTaps = 8;           // of the connections
constexpr uint32_t kMaxTapsOfProcess = 2;  // of one process
constexpr uint32_t kMaxTapsOfOthers = 6;   // of processes that are neither root's nor of the own user
constexpr uint32_t kMaxQueuedBytes = 1024 * 1024;   // of the heap, to one peer; then kex_sendRequest says no
constexpr uint32_t kMaxQueuedDescriptors = 96;      // to one peer, likewise
constexpr uint32_t kMaxPendingRequests = 4096;      // to one peer, without an answer; beyond it it says no, too
constexpr uint32_t kReplyAllowance = 2;             // replies may fill this many times the queue, then the peer goes
constexpr uint32_t kMaxReceivedCalls = 1024;        // and replies of one peer, not dispatched
constexpr uint32_t kMaxReceivedBytes = 1024 * 1024; // likewise
constexpr uint32_t kMaxReceivedDescriptors = 128;   // likewise; it is read as long as a full packet fits these three
constexpr uint32_t kMessageKeeping = 512;           // of the heap, that keeping a call takes besides its bytes, at most
constexpr uint32_t kPacketFootprint =               // of the heap, that the calls of a full packet take
    kMaxPacket + kMaxMessages * kMessageKeeping + kMaxDescriptors * sizeof(int);
constexpr uint32_t kSpareDescriptors = 16; // kept back so that a full table never loses what arrives
static_assert(kGatheredDescriptors <= kSpareDescriptors, "what fits alone fits together");
constexpr uint32_t kHostShare = 4;        // the host keeps this part of the descriptors that the process may have,
constexpr uint32_t kMaxHostReserve = 256; // but not more than these, whatever peers' calls hold
constexpr uint32_t kMaxClosings = 256;    // closed beside the loop at a time; beyond it nobody new is taken in
constexpr uint32_t kMaxClosingsOfProcess =
    32;                              // of them, from one process; beyond it that one's packets with descriptors wait
constexpr uint32_t kMaxClosers = 8;  // threads that do so
constexpr uint32_t kMaxUnread = 512; // packets looked at before a close, where the kernel tells nothing
constexpr uint32_t kFlushBytes = 64 * 1024; // queued beyond this, kex_sendRequest tries to send at once
constexpr uint32_t kPacketsPerRead = 8;     // taken by one system call at most; each has a buffer
constexpr uint32_t kMessagesPerRead = 128;  // as many packets as have brought no more are taken by the next one
constexpr uint32_t kPacketsPerTurn = 64;    // read from one peer before the calls of others get their turn
constexpr uint32_t kEndedShare = 64; // tasks of an ended connection at a visit of the loop while newcomers wait for it

// What is left of a connection that has ended: more calls that have come, or more bytes that lie unread, are much; if
// there are no calls and no more bytes than these, a hello perhaps, it is as good as finished.
constexpr uint32_t kMuchToRun = 64;
constexpr int kMuchUnread = 4096;
constexpr int kLittleUnread = 128;

// No turn of the loop is longer than 50 ms, foreign functions' own time apart. Little of that is for reading and
// running: what a peer is answered leaves at the end of the turn, and who comes new needs two of them.
constexpr uint64_t kTurnReading = 5 * kMillisecond;
constexpr uint64_t kTurnRunning = 5 * kMillisecond;
constexpr uint64_t kTurnAccepting = 5 * kMillisecond;
constexpr uint64_t kVisit = 1 * kMillisecond; // no further task of an ended connection begins at a visit then

constexpr uint32_t kMissedCallsTold = 10;            // calls that find nothing, traced in a second
constexpr uint64_t kMissedCallsPeriod = 1 * kSecond; // what is more is counted
constexpr uint32_t kTracedOfProcess = 10;            // errors and warnings that one process causes, traced in a second
constexpr uint32_t kTracedOfAll = 50;                // that all of them cause; what is more is counted
constexpr uint32_t kTracedProcesses = 16;            // whose counts are kept apart
constexpr uint64_t kTracePeriod = 1 * kSecond;       // the second
constexpr uint32_t kTraceBuffer = 256 * 1024; // of messages that cannot be written now; beyond it they are counted
constexpr uint64_t kTraceRetry = 50 * kMillisecond;      // until it is tried again
constexpr uint64_t kTraceRetryNobody = 1 * kSecond;      // the same while nobody reads the system's log
constexpr uint64_t kTraceExitLimit = 200 * kMillisecond; // for what waits when the process ends
constexpr uint64_t kWelcomeLimit = 100 * kMillisecond;   // for the hello of a listener that said none the last time
constexpr uint64_t kLongCall = 1 * kSecond;              // a function that ran longer is traced
constexpr uint64_t kHelloLimit = 2 * kSecond;            // a connection that says nothing is closed
constexpr uint64_t kFirstWaitNotice = 2 * kSecond;       // a wait becomes visible
constexpr uint64_t kNextWaitNotice = 10 * kSecond;       // and stays so
constexpr uint64_t kSleepInReceive = 100 * kMillisecond; // of a wait, until it looks whether it is to end
constexpr uint64_t kExitFlushLimit = 1 * kSecond;        // kex_destroy sends what is queued
constexpr uint64_t kSendRetry = 10 * kMillisecond;       // the kernel was out of memory or of descriptors in flight
constexpr uint64_t kHoldBack = 10 * kMillisecond;        // until it is seen whether descriptors can be taken again
constexpr uint64_t kEndedHold = 50 * kMillisecond; // without a packet read of one that has ended: newcomers wait for it
constexpr uint64_t kEndedHoldInAll = 1 * kSecond;  // the same, since it was held back first
constexpr uint64_t kForeignClockPoll = 5 * kMillisecond; // a replaced clock cannot wake us: look this often

} // namespace bus

#endif
