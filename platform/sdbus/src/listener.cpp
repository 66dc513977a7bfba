// SPDX-License-Identifier: MIT
// Listening and connecting: sockets of the file system, and who may come.
#include "bus.h"

#include <algorithm>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

using namespace sdbus;

namespace {

constexpr int kBacklog = 128; // of those who have connected and wait to be taken in

bool address_set(sockaddr_un &address, const char *path) {
    address = {};
    address.sun_family = AF_UNIX;
    const size_t length = path != nullptr ? strlen(path) : 0;
    if (length == 0 || length >= sizeof address.sun_path)
        return false;
    memcpy(address.sun_path, path, length); // zeros follow
    return true;
}

int socket_make() {
    return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
}

constexpr const char *kTaken = "another process listens there already";

void listen_refuse(const char *path, const char *why) {
    note(ZIL_TRACE_ERROR, "cannot listen on '%s': %s", path, why);
}

// Null: the path can be bound, since nothing stands there, or the socket of one that listens no more, which is removed.
// Else why not.
const char *path_clear(const char *path, const sockaddr_un &address) {
    struct stat found;
    if (lstat(path, &found) != 0)
        return errno == ENOENT ? nullptr : strerror(errno);
    if (!S_ISSOCK(found.st_mode))
        return "something that is no socket stands there";
    const int probe = socket_make();
    const bool connects = connect(probe, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    const int error = errno;
    close(probe);
    if (connects || error == EAGAIN)
        return kTaken;
    return error == ECONNREFUSED && unlink(path) == 0 ? nullptr : strerror(error);
}

// Of two that begin at once one is refused: else each could take the other's socket for a dead one's. Nobody is waited
// for: the bundled bus keeps such a lock for as long as it listens.
int path_lock(const char *path) {
    const std::string name = std::string(path) + ".lock";
    const int lock = open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (lock < 0) {
        listen_refuse(path, (std::string("its lock file cannot be opened: ") + strerror(errno)).c_str());
        return -1;
    }
    if (flock(lock, LOCK_EX | LOCK_NB) == 0)
        return lock;
    listen_refuse(path, errno == EWOULDBLOCK ? kTaken : strerror(errno));
    close(lock);
    return -1;
}

int listener_bind(kex_t *bus, const char *path, const sockaddr_un &address) {
    const int listener = socket_make();
    const bool is_open_to_others = !bus->users.empty() || !bus->groups.empty(); // who may come is looked at later
    const mode_t before = umask(is_open_to_others ? 0111 : 0117);
    const bool listens = bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 &&
                         listen(listener, kBacklog) == 0;
    umask(before);
    if (listens)
        return listener;
    listen_refuse(path, strerror(errno));
    close(listener);
    return -1;
}

bool is_foreign(uid_t user) {
    return user != 0 && user != geteuid();
}

size_t places_of(const kex_t *bus, uid_t user) {
    for (const Reservation &reservation : bus->reservations) {
        if (reservation.user == user)
            return reservation.places;
    }
    return 0;
}

size_t taken_by(const kex_t *bus, uid_t user) {
    return static_cast<size_t>(
        std::count_if(bus->connections.begin(), bus->connections.end(),
                      [=](const ConnectionPointer &one) { return one->accepted && one->user == user; }));
}

// Null, or why there is no room for another connection. Those that this bus has made itself are no newcomers'.
const char *place_refuse(const kex_t *bus, pid_t process, uid_t user) {
    size_t of_process = 0, foreign = 0, kept = 0;
    for (const ConnectionPointer &one : bus->connections) {
        of_process += one->accepted && one->process == process;
        foreign += one->accepted && is_foreign(one->user) && places_of(bus, one->user) == 0;
    }
    for (const Reservation &one : bus->reservations)
        kept += one.user != user ? one.places - std::min<size_t>(one.places, taken_by(bus, one.user)) : 0;
    if (of_process >= kMaxPeersOfProcess)
        return "its process has as many connections as one may have";
    if (bus->connections.size() + kept >= kMaxPeers)
        return "there is no place left";
    if (is_foreign(user) && foreign >= kMaxForeignPeers && taken_by(bus, user) >= places_of(bus, user))
        return "other users have as many connections as they may have";
    return nullptr;
}

void newcomer_tell(pid_t process, uid_t user, const char *why) {
    bus::note_about(process, ZIL_TRACE_WARNING, "process %d of user %u may not connect: %s", static_cast<int>(process),
                    static_cast<unsigned>(user), why);
}

// The process has no descriptor left. Who waits to be taken in would wake the loop again and again, so it is closed.
void newcomer_turn_away(kex_t *bus, int listener) {
    pid_t process = 0;
    uid_t user = 0;
    close(bus->nowhere);
    const int socket = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    user_may_connect(bus, socket, &process, &user);
    newcomer_tell(process, user, strerror(EMFILE));
    close(socket);
    bus->nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
}

// Neither this process's fault nor the newcomer's, who would wake the loop again and again: it waits a little.
void accepting_pause(kex_t *bus) {
    bus::note_about(0, ZIL_TRACE_WARNING, "nobody can be taken in for %u ms: %s",
                    static_cast<unsigned>(kAcceptPause / 1'000'000), strerror(errno));
    for (const auto &[listener, path] : bus->listeners)
        source_remove(bus, listener);
    bus->accept_at = now() + kAcceptPause;
}

void listener_accept(kex_t *bus, int listener) {
    for (;;) {
        const int socket = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (socket < 0 && errno == EMFILE)
            newcomer_turn_away(bus, listener);
        else if (socket < 0 && (errno == ENFILE || errno == ENOBUFS || errno == ENOMEM))
            accepting_pause(bus);
        if (socket < 0)
            return;
        pid_t process = 0;
        uid_t user = 0;
        const bool may = user_may_connect(bus, socket, &process, &user);
        if (const char *why = may ? place_refuse(bus, process, user) : "its user is not trusted"; why != nullptr) {
            newcomer_tell(process, user, why);
            close(socket);
            continue;
        }
        const ConnectionPointer connection = connection_create(bus, socket, true);
        if (connection == nullptr) {
            newcomer_tell(process, user, strerror(errno));
            continue;
        }
        connection->process = process;
        connection->user = user;
    }
}

} // namespace

namespace sdbus {

void listeners_watch(kex_t *bus) {
    bus->accept_at = 0;
    for (const auto &[listener, path] : bus->listeners)
        source_add(bus, listener, EPOLLIN, [bus, fd = listener] { listener_accept(bus, fd); });
}

// The own user, root, and whom the environment names; the kernel vouches for who it is.
bool user_may_connect(const kex_t *bus, int socket, pid_t *process, uid_t *user) {
    ucred other = {};
    socklen_t size = sizeof other;
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &other, &size) != 0)
        return false;
    *process = other.pid;
    *user = other.uid;
    return !is_foreign(other.uid) || std::count(bus->users.begin(), bus->users.end(), other.uid) > 0 ||
           std::count(bus->groups.begin(), bus->groups.end(), other.gid) > 0;
}

} // namespace sdbus

