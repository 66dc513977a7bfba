// SPDX-License-Identifier: MIT
// Which lanes a ladder has, and in which order.
#ifndef VOICECTL_LADDER_LANES_H
#define VOICECTL_LADDER_LANES_H

#include <string>
#include <vector>

#include "ladder_model.h"

namespace voicectl {

// An end of messages with all its names.
struct LanePlace {
    Lane::Kind kind;
    std::string process;  // or what the lane is called
    std::string endpoint; // empty: the process itself
};

// Applications stand in the middle, processes on both sides of them, each with its endpoints outside, sound last. Ends of
// one name share a lane. What is more than there may be shares the lane of its process, or one for all others.
// `lane_of_place` says where each place is.
std::vector<Lane> lanes_arrange(const std::vector<LanePlace> &places, std::vector<int> &lane_of_place);

} // namespace voicectl

#endif
