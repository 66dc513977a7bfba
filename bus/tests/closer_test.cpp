// SPDX-License-Identifier: MIT
// Descriptors whose last close takes as long as their sender chose: nobody here waits for it.
#include "base/descriptor_kind.h"
#include "support/child.h"
#include "support/closings.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <fstream>
#include <linux/userfaultfd.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>

using namespace support;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

bool threads_forbidden;

} // namespace

extern "C" {
int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*run)(void *), void *argument);
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*run)(void *), void *argument);

int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*run)(void *), void *argument) {
    return threads_forbidden ? EAGAIN : __real_pthread_create(thread, attributes, run, argument);
}
}

namespace {

constexpr std::chrono::milliseconds kNoWait(1000); // far from the time that it lingers, on a loaded machine too

// Waits until it sleeps in a system call, or has ended: false.
bool comes_to_sleep(pid_t process) {
    const std::string path = "/proc/" + std::to_string(process) + "/stat";
    std::string state;
    while (state != "S" && state != "D" && state != "Z") {
        std::string name;
        std::ifstream(path) >> name >> name >> state;
        usleep(1000);
    }
    return state != "Z";
}

TEST_F(Closer, LastCloseOfALingeringSocketWaits) {
    Lingering one;
    auto begin = std::chrono::steady_clock::now();
    one.forget();
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(kLinger - 1)) << "else nothing is tested";
}

TEST_F(Closer, DescriptorThatNobodyTakesIsClosedWithoutWaiting) {
    RawPeer raw(socket);
    greet(raw);
    Lingering one;
    ASSERT_TRUE(raw.send(call_with_descriptor("note"), {one.fd}));
    // Only ours is left. Closed while another copy is under way: nothing waits here.
    one.forget();
    EXPECT_LT(time_of_settling(), kNoWait);
    EXPECT_THAT(served::log, ElementsAre("note nothing"));
}

// Whether a function is given a lingering socket; then it closes it at once. A machine that is very busy may not find the
// time to clear it before the bus gives up waiting.
bool lingering_socket_is_handed_on(RawPeer &raw, kex_t *bus) {
    static int came;
    static std::chrono::steady_clock::duration took;
    served::probe = [](function_call_t *call, argument_list_t *arguments, variant_t *) {
        variant_list_t *list = nullptr;
        EXPECT_TRUE(argument_getList(arguments, "fds", 0, &list));
        came = variant_fd(variant_list_at(list, 0));
        variant_list_destroy(list);
        auto begin = std::chrono::steady_clock::now();
        close(came);
        took = std::chrono::steady_clock::now() - begin;
        fcall_destroy(call);
        return 0;
    };
    Lingering one;
    came = -1;
    EXPECT_TRUE(
        raw.send(Packet(kOneWayCall, 1).text("Probe").text("run").byte(1).text("fds").descriptor_list(1), {one.fd}));
    one.forget();
    turn_until_idle({bus});
    EXPECT_LT(took, kNoWait);
    return came != -1;
}

bool lingering_socket_is_handed_on_at_last(RawPeer &raw, kex_t *bus) {
    bool is_handed_on = false;
    for (int i = 0; i < 50 && !is_handed_on; i++) {
        is_handed_on = lingering_socket_is_handed_on(raw, bus);
        usleep(10000);
    }
    return is_handed_on;
}

TEST_F(Closer, DescriptorThatAFunctionClosesDoesNotLinger) {
    RawPeer raw(socket);
    greet(raw);
    EXPECT_TRUE(lingering_socket_is_handed_on_at_last(raw, bus));
}

