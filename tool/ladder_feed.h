// SPDX-License-Identifier: MIT
// Takes traffic, from a capture or a tap, for a ladder.
#ifndef VOICECTL_LADDER_FEED_H
#define VOICECTL_LADDER_FEED_H

#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "capture_reader.h"
#include "filter.h"
#include "ladder_model.h"
#include "sound_streams.h"
#include "traffic.h"

namespace voicectl {

class LadderFeed {
public:
    // Only what the filter passes is shown. Sound has none of its words and always is.
    explicit LadderFeed(Filter filter, LadderRoom room = {}) : filter_(std::move(filter)), builder_(room) {}

    void take(const CapturedPacket &packet);
    void take(const kex_tap_record_t &record);
    // Messages that came, shown or not.
    uint64_t taken() const { return taken_; }
    uint64_t shown() const { return shown_; }
    // Packets of sound beyond the streams that there may be.
    uint64_t sound_left_out() const { return sound_.left_out(); }
    LadderModel finish(const std::string &title) { return builder_.finish(title, sound_); }

private:
    void show(const Step &step);
    void room_keep(int32_t listener);

    Filter filter_;
    std::map<int32_t, Traffic>
        traffic_{}; // by the listener's process: a capture may hold several, one behind the other
    SoundStreams sound_{};
    LadderBuilder builder_;
    uint64_t taken_ = 0;
    uint64_t shown_ = 0;
};

} // namespace voicectl

#endif
