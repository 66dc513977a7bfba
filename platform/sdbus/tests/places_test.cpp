// SPDX-License-Identifier: MIT
// Who may connect to a bus on sd-bus, and how many.
#include "peers.h"
#include "served_functions.h"
#include "support/scratch.h"

#include <chrono>
#include <cstdlib>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using namespace peers;
using support::uri_of;

namespace {

constexpr uid_t kStranger = 65534;
constexpr uid_t kOther = 65533;

// A variable of the processes that are started while it is there.
class Variable {
public:
    Variable(const char *name, const std::string &value) : name_(name) { setenv(name, value.c_str(), 1); }
    ~Variable() { unsetenv(name_); }
    Variable(const Variable &) = delete;
    Variable &operator=(const Variable &) = delete;

private:
    const char *name_;
};

// A process that has connected so many times, and stays. Of the connections, how many are served.
class Crowd {
public:
    Crowd(const std::string &path, uid_t user, int count)
        : child_(user,
                 [&](int word) {
                     std::vector<std::unique_ptr<RawPeer>> all;
                     char served = 0;
                     for (int i = 0; i < count; i++) {
                         all.push_back(std::make_unique<RawPeer>(path));
                         served = static_cast<char>(served + (all.back()->echo("here") == "here"));
                     }
                     if (write(word, &served, 1) == 1)
                         pause();
                 }),
          served(child_.hear()) {}

private:
    Child child_;

public:
    const int served;
};

class Places : public testing::Test {
protected:
    Places() { chmod(scratch.path(".").c_str(), 0777); }

    void SetUp() override {
        if (geteuid() != 0)
            GTEST_SKIP() << "becoming another user needs root";
    }
    int served(uid_t user, int count = 1) { return Crowd(path, user, count).served; }
    // By as many processes as it takes; they stay.
    int crowd_in(uid_t user, int count) {
        int all = 0;
        for (; count > 0; count -= 8) {
            crowds.push_back(std::make_unique<Crowd>(path, user, std::min(count, 8)));
            all += crowds.back()->served;
        }
        return all;
    }
    // It keeps four places for a user.
    Child reserving_server() const {
        return Child(own_user(), [this](int word) {
            kex_t *bus = kex_create("server");
            served::declare(bus);
            const bool reserved = kex_reserve(bus, kOther, 4) != 0;
            if (reserved && connection_listenOnIPC(kex_connection(bus), path.c_str()) != nullptr &&
                write(word, "l", 1) == 1)
                kex_run(bus);
        });
    }
    int mode() const {
        struct stat status = {};
        stat(path.c_str(), &status);
        return status.st_mode & 07777;
    }