// Nothing of UDP lingers, whatever is set, and to ask for its lock would be to wait.
TEST_F(Closer, DescriptorOfUdpIsHandedOnAsItIs) {
    RawPeer raw(socket);
    greet(raw);
    const int udp = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const linger on = {1, kLinger};
    EXPECT_EQ(setsockopt(udp, SOL_SOCKET, SO_LINGER, &on, sizeof on), 0);
    static linger came;
    came = {};
    served::probe = [](function_call_t *call, argument_list_t *arguments, variant_t *) {
        variant_list_t *list = nullptr;
        EXPECT_TRUE(argument_getList(arguments, "fds", 0, &list));
        const int fd = variant_fd(variant_list_at(list, 0));
        variant_list_destroy(list);
        socklen_t length = sizeof came;
        EXPECT_EQ(getsockopt(fd, SOL_SOCKET, SO_LINGER, &came, &length), 0);
        close(fd);
        fcall_destroy(call);
        return 0;
    };
    ASSERT_TRUE(
        raw.send(Packet(kOneWayCall, 1).text("Probe").text("run").byte(1).text("fds").descriptor_list(1), {udp}));
    turn_until_idle({bus});
    EXPECT_EQ(came.l_linger, kLinger);
    close(udp);
}

TEST_F(Closer, BrokenPacketsDescriptorIsClosedWithoutWaiting) {
    CapturedTrace trace;
    RawPeer raw(socket);
    greet(raw);
    Lingering one;
    ASSERT_TRUE(raw.send("?", {one.fd}));
    one.forget();
    EXPECT_LT(time_of_settling(), kNoWait);
    EXPECT_EQ(raw.refusal(), "the packet is cut off");
}

TEST_F(Closer, PacketsThatLieUnreadInARefusedConnectionHoldNobodyUp) {
    CapturedTrace trace;
    RawPeer raw(socket);
    greet(raw);
    Lingering one;
    Lingering another;
    ASSERT_TRUE(raw.send("?"));
    ASSERT_TRUE(raw.send("", {one.fd}));
    ASSERT_TRUE(raw.send(call_with_descriptor("note"), {another.fd}));
    one.forget();
    another.forget();
    auto begin = std::chrono::steady_clock::now();
    turn_until_idle({bus});
    wait_for_closings();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, kNoWait) << "taken out, and no longer lingering";
}

TEST_F(Closer, PacketBehindAnEmptyOneIsFound) {
    CapturedTrace trace;
    RawPeer raw(socket);
    greet(raw);
    Lingering one;
    ASSERT_TRUE(raw.send(""));
    ASSERT_TRUE(raw.send("", {one.fd}));
    one.forget();
    EXPECT_LT(time_of_settling(), kNoWait);
    EXPECT_TRUE(raw.is_closed());
}

TEST_F(Closer, WhoeverWasNotTakenInYetHoldsNobodyUpWhenTheBusEnds) {
    RawPeer silent(socket);
    RawPeer raw(socket);
    Lingering one;
    ASSERT_TRUE(raw.send(call_with_descriptor("note"), {one.fd}));
    raw.close();
    one.forget();
    auto begin = std::chrono::steady_clock::now();
    kex_destroy(bus);
    bus = nullptr;
    EXPECT_LT(std::chrono::steady_clock::now() - begin, kNoWait);
    EXPECT_TRUE(silent.is_closed());
}

TEST_F(Closer, DescriptorThatIsSentOnHoldsNobodyUpWhenItCannotLeave) {
    RawPeer raw(socket);
    greet(raw);
    peer_t *peer = peer_of(raw, bus);
    Lingering one;
    raw.close();
    request_t *r = request_create_executeFunction("Theirs", "take", 0);
    variant_t value = descriptor(one.fd);
    ASSERT_TRUE(request_addParameter(r, "fd", &value));
    ASSERT_TRUE(kex_sendRequest(bus, peer, r));
    request_destroy(r);
    one.forget();
    EXPECT_LT(time_of_settling(), kNoWait);
    EXPECT_EQ(bus::closings_pending(), 1u) << "else nothing is tested";
}

// What is closed is a copy of it then.
TEST_F(Closer, SocketOfTheHostsOwnLingersAsBefore) {
    Lingering one;
    bus::foreign_descriptor_close(fcntl(one.fd, F_DUPFD_CLOEXEC, 0));
    wait_for_closings();
    linger set = {};
    socklen_t length = sizeof set;
    ASSERT_EQ(getsockopt(one.fd, SOL_SOCKET, SO_LINGER, &set, &length), 0);
    EXPECT_EQ(set.l_onoff, 1);
    EXPECT_EQ(set.l_linger, kLinger);
}

