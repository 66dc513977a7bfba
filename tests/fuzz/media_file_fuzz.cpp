// SPDX-License-Identifier: MIT
// Files of sound that hosts write, as voicectl follows them: one that grows by pieces says what the whole one says, what is
// kept of it can be read, and one that is cut, replaced or begun anew does no harm.
#include "capture_from.h"
#include "capture_reader.h"
#include "captures.h"
#include "pcapng.h"
#include "require.h"
#include "terminal.h"
#include "text.h"

#include <climits>
#include <tuple>
#include <unistd.h>

using fuzz::Input;
using fuzz::require;
using voicectl::FilePacket;
using voicectl::MediaFileReader;

namespace {

// A file by a path, which another one may take the place of.
class File {
public:
    File() : descriptor(fuzz::file_of("")) {}
    ~File() { close(descriptor); }
    File(const File &) = delete;
    File &operator=(const File &) = delete;

    void append(const std::string &bytes) const {
        lseek(descriptor, 0, SEEK_END);
        require(write(descriptor, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()), "a file grows");
    }
    void cut(off_t size) const { require(ftruncate(descriptor, size) == 0, "a file is cut"); }
    void replace() const {
        const int other = fuzz::file_of("");
        require(dup2(other, descriptor) == descriptor, "a file is replaced");
        close(other);
    }
    off_t size() const { return lseek(descriptor, 0, SEEK_END); }
    std::string path() const { return fuzz::path_of(descriptor); }

    int descriptor;
};

// All that was read, and how it ended.
struct Read {
    using Packet =
        std::tuple<uint64_t, bool, bool, uint32_t, uint32_t, uint16_t, uint16_t, std::string, std::string, uint64_t>;
    std::vector<Packet> packets{};
    std::string fault{};
    uint64_t strange = 0;
    bool operator==(const Read &) const = default;
};

void packets_take(MediaFileReader &reader, Read &read) {
    reader.look();
    int blocks = INT_MAX;
    while (const std::optional<FilePacket> one = reader.next(blocks))
        read.packets.emplace_back(one->time_ns, one->sent, one->control, one->source, one->destination,
                                  one->source_port, one->destination_port, one->bytes, one->comment, one->lost);
    read.fault = reader.fault();
    read.strange = reader.strange();
    require(!fuzz::steers_a_terminal(read.fault) && read.fault.find('\n') == std::string::npos,
            "a fault is a printable sentence");
    require(read.fault.empty() || !reader.is_open(), "what cannot be read is closed");
}

Read read_pieces(const std::vector<std::string> &pieces) {
    const File file;
    MediaFileReader reader(file.path());
    Read read;
    packets_take(reader, read);
    for (const std::string &piece : pieces) {
        file.append(piece);
        packets_take(reader, read);
    }
    return read;
}

// What is kept of a file that can be read is a capture of the packets that its host received.
void kept_check(const std::vector<std::string> &pieces, const Read &read) {
    constexpr size_t kMostComment = 1024;
    const File file, kept;
    voicectl::RunLimit limit(0);
    voicectl::CaptureFile capture;
    require(capture.open(kept.path(), true).empty(), "a capture is written");
    voicectl::CaptureFrom from;
    from.begin({file.path()}, 0);
    capture.add(voicectl::pcapng::section("fuzz", "") + from.head(0), limit);
    for (const std::string &piece : pieces) {
        file.append(piece);
        while (from.keep(capture, limit))
            ;
    }
    capture.add(from.sums(0), limit);
    capture.write(limit);
    for (const std::string &sentence : from.sentences())
        require(!fuzz::steers_a_terminal(sentence) && sentence.find('\n') == std::string::npos,
                "what became of a file is a printable sentence");

    lseek(kept.descriptor, 0, SEEK_SET);
    voicectl::CaptureReader reader(kept.descriptor);
    voicectl::CapturedPacket packet;
    for (const Read::Packet &one : read.packets) {
        if (std::get<1>(one))
            continue;
        require(reader.next(packet), "each packet is kept");
        require(packet.time_ns == std::get<0>(one) && packet.bytes == std::get<7>(one), "a packet is kept as it came");
        require(packet.dissector == (std::get<2>(one) ? "rtcp" : "rtp"), "it says what it is");
        require(packet.comment == voicectl::printable(std::get<8>(one)).substr(0, kMostComment), "and whose it is");
    }
    require(!reader.next(packet) && reader.fault().empty(), "a capture can be read to its end");
}

// A host that takes back what it wrote, begins anew, or goes for another one.
void accidents(Input &in, const std::string &file_bytes) {
    const File file;
    MediaFileReader reader(file.path());
    Read read;
    size_t begin = 0;
    for (unsigned left = 40; left > 0 && (begin < file_bytes.size() || !in.is_empty()); --left) {
        const uint8_t how = in.byte();
        const size_t size = in.byte();
        if (how < 160) {
            file.append(file_bytes.substr(std::min(begin, file_bytes.size()), size));
            begin += size;
        } else if (how < 200) {
            file.cut(std::max<off_t>(file.size() - static_cast<off_t>(size), 0));
        } else if (how < 230) {
            file.cut(0);
            begin = 0;
        } else {
            file.replace();
            begin = 0;
        }
        packets_take(reader, read);
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    Input in(bytes, size);
    const uint8_t how = in.byte();
    Input cuts = in;
    std::string file;
    if ((how & 1) != 0) {
        Input again = in;
        const fuzz::Capture other = fuzz::capture(again, (how & 2) == 0);
        file = fuzz::capture(in, (how & 2) != 0).bytes;
        require(other.has_any_bytes || read_pieces({file}) == read_pieces({other.bytes}), "either order says the same");
    } else {
        file = in.rest();
    }
    const Read whole = read_pieces({file});
    Input same_cuts = cuts;
    const std::vector<std::string> pieces = fuzz::pieces(cuts, file);
    require(read_pieces(pieces) == whole, "a file that grows says what the whole one says");
    if (whole.fault.empty())
        kept_check(pieces, whole);
    accidents(same_cuts, file);
    return 0;
}
