// SPDX-License-Identifier: MIT
// Look-ups in the endpoint table: each search found, not found, released, first of two, last, and an own source line for
// each exit marker.
#include "generic_fixture.h"

#include <functional>

namespace voice_test {
namespace {

struct Lookup : Named { // the function's name
    bool markers;
    std::function<std::string()> known, unknown; // what it answers for entry 3, and for none
    const char *found, *not_found;
};

std::string shown(const void *entry_or_part) {
    const char *at = static_cast<const char *>(entry_or_part), *start = reinterpret_cast<const char *>(endpt_table);
    if (!at)
        return "null";
    const size_t index = static_cast<size_t>(at - start) / sizeof(libvoice_endpoint_t);
    const size_t offset = static_cast<size_t>(at - start) % sizeof(libvoice_endpoint_t);
    const char *part = offset == 0                                              ? ""
                       : offset == offsetof(libvoice_endpoint_t, name)          ? ".name"
                       : offset == offsetof(libvoice_endpoint_t, endpoint_path) ? ".endpoint_path"
                                                                                : ".?";
    return text("[%zu]%s", index, part);
}

std::string shown(int32_t number) {
    return text("%d", number);
}

#define LOOKUP(function, markers, known, unknown, found, not_found)                                                \
    Lookup {                                                                                                       \
#function, markers, [] { return shown(function(known)); }, [] { return shown(function(unknown)); }, found, \
                                                                                                         not_found \
    }

int userdata;

class EndpointLookup : public Generic, public testing::WithParamInterface<Lookup> {
protected:
    std::vector<std::string> expected_log() {
        if (!GetParam().markers)
            return {};
        return {text("> %s@generic", GetParam().name), text("< %s@generic", GetParam().name)};
    }
};

INSTANTIATE_TEST_SUITE_P(
    , EndpointLookup,
    testing::Values(LOOKUP(is_valid_endpoint, false, 103, 99, "1", "0"),
                    LOOKUP(get_endpt_entry, false, 103, 99, "[3]", "null"),
                    Lookup{"libvoice_set_endpoint_userdata_by_name", true,
                           [] { return shown(libvoice_set_endpoint_userdata_by_name("E3", &userdata)); },
                           [] { return shown(libvoice_set_endpoint_userdata_by_name("e3", &userdata)); }, "1", "0"},
                    Lookup{"libvoice_set_endpoint_userdata_by_endpoint", true,
                           [] { return shown(libvoice_set_endpoint_userdata_by_endpoint(103, &userdata)); },
                           [] { return shown(libvoice_set_endpoint_userdata_by_endpoint(99, &userdata)); }, "1", "0"},
                    LOOKUP(libvoice_get_endpoint_index_by_name, true, "E3", "E", "3", "-1"),
                    LOOKUP(libvoice_get_endpoint_by_name, true, "E3", "E33", "103", "-1"),
                    LOOKUP(libvoice_get_endpoint_index_by_endpoint, true, 103, 99, "3", "-1"),
                    LOOKUP(libvoice_get_name_by_endpoint, true, 103, 99, "[3].name", "null"),
                    LOOKUP(libvoice_get_endpoint_name, false, 103, 99, "[3].name", "null"),
                    LOOKUP(libvoice_get_endpoint_path, false, 103, 99, "[3].endpoint_path", "null"),
                    LOOKUP(libvoice_get_endpoint_path_by_name, false, "E3", "", "[3].endpoint_path", "null"),
                    LOOKUP(libvoice_get_endpoint_entry_by_name, true, "E3", "E3 ", "[3]", "null"),
                    LOOKUP(libvoice_get_endpoint_entry_by_endpoint, true, 103, 99, "[3]", "null"),
                    LOOKUP(libvoice_delete_endpoint_entry_by_endpoint, true, 103, 99, "3", "-1"),
                    LOOKUP(libvoice_delete_endpoint_entry_by_name, false, "E3", "none", "3", "-1")),
    [](const auto &row) { return row.param.name; });

TEST_P(EndpointLookup, FindsTheEntry) {
    fill_table();
    EXPECT_EQ(GetParam().known(), GetParam().found);
    EXPECT_EQ(fake::difference(expected_log(), log_of(GetParam().name)), "");
}

TEST_P(EndpointLookup, FindsNothingElse) {
    fill_table();
    const std::string before(reinterpret_cast<char *>(endpt_table), sizeof(endpt_table));
    EXPECT_EQ(GetParam().unknown(), GetParam().not_found);
    EXPECT_EQ(fake::difference(expected_log(), log_of(GetParam().name)), "");
    EXPECT_EQ(std::string(reinterpret_cast<char *>(endpt_table), sizeof(endpt_table)), before);
}

TEST_P(EndpointLookup, AReleasedEntryIsFoundByNumberOnly) {
    fill_table();
    endpt_table[3].used = 0;
    const bool still = strcmp(GetParam().name, "get_endpt_entry") == 0;
    EXPECT_EQ(GetParam().known(), still ? GetParam().found : GetParam().not_found);
}

TEST_P(EndpointLookup, AnEntryMarkedOtherThanOneIsValidToAllButOne) {
    fill_table();
    endpt_table[3].used = 2;
    const bool strict = strcmp(GetParam().name, "is_valid_endpoint") == 0;
    EXPECT_EQ(GetParam().known(), strict ? GetParam().not_found : GetParam().found);
}

TEST_P(EndpointLookup, TheFirstMatchInIndexOrderWins) {
    fill_table();
    strcpy(endpt_table[20].name, "E3");
    endpt_table[20].endpoint = 103;
    EXPECT_EQ(GetParam().known(), GetParam().found);
    EXPECT_EQ(endpt_table[20].userdata, nullptr) << "the second one was meant";
    EXPECT_EQ(endpt_table[20].used, 1u) << "the second one was meant";
}

TEST_F(Generic, TheFirstOfTwoNamesGivesTheNumber) {
    have_endpoint(4, "TWIN", 44);
    have_endpoint(9, "TWIN", 99);
    EXPECT_EQ(libvoice_get_endpoint_by_name("TWIN"), 44);
}

TEST_F(Generic, TheOwnerIsThatOfTheFirstEntryInUse) {
    have_endpoint(2, "OLD", 5, have_plugin(1, "old", bus().peer("old")));
    endpt_table[2].used = 0;
    have_endpoint(6, "NEW", 5, have_plugin(3, "new", bus().peer("new")));
    have_endpoint(7, "LATE", 5, have_plugin(4, "late", bus().peer("late")));
    EXPECT_EQ(libvoice_get_endpoint_peer(5), bus().peer("new"));
    EXPECT_STREQ(libvoice_get_plugin_name_by_endpoint(5), "new");
    endpt_table[6].used = 2; // any mark counts
    EXPECT_EQ(libvoice_get_endpoint_peer(5), bus().peer("new"));
    endpt_table[6].used = endpt_table[7].used = 0;
    EXPECT_EQ(libvoice_get_endpoint_peer(5), nullptr);
    EXPECT_EQ(libvoice_get_plugin_name_by_endpoint(5), nullptr);
    have_endpoint(31, "LAST", 5, &voice_plugin_table[4]);
    EXPECT_EQ(libvoice_get_endpoint_peer(5), bus().peer("late"));
}

TEST_F(Generic, NullNamesAndEntriesDoNoHarm) {
    EXPECT_EQ(libvoice_set_endpoint(nullptr, 8, this), 1);
    EXPECT_STREQ(endpt_table[0].name, "");
    EXPECT_EQ(libvoice_get_endpoint_by_name(nullptr), 8);
    EXPECT_EQ(libvoice_get_endpoint_path_by_name(nullptr), endpt_table[0].endpoint_path);
    EXPECT_EQ(libvoice_set_endpoint_by_name(nullptr, 9, nullptr), 1);
    EXPECT_EQ(endpt_table[1].endpoint, 9);
    libvoice_delete_endpoint_entry(nullptr);
    libvoice_set_pluginname("x");
    libvoice_set_pluginname(nullptr);
    EXPECT_STREQ(_PLUGIN_NAME, "");
    libvoice_set_ep_suffix("x");
    libvoice_set_ep_suffix(nullptr);
    EXPECT_STREQ(ep_suffix, "");
    int32_t stream = -7, control = -7;
    EXPECT_EQ(libvoice_connectMediaSockets(nullptr, nullptr, &stream, &control), 0);
    EXPECT_EQ(stream, -7);
    EXPECT_EQ(control, -7);
}

// The source lines of a function's exit markers, in the order written.
std::vector<int> exits_of(const std::string &function) {
    std::vector<int> lines;
    for (const fake::TraceLine &line : bus().traces())
        if (line.marker && !line.enter && line.function == function)
            lines.push_back(line.line);
    return lines;
}

TEST_P(EndpointLookup, EachExitShowsItsOwnLine) {
    fill_table();
    GetParam().known();
    GetParam().unknown();
    const std::vector<int> lines = exits_of(GetParam().name);
    ASSERT_EQ(lines.size(), GetParam().markers ? 2u : 0u);
    if (GetParam().markers) {
        EXPECT_NE(lines[0], lines[1]);
    }
}

TEST_F(Generic, EachExitOfTheOthersShowsItsOwnLine) {
    voice_plugin_entry_t *plugin = have_plugin(2, "FXS", bus().peer("fxs"));
    const struct {
        const char *function;
        std::function<void()> call;
    } rows[] = {
        {"libvoice_set_endpoint", [] { libvoice_set_endpoint("new", 7, nullptr); }},
        {"libvoice_set_endpoint_by_name", [] { libvoice_set_endpoint_by_name("E9", 7, nullptr); }},
        {"libvoice_get_next_free_endpoint", [] { libvoice_get_next_free_endpoint(); }},
        {"libvoice_get_next_free_endpoint_name", [] { libvoice_get_next_free_endpoint_name(); }},
        {"libvoice_get_plugin_name_by_endpoint", [] { libvoice_get_plugin_name_by_endpoint(5); }},
    };
    for (const auto &row : rows) {
        bus().clear_log();
        have_endpoint(3, "owned", 5, plugin);
        strcpy(endpt_table[9].name, "E9");
        endpt_table[9].used = 0;
        row.call();
        fill_table(); // nothing is free, and no entry has a 5
        row.call();
        const std::vector<int> lines = exits_of(row.function);
        ASSERT_EQ(lines.size(), 2u) << row.function;
        EXPECT_NE(lines[0], lines[1]) << row.function;
    }
}

TEST_P(EndpointLookup, TheLastEntryIsReached) {
    fill_table();
    std::swap(endpt_table[3], endpt_table[31]);
    std::string expected = GetParam().found;
    const size_t at = expected.find('3');
    if (expected != "103" && at != std::string::npos)
        expected.replace(at, 1, "31");
    EXPECT_EQ(GetParam().known(), expected);
}

} // namespace
} // namespace voice_test
