// SPDX-License-Identifier: MIT
// The sound of calls for a capture, from the files that hosts write.
#ifndef VOICECTL_CAPTURE_FROM_H
#define VOICECTL_CAPTURE_FROM_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "capture_file.h"
#include "media_file_reader.h"

namespace voicectl {

class CaptureFrom {
public:
    static constexpr size_t kMostFiles = 16;

    // Packets before that moment are passed over.
    void begin(const std::vector<std::string> &paths, uint64_t begin_ns);
    // The block of an interface for each file, numbered from `first`; empty: there is no file.
    std::string head(uint32_t first);
    // Keeps some of what the hosts have received and written by now. Whether there may be more.
    bool keep(CaptureFile &file, RunLimit &limit);
    // The blocks of their sums.
    std::string sums(uint64_t time_ns) const;
    // What became of each file, a printable sentence each.
    std::vector<std::string> sentences() const;

private:
    struct Source {
        explicit Source(const std::string &path) : path(path), reader(path) {}
        std::string path;
        MediaFileReader reader;
        uint32_t interface = 0;
        uint64_t kept = 0;
        uint64_t lost = 0;
        uint64_t lost_before = 0; // the next packet
        bool was_there = false;
        bool told = false; // why it is read no further
    };

    bool keep_some(Source &source, CaptureFile &file, RunLimit &limit) const;

    std::vector<std::unique_ptr<Source>> sources_;
    uint64_t begin_ns_ = 0;
};

} // namespace voicectl

#endif
