// SPDX-License-Identifier: MIT
// What has passed on the bus, counted by plugin and endpoint.
#ifndef VOICECTL_COUNTS_H
#define VOICECTL_COUNTS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "traffic.h"

namespace voicectl {

// Upper ends of the classes of answer times, in seconds; one more has what took longer.
constexpr std::array<double, 6> kAnswerClasses = {0.001, 0.01, 0.1, 1, 3, 10};

// One plugin's endpoint, or the plugin itself.
struct Count {
    std::string plugin{};   // printable; as it registered, before that by its process
    std::string endpoint{}; // printable; empty: the plugin itself
    bool connected = false; // the plugin
    uint64_t messages = 0;
    uint64_t bytes = 0;
    uint64_t errors = 0; // answers with an error, refusals, records that cannot be read
    uint64_t answers = 0;
    uint64_t answer_ns = 0; // that they took, in all
    std::array<uint64_t, kAnswerClasses.size() + 1> answer_classes{};
    uint64_t last_ns = 0;    // time of its last message
    uint64_t waits = 0;      // calls without an answer at the time asked for
    uint64_t longest_ns = 0; // that the oldest of them has waited
};

class Counts {
public:
    // More than all plugins and endpoints of a full application. What comes beyond takes the place of the plugin that has been
    // gone for longest, or, when all are there, is counted without a name.
    static constexpr size_t kMost = 512;
    // Columns of a name; the rest of a longer one is left out.
    static constexpr size_t kMostName = 64;

    // Takes the next step, as Traffic gave it.
    void take(const Step &step);
    // The listener is gone: nobody is connected, nobody waits.
    void disconnect();
    // All of them by name, with the waits of that time.
    std::vector<Count> rows(uint64_t now_ns) const;
    // The whole: as a row without names. Its classes, and who is connected, are left out.
    Count sum(uint64_t now_ns) const;
    // Copies that have been lost in all.
    uint64_t lost() const { return lost_; }
    // Plugins that are connected.
    size_t plugin_count() const;

private:
    using Key = std::pair<std::string, std::string>; // plugin, endpoint
    using CallKey = std::tuple<uint32_t, bool, uint32_t>;
    struct Wait {
        Key who;
        uint64_t since_ns;
    };

    Count &row(const Key &key);
    bool room_make();
    void name_learn(const Step &step, const Key &key);
    void merge(const Key &from, const Key &to);
    void waits_note(const Step &step, const Key &key);
    void forget(uint32_t connection);
    bool is_connected(const std::string &plugin) const;

    std::map<Key, Count> rows_;
    Count dropped_;                         // rows that made room, together
    std::map<uint32_t, std::string> names_; // of each connection
    std::map<CallKey, Wait> waits_;
    uint64_t lost_ = 0;
};

} // namespace voicectl

#endif
