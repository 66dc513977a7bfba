// SPDX-License-Identifier: MIT
// A folder of its own for each test, with what it is to find there.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdlib.h>
#include <string>

class ScratchFolder : public testing::Test {
protected:
    ScratchFolder() { EXPECT_NE(mkdtemp(folder_), nullptr); }
    ~ScratchFolder() override { std::filesystem::remove_all(folder_); }

    std::string path(const std::string &name) const { return folder_ + ("/" + name); }
    std::string put(const std::string &name, const std::string &bytes) const {
        std::ofstream(path(name), std::ios::binary) << bytes;
        return path(name);
    }
    std::string contents(const std::string &name) const {
        std::ostringstream all;
        all << std::ifstream(path(name), std::ios::binary).rdbuf();
        return all.str();
    }

private:
    char folder_[24] = "/tmp/hosts-XXXXXX";
};
