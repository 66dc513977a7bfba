// SPDX-License-Identifier: MIT
// Descriptors that travel: each pipe is known by its inode, so that both processes can tell which is which.
#include "far.h"
#include "groups.h"
#include "request.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace conformance {

namespace {

constexpr Level kMust = Level::must;
constexpr unsigned kThree = 3;

struct Pipe {
    int read_end, write_end;
};

Pipe pipe_make() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        fail("no pipe can be made");
    return {ends[0], ends[1]};
}

uint32_t inode_of(int fd) {
    struct stat status = {};
    return fd >= 0 && fstat(fd, &status) == 0 ? static_cast<uint32_t>(status.st_ino) : 0;
}

bool is_open(int fd) {
    return fcntl(fd, F_GETFD) >= 0;
}

int open_count() {
    DIR *entries = opendir("/proc/self/fd");
    int count = 0;
    while (entries != nullptr && readdir(entries) != nullptr)
        count++;
    closedir(entries);
    return count;
}

// A request with a pipe's two ends and -1 between them, and their inodes.
request_t *request_of_three(const Pipe &ends) {
    const int fds[kThree] = {ends.read_end, -1, ends.write_end};
    request_t *r = request_make();
    request_add_descriptors(r, "value", fds, kThree);
    request_add_number(r, "other", inode_of(ends.read_end));
    return r;
}

variant_list_t *list_get(argument_list_t *arguments) {
    variant_list_t *list = nullptr;
    expect(lib.argument_getList(arguments, "value", 0, &list) != 0 && list != nullptr, "argument_getList answers no");
    return list;
}

uint32_t inode_expected(argument_list_t *arguments) {
    uint32_t inode = 0;
    expect(lib.argument_getUInt32(arguments, "other", 0, &inode) != 0, "argument_getUInt32 answers no");
    return inode;
}

int order_check(function_call_t *call, argument_list_t *arguments, variant_t *) {
    variant_list_t *list = list_get(arguments);
    expect_number("items", lib.variant_list_size(list), kThree);
    const int first = lib.variant_fd(lib.variant_list_at(list, 0));
    expect(inode_of(first) == inode_expected(arguments), "another descriptor stands first");
    expect_number("type of the second", lib.variant_type(lib.variant_list_at(list, 1)), VARIANT_FD);
    expect_number("the second", lib.variant_fd(lib.variant_list_at(list, 1)), -1);
    const int third = lib.variant_fd(lib.variant_list_at(list, 2));
    expect(third >= 0 && third != first && is_open(third), "the third one is %d", third);
    expect(lib.variant_list_at(list, 3) == nullptr, "there is a fourth");
    lib.variant_list_destroy(list);
    expect(is_open(first) && is_open(third), "those that were read are closed with the list");
    close(first);
    close(third);
    lib.fcall_destroy(call);
    return KEX_FUNCTION_DONE;
}

void serve_order() {
    on_run = order_check;
    far_plain();
}

void order() {
    const Pipe ends = pipe_make();
    peer_t *peer = far_connect();
    request_t *r = request_of_three(ends);
    request_call(peer, r);
    lib.request_destroy(r);
    expect(is_open(ends.read_end) && is_open(ends.write_end), "the sender's own descriptors were closed");
    host_end();
    saw("the sender keeps its own");
}

// Closed, and its number taken by another file, before anything has left.
void duplicated_at_send() {
    const Pipe ends = pipe_make();
    peer_t *peer = far_connect();
    request_t *r = request_of_three(ends);
    request_send(peer, r);
    close(ends.read_end);
    close(ends.write_end);
    const int taken = open("/dev/null", O_RDWR | O_CLOEXEC);
    request_wait(r);
    expect_number("items of the reply", reply_count(lib.request_reply(r)), 0);
    lib.request_destroy(r);
    close(taken);
    host_end();
}

// The write end was sent and closed here: when nobody has it any more, the read end says so.
bool is_hung_up(int read_end, int milliseconds) {
    pollfd ready = {read_end, POLLIN, 0};
    return poll(&ready, 1, milliseconds) == 1 && (ready.revents & POLLHUP) != 0;
}

void expect_hang_up(const Pipe &ends) {
    const int64_t end = now_in_milliseconds() + kPatience;
    close(ends.write_end);
    while (!is_hung_up(ends.read_end, 0)) {
        expect(now_in_milliseconds() < end, "somebody still has the descriptor %d s later", kPatience / 1000);
        turn();
    }
    saw("closed by all");
    close(ends.read_end);
}

void send_and_see_closed() {
    const Pipe ends = pipe_make();
    peer_t *peer = far_connect();
    const int fds[] = {ends.write_end, -1, ends.write_end};
    request_t *r = request_make();
    request_add_descriptors(r, "value", fds, kThree);
    request_call(peer, r);
    lib.request_destroy(r);
    expect_hang_up(ends);
    host_end();
}

int list_unread(function_call_t *call, argument_list_t *arguments, variant_t *) {
    variant_list_t *list = list_get(arguments);
    lib.variant_list_size(list);
    lib.variant_list_destroy(list);
    lib.fcall_destroy(call);
    return KEX_FUNCTION_DONE;
}

void serve_list_unread() {
    on_run = list_unread;
    far_plain();
}

void unsent_see_closed() {
    const Pipe ends = pipe_make();
    host_begin();
    request_t *r = request_make();
    request_add_descriptors(r, "value", &ends.write_end, 1);
    lib.request_destroy(r);
    expect(is_open(ends.write_end), "the caller's descriptor was closed with a request that was never sent");
    expect_hang_up(ends);
    host_end();
}

