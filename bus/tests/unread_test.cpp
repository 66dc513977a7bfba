// SPDX-License-Identifier: MIT
// What lies unread in a socket that is to be closed: whether its close can take long.
#include "base/limits.h"
#include "base/unread.h"
#include "support/bus_test.h"
#include "support/raw_peer.h"

#include <fcntl.h>
#include <memory>
#include <sys/socket.h>
#include <unistd.h>

using namespace support;

namespace {

class Unread : public DescriptorTest, public testing::WithParamInterface<bool> {
protected:
    Unread() {
        int pair[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, pair), 0);
        sender = std::make_unique<RawPeer>(pair[0]);
        fd = pair[1];
    }
    ~Unread() override { close(fd); }
    bool is_harmless() const {
        if (!GetParam())
            return bus::unread_is_harmless(fd);
        // With it the kernel does not tell what a queue holds: that is read from a file.
        const FullTable full(open_descriptors());
        return bus::unread_is_harmless(fd);
    }
    // As many packets as the queue takes.
    uint32_t fill() const {
        const int much = 4 * 1024 * 1024;
        setsockopt(sender->fd(), SOL_SOCKET, SO_SNDBUF, &much, sizeof much);
        uint32_t sent = 0;
        while (sender->send("x"))
            sent++;
        return sent;
    }

    std::unique_ptr<RawPeer> sender;
    int fd;
};

TEST_P(Unread, NothingIsHarmless) {
    EXPECT_TRUE(is_harmless());
}

TEST_P(Unread, ClosedByItsPeerIsHarmless) {
    sender->close();
    EXPECT_TRUE(is_harmless());
}

TEST_P(Unread, PacketsWithoutDescriptorsAreHarmless) {
    ASSERT_TRUE(sender->send("first"));
    ASSERT_TRUE(sender->send(""));
    ASSERT_TRUE(sender->send(""));
    ASSERT_TRUE(sender->send("last"));
    EXPECT_TRUE(is_harmless());
}

TEST_P(Unread, PacketsWithoutDescriptorsOfOneWhoHasGoneAreHarmless) {
    ASSERT_TRUE(sender->send("first"));
    sender->close();
    EXPECT_TRUE(is_harmless());
}

TEST_P(Unread, DescriptorIsNot) {
    ASSERT_TRUE(sender->send("", {STDIN_FILENO}));
    EXPECT_FALSE(is_harmless());
}

TEST_P(Unread, DescriptorBehindOtherPacketsIsNot) {
    ASSERT_TRUE(sender->send("first"));
    ASSERT_TRUE(sender->send(""));
    ASSERT_TRUE(sender->send("", {STDIN_FILENO}));
    ASSERT_TRUE(sender->send("last"));
    EXPECT_FALSE(is_harmless());
}

TEST_P(Unread, NothingCanComeAnyMore) {
    EXPECT_TRUE(is_harmless());
    EXPECT_FALSE(sender->send("", {STDIN_FILENO}));
}

INSTANTIATE_TEST_SUITE_P(TheKernel, Unread, testing::Values(false, true),
                         [](const auto &info) { return info.param ? "DoesNotTell" : "Tells"; });

class UnreadWhole : public Unread {};

// Where the kernel does not tell, so many packets are looked at, and not more.
TEST_P(UnreadWhole, QueueOfAnyLengthIsHarmlessWhenTheKernelTells) {
    fill();
    EXPECT_TRUE(is_harmless());
}
INSTANTIATE_TEST_SUITE_P(TheKernel, UnreadWhole, testing::Values(false), [](const auto &) { return "Tells"; });

class UnreadSingly : public Unread {};

TEST_P(UnreadSingly, FiveHundredAndTwelvePacketsAreLookedAt) {
    const uint32_t sent = fill();
    if (sent <= 512)
        GTEST_SKIP() << "the kernel lets nobody send so many";
    RawPeer receiver(dup(fd));
    for (uint32_t rest = sent; rest > 513; rest--)
        ASSERT_EQ(receiver.receive(), "x");
    EXPECT_FALSE(is_harmless()) << "one is left";
    EXPECT_TRUE(is_harmless()) << "the others have been taken out";
}
INSTANTIATE_TEST_SUITE_P(TheKernel, UnreadSingly, testing::Values(true), [](const auto &) { return "DoesNotTell"; });

} // namespace
