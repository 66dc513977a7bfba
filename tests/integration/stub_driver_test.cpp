// SPDX-License-Identifier: MIT
// A driver of one page, in C and without the simulators, in calls with real hosts; and who knows whom among the hosts.
#include "host_process.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <stdlib.h>

namespace {

std::string content_of(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

class StubDriver : public testing::Test {
protected:
    StubDriver() { EXPECT_NE(mkdtemp(directory_), nullptr); }
    ~StubDriver() override { std::filesystem::remove_all(directory_); }
    std::string socket() const { return std::string(directory_) + "/bus"; }

    char directory_[32] = "/tmp/hosts-stub-XXXXXX";
};

} // namespace

TEST_F(StubDriver, IsCalledAnswersAndHangsUp) {
    Host application(HOST_APPLICATION, socket());
    ASSERT_TRUE(application.says("ready"));
    Host stub(HOST_STUB, socket());
    ASSERT_TRUE(stub.says("1 registered STUB1 endpoint=0\nready country=DE lines=1\n"));
    Host caller(HOST_FXS, socket(), {"--name", "fxs2", "--lines", "1"});
    ASSERT_TRUE(caller.says("ready"));

    caller.tell("1 off");
    ASSERT_TRUE(caller.says("1 plays dial-tone"));
    caller.tell("1 dial 101");
    EXPECT_TRUE(stub.says("1 rings 1000 ms"));
    stub.tell("1 off");
    EXPECT_TRUE(stub.says("1 speaks, payload type 8"));
    EXPECT_TRUE(caller.says("1 talking line=0 codec=PCMA"));
    caller.tell("1 on");
    EXPECT_TRUE(stub.says("1 is silent"));
    EXPECT_TRUE(stub.says("1 plays LIBVOICE_SIGNAL_cg_bt"));
    application.forget();
    stub.tell("1 on");
    EXPECT_TRUE(application.says("line 101 idle"));
    EXPECT_EQ(stub.leave(), 0);
    EXPECT_TRUE(application.says("plugin stub1 left"));
}

TEST_F(StubDriver, CallsAndIsToldWhatItCannotDo) {
    Host application(HOST_APPLICATION, socket());
    ASSERT_TRUE(application.says("ready"));
    Host stub(HOST_STUB, socket());
    ASSERT_TRUE(stub.says("ready"));
    int before = stub.descriptors();
    stub.tell("1 off");
    EXPECT_TRUE(stub.says("1 plays LIBVOICE_SIGNAL_cg_dt"));
    application.tell("mwi 101 3");
    EXPECT_TRUE(stub.says("1 ignores LIBVOICE_SIGNAL_andisp_data")) << "it has no display";
    application.tell("set 101 tdmc_gain 3");
    EXPECT_TRUE(stub.says("1 ignores param tdmc_gain"));
    stub.tell("1 sing");
    EXPECT_TRUE(stub.says("error: a line cannot 'sing': off, on"));
    stub.tell("2 off");
    EXPECT_TRUE(stub.says("error: '2' is neither a command nor a line from 1 to 1"));
    stub.tell("status");
    EXPECT_TRUE(stub.says("stub1 connected\n1 registered\nok\n"));
    EXPECT_EQ(stub.descriptors(), before);
    EXPECT_EQ(stub.leave(), 0);
}

TEST_F(StubDriver, IsReportedOffHookToTheNextApplication) {
    setenv("KEX_TIME_FACTOR", "40", 1); // 10 s between two attempts to connect pass in 0.25 s
    Host stub(HOST_STUB, socket());
    unsetenv("KEX_TIME_FACTOR");
    {
        Host application(HOST_APPLICATION, socket());
        ASSERT_TRUE(stub.says("ready"));
        stub.tell("1 off");
        ASSERT_TRUE(stub.says("1 plays LIBVOICE_SIGNAL_cg_dt"));
    }
    ASSERT_TRUE(stub.says("application lost"));
    stub.tell("1 on");
    EXPECT_TRUE(stub.says("error: 1: nobody was told"));
    stub.tell("1 off");
    stub.forget();
    Host application(HOST_APPLICATION, socket());
    ASSERT_TRUE(stub.says("1 registered STUB1 endpoint=0"));
    EXPECT_TRUE(stub.says("1 plays LIBVOICE_SIGNAL_cg_dt")) << "its state was reported after init";
    EXPECT_EQ(stub.leave(), 0);
}

TEST(StubDriverProgram, HasNothingOfTheSimulators) {
    for (const char *name : {"audio_open", "telephone_begin", "rtp_write", "tone_detector_listen"}) {
        EXPECT_EQ(content_of(FILE_STUB).find(name), std::string::npos) << name;
        EXPECT_NE(content_of(FILE_FXS).find(name), std::string::npos) << name << " can be found";
    }
}

// What the simulators may know of the rest: the interface, the console, tables of names, and how a text is made printable.
TEST(Simulators, KnowTheInterfaceOnly) {
    std::set<std::string> allowed = {"line_driver.h", "console.h",  "codecs.h",          "identifiers.h", "country.h",
                                     "kex.h",         "kex_host.h", "libvoice_plugin.h", "printable.h"};
    for (const auto &entry : std::filesystem::directory_iterator(HOST_SIMULATOR_SOURCES))
        allowed.insert(entry.path().filename());
    ASSERT_GT(allowed.count("telephone.h"), 0u);
    int includes = 0;
    for (const auto &entry : std::filesystem::directory_iterator(HOST_SIMULATOR_SOURCES)) {
        std::ifstream file(entry.path());
        for (std::string text; std::getline(file, text);) {
            if (text.rfind("#include \"", 0) != 0)
                continue;
            includes++;
            const std::string name = text.substr(10, text.size() - 11);
            EXPECT_GT(allowed.count(name), 0u) << entry.path() << " includes " << name;
        }
    }
    EXPECT_GT(includes, 10);
}