TEST_F(Closer, StrangersPacketHoldsNobodyUp) {
    if (geteuid() != 0)
        GTEST_SKIP() << "becoming another user needs root";
    CapturedTrace trace;
    ASSERT_EQ(chmod(socket.c_str(), 0666), 0);
    ASSERT_EQ(chmod(scratch.path(".").c_str(), 0755), 0);
    Lingering one;
    ASSERT_TRUE(holds_in_child([&] {
        const bool other = become_stranger();
        RawPeer raw(socket);
        return other && raw.send(call_with_descriptor("note"), {one.fd});
    }));
    one.forget();
    EXPECT_LT(time_of_settling(), kNoWait);
    EXPECT_THAT(trace.text(), HasSubstr("its user may not connect"));
    wait_for_closings();
}

// Holds the lock of a socket until it is killed, but not for long: it sends from a page that nobody ever fills, as one of
// a file whose file system does not answer is. 0: it may not.
pid_t socket_occupy(int fd) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(kLinger);
        const int faults = static_cast<int>(syscall(SYS_userfaultfd, 0));
        void *page = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        uffdio_api api = {};
        api.api = UFFD_API;
        uffdio_register range = {};
        range.range = {reinterpret_cast<uintptr_t>(page), 4096};
        range.mode = UFFDIO_REGISTER_MODE_MISSING;
        if (faults >= 0 && ioctl(faults, UFFDIO_API, &api) == 0 && ioctl(faults, UFFDIO_REGISTER, &range) == 0)
            ::send(fd, page, 1, MSG_MORE);
        _exit(0);
    }
    if (comes_to_sleep(child))
        return child;
    waitpid(child, nullptr, 0);
    return 0;
}

TEST_F(Closer, SocketThatIsInUseElsewhereHoldsNobodyUp) {
    const struct {
        const char *what;
        int type;
        int seconds; // that it lingers
    } rows[] = {{"UDP", SOCK_DGRAM, 0}, {"TCP", SOCK_STREAM, 0}, {"TCP that lingers", SOCK_STREAM, kLinger}};
    for (const auto &row : rows) {
        const int near = ::socket(AF_INET, row.type | SOCK_CLOEXEC, 0);
        const int far = ::socket(AF_INET, row.type | SOCK_CLOEXEC, 0);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        ASSERT_EQ(bind(far, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        listen(far, 1);
        getsockname(far, reinterpret_cast<sockaddr *>(&address), &length);
        ASSERT_EQ(connect(near, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        const linger on = {row.seconds > 0, row.seconds};
        setsockopt(near, SOL_SOCKET, SO_LINGER, &on, sizeof on);
        const pid_t child = socket_occupy(near);
        if (child == 0) {
            close(near);
            close(far);
            GTEST_SKIP() << "holding a socket's lock needs root and userfaultfd(2)";
        }
        RawPeer raw(socket);
        greet(raw);
        // The second one, too, while the first one's lock is waited for.
        ASSERT_TRUE(raw.send(call_with_descriptor("note"), {near}));
        ASSERT_TRUE(raw.send(call_with_descriptor("note"), {near}));
        close(near);
        EXPECT_LT(time_of_settling(), kNoWait) << row.what;
        EXPECT_THAT(served::log, ElementsAre("note nothing", "note nothing"));
        served::log.clear();
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        close(far);
    }
    wait_for_closings();
    RawPeer raw(socket);
    greet(raw);
    EXPECT_TRUE(lingering_socket_is_handed_on_at_last(raw, bus)) << "it is waited for again";
}

// Whoever fills a pipe from a socket in which nothing comes holds its lock, for which the last close of an end waits.
TEST_F(Closer, PipeWhoseOtherEndIsBusyHoldsNobodyUp) {
    RawPeer raw(socket);
    greet(raw);
    int ends[2];
    int silent[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, silent), 0);
    const pid_t child = fork();
    if (child == 0) {
        alarm(kLinger);
        close(ends[0]);
        splice(silent[0], nullptr, ends[1], nullptr, 1, 0);
        _exit(0);
    }
    close(ends[1]);
    ASSERT_TRUE(comes_to_sleep(child));
    ASSERT_TRUE(raw.send(call_with_descriptor("note"), {ends[0]}));
    close(ends[0]);
    EXPECT_LT(time_of_settling(), kNoWait);
    EXPECT_THAT(served::log, ElementsAre("note nothing"));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    for (int fd : silent)
        close(fd);
}

// Nobody can look into a socket that may still be in use elsewhere.
TEST_F(Closer, SocketWithALingeringOneInItsQueueIsClosedBesideTheLoop) {
    RawPeer raw(socket);
    greet(raw);
    Lingering one;
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair), 0);
    {
        RawPeer sender(pair[0]);
        ASSERT_TRUE(sender.send("x", {one.fd}));
    }
    one.forget();
    ASSERT_TRUE(raw.send(call_with_descriptor("note"), {pair[1]}));
    close(pair[1]);
    auto begin = std::chrono::steady_clock::now();
    EXPECT_LT(time_of_settling(), kNoWait);
    EXPECT_EQ(bus::closings_pending(), 1u);
    // Another one does not wait for the first.
    Lingering second;
    ASSERT_TRUE(raw.send(call_with_descriptor("note"), {second.fd}));
    second.forget();
    EXPECT_LT(time_of_settling(), kNoWait);
    while (bus::closings_pending() > 1)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(kLinger));
    EXPECT_EQ(served::log.size(), 2u);
}

