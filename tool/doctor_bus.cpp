// SPDX-License-Identifier: MIT
// What a tap sees in a few seconds.
#include <algorithm>
#include <cerrno>
#include <map>
#include <tuple>

#include <sys/socket.h>
#include <unistd.h>

#include "common.h"
#include "connection.h"
#include "doctor_look.h"
#include "tap_turn.h"
#include "traffic.h"

namespace voicectl {

namespace {

using Clock = RunLimit::Clock;
using Seconds = std::chrono::duration<double>;

constexpr RunLimit::Tick kTick{100};
constexpr std::chrono::seconds kAnswer{1};
constexpr double kFirstNotice = 2; // seconds that a wait lasts until it is told of

// The call that is waited for: connection, towards the listener, serial.
using CallKey = std::tuple<uint32_t, bool, uint32_t>;

struct OpenWait {
    WaitFacts facts;
    Clock::time_point told;
};

class BusWatch {
public:
    BusFacts facts{};

    void take(const kex_tap_record_t &record) {
        if (!tap_refusal(record).empty()) {
            facts.refusal = record.text;
            return;
        }
        if (!facts.answered) {
            facts.answered = true;
            facts.listener.id = record.from.connection == 0 ? record.from.process_id : record.to.process_id;
            facts.listener.name = record.from.connection == 0 ? record.from.name : record.to.name;
        }
        if (const std::optional<Step> step = traffic_.next(record))
            understand(*step);
    }

    // The waits that are not over, as long as they are by now.
    void finish() {
        for (const auto &[key, open] : open_) {
            facts.waits.push_back(open.facts);
            facts.waits.back().seconds += Seconds(Clock::now() - open.told).count();
        }
    }

private:
    void understand(const Step &step) {
        const uint32_t connection = step.peer.connection;
        if (step.kind == Step::Kind::closed || step.kind == Step::Kind::refused) {
            forget(connection);
            return;
        }
        // Who was there before the watching began is known by what passes.
        if (connection != 0 && peers_.try_emplace(connection, step.peer.process_id).second)
            process_note(step);
        if (step.kind == Step::Kind::waiting) {
            wait_open(step, std::max(kFirstNotice, static_cast<double>(step.elapsed_ns.value_or(0)) / 1e9));
        } else if (step.kind == Step::Kind::call) {
            wait_open(step, 0);
        } else if (step.kind == Step::Kind::lost) {
            // Answers may be among what was lost.
            std::erase_if(open_, [](const auto &entry) { return !entry.second.facts.blocked; });
        } else if (step.kind == Step::Kind::reply) {
            open_.erase({connection, !step.towards_listener, step.serial});
        }
    }

    // Once, however many connections it has: each of them is looked at in the end.
    void process_note(const Step &step) {
        if (std::none_of(facts.peers.begin(), facts.peers.end(),
                         [&step](const ProcessFacts &peer) { return peer.id == step.peer.process_id; }))
            facts.peers.push_back({.id = step.peer.process_id, .name = step.peer.name()});
    }

    void wait_open(const Step &step, double seconds) {
        const std::string peer = step.peer.name();
        const bool to_listener = step.towards_listener;
        open_[{step.peer.connection, to_listener, step.serial}] = {
            {.who = to_listener ? peer : step.listener,
             .whom = to_listener ? step.listener : peer,
             .function = step.function,
             .connection = step.peer.connection,
             .by_listener = !to_listener,
             .blocked = step.kind == Step::Kind::waiting,
             .seconds = seconds,
             .whom_process = to_listener ? step.listener_process_id : step.peer.process_id},
            Clock::now()};
    }

    void forget(uint32_t connection) {
        std::erase_if(open_, [connection](const auto &entry) { return entry.second.facts.connection == connection; });
        const auto found = peers_.find(connection);
        if (found == peers_.end())
            return;
        const int32_t process = found->second;
        peers_.erase(found);
        // It may have further connections.
        if (std::none_of(peers_.begin(), peers_.end(), [process](const auto &peer) { return peer.second == process; }))
            std::erase_if(facts.peers, [process](const ProcessFacts &peer) { return peer.id == process; });
    }

    Traffic traffic_;
    std::map<uint32_t, int32_t> peers_; // process of each connection
    std::map<CallKey, OpenWait> open_;
};

// Who listens there, as the kernel knows him, also when he does not answer.
int32_t listener_process(const kex_tap_t *tap) {
    ucred credentials{};
    socklen_t size = sizeof credentials;
    const bool known = getsockopt(kex_tap_descriptor(tap), SOL_SOCKET, SO_PEERCRED, &credentials, &size) == 0;
    return known ? credentials.pid : 0;
}

} // namespace

BusFacts bus_look(PlaceFacts &place, RunLimit &limit) {
    BusWatch watch;
    if (place.path.empty())
        return watch.facts;
    const Tap tap(kex_tap_open(place.uri.c_str(), nullptr, 0));
    place.error = tap == nullptr ? errno : 0;
    if (tap == nullptr)
        return watch.facts;
    watch.facts.listener.id = listener_process(tap.get());
    const auto begin = Clock::now();
    TapTurn records;
    for (;;) {
        kex_tap_record_t record{};
        const int found = records.next(*tap, record);
        if (found > 0) {
            watch.take(record);
            continue;
        }
        watch.facts.ended = found < 0;
        // However short the watching is to be, the answer has its time.
        const bool over = watch.facts.answered ? limit.reached() : Clock::now() - begin > kAnswer;
        if (found < 0 || over || RunLimit::interrupted())
            break;
        limit.wait({kex_tap_descriptor(tap.get())}, -1, records.end(kTick));
    }
    watch.facts.watched = Seconds(Clock::now() - begin).count();
    watch.finish();
    BusFacts &facts = watch.facts;
    facts.listener = process_look(facts.listener.id, facts.listener.name);
    for (ProcessFacts &peer : facts.peers)
        peer = process_look(peer.id, peer.name);
    return facts;
}

} // namespace voicectl
