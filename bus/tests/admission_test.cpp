// SPDX-License-Identifier: MIT
// Places for connections: what one process, other users and reserved users get.
#include "base/limits.h"
#include "served_functions.h"
#include "support/bus_test.h"
#include "support/child.h"
#include "support/raw_peer.h"

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <grp.h>
#include <memory>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

using namespace support;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr uid_t kOther = 65533;

// A process of its own that has connected so many times, and stays until it is asked to go. What each connection was told:
// "" when it was taken in, else why not.
class Crowd {
public:
    Crowd(const std::string &path, uid_t user, int count, const std::vector<kex_t *> &buses) {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        pid_ = fork();
        if (pid_ == 0)
            live(path, user, count, ends[1]);
        close(ends[1]);
        fcntl(ends[0], F_SETFL, O_NONBLOCK);
        EXPECT_TRUE(turn_until(buses, [&] {
            char byte;
            while (read(ends[0], &byte, 1) == 1) {
                if (byte == '\n')
                    told.push_back(std::exchange(line_, ""));
                else
                    line_ += byte;
            }
            return told.size() == static_cast<size_t>(count);
        }));
        close(ends[0]);
    }
    ~Crowd() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    Crowd(const Crowd &) = delete;
    Crowd &operator=(const Crowd &) = delete;
    size_t taken_in() const { return static_cast<size_t>(std::count(told.begin(), told.end(), "")); }

    std::vector<std::string> told;

private:
    [[noreturn]] static void live(const std::string &path, uid_t user, int count, int result) {
        if (user != geteuid() && (setgroups(0, nullptr) != 0 || setgid(user) != 0 || setuid(user) != 0))
            _exit(1);
        std::vector<std::unique_ptr<RawPeer>> raws;
        for (int i = 0; i < count; i++) {
            raws.push_back(std::make_unique<RawPeer>(path));
            raws.back()->send(hello());
            fcntl(raws.back()->fd(), F_SETFL, 0);
            std::string why;
            char packet[256];
            ssize_t size = -1;
            for (int tries = 0; tries < 2 && size < 0; tries++) // a reset may stand in front
                size = recv(raws.back()->fd(), packet, sizeof packet, 0);
            if (size <= 0)
                why = "closed without a word";
            else if (kind_of(packet) == kRefused)
                why = text_of(std::string(packet, static_cast<size_t>(size)));
            dprintf(result, "%s\n", why.c_str());
        }
        for (;;)
            pause();
    }

    pid_t pid_;
    std::string line_;
};

class Admission : public DescriptorTest {
protected:
    Admission() {
        setenv("KEX_ALLOW_UIDS", "65534,65533", 1);
        bus = kex_create("server");
        unsetenv("KEX_ALLOW_UIDS");
        EXPECT_NE(connection_listenOnIPC(kex_connection(bus), socket.c_str()), nullptr);
        chmod(scratch.path(".").c_str(), 0755);
    }
    ~Admission() override {
        crowds.clear();
        kex_destroy(bus);
    }
    // One more process.
    const Crowd &crowd(uid_t user, int count) {
        crowds.push_back(std::make_unique<Crowd>(socket, user, count, std::vector<kex_t *>{bus}));
        return *crowds.back();
    }
    // So many in all, by as many processes as it takes. How many were taken in.
    size_t crowd_in(uid_t user, int count) {
        size_t taken_in = 0;
        for (; count > 0; count -= 8)
            taken_in += crowd(user, std::min(count, 8)).taken_in();
        return taken_in;
    }

    CapturedTrace trace;
    ScratchDirectory scratch;
    std::string socket = scratch.path("bus");
    kex_t *bus;
    std::vector<std::unique_ptr<Crowd>> crowds;
};

TEST_F(Admission, OneProcessHasEightPlaces) {
    const Crowd &greedy = crowd(geteuid(), 10);
    EXPECT_EQ(greedy.taken_in(), 8u);
    EXPECT_EQ(greedy.told[8], "its process has 8 connections already");
    EXPECT_EQ(greedy.told[9], "its process has 8 connections already");
    EXPECT_EQ(crowd(geteuid(), 8).taken_in(), 8u) << "another one has its own";
}

