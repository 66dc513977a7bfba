// SPDX-License-Identifier: MIT
// Descriptors that nobody reads: none is left open. Whoever has the last write end of a pipe is seen at its read end.
#include "far.h"
#include "groups.h"
#include "pipe.h"
#include "request.h"

#include <dirent.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

namespace conformance {

namespace {

constexpr Level kMust = Level::must;

int open_count() {
    DIR *entries = opendir("/proc/self/fd");
    int count = 0;
    while (entries != nullptr && readdir(entries) != nullptr)
        count++;
    closedir(entries);
    return count;
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
    // What media needs; others that close slowly a bus may close a moment later.
    const int media = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    expect(media >= 0, "no socket can be made");
    peer_t *peer = far_connect();
    const uint32_t there = sixteen_send(peer, media);
    const int here = open_count();
    for (unsigned i = 0; i < 40; i++)
        sixteen_send(peer, media);
    const uint32_t now = sixteen_send(peer, media);
    expect(now <= there + kSlack, "the receiver has %u descriptors, %u before 40 calls", now, there);
    turn_for(20);
    expect(open_count() <= here, "the sender has %d descriptors, %d before 40 calls", open_count(), here);
    saw("40 calls with sixteen descriptors");
    host_end();
}

constexpr char kClosed[] = "Descriptors that nobody read are closed with their list, or with their call.";

constexpr Check kChecks[] = {
    {"descriptors.unread_of_list", kMust, kClosed, send_and_see_closed, serve_list_unread, 0, false},
    {"descriptors.unread_of_call", kMust, kClosed, send_and_see_closed, far_plain, 0, false},
    {"descriptors.unsent", kMust, "Descriptors are borrowed.", unsent_see_closed, nullptr, 0, false},
    {"descriptors.none_is_lost", kMust, kClosed, none_is_lost, serve_many, 0, false},
};

} // namespace

const Group kUnread = group_of(kChecks);

} // namespace conformance
