// SPDX-License-Identifier: MIT
// Follows a bus and counts what passes.
#include "bus_follow.h"

#include <optional>

#include <fmt/format.h>

#include "common.h"
#include "tap_drain.h"
#include "tap_turn.h"
#include "text.h"
#include "traffic.h"

namespace voicectl {

namespace {

class BusFollower {
public:
    explicit BusFollower(const Following &following) : following_(following) {}

    int run() {
        bool was_there = false;
        do { // once in any case: whoever ends at once has found nobody missing that he never looked for
            refused_ = false;
            std::string why;
            const Tap tap = tap_open(following_.address, why);
            if (tap == nullptr && !following_.reconnect) {
                complain(why);
                return kFailure;
            }
            if (tap != nullptr)
                follow(*tap);
            was_there = was_there || tap != nullptr;
            if (following_.limit.reached() || ended_)
                break; // what was counted stays as it is
            traffic_.clear();
            following_.counts.disconnect();
            following_.connected = false;
            if (!following_.reconnect || !following_.turn())
                break;
            following_.limit.wait({following_.descriptor}, following_.output, following_.tick);
        } while (!following_.limit.reached());
        const bool done = following_.reconnect || (was_there && !refused_);
        return done && !following_.limit.reader_left() ? kSuccess : kFailure;
    }

private:
    void follow(kex_tap_t &tap) {
        TapTurn records;
        while (!following_.limit.reached()) {
            kex_tap_record_t record{};
            const int found = records.next(tap, record);
            if (found < 0)
                break;
            if (found > 0) {
                take(record);
                if (refused_)
                    return;
                continue;
            }
            if (!following_.turn()) {
                ended_ = true;
                return;
            }
            following_.limit.wait({kex_tap_descriptor(&tap), following_.descriptor}, following_.output,
                                  records.end(following_.tick));
        }
        if (following_.limit.reached())
            tap_drain(
                tap, [] { return true; }, [this](const kex_tap_record_t &record) { take(record); });
        else
            complain("the voice application is gone");
    }

    void take(const kex_tap_record_t &record) {
        if (const std::string refusal = tap_refusal(record); !refusal.empty()) {
            refused_ = true;
            if (!told_)
                complain(refusal);
            told_ = true; // not at each attempt
            return;
        }
        told_ = false;
        if (!following_.connected)
            complain(fmt::format("watching {}", printable(following_.address.uri)));
        following_.connected = true;
        if (const std::optional<Step> step = traffic_.next(record))
            following_.counts.take(*step);
    }

    const Following &following_;
    Traffic traffic_;
    bool refused_ = false; // this tap
    bool told_ = false;
    bool ended_ = false; // by its turn
};

} // namespace

int bus_follow(const Following &following) {
    return BusFollower(following).run();
}

} // namespace voicectl
