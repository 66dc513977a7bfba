// SPDX-License-Identifier: MIT
// What a picture of traffic shows: lanes for processes and endpoints, and a row for each message between them, each call
// joined with its answer.
#ifndef VOICECTL_LADDER_MODEL_H
#define VOICECTL_LADDER_MODEL_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "sound_streams.h"
#include "step.h"

namespace voicectl {

constexpr size_t kMostLadderRows = 200'000;
constexpr size_t kMostLadderBytes = 512 << 20; // of all rows: a message may carry what takes a megabyte
constexpr size_t kMostLadderLanes = 100;

// All texts of a picture are printable, and short enough to be shown.
struct Lane {
    enum class Kind { application, process, endpoint, sound };
    Kind kind = Kind::process;
    std::string name{};
    int owner = -1; // of an endpoint: the lane of its process
};

struct LadderParameter {
    std::string name;
    std::string value;
    std::string words; // the value in the words of the field; empty: it says all itself
};

struct LadderRow {
    enum class Kind {
        signal,
        event,
        call,
        one_way_call,
        reply,
        error, // a reply with errors, or one that says no
        wait,  // somebody says that he waits for an answer
        connected,
        closed, // or refused
        lost,   // copies are missing
        broken, // something that cannot be read
        sound_begins,
        sound_ends,
    };
    Kind kind = Kind::call;
    uint64_t time_ns = 0;
    int from = 0, to = 0;
    int via = -1;          // the process of an endpoint, when that is an end
    int partner = -1;      // row of the answer, or of the call; the other end of a stream; -1: there is none
    std::string name{};    // "al_ri", "register_plugin"; of an answer "true", "error 196640"
    std::string meaning{}; // "ring"
    std::string words{};   // what else
    std::vector<LadderParameter> parameters{};
};

struct LadderModel {
    std::string title{};
    std::vector<Lane> lanes{};
    std::vector<LadderRow> rows{}; // by time
    uint64_t left_out = 0;         // messages beyond the most that a ladder has
    uint64_t lost = 0;             // copies

    // A call that nobody answered up to the end.
    bool is_unanswered(const LadderRow &row) const { return row.kind == LadderRow::Kind::call && row.partner < 0; }
    // Since the call; 0: it is no answer, or of a call that was not seen.
    uint64_t elapsed_ns(const LadderRow &row) const;
};

struct LadderRoom {
    size_t rows = kMostLadderRows;
    size_t bytes = kMostLadderBytes;
};

// Makes a ladder of steps in the order in which they passed.
class LadderBuilder {
public:
    explicit LadderBuilder(LadderRoom room = {}) : room_(room) {}
    // A step that Traffic has understood.
    void add(const Step &step);
    // A message that could not be read, at its sender's lane.
    void add_broken(const Step &step, const std::string &why);
    // The same of a packet of which nothing else is known.
    void add_unreadable(uint64_t time_ns, const std::string &why);
    void add_lost(uint64_t time_ns, uint64_t lost);
    LadderModel finish(const std::string &title, const SoundStreams &sound);

private:
    using PeerKey = std::pair<int32_t, uint32_t>;                  // the listener's process, connection
    using CallKey = std::tuple<int32_t, uint32_t, bool, uint32_t>; // and towards the listener, serial
    struct PeerNames {
        std::string name{};
        std::map<std::string, std::string> endpoints{}; // "#3" by the name that was learnt later
    };
    // An end of a message, before all names are known. Peer -1: a listener, which the text names; else an endpoint or, when
    // it is empty, the process itself.
    using Place = std::pair<int, std::string>;

    bool has_room();
    void bytes_take(size_t bytes);
    void row_add(LadderRow row);
    int peer_of(const Step &step);
    int place_of(int peer, const std::string &text);
    int listener_place();
    void places_fill(LadderRow &row, const Step &step);
    void join(const Step &step, int row);
    void sound_add(const SoundStream &stream);
    void rows_sort();

    std::vector<LadderRow> rows_{}; // whose ends are places
    std::vector<PeerNames> peers_{};
    std::map<PeerKey, int> peer_numbers_{};
    std::vector<Place> places_{};
    std::map<Place, int> place_numbers_{};
    std::map<CallKey, int> calls_{};
    int last_listener_ = -1; // place
    LadderRoom room_;        // that is left: of rows, and of the names of their ends
    uint64_t left_out_ = 0;
    uint64_t lost_ = 0;

    friend class LadderLanes;
};

} // namespace voicectl

#endif
