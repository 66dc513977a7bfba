// SPDX-License-Identifier: MIT
// The loop (kex_host.h, "Bus and its loop"): which descriptors are listened to, what is queued, and what a turn does in
// which order.
#ifndef KEX_LOOP_H
#define KEX_LOOP_H

#include "base/clock.h"
#include "base/contract.h"
#include "base/list.h"
#include "loop/lane.h"
#include "loop/module.h"
#include "loop/source.h"
#include "loop/task.h"

#include <signal.h>

namespace bus {

struct Loop;
struct Watch;

struct LoopSource : Source {
    Loop *loop;
};

struct Timers {
    List<kex_timer_t> running; // soonest first
    List<kex_timer_t> idle;
    kex_timer_t *spare;   // for when there is no memory: who waits for a timer that never was waits for ever
    uint32_t time_factor; // time runs this many times as fast
};

struct Watches {
    List<Watch> list;
    uint32_t always_ready; // how many are of files that cannot be polled
};

struct Loop {
    Clock clock;
    int epoll_fd;
    LoopSource timer; // readable at the soonest deadline
    LoopSource work;  // readable while there is work that no descriptor announces
    LoopSource stop;  // readable once it has been stopped
    volatile sig_atomic_t stopped;
    bool work_shown;
    bool in_turn;
    uint64_t looked_at;   // the kernel's clock, when it was last looked at in this turn
    uint64_t armed;       // what the kernel's timer is set to
    uint64_t quiet_until; // by the kernel's clock: until then no module has a deadline; 0: somebody has to be asked
    Lane own;             // timers and watches
    List<Lane> lanes;     // those with tasks, the one that is visited first
    Phase begin, read, accept, has_work, deadline, expire, send;
    Timers timers;
    Watches watches;
};

// False: the kernel gives no descriptors. loop_end() releases what was taken, also then.
bool loop_begin(Loop *loop);
void loop_end(Loop *loop);
// From now on no turn begins and nothing wakes the host.
void loop_freeze(Loop *loop);

// The module takes part in every turn from now on. At most kMostModules do.
void loop_join(Loop *loop, const Module &module, void *self);

// False: the kernel cannot listen to this descriptor (errno says why).
bool source_add(Loop *loop, Source *source, int fd, void (*ready)(Source *source));
void source_set_interest(Loop *loop, Source *source, bool reads, bool writes);
// Harmless for one that is not watched.
void source_remove(Loop *loop, Source *source);

// Looks at the kernel's clock. Whoever has just run leaves its look to the next one in Loop::looked_at.
inline uint64_t loop_look(Loop *loop) {
    loop->looked_at = clock_monotonic();
    return loop->looked_at;
}

// Something has to happen soon although no descriptor says so. Free of cost inside a turn.
void loop_wake(Loop *loop);

// What the host calls for the bus whose loop this is (kex_host.h).
int loop_run(Loop *loop);
void loop_stop(Loop *loop);
int loop_dispatch(Loop *loop);

} // namespace bus

#endif
