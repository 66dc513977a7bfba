// SPDX-License-Identifier: MIT
// Where a capture goes: a file, a pipe. It is pcapng at every moment, also when the disk is full or the process is killed:
// only whole blocks are left in a file.
#ifndef VOICECTL_CAPTURE_FILE_H
#define VOICECTL_CAPTURE_FILE_H

#include <cstddef>
#include <string>

#include "run_limit.h"

namespace voicectl {

class CaptureFile {
public:
    CaptureFile() = default;
    ~CaptureFile();
    CaptureFile(const CaptureFile &) = delete;
    CaptureFile &operator=(const CaptureFile &) = delete;

    // "-" is standard output. A file that is there is replaced only when it may be. A sentence what is wrong; empty: open.
    std::string open(const std::string &path, bool may_replace);
    bool is_open() const { return descriptor_ >= 0; }
    int descriptor() const { return descriptor_; }

    // Keeps whole blocks until they are written: at the latest when there are many.
    void add(const std::string &blocks, RunLimit &limit);
    // Writes what is kept. A reader that takes nothing is waited for as long as the run lasts.
    void write(RunLimit &limit);
    // Why no more can be written, a sentence; empty: nothing is wrong. A reader that leaves is no fault.
    const std::string &fault() const { return fault_; }

private:
    bool chunk_write(RunLimit &limit, size_t &done);
    void whole_blocks_keep(size_t done) const;

    int descriptor_ = -1;
    bool is_file_ = false; // else a pipe or the like, where nothing can be taken back
    std::string kept_;
    std::string fault_;
};

} // namespace voicectl

#endif
