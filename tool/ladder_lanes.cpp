// SPDX-License-Identifier: MIT
#include "ladder_lanes.h"

#include <algorithm>
#include <map>
#include <utility>

#include "ladder_rows.h"
#include "text.h"

namespace voicectl {

namespace {

constexpr const char *kOthers = "others";

// A process and those of its endpoints that have a lane.
struct ProcessLanes {
    std::string name{};
    std::vector<std::string> endpoints{};
    size_t size() const { return 1 + endpoints.size(); }
};

// Collects what has a lane, in the order in which it came.
class LaneCollection {
public:
    void add(const LanePlace &place) {
        if (place.kind == Lane::Kind::application) {
            if (has_room() &&
                std::find(applications_.begin(), applications_.end(), place.process) == applications_.end())
                applications_.push_back(place.process);
        } else if (place.kind == Lane::Kind::sound) {
            has_sound_ = true;
        } else {
            process_add(place);
        }
    }

    // The lanes from left to right, and where each is, by process and endpoint.
    std::vector<Lane> arrange(std::map<std::pair<std::string, std::string>, int> &where) {
        std::vector<ProcessLanes> left, right;
        size_t left_size = 0, right_size = 0;
        for (ProcessLanes &process : processes_) {
            const bool goes_left = left_size <= right_size;
            (goes_left ? left_size : right_size) += process.size();
            (goes_left ? left : right).push_back(std::move(process));
        }
        std::vector<Lane> lanes;
        for (const ProcessLanes &process : left)
            process_place(process, true, lanes, where);
        for (const std::string &name : applications_) {
            where[{name, kApplication}] = static_cast<int>(lanes.size());
            lanes.push_back({Lane::Kind::application, text_tame(printable(name)), -1});
        }
        for (const ProcessLanes &process : right)
            process_place(process, false, lanes, where);
        if (has_sound_) {
            where[{"RTP", kSoundLane}] = static_cast<int>(lanes.size());
            lanes.push_back({Lane::Kind::sound, "RTP", -1});
        }
        return lanes;
    }

    // No endpoint is called like that: a name holds no zero.
    inline static const std::string kApplication{"\0application", 12};
    inline static const std::string kSoundLane{"\0sound", 6};

private:
    bool has_room() const {
        size_t lanes = applications_.size();
        for (const ProcessLanes &process : processes_)
            lanes += process.size();
        return lanes + 2 < kMostLadderLanes; // others, sound
    }

    ProcessLanes *find(const std::string &name) {
        const auto found = std::find_if(processes_.begin(), processes_.end(),
                                        [&](const ProcessLanes &one) { return one.name == name; });
        return found == processes_.end() ? nullptr : &*found;
    }

    void process_add(const LanePlace &place) {
        ProcessLanes *process = find(place.process);
        if (process == nullptr && has_room())
            process = &processes_.emplace_back(ProcessLanes{.name = place.process});
        if (process == nullptr) {
            if (find(kOthers) == nullptr)
                processes_.push_back({.name = kOthers});
            return;
        }
        std::vector<std::string> &endpoints = process->endpoints;
        if (!place.endpoint.empty() && has_room() &&
            std::find(endpoints.begin(), endpoints.end(), place.endpoint) == endpoints.end())
            endpoints.push_back(place.endpoint);
    }

    static void process_place(const ProcessLanes &process, bool is_left, std::vector<Lane> &lanes,
                              std::map<std::pair<std::string, std::string>, int> &where) {
        const auto first = static_cast<int>(lanes.size());
        const int own = is_left ? first + static_cast<int>(process.endpoints.size()) : first;
        const auto own_place = [&] {
            where[{process.name, ""}] = own;
            lanes.push_back({Lane::Kind::process, text_tame(printable(process.name)), -1});
        };
        if (!is_left)
            own_place();
        for (const std::string &endpoint : process.endpoints) {
            where[{process.name, endpoint}] = static_cast<int>(lanes.size());
            lanes.push_back({Lane::Kind::endpoint, text_tame(printable(endpoint)), own});
        }
        if (is_left)
            own_place();
    }

    std::vector<std::string> applications_{};
    std::vector<ProcessLanes> processes_{};
    bool has_sound_ = false;
};

} // namespace

std::vector<Lane> lanes_arrange(const std::vector<LanePlace> &places, std::vector<int> &lane_of_place) {
    LaneCollection collection;
    for (const LanePlace &place : places)
        collection.add(place);
    std::map<std::pair<std::string, std::string>, int> where;
    std::vector<Lane> lanes = collection.arrange(where);
    for (const LanePlace &place : places) {
        const std::string part = place.kind == Lane::Kind::application ? LaneCollection::kApplication
                                 : place.kind == Lane::Kind::sound     ? LaneCollection::kSoundLane
                                                                       : place.endpoint;
        int lane = 0;
        for (const auto &key : {std::pair(place.process, part), std::pair(place.process, std::string()),
                                std::pair(std::string(kOthers), std::string())})
            if (const auto found = where.find(key); found != where.end()) {
                lane = found->second;
                break;
            }
        lane_of_place.push_back(lane);
    }
    return lanes;
}

} // namespace voicectl
