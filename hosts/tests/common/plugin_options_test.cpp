// SPDX-License-Identifier: MIT
// The command line of a plugin: what is taken, what ends the process and with which sentence.
#include "plugin_options.h"

#include "host.h"
#include "line_fixture.h"
#include "program.h"

namespace {

class PluginOptions : public testing::Test {
protected:
    plugin_options read(std::vector<std::string> words) {
        words_ = std::move(words);
        words_.insert(words_.begin(), "door_plugin");
        pointers_.clear();
        for (std::string &word : words_)
            pointers_.push_back(word.data());
        pointers_.push_back(nullptr);
        optind = 0; // begin anew
        opterr = 0;
        return plugin_options_read(&program_, static_cast<int>(words_.size()), pointers_.data());
    }
    // The sentence with which the process would end with status 2.
    std::string wrong(const std::vector<std::string> &words) {
        try {
            read(words);
        } catch (const process_end &end) {
            EXPECT_EQ(end.status, kExitUsage);
            return end.text;
        }
        return "taken";
    }

    plugin_program_t program_ = door_program();
    std::vector<std::string> words_;
    std::vector<char *> pointers_;
};

TEST_F(PluginOptions, WithoutWordsTheProgramSaysAll) {
    const plugin_options options = read({});
    EXPECT_STREQ(options.name, "door1");
    EXPECT_STREQ(options.stem, "DOOR");
    EXPECT_EQ(options.lines, 2);
}

TEST_F(PluginOptions, OfEveryPluginAndOfTheProgram) {
    const plugin_options options = read({"--name", "gate", "--stem=G", "--lines", "9", "--size", "small"});
    EXPECT_STREQ(options.name, "gate");
    EXPECT_STREQ(options.stem, "G");
    EXPECT_EQ(options.lines, 9);
    EXPECT_STREQ(size_taken, "small");
    char name[64];
    plugin_endpoint_name(&options, 9, name, sizeof name);
    EXPECT_STREQ(name, "G9");
}

TEST_F(PluginOptions, OfEveryHost) {
    read({"--control", "/tmp/control", "--socket", "/tmp/bus", "--no-stdin", "--convert-media"});
    EXPECT_STREQ(host_control_path(), "/tmp/control");
    EXPECT_STREQ(host_socket_path(), "/tmp/bus");
    EXPECT_FALSE(host_reads_stdin());
    EXPECT_TRUE(host_converts_media());
}

TEST_F(PluginOptions, NumberOfLinesHasLimits) {
    for (const char *value : {"0", "10", "-1", "two", "99999999999999999999"})
        EXPECT_EQ(wrong({"--lines", value}), fake::text("--lines %s: a number from 1 to 9", value));
}

TEST_F(PluginOptions, ValueThatTheProgramDoesNotTakeIsNamedWithWhatItShouldBe) {
    EXPECT_EQ(wrong({"--size", "huge"}), "--size huge: small");
}

TEST_F(PluginOptions, ValuesAreTextThatIsThere) {
    EXPECT_EQ(wrong({"--name", ""}), "--name: the value is empty");
    EXPECT_EQ(wrong({"--name", "\xff"}), "--name: the value is no UTF-8 text");
    EXPECT_EQ(wrong({"--size", "a\nb"}), "--size: the value is no UTF-8 text");
    EXPECT_EQ(wrong({"--socket", std::string(4096, 'p')}), "--socket: the value is too long: 4095 characters at most");
}

TEST_F(PluginOptions, NamesThatTheApplicationCannotHoldAreRejected) {
    read({"--name", std::string(19, 'n')});
    EXPECT_EQ(wrong({"--name", std::string(20, 'n')}),
              "plugin name 'nnnnnnnnnnnnnnnnnnnn': 1 to 19 plain characters without dots, blanks and quotes");
    read({"--stem", std::string(14, 's'), "--lines", "9"});
    EXPECT_EQ(wrong({"--stem", std::string(15, 's')}),
              "endpoint name 'sssssssssssssss2': name too long: 15 characters at most");
    EXPECT_EQ(wrong({"--stem", "a.b"}), "endpoint name 'a.b2': plain characters without dots, blanks and quotes");
}

TEST_F(PluginOptions, WordsAndOptionsThatAreNoneAreRejected) {
    EXPECT_EQ(wrong({"word"}), "'word' is no option");
    EXPECT_EQ(wrong({"--colour"}), "") << "getopt_long() says it";
    program_.lines = program_.most_lines = 0;
    EXPECT_EQ(wrong({"--stem", "S"}), "") << "a plugin without endpoints";
    EXPECT_EQ(wrong({"--lines", "1"}), "");
}

TEST_F(PluginOptions, HelpAndVersionEndWell) {
    for (const char *word : {"--help", "--version"}) {
        testing::internal::CaptureStdout();
        try {
            read({word});
            ADD_FAILURE() << word;
        } catch (const process_end &end) {
            EXPECT_EQ(end.status, 0);
        }
        EXPECT_NE(testing::internal::GetCapturedStdout(), "");
    }
}

} // namespace