// What finds no place in a full table is closed by the kernel, in whoever reads.
TEST_F(Closer, DescriptorsThatDoNotFitAreClosedWithoutWaiting) {
    CapturedTrace trace;
    RawPeer raw(socket);
    greet(raw);
    const size_t size = open_descriptors() + 20;
    show_table(raw, size);
    Lingering one;
    std::vector<int> fds(64, STDIN_FILENO);
    fds.back() = one.fd;
    ASSERT_TRUE(raw.send("?", fds));
    one.forget();
    std::chrono::steady_clock::duration took;
    {
        const TableSize table(size);
        took = time_of_settling();
    }
    // Checked only now: the sanitizers' own checks need descriptors too.
    EXPECT_LT(took, kNoWait);
    EXPECT_EQ(raw.refusal(), "descriptors were lost: this process has no more");
}

// A low number that is free says nothing of those above it.
TEST_F(Closer, DescriptorsThatDoNotFitBesideThoseWithHighNumbersAreClosedWithoutWaiting) {
    constexpr size_t kMost = 253; // that the kernel takes in one packet
    CapturedTrace trace;
    RawPeer raw(socket);
    greet(raw);
    Stuck stuck = all_closers_stuck();
    std::vector<int> low;
    for (int i = 0; i < 60; i++)
        low.push_back(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0));
    for (size_t i = 0; i < 2 * kMost; i++)
        closing_add();
    for (int fd : low)
        close(fd);
    const size_t size = open_descriptors() + kMost - 60;
    show_table(raw, size);
    Lingering one;
    std::vector<int> fds(kMost, STDIN_FILENO);
    fds.back() = one.fd;
    ASSERT_TRUE(raw.send("?", fds));
    one.forget();
    std::chrono::steady_clock::duration took;
    {
        const TableSize table(size);
        took = time_of_settling();
    }
    EXPECT_LT(took, kNoWait);
    EXPECT_EQ(raw.refusal(), "descriptors were lost: this process has no more");
    stuck.clear(); // resets them
    wait_for_closings();
}

TEST_F(Closer, BatchDoesNotBringMoreDescriptorsThanFit) {
    constexpr size_t kMost = 253; // that the kernel takes in one packet
    CapturedTrace trace;
    RawPeer raw(socket);
    greet(raw);
    Lingering one;
    show_table(raw, 1000);
    // With the hello an even number has been read singly: the next ones come in batches of 1, 2, 4, 8 and 8.
    for (int i = 0; i < 23; i++)
        ASSERT_TRUE(raw.send(Packet(kWaiting, 1)));
    std::vector<int> fds(kMost, STDIN_FILENO);
    for (int i = 0; i < 7; i++)
        ASSERT_TRUE(raw.send("?", fds));
    fds.back() = one.fd;
    ASSERT_TRUE(raw.send("?", fds));
    one.forget();
    std::chrono::steady_clock::duration took;
    {
        const TableSize table(1000);
        took = time_of_settling();
    }
    EXPECT_LT(took, kNoWait);
    EXPECT_EQ(raw.refusal(), "the packet is cut off");
}

