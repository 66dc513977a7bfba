// SPDX-License-Identifier: MIT
// Follows a bus and counts what passes: what "top" and "stats" have in common.
#ifndef VOICECTL_BUS_FOLLOW_H
#define VOICECTL_BUS_FOLLOW_H

#include <cstdint>
#include <functional>
#include <string>

#include "connection.h"
#include "counts.h"
#include "run_limit.h"

namespace voicectl {

struct Following {
    Address address;
    RunLimit &limit;
    Counts &counts;
    bool reconnect = false;     // waits for the application, also when it goes
    bool &connected;            // is told whether the bus is being watched
    std::function<bool()> turn; // runs in each turn, also without a bus; false ends it
    int output = -1;            // nobody who reads it ends the run
    int descriptor = -1;        // wakes it besides
    RunLimit::Tick tick{200};   // between turns at most
};

// Until the end of the run or, without `reconnect`, of the bus. An exit status.
int bus_follow(const Following &following);

} // namespace voicectl

#endif
