// SPDX-License-Identifier: MIT
#include "run_limit.h"

#include <algorithm>
#include <csignal>
#include <vector>

#include <poll.h>

namespace voicectl {

namespace {

volatile std::sig_atomic_t stopped = 0;

void stop(int) {
    stopped = 1;
}

} // namespace

RunLimit::RunLimit(double seconds) : end_(Clock::time_point::max()) {
    if (seconds > 0)
        end_ = Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

void RunLimit::signals_take() {
    struct sigaction action {};
    action.sa_handler = stop; // a call that blocks returns: nobody who reads too slowly holds up the end
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN); // a reader that leaves ends the run, not with a signal
    std::signal(SIGXFSZ, SIG_IGN); // likewise a file as large as it may be
}

bool RunLimit::interrupted() {
    return stopped != 0;
}

void RunLimit::wait(std::initializer_list<int> descriptors, int output, Tick tick) {
    const auto left = std::chrono::duration_cast<Tick>(std::max(end_ - Clock::now(), Clock::duration::zero()));
    std::vector<pollfd> watched = {{output, 0, 0}};
    for (const int descriptor : descriptors)
        watched.push_back({descriptor, POLLIN, 0});
    poll(watched.data(), watched.size(), static_cast<int>(std::min(left, tick).count()));
    if ((watched[0].revents & (POLLERR | POLLHUP)) != 0)
        reader_left_ = true;
}

} // namespace voicectl
