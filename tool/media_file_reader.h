// SPDX-License-Identifier: MIT
// Reads a file of RTP packets that a host writes, while it grows.
#ifndef VOICECTL_MEDIA_FILE_READER_H
#define VOICECTL_MEDIA_FILE_READER_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

#include "pcapng_body.h"

namespace voicectl {

// A packet of the file. Texts live until the next call.
struct FilePacket {
    uint64_t time_ns = 0;
    bool sent = false;    // by the host that writes the file; else it received it
    bool control = false; // RTCP
    uint32_t source = 0, destination = 0;
    uint16_t source_port = 0, destination_port = 0;
    std::string_view bytes{};
    std::string_view comment{}; // whose it is
    uint64_t lost = 0;          // packets that are missing before it
};

class MediaFileReader {
public:
    explicit MediaFileReader(std::string path) : path_(std::move(path)) {}
    ~MediaFileReader();
    MediaFileReader(const MediaFileReader &) = delete;
    MediaFileReader &operator=(const MediaFileReader &) = delete;

    // Looks whether the file is there by now, or another one: it is read from its begin then. Nothing here waits.
    void look();
    // The next packet that is there as a whole, among so many blocks at most; those that were read are taken off. Empty: none
    // so far.
    std::optional<FilePacket> next(int &blocks);
    // Why it is read no further, a printable sentence without its name; empty: nothing is wrong.
    const std::string &fault() const { return fault_; }
    bool is_open() const { return descriptor_ >= 0; }
    // Whether it reads the file that a descriptor stands for.
    bool is_same(int descriptor) const;
    // Reads no further, for a reason that becomes its fault.
    void leave(const std::string &fault) { stop(fault); }
    // Packets that were passed over: of IPv6, or neither RTP nor RTCP over UDP.
    uint64_t strange() const { return strange_; }

private:
    std::optional<pcapng::Body> block_next(uint32_t &type);
    bool more_read();
    bool section_take(std::string_view block);
    void interface_take(const pcapng::Body &body);
    std::optional<FilePacket> packet_take(const pcapng::Body &body);
    bool rest_drop(off_t size);
    void close_file();
    bool stop(const std::string &fault);

    std::string path_;
    int descriptor_ = -1;
    dev_t device_ = 0;
    ino_t inode_ = 0;
    off_t read_ = 0;       // bytes of the file so far
    std::string bytes_{};  // what has been read and not taken
    size_t taken_ = 0;     // of these
    bool swapped_ = false; // the file is of the other byte order
    bool began_ = false;   // with a section, as each pcapng does
    std::vector<pcapng::Interface> interfaces_{};
    std::string fault_{};
    uint64_t strange_ = 0;
};

} // namespace voicectl

#endif
