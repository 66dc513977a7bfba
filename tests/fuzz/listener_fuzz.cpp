// SPDX-License-Identifier: MIT
// A listening bus and peers that send it any packets, with any descriptors, in any order: nobody who behaves may
// notice.
#include "packets.h"
#include "require.h"

#include <chrono>
#include <memory>
#include <sys/socket.h>

using fuzz::Input;
using fuzz::require;
using support::Packet;
using support::RawKind;
using support::RawPeer;

namespace {

constexpr uint32_t kPeers = 6;

class Session {
public:
    Session() : bus_(kex_create("fuzzed")) {
        require(bus_ != nullptr, "a bus is made");
        fuzz::functions_declare(bus_);
        require(connection_listenOnIPC(kex_connection(bus_), fuzz::socket_path().c_str()) != nullptr,
                "the bus listens");
        kex_onCall(bus_, may_call, this);
        kex_onPeerClosed(bus_, peer_closed, this);
    }
    ~Session() {
        for (std::unique_ptr<RawPeer> &peer : peers_)
            peer.reset();
        kex_destroy(bus_);
    }
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    void step(Input &in) {
        const uint32_t what = in.below(16);
        std::unique_ptr<RawPeer> &peer = peers_[in.below(kPeers)];
        if (what == 8)
            return request(in);
        if (what >= 9 && what < 13)
            return turn(in);
        if (!peer)
            return connect(in, peer);
        if (what < 8)
            return packet_send(in, *peer);
        if (what == 13)
            return peer->close(), peer.reset();
        if (what == 14)
            shutdown(peer->fd(), in.flag() ? SHUT_WR : SHUT_RDWR);
        else
            fuzz::messages_take(*peer, serials_);
    }

    // Someone who connects now is served, whatever the others did: at once, or when it has waited for descriptors of those who
    // have left to be closed (1 s at most).
    void newcomer_check() {
        for (std::unique_ptr<RawPeer> &peer : peers_)
            peer.reset();
        fuzz::bus_settle(bus_);
        RawPeer good(fuzz::socket_path());
        require(good.connected() && good.send(support::hello("good")), "a newcomer connects");
        require(good.send(Packet(RawKind::kCall, 5).text("Probe").text("take").byte(1).text("text").byte(0).text("x")),
                "a newcomer calls");
        std::vector<std::string> packets;
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
        while (packets.size() < 2 && std::chrono::steady_clock::now() < end) {
            fuzz::bus_settle(bus_);
            for (std::string &packet : good.receive_all())
                packets.push_back(std::move(packet));
        }
        require(packets.size() == 2, "a newcomer gets a hello and its reply");
        require(packets[1] == Packet(RawKind::kReply, 5).byte(0).byte(1).byte(0).text("x").bytes(),
                "a newcomer gets its own answer");
    }

private:
    static int may_call(kex_t *bus, void *userdata) {
        kex_call_t call = {};
        require(kex_currentCall(bus, &call) != 0 && call.peer != nullptr, "a call that runs is told");
        static_cast<Session *>(userdata)->last_ = call.peer;
        kex_text_t text = {};
        if (kex_currentText(bus, "text", &text))
            require(text.length == 0 || text.bytes != nullptr, "a text of a call is there");
        return 1;
    }
    static void peer_closed(kex_t *, peer_t *peer, void *userdata) {
        auto *session = static_cast<Session *>(userdata);
        require(peer_disconnect(peer) == 0, "a closed peer cannot be closed again");
        if (session->last_ == peer)
            session->last_ = nullptr;
    }

    void connect(Input &in, std::unique_ptr<RawPeer> &peer) {
        peer = std::make_unique<RawPeer>(fuzz::socket_path());
        if (!peer->connected())
            return peer.reset();
        const uint32_t greeting = in.below(4);
        if (greeting < 2)
            peer->send(support::hello("peer"));
        else if (greeting == 2)
            peer->send(Packet(RawKind::kTapHello).text("tap"));
    }

    void packet_send(Input &in, RawPeer &peer) {
        const fuzz::GeneratedPacket packet = fuzz::packet(in, serials_);
        peer.send(packet.bytes, packet.descriptors);
    }

    void request(Input &in) {
        if (in.below(8) == 7)
            fuzz::request_wait(in, bus_, last_);
        else
            fuzz::request_send(in, bus_, last_);
    }

    void turn(Input &in) {
        for (uint32_t left = 1 + in.below(3); left > 0; --left)
            kex_dispatch(bus_);
    }

    kex_t *bus_;
    std::unique_ptr<RawPeer> peers_[kPeers];
    std::vector<uint32_t> serials_; // of the bus's own calls
    peer_t *last_ = nullptr;        // who called last
};

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    fuzz::session_run(Input(bytes, size), &Session::newcomer_check);
    return 0;
}
