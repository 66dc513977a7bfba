// SPDX-License-Identifier: MIT
// Who may listen at a path, and what is refused for want of descriptors.
#include "base/faults.h"
#include "support/child.h"
#include "support/listening.h"
#include "support/raw_peer.h"

#include <fcntl.h>
#include <functional>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
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
