// SPDX-License-Identifier: MIT
#include "picture_file.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include "text.h"

namespace voicectl {

namespace {

// What is said on telephones is nobody else's concern.
constexpr mode_t kPictureMode = S_IRUSR | S_IWUSR;

std::string cannot_write(const std::string &path, int error) {
    return fmt::format("{} cannot be written: {}", in_quotes(path), std::strerror(error));
}

// 0, or the error.
int all_write(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(descriptor, text.data(), text.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return written < 0 ? errno : ENOSPC;
        text.remove_prefix(static_cast<size_t>(written));
    }
    return 0;
}

// Writes and closes. 0, or the error.
int whole_write(int descriptor, std::string_view text) {
    int error = all_write(descriptor, text);
    if (close(descriptor) != 0 && error == 0)
        error = errno;
    return error;
}

// Beside the file, in whose place it is put when it is whole.
std::string file_replace(const std::string &path, std::string_view text) {
    std::string beside = path + ".XXXXXX";
    const int descriptor = mkostemp(beside.data(), O_CLOEXEC);
    if (descriptor < 0)
        return cannot_write(path, errno);
    int error = whole_write(descriptor, text);
    if (error == 0 && rename(beside.c_str(), path.c_str()) != 0)
        error = errno;
    if (error == 0)
        return "";
    unlink(beside.c_str());
    return cannot_write(path, error);
}

// Where a link leads.
std::string real_path(const std::string &path) {
    char real[PATH_MAX];
    return realpath(path.c_str(), real) != nullptr ? real : path;
}

} // namespace

std::string picture_target_problem(const std::string &path, bool may_replace) {
    struct stat found {};
    if (stat(path.c_str(), &found) != 0)
        return errno == ENOENT ? "" : cannot_write(path, errno);
    if (S_ISDIR(found.st_mode))
        return cannot_write(path, EISDIR);
    return S_ISREG(found.st_mode) && !may_replace
               ? fmt::format("{} is there already: --force replaces it", in_quotes(path))
               : "";
}

std::string picture_write(const std::string &path, std::string_view text, bool may_replace) {
    if (const std::string problem = picture_target_problem(path, may_replace); !problem.empty())
        return problem;
    struct stat found {};
    const bool is_there = stat(path.c_str(), &found) == 0;
    if (is_there && S_ISREG(found.st_mode))
        return file_replace(real_path(path), text);
    const int descriptor =
        open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY | (is_there ? 0 : O_CREAT | O_EXCL), kPictureMode);
    if (descriptor < 0)
        return cannot_write(path, errno);
    const int error = whole_write(descriptor, text);
    if (error == 0)
        return "";
    if (!is_there)
        unlink(path.c_str());
    return cannot_write(path, error);
}

} // namespace voicectl