TEST_F(Admission, SixtyFourAndNoMoreUntilOneIsGivenBack) {
    ASSERT_EQ(crowd(geteuid(), 8).taken_in(), 8u);
    crowds.clear();
    EXPECT_EQ(crowd_in(geteuid(), 64), 64u);
    EXPECT_THAT(crowd(geteuid(), 1).told, ElementsAre("there are too many connections"));
    crowds.erase(crowds.begin());
    turn_until_idle({bus});
    EXPECT_EQ(crowd(geteuid(), 8).taken_in(), 8u);
}

TEST_F(Admission, OtherUsersHaveThirtyTwoPlacesTogether) {
    if (geteuid() != 0)
        GTEST_SKIP() << "becoming another user needs root";
    EXPECT_EQ(crowd_in(kStranger, 24), 24u);
    EXPECT_EQ(crowd_in(kOther, 8), 8u);
    EXPECT_THAT(crowd(kOther, 1).told, ElementsAre("other users have 32 connections already"));
    EXPECT_EQ(crowd_in(geteuid(), 32), 32u) << "the rest is for the own user";
}

TEST_F(Admission, ReservedPlacesAreKept) {
    if (geteuid() != 0)
        GTEST_SKIP() << "becoming another user needs root";
    ASSERT_TRUE(kex_reserve(bus, kOther, 2));
    EXPECT_EQ(crowd_in(geteuid(), 62), 62u);
    EXPECT_THAT(crowd(geteuid(), 1).told, ElementsAre("there are too many connections: the other places are reserved"));
    EXPECT_EQ(crowd_in(kOther, 2), 2u);
    EXPECT_THAT(crowd(kOther, 1).told, ElementsAre("there are too many connections"));
}

TEST_F(Admission, ReservedPlacesComeOnTopOfThoseOfOtherUsers) {
    if (geteuid() != 0)
        GTEST_SKIP() << "becoming another user needs root";
    ASSERT_TRUE(kex_reserve(bus, kOther, 3));
    EXPECT_EQ(crowd_in(kStranger, 32), 32u);
    const Crowd &others = crowd(kOther, 4);
    EXPECT_THAT(others.told, ElementsAre("", "", "", "other users have 32 connections already"));
}

TEST_F(Admission, GivenUpPlacesAreFree) {
    ASSERT_TRUE(kex_reserve(bus, kOther, 64));
    EXPECT_THAT(crowd(geteuid(), 1).told, ElementsAre("there are too many connections: the other places are reserved"));
    ASSERT_TRUE(kex_reserve(bus, kOther, 0));
    EXPECT_EQ(crowd(geteuid(), 1).taken_in(), 1u);
}

TEST_F(Admission, ReservationsHaveTheirLimits) {
    EXPECT_FALSE(kex_reserve(nullptr, 1, 1));
    EXPECT_FALSE(kex_reserve(bus, 1, 65));
    EXPECT_TRUE(kex_reserve(bus, 1, 60));
    EXPECT_FALSE(kex_reserve(bus, 2, 5)) << "64 together";
    EXPECT_TRUE(kex_reserve(bus, 1, 1)) << "replaces what was reserved before";
    for (uid_t user = 2; user <= 8; user++)
        EXPECT_TRUE(kex_reserve(bus, user, 1)) << user;
    EXPECT_FALSE(kex_reserve(bus, 9, 1)) << "8 users";
    EXPECT_TRUE(kex_reserve(bus, 8, 2)) << "none more";
    EXPECT_TRUE(kex_reserve(bus, 9, 0));
    EXPECT_TRUE(kex_reserve(bus, 3, 0));
    EXPECT_TRUE(kex_reserve(bus, 9, 1));
}

TEST_F(Admission, RefusalIsTraced) {
    crowd(geteuid(), 9);
    EXPECT_THAT(trace.text(), HasSubstr("refused: its process has 8 connections already"));
}

TEST_F(Admission, WhomTheBusConnectsToTakesNoPlaceOfItsProcess) {
    kex_t *other = kex_create("other");
    const std::string path = scratch.path("other");
    ASSERT_NE(connection_listenOnIPC(kex_connection(other), path.c_str()), nullptr);
    for (int i = 0; i < 8; i++)
        ASSERT_NE(kex_client_connect(bus, uri_of(path).c_str()), nullptr);
    turn_until_idle({bus, other});
    RawPeer raw(socket);
    raw.send(hello());
    turn_until_idle({bus, other});
    EXPECT_EQ(raw.refusal(), "");
    EXPECT_FALSE(raw.is_closed());
    kex_destroy(other);
}

} // namespace
