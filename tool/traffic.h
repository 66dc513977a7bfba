// SPDX-License-Identifier: MIT
// What passes on the bus, understood as voice traffic: whose endpoint, which message, which call a reply belongs to.
#ifndef VOICECTL_TRAFFIC_H
#define VOICECTL_TRAFFIC_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "kex_tap.h"
#include "record.h"
#include "value.h"

namespace voicectl {

struct Argument {
    std::string name;
    Value value;
};

struct ErrorItem {
    uint32_t code;
    std::string description;
    std::string info;
};

// The end of a connection that is not the listener: all traffic runs between such a peer and the listener.
struct Peer {
    uint32_t connection = 0;
    int32_t process_id = 0;
    std::string process; // as it called itself when it connected
    std::string plugin;  // as it registered; empty until then
    const std::string &name() const { return plugin.empty() ? process : plugin; }
};

// One line of the ladder.
struct Step {
    enum class Kind { connected, closed, call, one_way_call, reply, refused, waiting, still_waiting, lost };
    Kind kind = Kind::call;
    uint64_t time_ns = 0;
    Peer peer{};
    std::string listener{}; // its process name
    int32_t listener_process_id = 0;
    bool towards_listener = true;
    std::string endpoint{}; // name, or "#3" for a number whose registration was not seen; empty: the process itself
    uint32_t serial = 0;
    uint32_t flags = 0;
    std::string path{};
    std::string function{}; // of a reply: that of its call; empty when the call was not seen
    std::vector<Argument> arguments{};
    std::optional<Record> record{};
    std::string record_argument{};        // the argument that holds the record
    std::optional<Record> call_record{};  // replies and waits: what the call carried
    Value result{};                       // replies
    std::vector<ErrorItem> errors{};      // replies
    std::optional<uint64_t> elapsed_ns{}; // replies and waits: since the call
    std::string text{};                   // why it closed or was refused
    uint32_t lost = 0;
    uint32_t bytes = 0;
};

class Traffic {
public:
    // Understands the next record. Empty: a kind that this version does not know.
    std::optional<Step> next(const kex_tap_record_t &record);
    // Calls that have waited for a second at the time given, each named once.
    std::vector<Step> overdue(uint64_t now_ns);
    // Forgets everything: the listener is gone.
    void clear();
    // How many connections are remembered.
    size_t connection_count() const { return peers_.size(); }

private:
    using CallKey = std::tuple<uint32_t, bool, uint32_t>; // connection, towards the listener, serial
    struct Pending {
        Step call;
        bool named = false;
    };
    using Calls = std::map<CallKey, Pending>;
    struct Owner {
        uint32_t connection;
        std::string name;
    };

    void forget(uint32_t connection);
    void understand_call(Step &step, Peer &peer);
    void understand_reply(Step &step, const Peer &peer);
    std::string endpoint_name(int32_t number) const;

    std::map<uint32_t, Peer> peers_;
    std::map<int32_t, Owner> endpoints_; // by the number that the application gave
    Calls pending_;
    Calls one_way_;
};

} // namespace voicectl

#endif
