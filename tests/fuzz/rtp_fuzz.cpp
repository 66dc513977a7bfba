// SPDX-License-Identifier: MIT
// RTP and RTCP that come in: any packets, to the readers and through the sockets of a session whose media change
// meanwhile.
#include "audio.h"

#include "input.h"
#include "kex_host.h"
#include "libvoice_plugin.h"
#include "require.h"

#include <algorithm>
#include <memory>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

using fuzz::Input;
using fuzz::require;

namespace {

// In a block of exactly its bytes.
struct Block {
    explicit Block(const std::string &from) : bytes(new uint8_t[from.size()]), size(from.size()) {
        std::copy(from.begin(), from.end(), bytes.get());
    }
    std::unique_ptr<uint8_t[]> bytes;
    size_t size;
};

// A packet whose head is right, or any bytes.
std::string packet(Input &in) {
    const uint8_t how = in.byte();
    if (how >= 128)
        return in.text();
    std::string bytes(12, '\0');
    bytes[0] = static_cast<char>(how < 96 ? 0x80 : 0x80 | in.byte());
    bytes[1] = in.below(4) == 3 ? static_cast<char>(in.byte()) : char{LIBVOICE_CODEC_PCMA};
    for (size_t at = 2; at < bytes.size(); ++at)
        bytes[at] = static_cast<char>(at < 5 || at == 11 ? in.byte() : 0);
    bytes.resize(bytes.size() + in.below(200), '\x55');
    return bytes + in.text();
}

void read_check(const Block &block, rtp_receiver &receiver, uint32_t arrival) {
    rtp_packet read = {};
    if (!rtp_read(block.bytes.get(), block.size, &read))
        return;
    require(block.bytes[0] >> 6 == 2, "RTP is of version 2");
    require(read.payload >= block.bytes.get() + kRtpHeadBytes &&
                read.payload + read.bytes <= block.bytes.get() + block.size,
            "the payload lies in the packet");
    require(read.payload_type < 128, "a payload type has seven bits");
    const rtp_receiver before = receiver;
    if (arrival % 8 == 7) {
        rtp_discard(&receiver, &read);
        require(receiver.packets == before.packets, "a packet that cannot be used is not counted as received");
    } else {
        const bool taken = rtp_receive(&receiver, &read, arrival) != RTP_DOUBTFUL;
        require(receiver.packets == before.packets + taken, "a packet is counted when it is taken");
        require(receiver.bytes == before.bytes + (taken ? read.bytes : 0), "its payload is counted");
        require(receiver.started && (!taken || receiver.ssrc == read.ssrc), "a packet that is taken is of the source");
    }
    require(rtp_jitter(&receiver) <= receiver.jitter_16 / 16, "jitter is a sixteenth of its sum");
    rtp_lost(&receiver);
}

// What a sender writes, its far side reads.
void write_check(Input &in, rtp_receiver &receiver, const rtcp_far_end &far_end) {
    rtp_sender sender;
    rtp_sender_start(&sender);
    const rtp_sender before = sender;
    const std::string payload = in.text();
    uint8_t bytes[kRtpHeadBytes + 200];
    const uint32_t size = rtp_write(&sender, in.byte(), in.word(), reinterpret_cast<const uint8_t *>(payload.data()),
                                    static_cast<uint32_t>(payload.size()), bytes, sizeof bytes);
    require((size != 0) == (payload.size() <= 200), "a packet is written when it fits");
    rtp_packet read = {};
    if (size != 0) {
        require(rtp_read(bytes, size, &read), "what was written is a packet");
        require(read.sequence == before.sequence && read.ssrc == before.ssrc, "a packet is read as it was written");
        require(std::string(reinterpret_cast<const char *>(read.payload), read.bytes) == payload,
                "a payload is read as it was written");
    }
    uint8_t report[256];
    const std::string name(in.byte(), 'n');
    const rtcp_report words = {&sender,   &receiver, &far_end,     in.byte() % 2 != 0,
                               in.word(), in.word(), name.c_str(), in.byte() % 2 != 0};
    const uint32_t length = rtcp_write(&words, report, sizeof report);
    require(length == 0 || (length <= sizeof report && rtcp_is_report(report, length)), "a report is one");
}

// ------------------------------------------------------------------------------------------------ Through the sockets

struct Pair {
    int here, there;
};

Pair udp_pair() {
    int fds[2];
    sockaddr_in address[2] = {};
    for (int i = 0; i < 2; ++i) {
        fds[i] = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        address[i].sin_family = AF_INET;
        address[i].sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address[i];
        require(bind(fds[i], reinterpret_cast<sockaddr *>(&address[i]), size) == 0, "a port is free");
        require(getsockname(fds[i], reinterpret_cast<sockaddr *>(&address[i]), &size) == 0, "a port has a number");
    }
    for (int i = 0; i < 2; ++i)
        require(connect(fds[i], reinterpret_cast<sockaddr *>(&address[1 - i]), sizeof address[i]) == 0, "it connects");
    return {fds[0], fds[1]};
}

void heard(const audio *, const char *) {}

class Session {
public:
    explicit Session(Input &in) : rtp_(udp_pair()), rtcp_(udp_pair()) {
        bus();
        if (!is_taken(audio_open(&sound(), 0, media(in, rtp_.here, rtcp_.here))))
            close(rtp_.here), close(rtcp_.here);
    }
    ~Session() {
        line_statistics_t counts = {};
        if (audio_close(&sound(), 0, &counts))
            require(counts.rx_packets <= sent_ && counts.discarded <= sent_, "no more packets are counted than came");
        close(rtp_.there);
        close(rtcp_.there);
    }
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    void step(Input &in, const std::string &bytes) {
        const uint32_t what = in.below(8);
        sent_ += what < 6;
        send(what < 6 ? rtp_.there : rtcp_.there, bytes.data(), bytes.size(), MSG_DONTWAIT);
        if (what == 5)
            is_taken(audio_change(&sound(), 0, media(in, -1, -1)));
        kex_dispatch(bus());
    }

private:
    static bool is_taken(const char *why) {
        require(why == nullptr || why[0] != '\0', "what is rejected is rejected with a sentence");
        return why == nullptr;
    }
    // Made once: the simulator's clock and its list of sounds live as long as the process.
    static kex_t *bus() {
        static kex_t *const made = [] {
            kex_t *created = kex_create("fuzzed");
            audio_begin(created, "fuzzed");
            audio_start(&sound(), "fuzz", 400, heard);
            return created;
        }();
        return made;
    }
    static audio &sound() {
        static audio one;
        return one;
    }
    static const line_media_t *media(Input &in, int rtp, int rtcp) {
        static constexpr uint32_t kCodecs[] = {LIBVOICE_CODEC_PCMA, LIBVOICE_CODEC_PCMU, LIBVOICE_CODEC_G722,
                                               LIBVOICE_CODEC_G729};
        static line_media_t media;
        media = {};
        media.codec = kCodecs[in.below(std::size(kCodecs))];
        media.payload_type = LIBVOICE_CODEC_PCMA;
        media.ptime_ms = 10 * (1 + in.below(3));
        media.mode = in.below(4);
        media.media = rtp;
        media.control = rtcp;
        return &media;
    }

    Pair rtp_, rtcp_;
    uint32_t sent_ = 0;
};

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    constexpr unsigned kMostPackets = 40;
    Input in(bytes, size);
    rtp_receiver receiver = {};
    rtcp_far_end far_end = {};
    Session session(in);
    for (unsigned i = 0; i < kMostPackets && !in.is_empty(); ++i) {
        const Block block(packet(in));
        read_check(block, receiver, in.half());
        const bool reports = rtcp_is_report(block.bytes.get(), block.size);
        require(rtcp_read(&far_end, receiver.ssrc, in.word(), block.bytes.get(), block.size) == reports,
                "what is a report is read");
        session.step(in, std::string(reinterpret_cast<const char *>(block.bytes.get()), block.size));
    }
    write_check(in, receiver, far_end);
    return 0;
}
