// SPDX-License-Identifier: MIT
// Signs of life for a service manager.
#include "watchdog.h"

#include "kex.h"

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

kex_timer_t *watchdog_timer;
uint32_t interval; // ms between two signs

// Kept open: when the process's table is full none can be had, and a host that lives must not be taken for dead.
int manager_socket = -1;

bool manager_address(sockaddr_un *address, socklen_t *size) {
    const char *path = getenv("NOTIFY_SOCKET");
    const size_t length = path == nullptr ? 0 : strlen(path);
    if (length < 2 || length >= sizeof address->sun_path)
        return false;
    *address = {};
    address->sun_family = AF_UNIX;
    memcpy(address->sun_path, path, length);
    if (*path == '@')
        address->sun_path[0] = 0; // a name that no file has
    *size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
    return true;
}

// A manager that does not read is not waited for. It is looked up each time: one that starts again has a new socket.
void manager_tell(const char *what) {
    sockaddr_un address;
    socklen_t size;
    if (!manager_address(&address, &size))
        return;
    if (manager_socket < 0)
        manager_socket = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (manager_socket >= 0)
        (void)!sendto(manager_socket, what, strlen(what), MSG_NOSIGNAL | MSG_DONTWAIT,
                      reinterpret_cast<const sockaddr *>(&address), size);
}

void sign_of_life(kex_timer_t *timer) {
    manager_tell("WATCHDOG=1");
    kex_timer_start(timer, interval);
}

// Half of what the manager allows, in milliseconds; 0: it does not watch this process.
uint32_t interval_read() {
    const char *limit = getenv("WATCHDOG_USEC"), *process = getenv("WATCHDOG_PID");
    if (limit == nullptr || (process != nullptr && strtol(process, nullptr, 10) != getpid()))
        return 0;
    const unsigned long long half = strtoull(limit, nullptr, 10) / 2000;
    return half > INT32_MAX ? INT32_MAX : static_cast<uint32_t>(half);
}

} // namespace

void watchdog_start() {
    manager_tell("READY=1");
    interval = interval_read();
    if (interval == 0)
        return;
    watchdog_timer = kex_timer_create();
    kex_timer_setHandler(watchdog_timer, sign_of_life);
    kex_timer_start(watchdog_timer, 0);
}

void watchdog_stop() {
    if (watchdog_timer != nullptr)
        kex_timer_destroy(watchdog_timer);
    watchdog_timer = nullptr;
    manager_tell("STOPPING=1");
    if (manager_socket >= 0)
        close(manager_socket);
    manager_socket = -1;
}
