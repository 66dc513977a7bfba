// SPDX-License-Identifier: MIT
// What voicectl makes of a capture: any file is read, whole or in pieces as a pipe gives them, in either byte order, with the
// same packets, and becomes a ladder and its pictures.
#include "captures.h"
#include "filters.h"
#include "ladder_feed.h"
#include "pictures.h"
#include "require.h"
#include "terminal.h"

#include <sys/socket.h>
#include <tuple>
#include <unistd.h>

using fuzz::Input;
using fuzz::require;
using voicectl::CapturedPacket;
using voicectl::CaptureReader;

// Of the address sanitizer; elsewhere it is not there.
extern "C" __attribute__((weak)) size_t __sanitizer_get_current_allocated_bytes();

namespace {

// All that was read, and how it ended.
struct Read {
    std::vector<std::tuple<uint64_t, std::string, uint32_t, uint32_t, uint16_t, uint16_t, std::string, std::string>>
        packets{};
    std::string fault{};
    uint64_t strange = 0;
    uint16_t strange_link_type = 0;
    bool operator==(const Read &) const = default;
};

Read read_all(int descriptor) {
    CaptureReader reader(descriptor);
    CapturedPacket packet;
    Read read;
    while (reader.next(packet))
        read.packets.emplace_back(packet.time_ns, packet.dissector, packet.source, packet.destination,
                                  packet.source_port, packet.destination_port, packet.bytes, packet.comment);
    read.fault = reader.fault();
    read.strange = reader.strange();
    read.strange_link_type = reader.strange_link_type();
    close(descriptor);
    require(!fuzz::steers_a_terminal(read.fault) && read.fault.find('\n') == std::string::npos,
            "a fault is a printable sentence");
    return read;
}

// Each piece comes by a read of its own.
Read read_pieces(const std::vector<std::string> &pieces) {
    int ends[2];
    require(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) == 0, "there is a socket");
    constexpr size_t kMost = 32 * 1024; // of one read
    for (const std::string &piece : pieces)
        for (size_t at = 0; at < piece.size(); at += kMost) {
            const size_t size = std::min(kMost, piece.size() - at);
            require(send(ends[1], piece.data() + at, size, MSG_DONTWAIT) == static_cast<ssize_t>(size),
                    "a socket holds a capture");
        }
    close(ends[1]);
    return read_all(ends[0]);
}

size_t allocated() {
    return __sanitizer_get_current_allocated_bytes == nullptr ? 0 : __sanitizer_get_current_allocated_bytes();
}

void ladder(const std::string &file, const voicectl::Filter &filter, size_t most_rows) {
    // A value of a list takes a byte of a message, and 112 as it is kept.
    constexpr size_t kBytesEach = 400, kBytes = 100'000;
    const size_t before = allocated();
    voicectl::LadderFeed feed(filter, {.rows = most_rows});
    const int descriptor = fuzz::file_of(file);
    CaptureReader reader(descriptor);
    CapturedPacket packet;
    while (reader.next(packet))
        feed.take(packet);
    close(descriptor);
    require(feed.shown() <= feed.taken(), "what is shown has come");
    const voicectl::LadderModel ladder = feed.finish("a <b> & \"c\"");
    require(allocated() <= before + kBytes + kBytesEach * file.size(), "a ladder takes so much of a file's size");
    fuzz::ladder_check(ladder);
    fuzz::pictures_check(ladder);
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    Input in(bytes, size);
    const uint8_t how = in.byte();
    const voicectl::Filter filter = (how & 1) != 0 ? fuzz::filter(in) : voicectl::Filter{};
    const size_t most_rows = (how & 2) != 0 ? in.byte() : voicectl::kMostLadderRows;
    Input cuts = in;
    std::string file;
    if ((how & 4) != 0) {
        Input again = in;
        const fuzz::Capture other = fuzz::capture(again, (how & 8) == 0);
        file = fuzz::capture(in, (how & 8) != 0).bytes;
        require(other.has_any_bytes || read_all(fuzz::file_of(file)) == read_all(fuzz::file_of(other.bytes)),
                "either order says the same");
    } else {
        file = in.rest();
    }
    const Read whole = read_all(fuzz::file_of(file));
    require(read_pieces(fuzz::pieces(cuts, file)) == whole, "pieces say the same as the whole");
    ladder(file, filter, most_rows);
    return 0;
}