    support::ScratchDirectory scratch;
    std::string path = scratch.path("bus");
    std::vector<std::unique_ptr<Crowd>> crowds;
};

TEST_F(Places, AnotherUserMayNotConnect) {
    const Server server(path);
    EXPECT_EQ(mode(), 0660);
    EXPECT_EQ(served(own_user()), 1);
    ASSERT_EQ(chmod(path.c_str(), 0666), 0); // so that it gets as far as the question
    EXPECT_EQ(served(kStranger), 0);
    EXPECT_TRUE(server.says("of user 65534 may not connect: its user is not trusted"));
}

TEST_F(Places, RootMayConnectToAnyUsersListener) {
    const Server server(path, kStranger);
    ASSERT_TRUE(server.listens);
    EXPECT_EQ(served(own_user()), 1);
    EXPECT_EQ(served(kStranger), 1) << "its own user";
    ASSERT_EQ(chmod(path.c_str(), 0666), 0);
    EXPECT_EQ(served(kOther), 0);
}

TEST_F(Places, UsersAndPrimaryGroupsThatAreAllowedMayConnect) {
    for (const char *name : {"KEX_ALLOW_UIDS", "KEX_ALLOW_GIDS"}) {
        const Variable allowed(name, "1,65534");
        const Server server(path);
        EXPECT_EQ(mode(), 0666) << name;
        EXPECT_EQ(served(kStranger), 1) << name;
        EXPECT_EQ(served(kOther), 0) << name;
    }
}

TEST_F(Places, ListOfUsersThatDoesNotReadSoAllowsNobody) {
    std::string many = "1";
    for (int i = 0; i < 32; i++)
        many += ",65534";
    for (const std::string &list : {std::string("65534,"), std::string("65534 "), std::string("nobody"), many}) {
        const Variable allowed("KEX_ALLOW_UIDS", list);
        const Server server(path);
        ASSERT_EQ(chmod(path.c_str(), 0666), 0);
        EXPECT_EQ(served(kStranger), list == "65534,") << list;
        EXPECT_EQ(served(own_user()), 1);
    }
}

TEST_F(Places, ListenerOfAnotherUserIsNotTrusted) {
    const Server server(path, kStranger);
    ASSERT_TRUE(server.listens);
    ASSERT_EQ(chmod(path.c_str(), 0666), 0);
    const auto connects = [this] {
        kex_t *bus = kex_create("client");
        const bool connected = kex_client_connect(bus, uri_of(path).c_str()) != nullptr;
        kex_destroy(bus);
        return connected;
    };
    EXPECT_FALSE(connects());
    const Variable allowed("KEX_ALLOW_UIDS", "65534");
    EXPECT_TRUE(connects());
}

TEST_F(Places, OneProcessHasEight) {
    const Server server(path);
    EXPECT_EQ(served(own_user(), 10), 8);
    EXPECT_TRUE(server.says("its process has as many connections as one may have"));
}

TEST_F(Places, ThereAreSixtyFourUntilOneIsGivenBack) {
    const Server server(path);
    EXPECT_EQ(crowd_in(own_user(), 64), 64);
    EXPECT_EQ(served(own_user()), 0);
    EXPECT_TRUE(server.says("there is no place left"));
    crowds.pop_back();
    EXPECT_TRUE(until([this] { return served(own_user()) == 1; }));
}

TEST_F(Places, OtherUsersHaveThirtyTwoTogether) {
    const Variable allowed("KEX_ALLOW_UIDS", "65534,65533");
    const Server server(path);
    EXPECT_EQ(crowd_in(kStranger, 24), 24);
    EXPECT_EQ(crowd_in(kOther, 10), 8);
    EXPECT_TRUE(server.says("other users have as many connections as they may have"));
    EXPECT_EQ(served(own_user()), 1);
}

TEST_F(Places, ReservedOnesAreKept) {
    const Variable allowed("KEX_ALLOW_UIDS", "65534,65533");
    const Child server = reserving_server();
    ASSERT_EQ(server.hear(), 'l');
    EXPECT_EQ(crowd_in(kStranger, 40), 32) << "those of all other users";
    EXPECT_EQ(crowd_in(own_user(), 32), 28) << "all but these and the reserved ones";
    EXPECT_EQ(crowd_in(kOther, 5), 4);
}

TEST_F(Places, AUserWithReservedOnesHasThoseOfAllBesides) {
    const Variable allowed("KEX_ALLOW_UIDS", "65534,65533");
    const Child server = reserving_server();
    ASSERT_EQ(server.hear(), 'l');
    EXPECT_EQ(crowd_in(kOther, 5), 5);
}

TEST_F(Places, NoMoreAreReservedThanThereAre) {
    kex_t *bus = kex_create("server");
    EXPECT_NE(kex_reserve(bus, 1, 60), 0);
    EXPECT_EQ(kex_reserve(bus, 2, 5), 0);
    EXPECT_NE(kex_reserve(bus, 1, 0), 0) << "they are given up";
    for (uid_t user = 1; user <= 8; user++)
        EXPECT_NE(kex_reserve(bus, user, 1), 0);
    EXPECT_EQ(kex_reserve(bus, 9, 1), 0) << "a ninth user";
    kex_destroy(bus);
}

TEST_F(Places, ABusMakesSixtyFourConnections) {
    kex_t *bus = kex_create("client");
    std::vector<std::unique_ptr<Server>> servers;
    for (int i = 0; i < 9; i++)
        servers.push_back(std::make_unique<Server>(scratch.path(std::to_string(i))));
    for (int i = 0; i < 64; i++)
        EXPECT_NE(kex_client_connect(bus, uri_of(servers[static_cast<size_t>(i) / 8]->path).c_str()), nullptr) << i;
    EXPECT_EQ(kex_client_connect(bus, uri_of(servers[8]->path).c_str()), nullptr);
    kex_destroy(bus);
}

TEST_F(Places, WhoeverSaysNothingIsClosedAfterTenSeconds) {
    const Server server(path);
    const auto begin = std::chrono::steady_clock::now();
    const int silent = connect_to(path);
    const RawPeer nameless(path, false);
    EXPECT_TRUE(nameless.is_closed());
    char byte;
    EXPECT_EQ(read(silent, &byte, 1), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(9900));
    EXPECT_TRUE(server.says("it has not said its name"));
    EXPECT_TRUE(server.serves());
    close(silent);
}

} // namespace
