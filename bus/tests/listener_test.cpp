// SPDX-License-Identifier: MIT
// Who may listen at a path, and who may connect.
#include "base/faults.h"
#include "support/bus_test.h"
#include "support/child.h"
#include "support/raw_peer.h"
#include "transport/socket.h"

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <grp.h>
#include <memory>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace support;
using testing::HasSubstr;

// What somebody does who may write to the folder, as soon as the socket has a name.
static std::function<void()> at_once_after_bind;

extern "C" {
int __real_bind(int fd, const sockaddr *address, socklen_t length);
int __wrap_bind(int fd, const sockaddr *address, socklen_t length);

int __wrap_bind(int fd, const sockaddr *address, socklen_t length) {
    const int result = __real_bind(fd, address, length);
    if (at_once_after_bind)
        at_once_after_bind();
    return result;
}
}

namespace {

class Listen : public DescriptorTest {
protected:
    ~Listen() override {
        for (kex_t *one : {bus, second})
            kex_destroy(one);
    }
    peer_t *listen(kex_t *on, const std::string &path) {
        return connection_listenOnIPC(kex_connection(on), path.c_str());
    }
    // A socket that somebody listens on without the bus's rules; -1: it cannot be made.
    int listen_without_lock() {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        socket.copy(address.sun_path, sizeof address.sun_path - 1);
        int fd = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        bool listens = bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 && ::listen(fd, 1) == 0;
        return listens ? fd : -1;
    }
    // A socket whose listener has died.
    void leave_stale_socket() {
        int fd = listen_without_lock();
        ASSERT_GE(fd, 0);
        close(fd);
    }