// Calls hold more than the limit lets in; their descriptors come back when the calls have run.
TEST_F(Closer, WhatCallsGiveBackBeyondTheLimitIsClosedBesideTheLoopToo) {
    Stuck stuck = all_closers_stuck();
    for (uint32_t i = 0; i < 2 * bus::kMaxClosings; i++)
        closing_add();
    stuck.push_back(std::make_unique<Lingering>());
    auto begin = std::chrono::steady_clock::now();
    bus::foreign_descriptor_close(lingering_pair(*stuck.back()));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, kNoWait);
    stuck.clear(); // resets them
    wait_for_closings();
}

// Far more than calls can hold. What does not fit is late rather than lost.
TEST_F(Closer, SixtyFiveThousandWaitAndTheNextOneIsClosedHere) {
    constexpr uint32_t kRing = 64 * 1024;
    Stuck stuck; // as many as there are threads
    for (uint32_t i = 0; i < bus::kMaxClosers; i++) {
        stuck.push_back(std::make_unique<Lingering>(60));
        const int slow = lingering_pair(*stuck.back());
        bus::foreign_descriptor_close(slow);
        while (fcntl(slow, F_GETFD) != -1)
            usleep(1000); // until a thread is at it
    }
    const int any = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    // One that nobody gets again stands for as many.
    const int high = fcntl(any, F_DUPFD_CLOEXEC, 900);
    for (uint32_t i = 0; i < kRing; i++)
        bus::foreign_descriptor_close(high);
    EXPECT_NE(fcntl(high, F_GETFD), -1) << "it waits";
    const int next = fcntl(any, F_DUPFD_CLOEXEC, 0);
    bus::foreign_descriptor_close(next);
    EXPECT_EQ(fcntl(next, F_GETFD), -1);
    close(any);
    stuck.clear(); // resets them
    wait_for_closings();
}

TEST_F(Closer, WithoutThreadsPacketsAreStillTakenOutFirst) {
    Lingering one;
    const int fd = lingering_pair(one);
    threads_forbidden = true;
    auto begin = std::chrono::steady_clock::now();
    bus::connected_socket_close(fd);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, kNoWait);
    threads_forbidden = false;
    wait_for_closings(); // a thread of the test before may be at its end still, and take it
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

