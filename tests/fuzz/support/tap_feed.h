// SPDX-License-Identifier: MIT
// A listener that sends a tap client any tap records.
#ifndef FUZZ_TAP_FEED_H
#define FUZZ_TAP_FEED_H

#include "kex_tap.h"
#include "raw_listener.h"

namespace fuzz {

class TapFeed {
public:
    TapFeed() : tap_(kex_tap_open(socket_uri().c_str(), nullptr, 0)), far_(listener_.accept()) {
        require(tap_ != nullptr && far_ != nullptr, "a tap connects");
        require(!far_->receive_all().empty(), "a tap says hello");
    }
    ~TapFeed() { kex_tap_close(tap_); }
    TapFeed(const TapFeed &) = delete;
    TapFeed &operator=(const TapFeed &) = delete;

    // A tap record as it should be, some of them in one packet, any packet, or the end.
    void send(Input &in) {
        const uint8_t how = in.byte();
        if (how == 255)
            far_->close();
        GeneratedPacket made = how < 192 ? packet_of_kind(in, support::kTapRecord, in.byte()) : packet(in, {});
        if (how >= 128 && how < 192)
            made.bytes += packet_of_kind(in, support::kTapRecord, in.byte()).bytes;
        far_->send(made.bytes, made.descriptors);
    }
    int next(kex_tap_record_t &record) { return kex_tap_next(tap_, &record); }

private:
    RawListener listener_;
    kex_tap_t *tap_;
    std::unique_ptr<support::RawPeer> far_;
};

} // namespace fuzz

#endif