    ScratchDirectory scratch;
    std::string socket = scratch.path("bus");
    kex_t *bus = kex_create("first");
    kex_t *second = kex_create("second");
};

TEST_F(Listen, SocketIsForUserAndGroup) {
    for (mode_t mask : {0022u, 0077u, 0u}) {
        mode_t before = umask(mask);
        peer_t *listener = listen(bus, socket);
        umask(before);
        ASSERT_NE(listener, nullptr);
        struct stat status;
        ASSERT_EQ(stat(socket.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777u, 0660u) << "umask " << mask;
        EXPECT_TRUE(peer_disconnect(listener));
        EXPECT_NE(access(socket.c_str(), F_OK), 0) << "removed";
    }
}

TEST_F(Listen, FileInPlaceOfItsSocketKeepsItsMode) {
    const std::string precious = scratch.path("precious");
    close(open(precious.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
    const std::function<int(const char *, const char *)> ways[] = {symlink, link};
    for (const auto &way : ways) {
        CapturedTrace trace;
        at_once_after_bind = [&] {
            unlink(socket.c_str());
            ASSERT_EQ(way(precious.c_str(), socket.c_str()), 0);
        };
        EXPECT_EQ(listen(bus, socket), nullptr);
        at_once_after_bind = nullptr;
        struct stat status;
        ASSERT_EQ(stat(precious.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777u, 0600u);
        EXPECT_THAT(trace.text(), HasSubstr("cannot listen on '" + socket + "': its socket has been replaced"));
        unlink(socket.c_str());
    }
    EXPECT_NE(listen(bus, socket), nullptr);
}

TEST_F(Listen, LiveListenerIsRefused) {
    CapturedTrace trace;
    ASSERT_NE(listen(bus, socket), nullptr);
    EXPECT_EQ(listen(second, socket), nullptr);
    EXPECT_THAT(trace.text(), HasSubstr("[x]cannot listen on '" + socket + "': another process listens there already"));
    EXPECT_NE(kex_client_connect(second, uri_of(socket).c_str()), nullptr) << "the first one goes on";
}

TEST_F(Listen, LiveListenerWithoutALockIsRefused) {
    CapturedTrace trace;
    int fd = listen_without_lock();
    ASSERT_GE(fd, 0);
    EXPECT_EQ(listen(bus, socket), nullptr);
    EXPECT_EQ(access(socket.c_str(), F_OK), 0);
    EXPECT_THAT(trace.text(), HasSubstr("another process listens there already"));
    close(fd);
}

// Whatever it speaks, and however long its queue is.
TEST_F(Listen, OtherListenersAreLeftAlone) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    socket.copy(address.sun_path, sizeof address.sun_path - 1);
    for (int type : {SOCK_STREAM, SOCK_SEQPACKET}) {
        CapturedTrace trace;
        unlink(socket.c_str());
        const int fd = ::socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
        ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        ASSERT_EQ(::listen(fd, 0), 0);
        const RawPeer waiting(socket); // fills the queue of the one of its type
        EXPECT_EQ(listen(bus, socket), nullptr);
        EXPECT_EQ(access(socket.c_str(), F_OK), 0);
        EXPECT_THAT(trace.text(), HasSubstr("another process listens there already"));
        close(fd);
    }
}

TEST_F(Listen, SocketThatCannotBeAskedIsLeftAlone) {
    CapturedTrace trace;
    leave_stale_socket();
    bus::faults_read("socket:1");
    EXPECT_EQ(listen(bus, socket), nullptr);
    bus::faults_read(nullptr);
    EXPECT_EQ(access(socket.c_str(), F_OK), 0);
    EXPECT_THAT(trace.text(), HasSubstr("cannot listen on '" + socket + "': Too many open files"));
}

TEST_F(Listen, SocketThatIsTakenAwayIsMissed) {
    CapturedTrace trace;
    at_once_after_bind = [&] { unlink(socket.c_str()); };
    EXPECT_EQ(listen(bus, socket), nullptr);
    at_once_after_bind = nullptr;
    EXPECT_THAT(trace.text(), HasSubstr("cannot listen on '" + socket + "': No such file or directory"));
}

TEST_F(Listen, LiveListenerThatMayNotBeKnockedAtIsLeftAlone) {
    if (geteuid() != 0)
        GTEST_SKIP() << "becoming another user needs root";
    int fd = listen_without_lock();
    ASSERT_GE(fd, 0);
    ASSERT_EQ(chmod(socket.c_str(), 0600), 0);
    ASSERT_EQ(chmod(scratch.path(".").c_str(), 0777), 0); // the stranger could remove what stands here
    EXPECT_TRUE(holds_in_child([&] {
        kex_t *own = become_stranger() ? kex_create("stranger") : nullptr;
        return own != nullptr && listen(own, socket) == nullptr;
    })) << "it must not listen there";
    RawPeer raw(socket);
    EXPECT_TRUE(raw.connected()) << "the socket must still be the first one's";
    close(fd);
}

TEST_F(Listen, StaleSocketIsTakenOver) {
    leave_stale_socket();
    ASSERT_NE(listen(bus, socket), nullptr);
    EXPECT_NE(kex_client_connect(second, uri_of(socket).c_str()), nullptr);
}

TEST_F(Listen, LockFileStays) {
    ASSERT_NE(listen(bus, socket), nullptr);
    kex_destroy(bus);
    bus = nullptr;
    EXPECT_EQ(access((socket + ".lock").c_str(), F_OK), 0);
    EXPECT_NE(access(socket.c_str(), F_OK), 0);
    EXPECT_NE(listen(second, socket), nullptr) << "and hinders nobody";
}

TEST_F(Listen, SocketOfARelativePathIsRemovedWhereverTheProcessIs) {
    const int folder = open(".", O_PATH | O_CLOEXEC);
    ASSERT_EQ(chdir(scratch.path(".").c_str()), 0);
    EXPECT_NE(listen(bus, "bus"), nullptr);
    const std::string elsewhere = scratch.path("elsewhere");
    ASSERT_EQ(mkdir(elsewhere.c_str(), 0700), 0);
    ASSERT_EQ(chdir(elsewhere.c_str()), 0);
    close(open("bus", O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    kex_destroy(bus);
    bus = nullptr;
    EXPECT_EQ(access(socket.c_str(), F_OK), -1);
    EXPECT_EQ(access("bus", F_OK), 0) << "somebody else's";
    ASSERT_EQ(fchdir(folder), 0);
    close(folder);
}

TEST_F(Listen, SomethingElseAtThePathIsLeftAlone) {
    CapturedTrace trace;
    int fd = open(socket.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
    ASSERT_EQ(write(fd, "precious", 8), 8);
    close(fd);
    EXPECT_EQ(listen(bus, socket), nullptr);
    struct stat status;
    ASSERT_EQ(stat(socket.c_str(), &status), 0);
    EXPECT_EQ(status.st_size, 8);
    EXPECT_THAT(trace.text(), HasSubstr("something that is no socket stands there"));
}

TEST_F(Listen, BadPathsAreRefused) {
    CapturedTrace trace;
    EXPECT_EQ(listen(bus, ""), nullptr);
    EXPECT_EQ(listen(bus, "/" + std::string(107, 'x')), nullptr);
    EXPECT_EQ(listen(bus, scratch.path("nowhere/bus")), nullptr);
    EXPECT_EQ(connection_listenOnIPC(nullptr, socket.c_str()), nullptr);
    EXPECT_EQ(connection_listenOnIPC(kex_connection(bus), nullptr), nullptr);
}

TEST_F(Listen, InheritedSocketIsUsed) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    socket.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_TRUE(holds_in_child([&] {
        // As a service manager leaves it: the socket is descriptor 3, after one that is something else.
        int fd = ::socket(AF_UNIX, SOCK_SEQPACKET, 0);
        bool good = bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 && ::listen(fd, 4) == 0;
        good &= fcntl(STDERR_FILENO, F_DUPFD, 3) >= 3;
        dup2(STDERR_FILENO, 3);
        dup2(fd, 4);
        setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
        setenv("LISTEN_FDS", "2", 1);
        kex_t *own = kex_create("activated");
        good &= listen(own, socket) != nullptr;
        good &= (fcntl(4, F_GETFD) & FD_CLOEXEC) != 0;
        good &= access((socket + ".lock").c_str(), F_OK) != 0; // it is not ours to lock
        kex_t *caller = kex_create("caller");
        peer_t *peer = kex_client_connect(caller, uri_of(socket).c_str());
        good &= turn_until({own, caller}, [&] { return std::string(peer_processName(peer)) == "activated"; });
        kex_destroy(caller);
        kex_destroy(own);
        good &= access(socket.c_str(), F_OK) == 0; // nor to remove
        return good;
    }));
}

// The same of a child that begins with what a service manager would have left it.
bool holds_when_activated(const std::string &count, const std::function<bool()> &body) {
    return holds_in_child([&] {
        setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
        setenv("LISTEN_FDS", count.c_str(), 1);
        return body();
    });
}

TEST_F(Listen, ImpossibleNumbersOfInheritedSocketsAreRefusedWithASentence) {
    for (const char *count :
         {"2000000000", "2147483647", "4294967296", "99999999999999999999", "-1", "x", "1x", "", " 1"}) {
        CapturedTrace trace;
        auto begin = std::chrono::steady_clock::now();
        EXPECT_TRUE(holds_when_activated(count, [&] { return listen(bus, socket) != nullptr; }))
            << "it makes its own: " << count;
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5)) << count;
        EXPECT_THAT(trace.text(), HasSubstr("LISTEN_FDS is not a number of descriptors that this process can have"))
            << count;
    }
}

TEST_F(Listen, SocketsOfAnotherProcessAreNotInherited) {
    for (const char *process : {"1", "x", ""}) {
        EXPECT_TRUE(holds_when_activated("1", [&] {
            setenv("LISTEN_PID", process, 1);
            dup2(listen_without_lock(), 3); // looks right
            CapturedTrace trace;
            return listen(bus, socket) == nullptr &&
                   trace.text().find("another process listens there already") != std::string::npos;
        })) << process;
        unlink(socket.c_str());
    }
}

TEST_F(Listen, OnlyTheSocketThatListensAtThePathIsInherited) {
    EXPECT_TRUE(holds_when_activated("5", [&] {
        const int right = listen_without_lock();
        const std::string path = socket;
        socket = scratch.path("elsewhere");
        const int elsewhere = listen_without_lock();
        socket = path;
        const int silent = ::socket(AF_UNIX, SOCK_SEQPACKET, 0);
        int ends[2];
        if (pipe(ends) != 0)
            return false;
        const int stream = ::socket(AF_UNIX, SOCK_STREAM, 0);
        const int from[] = {fcntl(ends[0], F_DUPFD, 20), fcntl(silent, F_DUPFD, 20), fcntl(elsewhere, F_DUPFD, 20),
                            fcntl(stream, F_DUPFD, 20), fcntl(right, F_DUPFD, 20)};
        for (int i = 0; i < 5; i++)
            dup2(from[i], 3 + i);
        kex_t *own = kex_create("activated");
        bool good = listen(own, socket) != nullptr && (fcntl(7, F_GETFD) & FD_CLOEXEC) != 0;
        for (int fd : {3, 4, 5, 6})
            good &= (fcntl(fd, F_GETFD) & FD_CLOEXEC) == 0;
        good &= access((socket + ".lock").c_str(), F_OK) != 0;
        kex_destroy(own);
        return good;
    }));
}

TEST_F(Listen, DescriptorsThatAreNotOpenAreNotLookedAt) {
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(holds_when_activated(std::to_string(limit.rlim_cur), [&] { return listen(bus, socket) != nullptr; }));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
}

TEST_F(Listen, InheritedSocketThatAnotherProcessHoldsIsLetGo) {
    EXPECT_TRUE(holds_when_activated("1", [&] {
        int held = listen_without_lock(); // the service manager keeps it
        if (dup2(held, 3) != 3)
            return false;
        kex_t *own = kex_create("activated");
        peer_t *listener = listen(own, socket);
        bool good = listener != nullptr && peer_disconnect(listener) && fcntl(3, F_GETFD) < 0;
        RawPeer raw(socket); // reaches the socket, which is not ours any more
        for (int i = 0; i < 3; i++)
            good &= kex_dispatch(own) == 0;
        pollfd quiet = {kex_pollDescriptor(own), POLLIN, 0};
        good &= raw.connected() && poll(&quiet, 1, 0) == 0;
        kex_destroy(own);
        return good;
    }));
}

TEST_F(Listen, DescriptorZeroIsAsGoodAsOthers) {
    EXPECT_TRUE(holds_in_child([&] {
        close(STDIN_FILENO);
        peer_t *listener = listen(bus, socket); // its lock is descriptor 0
        bool good = listener != nullptr && fcntl(0, F_GETFD) >= 0 && peer_disconnect(listener) && fcntl(0, F_GETFD) < 0;
        good &= listen(second, socket) != nullptr; // the lock was given back
        return good;
    }));
}

TEST_F(Listen, ConnectionOnDescriptorZeroIsOneLikeOthers) {
    ASSERT_NE(listen(bus, socket), nullptr);
    EXPECT_TRUE(holds_in_child([&] {
        RawPeer raw(socket);
        close(STDIN_FILENO);
        raw.send(hello());
        support::turn_until_idle({bus});
        bool good = fcntl(0, F_GETFD) >= 0; // what was accepted
        good &= raw.receive_all().size() == 1;
        raw.send("?");
        support::turn_until_idle({bus});
        good &= raw.refusal() == "the packet is cut off" && fcntl(0, F_GETFD) < 0;
        return good;
    }));
}

// Connects as another user, in a process of its own, and tells what it was answered: 0 nothing, 1 refused.
int connect_as(uid_t user, gid_t group, const std::string &path, const std::vector<kex_t *> &buses) {
    int answered[2];
    EXPECT_EQ(pipe2(answered, O_CLOEXEC), 0);
    pid_t child = fork();
    if (child == 0) {
        if (setgid(group) != 0 || setuid(user) != 0)
            _exit(3);
        RawPeer raw(path);
        raw.send(hello("stranger"));
        fcntl(raw.fd(), F_SETFL, 0);
        char first[256];
        ssize_t size = recv(raw.fd(), first, sizeof first, 0);
        if (size < 0) // the reset that stands in front of the refusal
            size = recv(raw.fd(), first, sizeof first, 0);
        _exit(size > 12 && first[3] == kRefused ? 1 : 0);
    }
    close(answered[0]);
    close(answered[1]);
    int status = -1;
    turn_until(buses, [&] { return waitpid(child, &status, WNOHANG) == child; });
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(Listen, OtherUsersAreRefusedUnlessAllowed) {
    if (geteuid() != 0)
        GTEST_SKIP() << "becoming another user needs root";
    CapturedTrace trace;
    ASSERT_NE(listen(bus, socket), nullptr);
    ASSERT_EQ(chmod(socket.c_str(), 0666), 0); // so that the kernel lets them get as far as our own check
    ASSERT_EQ(chmod(scratch.path(".").c_str(), 0755), 0);
    EXPECT_EQ(connect_as(kStranger, kStranger, socket, {bus}), 1);
    EXPECT_THAT(trace.text(), HasSubstr("its user may not connect"));

    const struct {
        const char *variable;
        const char *value;
        int answer;
    } rows[] = {
        {"KEX_ALLOW_UIDS", "1,65534", 0}, {"KEX_ALLOW_GIDS", "65534", 0},    {"KEX_ALLOW_UIDS", "1,2", 1},
        {"KEX_ALLOW_UIDS", "65534,x", 1}, {"KEX_ALLOW_UIDS", "-1,65534", 1}, {"KEX_ALLOW_GIDS", "", 1},
    };
    for (const auto &row : rows) {
        setenv(row.variable, row.value, 1);
        kex_t *strict = kex_create("strict");
        unsetenv(row.variable);
        std::string path = scratch.path("strict");
        ASSERT_NE(listen(strict, path), nullptr);
        // So that the kernel lets them get as far as our own check.
        ASSERT_TRUE(row.answer == 0 || chmod(path.c_str(), 0666) == 0);
        EXPECT_EQ(connect_as(kStranger, kStranger, path, {strict}), row.answer) << row.variable << "=" << row.value;
        kex_destroy(strict);
    }
}

// Not only the group that it runs as.
TEST_F(Listen, AllGroupsOfAUserCount) {
    if (geteuid() != 0)
        GTEST_SKIP() << "becoming another user needs root";
    CapturedTrace trace;
    ASSERT_EQ(chmod(scratch.path(".").c_str(), 0755), 0);
    const struct {
        const char *allowed;
        int answer;
    } rows[] = {{"5001", 0}, {"1,5002", 0}, {"5003", 1}};
    const gid_t groups[65] = {5001, 5002};
    gid_t before[64];
    const int count = getgroups(64, before);
    ASSERT_GE(count, 0);
    ASSERT_EQ(setgroups(2, groups), 0); // the stranger keeps them
    const std::string path = scratch.path("other");
    ASSERT_NE(listen(bus, path), nullptr);
    for (const auto &row : rows) {
        setenv("KEX_ALLOW_GIDS", row.allowed, 1);
        kex_t *own = kex_create("own");
        unsetenv("KEX_ALLOW_GIDS");
        ASSERT_NE(listen(own, socket), nullptr);
        EXPECT_TRUE(kex_reserve(own, 0, 1));                               // takes nothing from other users
        const RawPeer of_root(socket);                                     // nor does who comes anyway
        EXPECT_NE(kex_client_connect(own, uri_of(path).c_str()), nullptr); // nor does whom the bus connects to
        EXPECT_EQ(connect_as(kStranger, kStranger, socket, {own}), row.answer) << row.allowed;
        kex_destroy(own);
    }
    ASSERT_EQ(setgroups(65, groups), 0);
    setenv("KEX_ALLOW_GIDS", "5001", 1);
    kex_t *own = kex_create("own");
    unsetenv("KEX_ALLOW_GIDS");
    ASSERT_NE(listen(own, socket), nullptr);
    EXPECT_EQ(connect_as(kStranger, kStranger, socket, {own}), 1) << "sixty-four groups are looked at";
    kex_destroy(own);
    ASSERT_EQ(setgroups(static_cast<size_t>(count), before), 0);
}

TEST_F(Listen, AllowListsHaveALimit) {
    std::string list = "1";
    for (uint32_t i = 1; i < bus::Access::kMaxIds; i++)
        list += ",1";
    for (const auto &[text, good] :
         {std::pair{list, true}, std::pair{list + ",1", false}, std::pair{list + ";", false}}) {
        CapturedTrace trace;
        setenv("KEX_ALLOW_UIDS", text.c_str(), 1);
        kex_destroy(kex_create("own"));
        unsetenv("KEX_ALLOW_UIDS");
        EXPECT_EQ(trace.text().empty(), good) << trace.text();
    }
}

// A user that is not root is no other one to itself: nothing that is kept from others is kept from it.
TEST_F(Listen, UserIsNoStrangerToItself) {
    if (geteuid() != 0)
        GTEST_SKIP() << "becoming another user needs root";
    ASSERT_EQ(chmod(scratch.path(".").c_str(), 0777), 0);
    EXPECT_TRUE(holds_in_child([&] {
        bool good = become_stranger();
        setenv("KEX_ALLOW_UIDS", "65534", 1); // itself
        kex_t *own = kex_create("own");
        struct stat status = {};
        good &= listen(own, socket) != nullptr && stat(socket.c_str(), &status) == 0;
        good &= (status.st_mode & 0777u) == 0660;
        good &= kex_reserve(own, 1, 2) != 0;
        std::vector<std::unique_ptr<RawPeer>> raws;
        for (int i = 0; i < 8; i++) {
            raws.push_back(std::make_unique<RawPeer>(socket));
            raws.back()->send(i < 2 ? Packet(kTapHello).text("tap") : hello());
            support::turn_until_idle({own});
            good &= raws.back()->receive_all().size() >= 1 && !raws.back()->is_closed();
        }
        return good;
    }));
}

TEST_F(Listen, SocketIsForEverybodyWhenOthersAreAllowed) {
    const struct {
        const char *variable;
        std::string value;
        mode_t mode;
    } rows[] = {
        {"KEX_ALLOW_UIDS", "65534", 0666},
        {"KEX_ALLOW_GIDS", "65534", 0666},
        {"KEX_ALLOW_UIDS", "0," + std::to_string(geteuid()), 0660}, // these two may come anyway
        {"KEX_ALLOW_GIDS", std::to_string(getegid()), 0660},        // the group has its right by the mode
        {"KEX_ALLOW_UIDS", "65534,x", 0660},                        // allows nobody
    };
    CapturedTrace trace;
    for (const auto &row : rows) {
        setenv(row.variable, row.value.c_str(), 1);
        kex_t *own = kex_create("own");
        unsetenv(row.variable);
        ASSERT_NE(listen(own, socket), nullptr);
        struct stat status;
        ASSERT_EQ(stat(socket.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777u, row.mode) << row.variable << "=" << row.value;
        kex_destroy(own);
        ASSERT_EQ(stat((socket + ".lock").c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0007u, 0u) << "the lock is not theirs";
    }
}

// ----------------------------------------------------------------------------------------- Whom we connect to

TEST_F(Listen, ListenerOfAnotherUserIsNotObeyed) {
    if (geteuid() != 0)
        GTEST_SKIP() << "becoming another user needs root";
    CapturedTrace trace;
    int ready[2];
    ASSERT_EQ(pipe2(ready, O_CLOEXEC), 0);
    ASSERT_EQ(chmod(scratch.path(".").c_str(), 0777), 0);
    pid_t child = fork();
    if (child == 0) {
        bool listens = become_stranger() && ::listen(listen_without_lock(), 8) == 0;
        _exit(listens && write(ready[1], "r", 1) == 1 && pause() != 0);
    }
    char byte;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    EXPECT_EQ(kex_client_connect(bus, uri_of(socket).c_str()), nullptr);
    EXPECT_THAT(trace.text(), HasSubstr("user 65534 listens at 'kex://ipc:[" + socket +
                                        "]', who is not trusted: set KEX_ALLOW_UIDS=65534 for this process"));
    for (const char *variable : {"KEX_ALLOW_UIDS", "KEX_ALLOW_GIDS"}) {
        setenv(variable, "65534", 1);
        kex_t *trusting = kex_create("trusting");
        unsetenv(variable);
        EXPECT_NE(kex_client_connect(trusting, uri_of(socket).c_str()), nullptr) << variable;
        kex_destroy(trusting);
    }
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    close(ready[0]);
    close(ready[1]);
}

// Whoever connects tries again and again, and says itself that nobody is there; any other reason is known here alone.
TEST_F(Listen, AddressThatIsNoneIsTold) {
    CapturedTrace trace;
    EXPECT_EQ(kex_client_connect(bus, uri_of(socket).c_str()), nullptr);
    leave_stale_socket();
    EXPECT_EQ(kex_client_connect(bus, uri_of(socket).c_str()), nullptr);
    EXPECT_EQ(trace.text(), "");
    EXPECT_EQ(kex_client_connect(bus, socket.c_str()), nullptr);
    EXPECT_THAT(trace.text(), HasSubstr("'" + socket + "': that is not of the form kex://ipc:[/path]"));
}

TEST_F(Listen, RightThatIsMissingIsTold) {
    if (geteuid() != 0)
        GTEST_SKIP() << "becoming another user needs root";
    CapturedTrace trace;
    ASSERT_NE(listen(bus, socket), nullptr); // mode 0660
    ASSERT_EQ(chmod(scratch.path(".").c_str(), 0755), 0);
    EXPECT_TRUE(holds_in_child([&] {
        kex_t *caller = become_stranger() ? kex_create("caller") : nullptr;
        return caller != nullptr && kex_client_connect(caller, uri_of(socket).c_str()) == nullptr;
    }));
    EXPECT_THAT(trace.text(), HasSubstr("cannot connect to '" + uri_of(socket) + "': Permission denied"));
}

TEST_F(Listen, ListenerOfRootIsObeyedByOthers) {
    if (geteuid() != 0)
        GTEST_SKIP() << "becoming another user needs root";
    setenv("KEX_ALLOW_UIDS", "65534", 1);
    kex_t *own = kex_create("root");
    unsetenv("KEX_ALLOW_UIDS");
    ASSERT_NE(listen(own, socket), nullptr);
    ASSERT_EQ(chmod(scratch.path(".").c_str(), 0755), 0);
    EXPECT_TRUE(holds_in_child([&] {
        kex_t *caller = become_stranger() ? kex_create("caller") : nullptr;
        return caller != nullptr && kex_client_connect(caller, uri_of(socket).c_str()) != nullptr;
    })) << "as with a socket that the service manager has opened";
    kex_destroy(own);
}

// ----------------------------------------------------------------------------------------- Descriptors

TEST_F(Listen, LastDescriptorsAreKeptForTheHost) {
    CapturedTrace trace;
    ASSERT_NE(listen(bus, socket), nullptr);
    RawPeer raw(socket);
    raw.send(hello());
    int own;
    {
        const FullTable five_left(open_descriptors() + 40, 5);
        support::turn_until_idle({bus});
        own = dup(0);
    }
    EXPECT_GE(own, 0) << "five are left";
    close(own);
    EXPECT_EQ(raw.refusal(), "this process has no more descriptors");
}

TEST_F(Listen, FullDescriptorTableTurnsAwayWithAWord) {
    CapturedTrace trace;
    ASSERT_NE(listen(bus, socket), nullptr);
    RawPeer raw(socket);
    raw.send(hello());
    {
        const FullTable full(open_descriptors() + 20);
        support::turn_until_idle({bus});
    }
    EXPECT_EQ(raw.refusal(), "this process has no more descriptors");
    EXPECT_TRUE(raw.is_closed());
    RawPeer later(socket);
    later.send(hello());
    support::turn_until_idle({bus});
    EXPECT_EQ(later.refusal(), "");
    EXPECT_FALSE(later.is_closed());
}

} // namespace
