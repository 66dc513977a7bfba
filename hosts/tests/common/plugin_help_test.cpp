// SPDX-License-Identifier: MIT
// What a plugin says about itself.
#include "plugin_help.h"

#include "line_fixture.h"
#include "program.h"

namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

TEST(PluginHelp, NamesEveryOptionAndCommand) {
    const plugin_program_t program = door_program();
    const std::string help = plugin_help_text(&program);
    EXPECT_THAT(help, StartsWith("usage: door_plugin [options]\nDoors as a voice plugin.\n\n"));
    EXPECT_THAT(help, HasSubstr("--name NAME        plugin name, at most 19 characters (door1)\n"));
    EXPECT_THAT(help,
                HasSubstr("--stem STEM        endpoints are STEM1, STEM2, ..., at most 15 characters each (DOOR)\n"));
    EXPECT_THAT(help, HasSubstr("--lines N          doors, 1 to 9 (2)\n"));
    EXPECT_THAT(help, HasSubstr("--size S           how large (small)\n"));
    EXPECT_THAT(help, HasSubstr("--socket PATH "));
    EXPECT_THAT(help, HasSubstr("Commands, one per line: N knock [HOW] | N open | status | help | quit\n"));
}

TEST(PluginHelp, OptionsThatThereAreNotAreNotNamed) {
    plugin_program_t program = door_program();
    program.most_lines = 0;
    EXPECT_THAT(plugin_help_text(&program), Not(HasSubstr("--lines")));
    EXPECT_THAT(plugin_help_text(&program), HasSubstr("endpoints are STEM1 and STEM2,"));
    program.lines = 0;
    program.commands = nullptr;
    EXPECT_THAT(plugin_help_text(&program), Not(HasSubstr("--stem")));
    EXPECT_THAT(plugin_help_text(&program), HasSubstr("Commands, one per line: status | help | quit\n"));
}

TEST(PluginHelp, NoRowIsLongerThanATerminalMayBeWide) {
    std::vector<plugin_command_t> commands(60, {"a-command-that-is-long", "ARGUMENTS", nullptr});
    commands.push_back({});
    plugin_program_t program = door_program();
    program.commands = commands.data();
    const std::string help = plugin_help_text(&program);
    for (size_t at = 0, end; (end = help.find('\n', at)) != std::string::npos; at = end + 1)
        EXPECT_LE(end - at, 110u) << help.substr(at, end - at);
    EXPECT_EQ(help.back(), '\n');
}

TEST(PluginHelp, CommandsInARow) {
    const plugin_program_t program = door_program();
    EXPECT_STREQ(plugin_verbs_text(&program), "knock, open");
    EXPECT_STREQ(plugin_commands_text(&program), "knock [HOW] | open");
    const plugin_program_t bare = {};
    EXPECT_STREQ(plugin_commands_text(&bare), "");
    EXPECT_STREQ(plugin_line_word(&bare), "line");
}

} // namespace
