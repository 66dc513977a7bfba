// SPDX-License-Identifier: MIT
// A line of the ladder. All traffic runs between a peer and the listener: peers and their endpoints stand on the left,
// the listener on the right, and the arrow tells the direction.
#include "show.h"

#include <algorithm>
#include <ctime>

#include <fmt/chrono.h>
#include <fmt/format.h>

#include "layout.h"
#include "story.h"
#include "text.h"

namespace voicectl {

namespace {

constexpr size_t kLane = 14; // a longer name moves its own line only
constexpr size_t kFullLane = 24;
constexpr size_t kMostLane = 36;  // a plugin's and an endpoint's longest names, and a blank
constexpr size_t kIndent = 14;    // of a second row: behind the time
constexpr size_t kNarrowest = 60; // on a narrower terminal rows are broken by the terminal
constexpr uint64_t kNsPerMs = 1'000'000;
constexpr uint64_t kMsPerSecond = 1'000;

constexpr const char *kTimeColour = "\x1B[2m";

std::string clock_time(uint64_t time_ns) {
    const uint64_t ms = time_ns / kNsPerMs;
    return fmt::format("{:%H:%M:%S}.{:03}", fmt::localtime(static_cast<std::time_t>(ms / kMsPerSecond)),
                       ms % kMsPerSecond);
}

std::string lane_of(const Step &step) {
    std::string lane = printable(step.peer.name());
    if (!step.endpoint.empty())
        lane += fmt::format(" {}", printable(step.endpoint));
    return lane;
}

} // namespace

std::string ladder_line(const Step &step, const Form &form) {
    std::vector<Piece> pieces{{clock_time(step.time_ns), kTimeColour, 0}};
    const size_t blanks = form.full ? 2 : 1;
    if (step.kind != Step::Kind::lost) {
        const std::string lane = form.full ? lane_of(step) : shortened(lane_of(step), kMostLane);
        const size_t width = form.full ? kFullLane : kLane;
        const size_t taken = columns_of(lane);
        pieces.push_back({lane, nullptr, blanks});
        pieces.push_back({step.towards_listener ? "-->" : "<--", nullptr, (taken < width ? width - taken : 0) + 1});
        if (form.full)
            pieces.push_back({printable(step.listener), nullptr, 1});
    }
    std::vector<Piece> story = story_tell(step, form.full);
    story.front().blanks = step.kind == Step::Kind::lost ? 2 : blanks;
    pieces.insert(pieces.end(), story.begin(), story.end());
    if (form.full)
        return pieces_join(pieces, form.colour);
    return pieces_lay_out(pieces, {std::max(form.columns, kNarrowest), form.rows, kIndent}, form.colour);
}

} // namespace voicectl