int second_list(function_call_t *call, argument_list_t *arguments, variant_t *) {
    variant_list_t *first = list_get(arguments);
    variant_list_t *second = list_get(arguments);
    const int fd = lib.variant_fd(lib.variant_list_at(first, 0));
    expect(is_open(fd), "the first list has descriptor %d", fd);
    expect_number("items of the second list", lib.variant_list_size(second), kThree);
    expect_number("its first", lib.variant_fd(lib.variant_list_at(second, 0)), -1);
    lib.variant_list_destroy(second);
    lib.variant_list_destroy(first);
    expect(is_open(fd), "the descriptor that was read is closed with a list");
    close(fd);
    lib.fcall_destroy(call);
    return KEX_FUNCTION_DONE;
}

void serve_second_list() {
    on_run = second_list;
    far_plain();
}

int second_read(function_call_t *call, argument_list_t *arguments, variant_t *) {
    variant_list_t *list = list_get(arguments);
    const int fd = lib.variant_fd(lib.variant_list_at(list, 0));
    expect(lib.variant_fd(lib.variant_list_at(list, 0)) == fd, "a second variant_fd() gives %d, not %d",
           lib.variant_fd(lib.variant_list_at(list, 0)), fd);
    saw("the same number twice");
    lib.variant_list_destroy(list);
    expect(is_open(fd), "the descriptor that was read is closed with its list");
    close(fd);
    lib.fcall_destroy(call);
    return KEX_FUNCTION_DONE;
}

void serve_second_read() {
    on_run = second_read;
    far_plain();
}

void bad() {
    peer_t *peer = far_connect();
    const Pipe ends = pipe_make();
    close(ends.read_end);
    close(ends.write_end);
    request_t *r = request_make();
    request_add_descriptors(r, "value", &ends.read_end, 1);
    lib.request_setDoneHandler(r, [](request_t *) { fail("a handler ran after a no"); });
    expect_number("kex_sendRequest", lib.kex_sendRequest(bus, peer, r), 0);
    lib.request_destroy(r);
    call_and_wait(peer, "again", 1); // the connection lives on
    host_end();
}

// Sixteen at once, many times: neither process may have more of them at the end.
int take_all(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    variant_list_t *list = list_get(arguments);
    for (uint32_t i = 0; i < lib.variant_list_size(list); i += 2)
        close(lib.variant_fd(lib.variant_list_at(list, i)));
    lib.variant_list_destroy(list);
    lib.fcall_destroy(call);
    lib.variant_setUInt32(return_value, static_cast<uint32_t>(open_count()));
    return KEX_FUNCTION_DONE;
}

void serve_many() {
    on_run = take_all;
    far_plain();
}

uint32_t sixteen_send(peer_t *peer, int fd) {
    int fds[16];
    for (int &one : fds)
        one = fd;
    request_t *r = request_make();
    request_add_descriptors(r, "value", fds, 16);
    const uint32_t count = reply_number(request_call(peer, r));
    lib.request_destroy(r);
    return count;
}

void none_is_lost() {
    constexpr uint32_t kSlack =
        16; // those of the call that runs: the bus may close what was not read behind its function
    const Pipe ends = pipe_make();
    peer_t *peer = far_connect();
    const uint32_t there = sixteen_send(peer, ends.read_end);
    const int here = open_count();
    for (unsigned i = 0; i < 40; i++)
        sixteen_send(peer, ends.read_end);
    const uint32_t now = sixteen_send(peer, ends.read_end);
    expect(now <= there + kSlack, "the receiver has %u descriptors, %u before 40 calls", now, there);
    turn_for(20);
    expect(open_count() <= here, "the sender has %d descriptors, %d before 40 calls", open_count(), here);
    saw("40 calls with sixteen descriptors");
    host_end();
}

constexpr char kDuplicated[] = "Descriptors are duplicated here.";
constexpr char kClosed[] = "Descriptors that nobody read are closed with their list, or with their call.";
constexpr char kOwner[] = "Whoever reads a received descriptor owns it from then on and closes it.";

constexpr Check kChecks[] = {
    {"descriptors.order", kMust, "A negative one is a value too.", order, serve_order, 0, false},
    {"descriptors.duplicated_at_send", kMust, kDuplicated, duplicated_at_send, serve_order, 0, false},
    {"descriptors.unread_of_list", kMust, kClosed, send_and_see_closed, serve_list_unread, 0, false},
    {"descriptors.unread_of_call", kMust, kClosed, send_and_see_closed, far_plain, 0, false},
    {"descriptors.unsent", kMust, "Descriptors are borrowed.", unsent_see_closed, nullptr, 0, false},
    {"descriptors.second_list", kMust,
     "A second argument_getList() of the same argument finds -1 in place of each descriptor.", order, serve_second_list,
     0, false},
    {"descriptors.second_read", kMust, "A second variant_fd() tells the same number.", order, serve_second_read, 0,
     false},
    {"descriptors.handed_over", kMust, kOwner, order, serve_order, 0, false},
    {"descriptors.bad", kMust, "or a descriptor that cannot be duplicated", bad, far_plain, 0, false},
    {"descriptors.none_is_lost", kMust, kClosed, none_is_lost, serve_many, 0, false},
};

} // namespace

const Group kDescriptors = group_of(kChecks);

} // namespace conformance
