// SPDX-License-Identifier: MIT
#include "ladder_model.h"

#include <algorithm>
#include <numeric>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "ladder_lanes.h"
#include "ladder_rows.h"
#include "text.h"

namespace voicectl {

namespace {

constexpr int kListener = -1; // in place of a peer
constexpr int kSound = -2;

size_t row_bytes(const LadderRow &row) {
    size_t bytes = sizeof row + row.name.size() + row.meaning.size() + row.words.size();
    for (const LadderParameter &one : row.parameters)
        bytes += sizeof one + one.name.size() + one.value.size() + one.words.size();
    return bytes;
}

} // namespace

uint64_t LadderModel::elapsed_ns(const LadderRow &row) const {
    const bool answers = row.kind == LadderRow::Kind::reply || row.kind == LadderRow::Kind::error;
    if (!answers || row.partner < 0)
        return 0;
    const uint64_t called_ns = rows[static_cast<size_t>(row.partner)].time_ns;
    return row.time_ns > called_ns ? row.time_ns - called_ns : 0;
}

bool LadderBuilder::has_room() {
    if (room_.rows > 0 && room_.bytes > 0)
        return true;
    ++left_out_;
    return false;
}

void LadderBuilder::bytes_take(size_t bytes) {
    room_.bytes -= std::min(room_.bytes, bytes);
}

void LadderBuilder::row_add(LadderRow row) {
    room_.rows--;
    bytes_take(row_bytes(row));
    rows_.push_back(std::move(row));
}

int LadderBuilder::place_of(int peer, const std::string &text) {
    const auto [found, is_new] = place_numbers_.try_emplace({peer, text}, static_cast<int>(places_.size()));
    if (is_new) {
        places_.emplace_back(peer, text);
        bytes_take(2 * (sizeof(Place) + text.size()));
    }
    return found->second;
}

// With its names, as they are known by now.
int LadderBuilder::peer_of(const Step &step) {
    const PeerKey key = {step.listener_process_id, step.peer.connection};
    auto found = peer_numbers_.find(key);
    // The connections of a listener are numbered anew when another process takes its place.
    if (found == peer_numbers_.end() || step.kind == Step::Kind::connected) {
        found = peer_numbers_.insert_or_assign(key, static_cast<int>(peers_.size())).first;
        peers_.emplace_back();
        bytes_take(sizeof(PeerNames) + step.peer.name().size());
    }
    PeerNames &names = peers_[static_cast<size_t>(found->second)];
    names.name = step.peer.name().empty() ? fmt::format("process {}", step.peer.process_id) : step.peer.name();
    if (step.record && !step.endpoint.starts_with("#") && !step.endpoint.empty())
        if (names.endpoints.insert_or_assign(fmt::format("#{}", step.record->endpoint), step.endpoint).second)
            bytes_take(sizeof(Place) + step.endpoint.size());
    return found->second;
}

void LadderBuilder::places_fill(LadderRow &row, const Step &step) {
    const int peer = peer_of(step);
    const int process = place_of(peer, "");
    const int listener = last_listener_ = place_of(
        kListener, step.listener.empty() ? fmt::format("process {}", step.listener_process_id) : step.listener);
    // Who registers an endpoint is its process; the endpoint itself comes into being by it.
    const bool is_registration = step.function == "register_endpoint" || step.function == "deregister_endpoint";
    const int end = step.endpoint.empty() || is_registration ? process : place_of(peer, step.endpoint);
    row.from = step.towards_listener ? end : listener;
    row.to = step.towards_listener ? listener : end;
    if (end != process)
        row.via = process;
    if (row.kind == LadderRow::Kind::wait || row.kind == LadderRow::Kind::broken) {
        row.from = row.to = step.towards_listener ? process : listener;
        row.via = -1;
    }
}

// A call with its answer; a wait with its call.
void LadderBuilder::join(const Step &step, int row) {
    const bool is_reply = step.kind == Step::Kind::reply;
    if (!step.is_call() && !is_reply && step.kind != Step::Kind::waiting)
        return;
    // Whoever waits has called; a reply comes from whom was called.
    const bool by_peer = is_reply ? !step.towards_listener : step.towards_listener;
    const CallKey key = {step.listener_process_id, step.peer.connection, by_peer, step.serial};
    if (step.is_call()) {
        calls_[key] = row;
        return;
    }
    const auto found = calls_.find(key);
    if (found == calls_.end())
        return;
    rows_[static_cast<size_t>(row)].partner = found->second;
    if (!is_reply)
        return;
    rows_[static_cast<size_t>(found->second)].partner = row;
    calls_.erase(found);
}

void LadderBuilder::add(const Step &step) {
    if (step.kind == Step::Kind::lost) {
        add_lost(step.time_ns, step.lost);
        return;
    }
    if (!has_room())
        return;
    LadderRow row = ladder_row(step);
    places_fill(row, step);
    row_add(std::move(row));
    join(step, static_cast<int>(rows_.size()) - 1);
}

void LadderBuilder::add_broken(const Step &step, const std::string &why) {
    if (!has_room())
        return;
    LadderRow row{.kind = LadderRow::Kind::broken, .time_ns = step.time_ns};
    row.name = "broken";
    row.words = text_tame(why);
    places_fill(row, step);
    row_add(std::move(row));
}

void LadderBuilder::add_unreadable(uint64_t time_ns, const std::string &why) {
    if (!has_room())
        return;
    LadderRow row{.kind = LadderRow::Kind::broken, .time_ns = time_ns};
    row.name = "broken";
    row.words = text_tame(why);
    row.from = row.to = listener_place();
    row_add(std::move(row));
}

// Of what is known of no process.
int LadderBuilder::listener_place() {
    return last_listener_ >= 0 ? last_listener_ : place_of(kListener, "voice_application");
}

void LadderBuilder::add_lost(uint64_t time_ns, uint64_t lost) {
    lost_ += lost;
    if (lost == 0 || !has_room())
        return;
    LadderRow row{.kind = LadderRow::Kind::lost, .time_ns = time_ns};
    row.name = "lost";
    row.words = fmt::format("{} {} missing here", lost, lost == 1 ? "message is" : "messages are");
    row.from = row.to = listener_place();
    row_add(std::move(row));
}

void LadderBuilder::sound_add(const SoundStream &stream) {
    const int place = place_of(kSound, "");
    LadderRow begin{.kind = LadderRow::Kind::sound_begins, .time_ns = stream.begin_ns};
    begin.from = begin.to = place;
    begin.name = payload_type_words(stream.payload_type);
    begin.meaning = "sound begins";
    begin.words = fmt::format("{} to {}", address_words(stream.source, stream.source_port),
                              address_words(stream.destination, stream.destination_port));
    const double seconds = static_cast<double>(stream.end_ns - stream.begin_ns) / 1e9;
    begin.parameters = {
        {"from", address_words(stream.source, stream.source_port), ""},
        {"to", address_words(stream.destination, stream.destination_port), ""},
        {"source", fmt::format("{:#010x}", stream.ssrc), "SSRC"},
        {"payload type", fmt::format("{}", stream.payload_type), payload_type_words(stream.payload_type)},
        {"packets", fmt::format("{}", stream.packets), fmt::format("{} bytes in {:.1f} s", stream.bytes, seconds)},
        {"lost", fmt::format("{}", stream.lost), fmt::format("{:.1f} %", stream.lost_percent())},
        {"twice", fmt::format("{}", stream.twice), ""},
        {"jitter", fmt::format("{:.1f} ms", stream.jitter_ms), fmt::format("{:.1f} ms at most", stream.most_jitter_ms)},
    };
    if (const std::string comment = text_tame(printable(stream.comment)); !comment.empty()) {
        begin.meaning += ", " + comment;
        begin.parameters.push_back({"comment", comment, ""});
    }
    LadderRow end = begin;
    end.kind = LadderRow::Kind::sound_ends;
    end.time_ns = stream.end_ns;
    end.meaning.replace(0, std::string_view("sound begins").size(), "sound ends");
    end.words = stream_words(stream);
    begin.partner = static_cast<int>(rows_.size()) + 1;
    end.partner = static_cast<int>(rows_.size());
    rows_.push_back(std::move(begin));
    rows_.push_back(std::move(end));
}

// Sound has been added behind the messages, and a capture holds both in the order in which they were kept.
void LadderBuilder::rows_sort() {
    std::vector<int> order(rows_.size());
    std::iota(order.begin(), order.end(), 0);
    const auto row = [this](int place) -> LadderRow & { return rows_[static_cast<size_t>(place)]; };
    std::stable_sort(order.begin(), order.end(), [&](int a, int b) { return row(a).time_ns < row(b).time_ns; });
    std::vector<int> place_now(rows_.size());
    std::vector<LadderRow> sorted;
    sorted.reserve(rows_.size());
    for (const int place : order) {
        place_now[static_cast<size_t>(place)] = static_cast<int>(sorted.size());
        sorted.push_back(std::move(row(place)));
    }
    for (LadderRow &one : sorted)
        if (one.partner >= 0)
            one.partner = place_now[static_cast<size_t>(one.partner)];
    rows_ = std::move(sorted);
}

LadderModel LadderBuilder::finish(const std::string &title, const SoundStreams &sound) {
    for (const SoundStream &stream : sound.streams())
        sound_add(stream);
    rows_sort();
    LadderModel ladder{.title = text_tame(printable(title)), .left_out = left_out_, .lost = lost_};
    std::vector<int> lane_of_place;
    std::vector<LanePlace> places;
    for (const auto &[peer, text] : places_) {
        if (peer == kListener) {
            places.push_back({Lane::Kind::application, text, ""});
        } else if (peer == kSound) {
            places.push_back({Lane::Kind::sound, "RTP", ""});
        } else {
            const PeerNames &names = peers_[static_cast<size_t>(peer)];
            const auto learnt = names.endpoints.find(text);
            places.push_back({text.empty() ? Lane::Kind::process : Lane::Kind::endpoint, names.name,
                              learnt == names.endpoints.end() ? text : learnt->second});
        }
    }
    ladder.lanes = lanes_arrange(places, lane_of_place);
    for (LadderRow &row : rows_)
        for (int *end : {&row.from, &row.to, &row.via})
            if (*end >= 0)
                *end = lane_of_place[static_cast<size_t>(*end)];
    ladder.rows = std::move(rows_);
    return ladder;
}

} // namespace voicectl
