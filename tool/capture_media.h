// SPDX-License-Identifier: MIT
// The sound of calls for a capture: RTP and RTCP as they pass on the machine's network.
#ifndef VOICECTL_CAPTURE_MEDIA_H
#define VOICECTL_CAPTURE_MEDIA_H

#include <cstdint>
#include <string>

#include "capture_file.h"
#include "packet_socket.h"

namespace voicectl {

class CaptureMedia {
public:
    // Looks at packets of these ports from here on. A sentence why it cannot; empty: it does.
    std::string begin(PortRange ports);
    int descriptor() const { return socket_.descriptor(); }
    uint64_t kept() const { return kept_; }
    uint64_t lost() const { return lost_; }

    // The block of its interface, for the head of the file; empty: it has none.
    std::string head(uint32_t interface);
    // Keeps all packets that are there now.
    void keep(CaptureFile &file, RunLimit &limit);
    // The block of its sums; empty likewise.
    std::string sums(uint64_t time_ns);

private:
    void lost_count();

    PacketSocket socket_;
    PortRange ports_;
    uint32_t interface_ = 0;
    uint64_t kept_ = 0;
    uint64_t lost_ = 0;
    uint64_t lost_before_ = 0; // the next packet
};

} // namespace voicectl

#endif
