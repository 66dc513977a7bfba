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

#include "step.h"

namespace voicectl {

class Traffic {
public:
    // Understands the next record. Empty: a kind that this version does not know.
    std::optional<Step> next(const kex_tap_record_t &record);
    // The same of a step that was read elsewhere, without what only the traffic before tells.
    Step next(Step step);
    // Calls that have waited for a second at the time given, each named once.
    std::vector<Step> overdue(uint64_t now_ns);
    // Forgets everything: the listener is gone.
    void clear();
    // How many connections are remembered.
    size_t connection_count() const { return peers_.size(); }
    // Bytes of the messages whose answers have not come by.
    size_t pending_bytes() const { return pending_.bytes + one_way_.bytes; }

private:
    using CallKey = std::tuple<uint32_t, bool, uint32_t>; // connection, towards the listener, serial
    struct Pending {
        Step call;
        bool named = false;
    };
    // Calls whose answers have not come by.
    struct Calls {
        std::map<CallKey, Pending> by_key{};
        size_t bytes = 0; // of their messages
        void add(const CallKey &key, const Step &call);
        void erase(std::map<CallKey, Pending>::iterator call);
        void clear() { *this = {}; }
    };
    struct Owner {
        uint32_t connection;
        std::string name;
    };

    void remember(const Step &call);
    void forget(uint32_t connection);
    void understand_call(Step &step, Peer &peer);
    void understand_reply(Step &step, const Peer &peer);
    void endpoint_learn(int32_t number, const Owner &owner);
    std::string endpoint_name(int32_t number) const;

    std::map<uint32_t, Peer> peers_;
    std::map<int32_t, Owner> endpoints_; // by the number that the application gave
    Calls pending_{};
    Calls one_way_{};
};

} // namespace voicectl

#endif
