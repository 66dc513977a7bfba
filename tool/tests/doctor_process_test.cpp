// SPDX-License-Identifier: MIT
// What /proc shows of a process, read from a folder that looks like it.
#include <cstdlib>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include "doctor_look.h"

using namespace voicectl;

namespace {

namespace fs = std::filesystem;

class DoctorProcess : public testing::Test {
protected:
    DoctorProcess() {
        char name[] = "/tmp/proc-XXXXXX";
        proc_ = mkdtemp(name);
        fs::create_directories(proc_ / "7/fd");
        fs::create_directories(proc_ / "7/net");
    }
    ~DoctorProcess() override { fs::remove_all(proc_); }

    void write(const std::string &name, const std::string &text) const {
        std::ofstream(proc_ / "7" / name, std::ios::binary) << text;
    }
    ProcessFacts look() const { return process_look(7, "app", proc_.string()); }

    fs::path proc_;
};

TEST_F(DoctorProcess, OneThatIsGoneOrHiddenShowsNothing) {
    const ProcessFacts facts = process_look(8, "app", proc_.string());
    EXPECT_EQ(facts.state, '\0');
    EXPECT_FALSE(facts.descriptors);
    EXPECT_FALSE(facts.environment);
    EXPECT_TRUE(facts.libraries.empty());
}

// So is what a process that ends meanwhile has.
TEST_F(DoctorProcess, WhatCannotBeReadIsNothing) {
    for (const char *name : {"stat", "limits", "maps", "environ"})
        fs::create_directory(proc_ / "7" / name);
    const ProcessFacts facts = look();
    EXPECT_EQ(facts.state, '\0');
    EXPECT_FALSE(facts.descriptors);
    EXPECT_TRUE(facts.libraries.empty());
}

TEST_F(DoctorProcess, StateStandsBehindANameOfAnyKind) {
    write("stat", "7 (a) R (b) T 1 7 7 0 -1 ");
    EXPECT_EQ(look().state, 'T');
    write("stat", "7 (cut) ");
    EXPECT_EQ(look().state, '\0');
}

TEST_F(DoctorProcess, LimitOfOpenFilesIsReadFromItsRow) {
    write("limits", "Limit                     Soft Limit           Hard Limit           Units\n"
                    "Max open files            1024                 524288               files\n");
    EXPECT_EQ(look().descriptors, 1024u);
    write("limits", "Max cpu time unlimited\n");
    EXPECT_FALSE(look().descriptors);
}

TEST_F(DoctorProcess, LibrariesWithVersionsAndThoseThatAreGone) {
    write("maps",
          "7f00-7f01 r--p 0 00:1 1  /usr/lib/libkex.so.1.2.3\n7f02-7f03 r-xp 0 00:1 1  /usr/lib/libkex.so.1.2.3\n"
          "7f04-7f05 r--p 0 00:1 2  /opt/libvoice_plugin.so.1.0.0 (deleted)\n7f06-7f07 r--p 0 00:1 3  /l/libc.so.6\n");
    const ProcessFacts facts = look();
    ASSERT_EQ(facts.libraries.size(), 2u);
    EXPECT_EQ(facts.libraries[0].name + " " + facts.libraries[0].version, "libkex.so 1.2.3");
    EXPECT_FALSE(facts.libraries[0].replaced);
    EXPECT_EQ(facts.libraries[1].name + " " + facts.libraries[1].version, "libvoice_plugin.so 1.0.0");
    EXPECT_TRUE(facts.libraries[1].replaced);
}

TEST_F(DoctorProcess, InheritedSocketsByTheirTypes) {
    write("environ", std::string("A=b\0LISTEN_FDS=3\0odd\0", 20));
    write("net/unix", fmt::format("Num       RefCount Protocol Flags    Type St Inode Path\n"
                                  "0000: 00000002 00000000 00010000 {:04X} 01 4711 /run/bus\n"
                                  "0000: 00000002 00000000 00010000 {:04X} 01 4712 /run/ctl\n",
                                  int{SOCK_SEQPACKET}, int{SOCK_STREAM})); // numbers of the processor
    fs::create_symlink("socket:[4712]", proc_ / "7/fd/3");
    fs::create_symlink("socket:[4711]", proc_ / "7/fd/4");
    fs::create_symlink("/dev/null", proc_ / "7/fd/5");
    const ProcessFacts facts = look();
    ASSERT_TRUE(facts.environment);
    EXPECT_EQ(entry_value(*facts.environment, "A="), "b");
    EXPECT_FALSE(entry_value(*facts.environment, "LISTEN="));
    EXPECT_EQ(facts.inherited, (std::vector<int>{SOCK_STREAM, SOCK_SEQPACKET, 0}));
    write("environ", std::string("LISTEN_FDS=many\0", 16));
    EXPECT_TRUE(look().inherited.empty());
    write("environ", std::string("LISTEN_FDS=2000000000\0", 22));
    EXPECT_EQ(look().inherited.size(), 64u);
}

TEST(DoctorTables, StatusIsReadByItsWords) {
    const TableFacts tables = tables_read("country DE, codecs any, media by descriptor\nplugin fxs1 process=20\n"
                                          "line 101 idle endpoint=0 fxs1.FXS1 \"Kitchen\"\nplugin x process=y\nok\n");
    EXPECT_EQ(tables.problem, "");
    ASSERT_EQ(tables.plugins.size(), 1u);
    EXPECT_EQ(tables.plugins[0].process, 20);
    EXPECT_EQ(tables.endpoints, std::vector<std::string>{"fxs1.FXS1"});
    EXPECT_EQ(tables_read("plugin fxs1 process=20\n").problem, "the control socket gave no answer to \"status\"");
    EXPECT_NE(tables_read("").problem, "");
}

TEST(DoctorTables, NamesMayHoldBlanks) {
    const TableFacts tables = tables_read("plugin my lines process=20\nplugin a process=1 process=21\n"
                                          "line my lines.FXO 1 in-call endpoint=7 my lines.FXO 1 \"Kitchen\"\n"
                                          "line 101 idle endpoint=0\nok\n");
    ASSERT_EQ(tables.plugins.size(), 2u);
    EXPECT_EQ(tables.plugins[0].name, "my lines");
    EXPECT_EQ(tables.plugins[1].name, "a process=1");
    EXPECT_EQ(tables.plugins[1].process, 21);
    EXPECT_EQ(tables.endpoints, (std::vector<std::string>{"my lines.FXO 1", ""}));
}

TEST(DoctorTables, AnswerThatIsCutIsNone) {
    EXPECT_NE(tables_read("line 101 idle endpoint=0 fxs1.FXS1 book\n").problem, "") << "it ends as the last line does";
}

TEST(DoctorMachine, StampOfADissector) {
    EXPECT_EQ(dissector_stamp("-- a\n-- Vocabulary 0x0A0B0C0D\n-- b\n"), 0x0A0B0C0Du);
    EXPECT_EQ(dissector_stamp("-- older\n"), std::nullopt);
    EXPECT_EQ(dissector_stamp("-- Vocabulary 0x"), 0u);
}

} // namespace
