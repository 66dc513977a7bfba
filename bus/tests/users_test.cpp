// SPDX-License-Identifier: MIT
// Which users may connect, and which ones are connected to.
#include "support/child.h"
#include "support/listening.h"
#include "support/raw_peer.h"
#include "transport/socket.h"

#include <csignal>
#include <fcntl.h>
#include <grp.h>
#include <memory>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace support;
using testing::HasSubstr;

namespace {

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

} // namespace
