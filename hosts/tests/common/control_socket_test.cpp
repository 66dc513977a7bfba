// SPDX-License-Identifier: MIT
// The socket where commands are taken: what stands at its path before, and what is left there afterwards.
#include "control_socket.h"

#include "kex_host.h"

#include <gtest/gtest.h>

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace {

int taken;

void take(int client) {
    taken++;
    close(client);
}

sockaddr_un address_of(const std::string &path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

class ControlSocket : public testing::Test {
protected:
    ControlSocket() {
        EXPECT_NE(mkdtemp(directory_), nullptr);
        path_ = std::string(directory_) + "/control";
        bus_ = kex_create("console");
        taken = 0;
    }
    ~ControlSocket() override {
        control_socket_close();
        kex_destroy(bus_);
        unlink(path_.c_str());
        rmdir(directory_);
    }
    bool open() { return control_socket_open(bus_, path_.c_str(), take); }

    char directory_[32] = "/tmp/control-XXXXXX";
    std::string path_;
    kex_t *bus_;
};

TEST_F(ControlSocket, WhoConnectsIsTaken) {
    const sockaddr_un address = address_of(path_);
    ASSERT_TRUE(open());
    const int client = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(connect(client, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    kex_dispatch(bus_);
    EXPECT_EQ(taken, 1);
    close(client);
}

TEST_F(ControlSocket, FileIsOfOwnerAndGroupAndGoesWithTheHost) {
    struct stat status;
    const mode_t before = umask(0);
    ASSERT_TRUE(open());
    umask(before);
    ASSERT_EQ(stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0660u);
    control_socket_close();
    EXPECT_NE(stat(path_.c_str(), &status), 0);
}

TEST_F(ControlSocket, PathLongerThanAnAddressIsRefused) {
    path_ = std::string(sizeof(sockaddr_un::sun_path), 'p');
    EXPECT_FALSE(open());
    EXPECT_EQ(errno, ENAMETOOLONG);
}

TEST_F(ControlSocket, FileThatIsNoSocketStays) {
    close(creat(path_.c_str(), 0600));
    EXPECT_FALSE(open());
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(access(path_.c_str(), F_OK), 0);
}

TEST_F(ControlSocket, ALiveSocketOfAnotherKindIsNotTakenOver) {
    const sockaddr_un address = address_of(path_);
    int other = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(other, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(listen(other, 1), 0);
    EXPECT_FALSE(open());
    int probe = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    EXPECT_EQ(connect(probe, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0) << "it still listens";
    close(probe);
    close(other);
}

TEST_F(ControlSocket, ALiveSocketThatIsTooBusyIsNotTakenOver) {
    const sockaddr_un address = address_of(path_);
    int other = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(other, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(listen(other, 0), 0);
    std::vector<int> waiting;
    int knocking = 0;
    while (knocking == 0) { // nobody accepts: the queue fills up
        waiting.push_back(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        knocking = connect(waiting.back(), reinterpret_cast<const sockaddr *>(&address), sizeof address);
    }
    EXPECT_FALSE(open());
    EXPECT_EQ(access(path_.c_str(), F_OK), 0);
    for (int fd : waiting)
        close(fd);
    close(other);
}

TEST_F(ControlSocket, ASocketThatADeadProcessLeftIsTakenOver) {
    const sockaddr_un address = address_of(path_);
    int other = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(other, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    close(other);
    EXPECT_TRUE(open());
}

} // namespace