TEST_F(Closer, WhatSurelyClosesAtOnceIsClosedHere) {
    int files[] = {open("/dev/null", O_RDONLY | O_CLOEXEC), ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    for (int fd : files) {
        bus::foreign_descriptor_close(fd);
        EXPECT_EQ(bus::closings_pending(), 0u);
        EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    }
}

// Below 0: this kernel has no such socket.
int socket_of_group_4() {
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ip_mreqn request = {};
    request.imr_multiaddr.s_addr = htonl(0xEF010203); // 239.1.2.3
    request.imr_ifindex = static_cast<int>(if_nametoindex("lo"));
    EXPECT_EQ(setsockopt(fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &request, sizeof request), 0);
    return fd;
}

int socket_of_group_6() {
    const int fd = ::socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ipv6_mreq request = {};
    inet_pton(AF_INET6, "ff15::1:2:3", &request.ipv6mr_multiaddr);
    request.ipv6mr_interface = if_nametoindex("lo");
    if (setsockopt(fd, IPPROTO_IPV6, IPV6_JOIN_GROUP, &request, sizeof request) == 0)
        return fd;
    close(fd);
    return -1;
}

// A kernel before 4.12 does not, and an emulator tells of one figure only.
bool settings_are_told() {
    uint32_t figures[9];
    socklen_t length = sizeof figures;
    const int any = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool told = getsockopt(any, SOL_SOCKET, SO_MEMINFO, figures, &length) == 0 && length == sizeof figures;
    close(any);
    return told;
}

// With the last close it leaves its groups one after the other: 64 sockets with 20 of IPv4 each took 26 to 160 ms, and one
// with 2,340 of IPv6 0.28 s.
TEST_F(Closer, SocketOfAGroupIsClosedBesideTheLoop) {
    if (!settings_are_told())
        GTEST_SKIP() << "nobody tells what is set of a socket";
    for (const int fd : {socket_of_group_4(), socket_of_group_6()}) {
        if (fd < 0)
            continue;
        EXPECT_FALSE(bus::descriptor_closes_at_once(fd));
        bus::foreign_descriptor_close(fd);
        wait_for_closings();
        EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    }
}

TEST_F(Closer, SocketOfIPv6WithoutGroupsIsClosedHere) {
    const int fd = settings_are_told() ? ::socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0) : -1;
    if (fd < 0)
        GTEST_SKIP() << "no IPv6 here, or nobody tells what is set of a socket";
    bus::foreign_descriptor_close(fd);
    EXPECT_EQ(bus::closings_pending(), 0u);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

// With its last close a serial line waits until it has sent what is in it.
TEST_F(Closer, TerminalIsClosedBesideTheLoop) {
    const int fd = open("/dev/ptmx", O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (fd < 0)
        GTEST_SKIP() << "there is no /dev/ptmx";
    EXPECT_FALSE(bus::descriptor_closes_at_once(fd));
    bus::foreign_descriptor_close(fd);
    wait_for_closings();
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

// With its last close a file without a name goes: to give back the memory of a large one takes tens of milliseconds, and a
// disk waits for what others write to it: 64 of a byte each took 0.3 s beside two processes that wrote and synchronised. With
// the last file of a file system in memory that nobody has mounted any more all others in it go: 300,000 took 1.8 s.
TEST_F(Closer, FileIsClosedBesideTheLoopHoweverSmall) {
    const std::string path = scratch.path("small");
    const int files[] = {memfd_create("memory", MFD_CLOEXEC),
                         open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600)};
    unlink(path.c_str());
    for (int fd : files) {
        EXPECT_FALSE(bus::descriptor_closes_at_once(fd));
        bus::foreign_descriptor_close(fd);
    }
    wait_for_closings();
    for (int fd : files)
        EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

TEST_F(Closer, RestIsClosedToo) {
    std::vector<int> fds;
    for (uint32_t i = 0; i < 2 * bus::kMaxClosings; i++)
        fds.push_back(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    for (int fd : fds)
        bus::foreign_descriptor_close(fd);
    wait_for_closings();
    for (int fd : fds)
        EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

TEST_F(Closer, ForkedChildClosesByItself) {
    // Something is under way in the parent; the child has no thread of it.
    Lingering one;
    const int slow = lingering_pair(one);
    bus::foreign_descriptor_close(slow);
    while (fcntl(slow, F_GETFD) != -1) // the sanitizer bears no fork while a thread begins
        usleep(1000);
    EXPECT_TRUE(holds_in_child([] {
        int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        bus::foreign_descriptor_close(fd);
        for (int i = 0; i < 2000 && fcntl(fd, F_GETFD) != -1; i++)
            usleep(1000);
        return fcntl(fd, F_GETFD) == -1;
    }));
}

TEST_F(Closer, ForkedChildDoesNotWaitForTheParentsThreads) {
    Stuck stuck = all_closers_stuck();
    for (uint32_t i = 0; i < bus::kMaxClosings; i++)
        closing_add();
    EXPECT_TRUE(holds_in_child([] {
        for (int i = 0; i < 2000 && bus::closings_pending() > bus::kMaxClosers; i++)
            usleep(1000);
        return bus::closings_pending() <= bus::kMaxClosers;
    })) << "else it takes nobody in";
    stuck.clear(); // resets them
    wait_for_closings();
}

TEST_F(Closer, ItsThreadsTakeNoSignal) {
    auto one = std::make_unique<Lingering>();
    const int slow = lingering_pair(*one);
    static std::thread::id handled_by;
    handled_by = {};
    auto before = signal(SIGUSR1, [](int) { handled_by = std::this_thread::get_id(); });
    sigset_t blocked, saved;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    bus::foreign_descriptor_close(slow);
    pthread_sigmask(SIG_BLOCK, &blocked, &saved);
    EXPECT_EQ(bus::closings_pending(), 1u) << "there is another thread";
    kill(getpid(), SIGUSR1); // goes to any thread that does not block it
    one.reset();             // resets the socket: nothing lingers any more
    wait_for_closings();     // a thread that took the signal has run its handler before it goes on
    EXPECT_EQ(handled_by, std::thread::id()) << "no other thread may take it";
    pthread_sigmask(SIG_SETMASK, &saved, nullptr);
    EXPECT_EQ(handled_by, std::this_thread::get_id());
    signal(SIGUSR1, before);
}

// A folder is nothing that a call could need, and its file system may be slow; one of the kernel's own files is on no disk.
TEST_F(Closer, WhatMayBeSlowIsClosedToo) {
    for (const char *path : {"/", "/proc/self/status"}) {
        const int fd = open(path, O_RDONLY | O_CLOEXEC);
        ASSERT_GE(fd, 0);
        bus::foreign_descriptor_close(fd);
        for (int i = 0; i < 5000 && fcntl(fd, F_GETFD) != -1; i++)
            usleep(1000);
        EXPECT_EQ(fcntl(fd, F_GETFD), -1) << path;
    }
    for (int i = 0; i < 5000 && bus::closings_pending() > 0; i++)
        usleep(1000);
}

TEST_F(Closer, WhatIsNoDescriptorAnyMoreIsNotClosedBesideTheLoop) {
    const int fd = open("/", O_RDONLY | O_CLOEXEC);
    close(fd);
    bus::foreign_descriptor_close(fd);
    EXPECT_EQ(bus::closings_pending(), 0u);
}

// Numbers in a row are closed by one system call: nothing beside them is, and what may be slow is not among them.
TEST_F(Closer, OfARowOnlyWhatIsGivenIsClosed) {
    constexpr int kRow = 100; // numbers that nothing else has here
    constexpr int kCount = 9;
    const int null_device = open("/dev/null", O_RDWR | O_CLOEXEC);
    const auto fill = [&] {
        for (int i = 0; i < kCount; i++)
            EXPECT_EQ(dup2(null_device, kRow + i), kRow + i);
    };
    const auto open_ones = [] {
        std::vector<int> all;
        for (int i = 0; i < kCount; i++) {
            if (fcntl(kRow + i, F_GETFD) != -1)
                all.push_back(i);
        }
        return all;
    };
    fill();
    const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(dup2(socket, kRow + 3), kRow + 3); // of another kind
    const int row[] = {kRow + 1, kRow + 2, kRow + 3, kRow + 4};
    bus::foreign_descriptors_close(row, 4);
    EXPECT_THAT(open_ones(), ElementsAre(0, 5, 6, 7, 8));

    fill();
    const int gaps[] = {-1, kRow + 7, kRow + 6, kRow + 2, -1, kRow + 3};
    bus::foreign_descriptors_close(gaps, 6);
    EXPECT_THAT(open_ones(), ElementsAre(0, 1, 4, 5, 8));

    fill();
    Lingering slow;
    const int pair = lingering_pair(slow);
    EXPECT_EQ(dup2(pair, kRow + 2), kRow + 2);
    close(pair);
    const auto begin = std::chrono::steady_clock::now();
    const int slow_one_inside[] = {kRow + 1, kRow + 2, kRow + 3};
    bus::foreign_descriptors_close(slow_one_inside, 3);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, kNoWait);
    EXPECT_EQ(fcntl(kRow + 1, F_GETFD), -1);
    EXPECT_EQ(fcntl(kRow + 3, F_GETFD), -1);
    for (int i = 0; i < 10000 && bus::closings_pending() > 0; i++)
        usleep(1000);
    EXPECT_THAT(open_ones(), ElementsAre(0, 4, 5, 6, 7, 8));
    for (int i = 0; i < kCount; i++)
        close(kRow + i);
    close(null_device);
    close(socket);
}

} // namespace