peer_t *connection_listenOnIPC(connection_t *connection, const char *path) {
    sockaddr_un address;
    if (connection == nullptr || !address_set(address, path))
        return nullptr;
    kex_t *bus = connection->bus;
    const int lock = path_lock(path);
    const char *why = lock >= 0 ? path_clear(path, address) : nullptr;
    if (why != nullptr)
        listen_refuse(path, why);
    const int listener = lock >= 0 && why == nullptr ? listener_bind(bus, path, address) : -1;
    close(lock);
    if (listener < 0)
        return nullptr;
    bus->listeners.emplace_back(listener, path);
    listeners_watch(bus);
    // A handle that takes a handler and to which nothing can be sent; it goes with its bus.
    const ConnectionPointer handle = std::make_shared<Connection>();
    handle->bus = bus;
    handle->listener = true;
    return handle_create(handle);
}

peer_t *kex_client_connect(kex_t *bus, const char *uri) {
    const std::string text = uri != nullptr ? uri : "";
    static const std::string kBegin = "kex://ipc:[";
    sockaddr_un address;
    if (bus == nullptr || !text.starts_with(kBegin) || !text.ends_with("]"))
        return nullptr;
    const std::string path = text.substr(kBegin.size(), text.size() - kBegin.size() - 1);
    if (!address_set(address, path.c_str()) || bus->connections.size() >= kMaxPeers)
        return nullptr;
    const int socket = socket_make();
    pid_t process = 0;
    uid_t user = 0;
    if (connect(socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
        !user_may_connect(bus, socket, &process, &user)) {
        close(socket);
        return nullptr;
    }
    const ConnectionPointer connection = connection_create(bus, socket, false);
    if (connection == nullptr)
        return nullptr;
    connection->process = process;
    connection->user = user;
    return connection->handle;
}

int kex_reserve(kex_t *bus, uid_t uid, unsigned places) {
    if (bus == nullptr)
        return 0;
    std::vector<Reservation> wanted = bus->reservations;
    std::erase_if(wanted, [=](const Reservation &one) { return one.user == uid; });
    if (places > 0)
        wanted.push_back({uid, places});
    size_t sum = 0;
    for (const Reservation &one : wanted)
        sum += one.places;
    if (sum > kMaxPeers || wanted.size() > kMaxReservations)
        return 0;
    bus->reservations = wanted;
    return 1;
}
