// SPDX-License-Identifier: MIT
// The least that two processes need: a SOCK_SEQPACKET socket and one epoll loop each. As many bytes as the bus's packets carry,
// copied into and out of the payload.
#include <cerrno>
#include <cstring>

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "peer.h"

namespace {

constexpr size_t kCallBytes = 180;
constexpr size_t kReplyBytes = 48;
enum Kind : char { one_way, with_reply, with_descriptors, with_call };

class Raw : public Peer {
public:
    Raw() : Peer("raw socket") {}

    void prepare() override {
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends_) != 0)
            die("socketpair");
    }

    [[noreturn]] void serve() override {
        fd_ = ends_[1];
        loop_open();
        tell_ready();
        for (;;) {
            loop_wait();
            // A loop that drains what there is needs one waking for all of it.
            while (serve_one())
                continue;
        }
    }

    void connect() override {
        fd_ = ends_[0];
        loop_open();
    }

    void round_trips(int count) override { exchange(with_reply, count); }
    void round_trips_with_descriptors(int count) override { exchange(with_descriptors, count); }

    void exchange(Kind kind, int count) {
        for (int i = 0; i < count; ++i) {
            call_send(kind);
            loop_wait();
            char reply[256];
            if (recv(fd_, reply, sizeof reply, 0) <= 0)
                die("raw socket");
        }
    }

    void calls_without_reply(int count) override {
        for (int i = 1; i <= count; ++i)
            call_send(i < count ? one_way : with_reply);
        loop_wait();
        char reply[256];
        if (recv(fd_, reply, sizeof reply, 0) <= 0)
            die("raw socket");
    }

private:
    void loop_open() {
        epoll_event event = {};
        event.events = EPOLLIN;
        loop_ = epoll_create1(EPOLL_CLOEXEC);
        if (loop_ < 0 || epoll_ctl(loop_, EPOLL_CTL_ADD, fd_, &event) != 0)
            die("epoll");
    }

    void loop_wait() {
        epoll_event event;
        while (epoll_wait(loop_, &event, 1, -1) < 0)
            if (errno != EINTR)
                die("epoll_wait");
    }

    void call_send(Kind kind) {
        char call[kCallBytes] = {};
        call[0] = kind;
        std::memcpy(call + 100, event_record, kRecordBytes);
        if (kind != with_descriptors) {
            if (send(fd_, call, sizeof call, 0) < 0)
                die("raw socket");
            return;
        }
        alignas(cmsghdr) char control[CMSG_SPACE(kDescriptors * sizeof(int))] = {};
        iovec part = {call, sizeof call};
        msghdr message = {};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        cmsghdr *rights = CMSG_FIRSTHDR(&message);
        rights->cmsg_level = SOL_SOCKET;
        rights->cmsg_type = SCM_RIGHTS;
        rights->cmsg_len = CMSG_LEN(kDescriptors * sizeof(int));
        const int fds[kDescriptors] = {null_device, null_device, null_device};
        std::memcpy(CMSG_DATA(rights), fds, sizeof fds);
        if (sendmsg(fd_, &message, 0) < 0)
            die("raw socket");
    }

    // Takes one call. No: there is none, or it was answered, and then the caller waits for the answer.
    bool serve_one() {
        char call[512];
        alignas(cmsghdr) char control[CMSG_SPACE(kDescriptors * sizeof(int))];
        iovec part = {call, sizeof call};
        msghdr message = {};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        const ssize_t bytes = recvmsg(fd_, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
        if (bytes < 0 && errno == EAGAIN)
            return false;
        if (bytes <= 0)
            _exit(0);
        if (const cmsghdr *rights = CMSG_FIRSTHDR(&message)) {
            int fds[kDescriptors];
            std::memcpy(fds, CMSG_DATA(rights), sizeof fds);
            for (const int fd : fds)
                close(fd);
        }
        char record[kRecordBytes];
        std::memcpy(record, call + 100, sizeof record);
        if (call[0] == one_way)
            return true;
        char reply[kCallBytes] = {};
        std::memcpy(reply + 40, record, 8);
        if (send(fd_, reply, call[0] == with_call ? kCallBytes : kReplyBytes, 0) < 0)
            _exit(1);
        return false;
    }

    int ends_[2] = {-1, -1};
    int fd_ = -1;
    int loop_ = -1;
};

} // namespace

std::unique_ptr<Peer> raw_peer() {
    return std::make_unique<Raw>();
}

void raw_exchange(Peer &raw, int count) {
    static_cast<Raw &>(raw).exchange(with_call, count);
}
