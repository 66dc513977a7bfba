// SPDX-License-Identifier: MIT
// When a subcommand that follows the bus is to end: an interrupt, a time, or nobody reads its output any more.
#ifndef VOICECTL_RUN_LIMIT_H
#define VOICECTL_RUN_LIMIT_H

#include <chrono>
#include <initializer_list>

namespace voicectl {

class RunLimit {
public:
    using Clock = std::chrono::steady_clock;
    using Tick = std::chrono::milliseconds;

    // 0 seconds: no limit.
    explicit RunLimit(double seconds);

    // Takes the signals that end the run; a reader of the output that leaves is no signal any more.
    static void signals_take();
    static bool interrupted();

    bool reached() const { return interrupted() || reader_left_ || Clock::now() >= end_; }
    bool reader_left() const { return reader_left_; }
    void reader_leaves() { reader_left_ = true; }

    // Until something may be there to read on a descriptor, -1 for none, a tick has passed, the time is over, or nobody reads `output` any more.
    void wait(std::initializer_list<int> descriptors, int output, Tick tick);

private:
    Clock::time_point end_;
    bool reader_left_ = false;
};

} // namespace voicectl

#endif
