// SPDX-License-Identifier: MIT
#include "capture_file.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include "text.h"

namespace voicectl {

namespace {

constexpr size_t kMuch = 64 * 1024; // that is kept unwritten
constexpr int kPatienceMs = 200;    // for a reader, after the end of the run
// What is said on telephones is nobody else's concern.
constexpr mode_t kMode = S_IRUSR | S_IWUSR;

bool is_regular(int descriptor) {
    struct stat found {};
    return fstat(descriptor, &found) == 0 && S_ISREG(found.st_mode);
}

} // namespace

CaptureFile::~CaptureFile() {
    if (descriptor_ > STDERR_FILENO)
        close(descriptor_);
}

std::string CaptureFile::open(const std::string &path, bool may_replace) {
    if (path == "-") {
        descriptor_ = STDOUT_FILENO;
    } else {
        descriptor_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kMode);
        if (descriptor_ < 0 && errno == EEXIST) {
            struct stat found {};
            if (!may_replace && stat(path.c_str(), &found) == 0 && S_ISREG(found.st_mode))
                return fmt::format("{} is there already: --force replaces it", in_quotes(path));
            descriptor_ = ::open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
        }
        if (descriptor_ < 0)
            return fmt::format("{} cannot be written: {}", in_quotes(path), std::strerror(errno));
        // One that was there may have been readable for others. Where that is not ours to change, it stays.
        if (is_regular(descriptor_))
            fchmod(descriptor_, kMode);
    }
    is_file_ = is_regular(descriptor_);
    return "";
}

void CaptureFile::add(const std::string &blocks, RunLimit &limit) {
    kept_ += blocks;
    if (kept_.size() >= kMuch)
        write(limit);
}

void CaptureFile::write(RunLimit &limit) {
    size_t done = 0;
    while (done < kept_.size() && fault_.empty() && !limit.reader_left())
        if (!chunk_write(limit, done))
            break;
    if (is_file_ && !fault_.empty())
        whole_blocks_keep(done);
    kept_.clear();
}

// False: it cannot go on, `fault_` or the limit says why.
bool CaptureFile::chunk_write(RunLimit &limit, size_t &done) {
    size_t size = kept_.size() - done;
    if (!is_file_) {
        // A pipe that has room at all takes so much without blocking.
        size = std::min<size_t>(size, PIPE_BUF);
        pollfd room = {descriptor_, POLLOUT, 0};
        const bool was_over = limit.reached();
        if (poll(&room, 1, kPatienceMs) <= 0) {
            if (was_over)
                fault_ = "nobody reads the output: its end is missing";
            return !was_over;
        }
    }
    const ssize_t written = ::write(descriptor_, kept_.data() + done, size);
    if (written < 0 && (errno == EINTR || errno == EAGAIN))
        return true;
    if (written < 0 && errno == EPIPE)
        limit.reader_leaves();
    else if (written <= 0)
        fault_ = fmt::format("the capture cannot be written: {}", std::strerror(errno));
    done += written > 0 ? static_cast<size_t>(written) : 0;
    return written > 0;
}

// Takes back what was written of a block that is not whole.
void CaptureFile::whole_blocks_keep(size_t done) const {
    constexpr size_t kSizeAt = 4;
    size_t whole = 0;
    while (whole < done) {
        uint32_t size = 0;
        std::memcpy(&size, kept_.data() + whole + kSizeAt, sizeof size);
        if (whole + size > done)
            break;
        whole += size;
    }
    // From where the last write ended: standard output may stand behind what others have written, or append to it.
    const off_t end = lseek(descriptor_, 0, SEEK_CUR);
    // When even that is not possible, the file ends with a block that is cut, which its readers say.
    if (end < 0 || whole == done)
        return;
    [[maybe_unused]] const int result = ftruncate(descriptor_, end - static_cast<off_t>(done - whole));
}

} // namespace voicectl
