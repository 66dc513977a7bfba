// SPDX-License-Identifier: MIT
// Commands of a plugin: its table's, and those that every plugin has.
#include "plugin_commands.h"

#include "line_fixture.h"
#include "program.h"

namespace {

class PluginCommands : public LineTest {
protected:
    PluginCommands() { begin(); }
    void begin() {
        const plugin_options options = {"door1", "DOOR", 2};
        plugin_commands_begin(&program_, &options);
        news();
    }
    // Why not, or what has happened.
    std::string run(std::string text) {
        const char *why = plugin_command_run(text.data());
        if (why != nullptr)
            return why;
        std::string all;
        for (const std::string &one : news())
            all += (all.empty() ? "" : "; ") + one;
        return all;
    }

    plugin_program_t program_ = door_program();
};

TEST_F(PluginCommands, RunWithTheirLineAndTheRest) {
    EXPECT_EQ(run("1 knock"), "1 is knocked at once");
    EXPECT_EQ(run("2 knock \"very often\" indeed"), "2 is knocked at very often");
}

TEST_F(PluginCommands, LineThatThereIsNotIsNamed) {
    for (const char *word : {"0", "3", "-1", "x", "1x", "\"\""})
        EXPECT_THAT(run(std::string(word) + " knock"),
                    testing::HasSubstr("is neither a command nor a door from 1 to 2"));
}

TEST_F(PluginCommands, CountPlacesWhereThereAreNoLines) {
    program_.places = 16;
    begin();
    EXPECT_EQ(run("16 knock"), "16 is knocked at once");
    EXPECT_EQ(run("17 knock"), "'17' is neither a command nor a door from 1 to 16");
    EXPECT_THAT(run("help"), testing::StartsWith("answers: 1..16 "));
}

TEST_F(PluginCommands, VerbThatThereIsNotIsNamedWithThoseThatThereAre) {
    EXPECT_EQ(run("1 ring"), "a door cannot 'ring': knock, open");
    EXPECT_EQ(run("1"), "1 what? knock, open");
    program_.acting_word = "exchange";
    begin();
    EXPECT_EQ(run("1 ring"), "an exchange cannot 'ring': knock, open");
}

TEST_F(PluginCommands, StatusOfEachLine) {
    add("DOOR1");
    EXPECT_EQ(run("status"), "answers: door1 connected; answers: 1 not registered");
    init();
    news();
    EXPECT_EQ(run("status"), "answers: door1 connected; answers: 1 registered");
    libvoice_set_kex_peer_handler(nullptr);
    EXPECT_EQ(run("status"), "answers: door1 without application; answers: 1 registered");
}

TEST_F(PluginCommands, HelpAndQuit) {
    EXPECT_EQ(run("help"), "answers: 1..2 knock [HOW] | open; status; help; quit; watch");
    EXPECT_EQ(run("quit"), "host_terminate");
}

TEST_F(PluginCommands, OfAPluginThatHasNone) {
    program_.commands = nullptr;
    begin();
    EXPECT_EQ(run("1 knock"), "unknown command '1'; try help");
    EXPECT_EQ(run("help"), "answers: status; help; quit; watch");
}

} // namespace
