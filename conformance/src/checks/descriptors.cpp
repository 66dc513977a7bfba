// SPDX-License-Identifier: MIT
// Descriptors that travel: each pipe is known by its inode, so that both processes can tell which is which.
#include "far.h"
#include "groups.h"
#include "pipe.h"
#include "request.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace conformance {

namespace {

constexpr Level kMust = Level::must;

uint32_t inode_of(int fd) {
    struct stat status = {};
    return fd >= 0 && fstat(fd, &status) == 0 ? static_cast<uint32_t>(status.st_ino) : 0;
}

// A request with a pipe's two ends and -1 between them, and their inodes.
request_t *request_of_three(const Pipe &ends) {
    const int fds[kThree] = {ends.read_end, -1, ends.write_end};
    request_t *r = request_make();
    request_add_descriptors(r, "value", fds, kThree);
    request_add_number(r, "other", inode_of(ends.read_end));
    return r;
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
    close(first);
    close(third);
    lib.fcall_destroy(call);
    return KEX_FUNCTION_DONE;
}

int kept_check(function_call_t *call, argument_list_t *arguments, variant_t *) {
    variant_list_t *list = list_get(arguments);
    const int fd = lib.variant_fd(lib.variant_list_at(list, 0));
    lib.variant_list_destroy(list);
    expect(is_open(fd), "the descriptor that was read is closed with its list");
    lib.fcall_destroy(call);
    expect(is_open(fd), "the descriptor that was read is closed by fcall_destroy()");
    close(fd);
    saw("open behind its list and its call");
    return KEX_FUNCTION_DONE;
}

void serve_kept() {
    on_run = kept_check;
    far_plain();
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

int second_list(function_call_t *call, argument_list_t *arguments, variant_t *) {
    variant_list_t *first = list_get(arguments);
    variant_list_t *second = list_get(arguments);
    const int fd = lib.variant_fd(lib.variant_list_at(first, 0));
    expect(is_open(fd), "the first list has descriptor %d", fd);
    expect_number("items of the second list", lib.variant_list_size(second), kThree);
    expect_number("its first", lib.variant_fd(lib.variant_list_at(second, 0)), -1);
    lib.variant_list_destroy(second);
    lib.variant_list_destroy(first);
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

constexpr char kDuplicated[] = "Descriptors are duplicated here.";
constexpr char kOwner[] = "Whoever reads a received descriptor owns it from then on and closes it.";

constexpr Check kChecks[] = {
    {"descriptors.order", kMust, "A negative one is a value too.", order, serve_order, 0, false},
    {"descriptors.duplicated_at_send", kMust, kDuplicated, duplicated_at_send, serve_order, 0, false},
    {"descriptors.second_list", kMust,
     "A second argument_getList() of the same argument finds -1 in place of each descriptor.", order, serve_second_list,
     0, false},
    {"descriptors.second_read", kMust, "A second variant_fd() tells the same number.", order, serve_second_read, 0,
     false},
    {"descriptors.handed_over", kMust, kOwner, order, serve_kept, 0, false},
    {"descriptors.bad", kMust, "or a descriptor that cannot be duplicated", bad, far_plain, 0, false},
};

} // namespace

const Group kDescriptors = group_of(kChecks);

} // namespace conformance
