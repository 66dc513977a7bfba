// SPDX-License-Identifier: MIT
// A bus that has connected to a listener which sends it any packets, with any descriptors, while it asks and waits.
#include "packets.h"
#include "raw_listener.h"
#include "require.h"

#include <memory>
#include <sys/socket.h>

using fuzz::Input;
using fuzz::require;
using support::RawPeer;

namespace {

class Session {
public:
    Session() : bus_(kex_create("fuzzed")) {
        require(bus_ != nullptr, "a bus is made");
        fuzz::functions_declare(bus_);
    }
    ~Session() {
        far_.reset();
        kex_destroy(bus_);
    }
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    void step(Input &in) {
        if (!peer_)
            return connect(in);
        const uint32_t what = in.below(16);
        if (what < 6)
            return packet_send(in);
        if (what < 8)
            return fuzz::request_send(in, bus_, peer_);
        if (what == 8)
            return fuzz::request_wait(in, bus_, peer_);
        if (what == 9)
            return packets_receive();
        if (what == 10)
            far_.reset();
        else if (what == 11 && far_)
            shutdown(far_->fd(), in.flag() ? SHUT_WR : SHUT_RDWR);
        else
            kex_dispatch(bus_);
    }

private:
    static int peer_closed(peer_t *peer, int event, void *userdata) {
        require(event == PEER_EVENT_CLOSED, "a peer closes");
        auto *session = static_cast<Session *>(userdata);
        require(session->peer_ == peer, "the peer that closes is the one that was connected");
        session->peer_ = nullptr;
        session->far_.reset();
        return 1;
    }

    void connect(Input &in) {
        peer_ = kex_client_connect(bus_, fuzz::socket_uri().c_str());
        require(peer_ != nullptr, "the bus connects");
        require(peer_setEventHandler(peer_, PEER_EVENT_CLOSED, this, peer_closed) != 0, "a peer can be watched");
        far_ = listener_.accept();
        require(far_ != nullptr, "the listener accepts");
        serials_.clear();
        if (in.below(4) < 3)
            far_->send(support::hello("listener"));
    }

    void packet_send(Input &in) {
        packets_receive(); // replies need the serials of what was asked
        const fuzz::GeneratedPacket packet = fuzz::packet(in, serials_);
        if (far_)
            far_->send(packet.bytes, packet.descriptors);
    }

    void packets_receive() {
        if (far_)
            fuzz::messages_take(*far_, serials_);
    }

    fuzz::RawListener listener_;
    kex_t *bus_;
    peer_t *peer_ = nullptr;
    std::unique_ptr<RawPeer> far_; // the listener's side
    std::vector<uint32_t> serials_;
};

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    fuzz::session_run<Session>(Input(bytes, size));
    return 0;
}
