// SPDX-License-Identifier: MIT
// Runs a target on the files of a folder, or on the files given: seeds as plain tests, without a fuzzer.
#include "require.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <unistd.h>
#include <vector>

namespace {

constexpr unsigned kSeconds = 30; // for one file: a loop that does not end is a failure

std::vector<std::filesystem::path> files_of(const std::filesystem::path &path) {
    if (!std::filesystem::is_directory(path))
        return {path};
    std::vector<std::filesystem::path> files;
    for (const auto &entry : std::filesystem::directory_iterator(path))
        files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

bool replay(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        fprintf(stderr, "%s cannot be read\n", path.c_str());
        return false;
    }
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    fprintf(stderr, "%s\n", path.c_str()); // the last one that is shown is the one that failed
    alarm(kSeconds);
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
    alarm(0);
    return true;
}

} // namespace

int main(int count, char **words) {
    unsigned replayed = 0;
    for (int i = 1; i < count; ++i)
        for (const std::filesystem::path &path : files_of(words[i])) {
            if (!replay(path))
                return 1;
            ++replayed;
        }
    if (replayed == 0) {
        fprintf(stderr, "usage: %s FILE|FOLDER ...: there was nothing to replay\n", words[0]);
        return 2;
    }
    printf("%u replayed\n", replayed);
    return 0;
}
