// SPDX-License-Identifier: MIT
// One message on the bus, as voicectl keeps it: read from a tap's record, with values of its own.
#ifndef VOICECTL_STEP_H
#define VOICECTL_STEP_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
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
    bool other_order =
        false; // byte arrays came in the other byte order; those of `arguments` are turned around already

    bool is_call() const { return kind == Kind::call || kind == Kind::one_way_call; }
};

// Reads a tap's record. Of the peer it has what the record says, no plugin; of a reply only its result. Empty: a kind
// that this version does not know.
std::optional<Step> step_read(const kex_tap_record_t &record);
// Takes apart the record that a call carries, if it carries one.
void step_record_take(Step &step);
// An argument by its name. Null: there is none.
const Value *step_argument(const Step &step, std::string_view name);
// The same as text; empty when it is none.
std::string step_text_argument(const Step &step, std::string_view name);

} // namespace voicectl

#endif
