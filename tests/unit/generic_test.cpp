// SPDX-License-Identifier: MIT
// The endpoint table, the library's identity, the application's start, and the media socket pair.
#include "voice_test.h"

#include <cerrno>
#include <fcntl.h>
#include <functional>
#include <sys/resource.h>
#include <unistd.h>

#include "local_sockets.h"

namespace voice_test {
namespace {

class Generic : public VoiceTest {
protected:
    void fill_table() {
        for (unsigned i = 0; i < 32; ++i)
            have_endpoint(i, text("E%u", i).c_str(), static_cast<int32_t>(100 + i));
    }
};

// -------------------------------------------------------------------------------------------------------- look-ups

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

class EndpointTable : public Generic {};

TEST_F(EndpointTable, UserdataIsStoredWhereItBelongs) {
    fill_table();
    int mine, other;
    libvoice_set_endpoint_userdata_by_name("E3", &mine);
    libvoice_set_endpoint_userdata_by_endpoint(104, &other);
    EXPECT_EQ(endpt_table[3].userdata, &mine);
    EXPECT_EQ(endpt_table[4].userdata, &other);
    EXPECT_EQ(endpt_table[5].userdata, nullptr);
}

TEST_F(EndpointTable, ANullNameIsAnEmptyName) {
    EXPECT_EQ(libvoice_get_endpoint_index_by_name(nullptr), -1);
    have_endpoint(2, "", 9);
    EXPECT_EQ(libvoice_get_endpoint_index_by_name(nullptr), 2);
    EXPECT_EQ(libvoice_get_endpoint_by_name(nullptr), 9);
    EXPECT_EQ(libvoice_get_endpoint_entry_by_name(nullptr), &endpt_table[2]);
    EXPECT_EQ(libvoice_set_endpoint_userdata_by_name(nullptr, this), 1);
    EXPECT_EQ(libvoice_delete_endpoint_entry_by_name(nullptr), 2);
}

TEST_F(EndpointTable, TheFirstFreeEntryIsClaimed) {
    have_endpoint(0, "used", 1);
    endpt_table[1].type = 77;
    EXPECT_EQ(libvoice_set_endpoint("FXS1", 5, this), 1);
    EXPECT_LOG("> libvoice_set_endpoint@generic", "< libvoice_set_endpoint@generic");
    EXPECT_EQ(endpt_table[1].used, 1u);
    EXPECT_STREQ(endpt_table[1].name, "FXS1");
    EXPECT_EQ(endpt_table[1].endpoint, 5);
    EXPECT_EQ(endpt_table[1].userdata, this);
    EXPECT_EQ(endpt_table[1].type, 77);
}

TEST_F(EndpointTable, ALongNameIsCutToFifteen) {
    for (const size_t length : {0u, 1u, 14u, 15u, 16u, 20u, 5000u}) {
        fresh();
        EXPECT_EQ(libvoice_set_endpoint(std::string(length, 'n').c_str(), 5, nullptr), 1);
        EXPECT_EQ(std::string(endpt_table[0].name), std::string(std::min<size_t>(length, 15), 'n'));
        EXPECT_EQ(endpt_table[0].endpoint, 5) << "nothing written behind the name";
    }
}

TEST_F(EndpointTable, MinusOneIsStoredAndFound) {
    EXPECT_EQ(libvoice_set_endpoint("FXS1", -1, nullptr), 1);
    EXPECT_EQ(libvoice_get_endpoint_index_by_endpoint(-1), 0);
    EXPECT_EQ(is_valid_endpoint(-1), 1);
}

TEST_F(EndpointTable, AFullTableTakesNoMore) {
    fill_table();
    EXPECT_EQ(libvoice_set_endpoint("new", 5, nullptr), 0);
    EXPECT_EQ(libvoice_get_next_free_endpoint(), nullptr);
    EXPECT_EQ(libvoice_get_next_free_endpoint_name(), nullptr);
    EXPECT_EQ(libvoice_get_endpoint_index_by_name("new"), -1);
}

TEST_F(EndpointTable, ThePreNamedEntryIsClaimed) {
    strcpy(endpt_table[4].name, "FXS5");
    EXPECT_EQ(libvoice_set_endpoint_by_name("FXS5", 9, this), 1);
    EXPECT_LOG("> libvoice_set_endpoint_by_name@generic", "< libvoice_set_endpoint_by_name@generic");
    EXPECT_EQ(endpt_table[4].used, 1u);
    EXPECT_EQ(endpt_table[4].endpoint, 9);
    EXPECT_EQ(endpt_table[4].userdata, this);
    EXPECT_STREQ(endpt_table[4].name, "FXS5");
}

TEST_F(EndpointTable, OfTwoFreeEntriesOfANameTheFirstIsClaimed) {
    strcpy(endpt_table[4].name, "FXS5");
    strcpy(endpt_table[9].name, "FXS5");
    EXPECT_EQ(libvoice_set_endpoint_by_name("FXS5", 9, this), 1);
    EXPECT_EQ(endpt_table[4].used, 1u);
    EXPECT_EQ(endpt_table[9].used, 0u);
}

TEST_F(EndpointTable, AUsedEntryIsNotClaimedByName) {
    have_endpoint(4, "FXS5", 1);
    EXPECT_EQ(libvoice_set_endpoint_by_name("FXS5", 9, this), 0);
    EXPECT_EQ(endpt_table[4].endpoint, 1);
    EXPECT_EQ(endpt_table[4].userdata, nullptr);
    strcpy(endpt_table[9].name, "FXS5");
    EXPECT_EQ(libvoice_set_endpoint_by_name("FXS5", 9, this), 1) << "a free one behind it is";
    EXPECT_EQ(endpt_table[9].used, 1u);
}

TEST_F(EndpointTable, TheNextFreeEntryAndItsName) {
    have_endpoint(0, "used", 1);
    strcpy(endpt_table[1].name, "FXS2");
    EXPECT_EQ(libvoice_get_next_free_endpoint(), &endpt_table[1]);
    EXPECT_LOG("> libvoice_get_next_free_endpoint@generic", "< libvoice_get_next_free_endpoint@generic");
    bus().clear_log();
    EXPECT_EQ(libvoice_get_next_free_endpoint_name(), endpt_table[1].name);
    EXPECT_LOG_OF("libvoice_get_next_free_endpoint_name", "> libvoice_get_next_free_endpoint_name@generic",
                  "< libvoice_get_next_free_endpoint_name@generic");
}

TEST_F(EndpointTable, TheOwnersPeerAndName) {
    have_endpoint(3, "FXS1", 5, have_plugin(2, "FXS", bus().peer("fxs")));
    have_endpoint(4, "own", 6);
    EXPECT_EQ(libvoice_get_endpoint_peer(5), bus().peer("fxs"));
    EXPECT_EQ(libvoice_get_endpoint_peer(6), nullptr) << "no owner";
    EXPECT_EQ(libvoice_get_endpoint_peer(7), nullptr) << "unknown";
    EXPECT_THAT(bus().log(), IsEmpty());
    EXPECT_EQ(libvoice_get_plugin_name_by_endpoint(5), voice_plugin_table[2].plugin_name);
    EXPECT_LOG_OF("libvoice_get_plugin_name_by_endpoint", "> libvoice_get_plugin_name_by_endpoint@generic",
                  "< libvoice_get_plugin_name_by_endpoint@generic");
}

TEST_F(EndpointTable, WithoutAnEndpointOrAnOwnerThereIsNoPluginName) {
    have_endpoint(4, "own", 6);
    for (const int32_t number : {6, 7}) {
        bus().clear_log();
        EXPECT_EQ(libvoice_get_plugin_name_by_endpoint(number), nullptr);
        EXPECT_LOG_OF("libvoice_get_plugin_name_by_endpoint", "> libvoice_get_plugin_name_by_endpoint@generic",
                      "< libvoice_get_plugin_name_by_endpoint@generic");
    }
}

std::vector<std::string> deleted;

void on_deleted(libvoice_endpoint_t *entry) {
    deleted.push_back(text("[%d] used %u", static_cast<int>(entry - endpt_table), entry->used));
}

TEST_F(EndpointTable, ADeletedEntryKeepsAllButItsMark) {
    deleted.clear();
    libvoice_app_registered_callbacks.voice_app_endpoint_deleted = on_deleted;
    have_endpoint(3, "FXS1", 5);
    endpt_table[3].userdata = this;
    libvoice_endpoint_t expected = endpt_table[3];
    expected.used = 0;
    libvoice_delete_endpoint_entry(&endpt_table[3]);
    EXPECT_LOG("> libvoice_delete_endpoint_entry@generic", "< libvoice_delete_endpoint_entry@generic");
    EXPECT_EQ(memcmp(&endpt_table[3], &expected, sizeof(expected)), 0);
    EXPECT_THAT(deleted, ElementsAre("[3] used 0")) << "the callback sees the entry released";
}

TEST_F(EndpointTable, DeletedEntryStillFoundByNumber) {
    have_endpoint(3, "FXS1", 5);
    EXPECT_EQ(libvoice_delete_endpoint_entry_by_endpoint(5), 3);
    EXPECT_EQ(is_valid_endpoint(5), 0);
    EXPECT_EQ(get_endpt_entry(5), &endpt_table[3]);
    EXPECT_EQ(libvoice_delete_endpoint_entry_by_endpoint(5), -1);
}

TEST_F(EndpointTable, AReleasedNameIsHandedOutAgain) {
    fill_table();
    libvoice_delete_endpoint_entry_by_name("E3");
    EXPECT_STREQ(libvoice_get_next_free_endpoint_name(), "E3");
    EXPECT_EQ(libvoice_set_endpoint_by_name("E3", 7, nullptr), 1);
}

TEST_F(EndpointTable, DeletingByNameGoesByItsNumber) {
    have_endpoint(1, "first", 5);
    have_endpoint(2, "second", 5);
    EXPECT_EQ(libvoice_delete_endpoint_entry_by_name("second"), 1) << "the first entry of that number goes";
    EXPECT_EQ(endpt_table[2].used, 1u);
}

const char *const kPrinted[11] = {"endpt_table[%d]                \t%p",  "endpt_table[%d].used           \t%d",
                                  "endpt_table[%d].name           \t%s",  "endpt_table[%d].endpoint       \t%d",
                                  "endpt_table[%d].userdata       \t%p",  "endpt_table[%d].type           \t%d",
                                  "endpt_table[%d].encaps_capab   \t%lu", "endpt_table[%d].num_of_codecs  \t%lu",
                                  "endpt_table[%d].codec_list     \t%p",  "endpt_table[%d].endpoint_path  \t%s",
                                  "endpt_table[%d].plugin_table   \t%p"};

TEST_F(EndpointTable, PrintingShowsElevenLinesPerEntry) {
    have_endpoint(3, "FXS1", -5, have_plugin(2, "FXS", bus().peer("fxs")));
    libvoice_endpoint_t &e = endpt_table[3];
    e.userdata = this;
    e.type = -2;
    e.encaps_capab = 4000000000u;
    e.num_of_codecs = 16;
    libvoice_print_endpoints(1);
    ASSERT_EQ(bus().traces().size(), 11u) << "only used ones, no markers";
    const std::string messages[11] = {
        text("endpt_table[3]                \t%p", static_cast<void *>(&e)),
        "endpt_table[3].used           \t1",
        "endpt_table[3].name           \tFXS1",
        "endpt_table[3].endpoint       \t-5",
        text("endpt_table[3].userdata       \t%p", static_cast<void *>(this)),
        "endpt_table[3].type           \t-2",
        "endpt_table[3].encaps_capab   \t4000000000",
        "endpt_table[3].num_of_codecs  \t16",
        text("endpt_table[3].codec_list     \t%p", static_cast<void *>(e.codec_list)),
        "endpt_table[3].endpoint_path  \tFXS.EndPoint.FXS1",
        text("endpt_table[3].plugin_table   \t%p", static_cast<void *>(&voice_plugin_table[2])),
    };
    for (size_t i = 0; i < 11; ++i) {
        const fake::TraceLine &line = bus().traces()[i];
        EXPECT_EQ(line.level, 400);
        EXPECT_EQ(line.message_format, kPrinted[i]);
        EXPECT_EQ(line.message, messages[i]);
        EXPECT_EQ(line.function, "libvoice_print_endpoints");
        EXPECT_EQ(line.zone, "LIBV");
        EXPECT_EQ(line.line, bus().traces()[0].line + static_cast<int>(i))
            << "a source line each, one behind the other";
    }
}

TEST_F(EndpointTable, PrintingCountsItsLines) {
    libvoice_print_endpoints(1);
    EXPECT_EQ(bus().traces().size(), 0u);
    libvoice_print_endpoints(0);
    ASSERT_EQ(bus().traces().size(), 352u);
    for (size_t i = 0; i < 352; ++i)
        EXPECT_EQ(bus().traces()[i].message_format, kPrinted[i % 11]);
    bus().clear_log();
    fill_table();
    libvoice_print_endpoints(-1);
    EXPECT_EQ(bus().traces().size(), 352u);
}

TEST_F(EndpointTable, MessageNumbersCountFromZero) {
    static uint32_t next = 0; // the counter lives as long as the process, also when the test is repeated
    EXPECT_EQ(get_new_msg_id(), next);
    EXPECT_EQ(get_new_msg_id(), next + 1);
    EXPECT_EQ(get_new_msg_id(), next + 2);
    next += 3;
    EXPECT_THAT(bus().log(), IsEmpty());
}

// -------------------------------------------------------------------------------------------------------- identity

class Identity : public Generic {};

TEST_F(Identity, ThePluginNameIsTracedAsGivenAndCut) {
    for (const size_t length : {0u, 1u, 254u, 255u, 256u, 300u}) {
        bus().clear_log();
        const std::string name(length, 'p');
        memset(_PLUGIN_NAME, 'z', sizeof(_PLUGIN_NAME));
        libvoice_set_pluginname(name.c_str());
        EXPECT_LOG("> libvoice_set_pluginname@generic",
                   "i libvoice_set_pluginname@generic: Setting plugin name to " + name + ".",
                   "< libvoice_set_pluginname@generic");
        EXPECT_EQ(std::string(_PLUGIN_NAME), name.substr(0, 255));
    }
    bus().clear_log();
    EXPECT_EQ(libvoice_get_pluginname(), _PLUGIN_NAME);
    EXPECT_LOG("> libvoice_get_pluginname@generic", "< libvoice_get_pluginname@generic");
}

TEST_F(Identity, TheStemIsTracedAsGivenAndCut) {
    for (const size_t length : {0u, 1u, 12u, 13u, 14u, 16u, 300u}) {
        bus().clear_log();
        const std::string stem(length, 's');
        memset(ep_suffix, 'z', sizeof(ep_suffix));
        libvoice_set_ep_suffix(stem.c_str());
        EXPECT_LOG_WITHOUT_MARKERS("i libvoice_set_ep_suffix@generic: Setting ep_suffix to " + stem + ".");
        EXPECT_EQ(std::string(ep_suffix), stem.substr(0, 13));
    }
    bus().clear_log();
    EXPECT_EQ(libvoice_get_ep_suffix(), ep_suffix);
    EXPECT_LOG("> libvoice_get_ep_suffix@generic", "< libvoice_get_ep_suffix@generic");
}

TEST_F(Identity, SizesAreAsPublished) {
    EXPECT_EQ(sizeof(_PLUGIN_NAME), 256u);
    EXPECT_EQ(sizeof(ep_suffix), 14u);
}

TEST_F(Identity, TheApplicationStartsWithEachNumberItsIndex) {
    fill_table();
    endpt_table[7].userdata = this;
    libvoice_app_callbacks_t callbacks{};
    callbacks.voice_app_endpoint_deleted = on_deleted;
    libvoice_app_init(callbacks);
    EXPECT_LOG_WITHOUT_MARKERS("i libvoice_app_init@generic: init is called");
    for (int i = 0; i < 32; ++i) {
        EXPECT_EQ(endpt_table[i].used, 0u);
        EXPECT_EQ(endpt_table[i].endpoint, i);
        EXPECT_EQ(std::string(endpt_table[i].name), text("E%d", i)) << "names are not touched";
    }
    EXPECT_EQ(endpt_table[7].userdata, this);
    EXPECT_EQ(get_endpt_entry(7), &endpt_table[7]);
    EXPECT_EQ(memcmp(&libvoice_app_registered_callbacks, &callbacks, sizeof(callbacks)), 0);
    EXPECT_EQ(sizeof(callbacks), 7 * sizeof(void *));
    libvoice_app_init(libvoice_app_callbacks_t());
    EXPECT_EQ(libvoice_app_registered_callbacks.voice_app_endpoint_deleted, nullptr);
}

// --------------------------------------------------------------------------------------------------- media sockets

const std::string kSockets = "x libvoice_connectMediaSockets@generic: ";

class MediaSockets : public Generic {
protected:
    void expect_failure(const sockaddr_in &local, const sockaddr_in &remote, const std::string &line) {
        const int before = fake::open_descriptors();
        stream_ = control_ = 77;
        EXPECT_EQ(libvoice_connectMediaSockets(&local, &remote, &stream_, &control_), 0);
        EXPECT_EQ(stream_, 77);
        EXPECT_EQ(control_, 77);
        EXPECT_EQ(fake::open_descriptors(), before) << "no socket is left open";
        EXPECT_LOG_WITHOUT_MARKERS(kSockets + line);
    }
    int32_t stream_ = -1, control_ = -1;
};

TEST_F(MediaSockets, ThePairStandsOnNeighbouringPorts) {
    const uint16_t port = free_pair();
    const sockaddr_in local = address(own_host(), port), remote = address("127.0.0.1", 6000);
    const sockaddr_in local_before = local, remote_before = remote;
    ASSERT_EQ(libvoice_connectMediaSockets(&local, &remote, &stream_, &control_), 1);
    EXPECT_EQ(local_port(stream_), port);
    EXPECT_EQ(remote_port(stream_), 6000);
    EXPECT_EQ(local_port(control_), port + 1);
    EXPECT_EQ(remote_port(control_), 6001);
    int type = 0;
    socklen_t length = sizeof(type);
    getsockopt(stream_, SOL_SOCKET, SO_PROTOCOL, &type, &length);
    EXPECT_EQ(type, 17);
    EXPECT_EQ(memcmp(&local, &local_before, sizeof(local)), 0);
    EXPECT_EQ(memcmp(&remote, &remote_before, sizeof(remote)), 0);
    EXPECT_LOG_WITHOUT_MARKERS();
    close(stream_);
    close(control_);
}

TEST_F(MediaSockets, AddressesMayStandAtAnyPlaceOfARecord) {
    const uint16_t port = free_pair();
    const sockaddr_in local = address(own_host(), port), remote = address("127.0.0.1", 6000);
    char record[1 + 2 * sizeof(sockaddr_in)];
    memcpy(record + 1, &local, sizeof(local));
    memcpy(record + 1 + sizeof(local), &remote, sizeof(remote));
    const void *first = record + 1, *second = record + 1 + sizeof(local);
    ASSERT_EQ(libvoice_connectMediaSockets(static_cast<const sockaddr_in *>(first),
                                           static_cast<const sockaddr_in *>(second), &stream_, &control_),
              1);
    EXPECT_EQ(local_port(control_), port + 1);
    EXPECT_EQ(remote_port(control_), 6001);
    close(stream_);
    close(control_);
}

TEST_F(MediaSockets, ANeighbourThatIsTakenFails) {
    const uint16_t port = free_pair();
    const int taken = bound_socket(static_cast<uint16_t>(port + 1));
    expect_failure(address(own_host(), port), address("127.0.0.1", 6000),
                   "failed to bind to local socket - Address already in use");
    close(taken);
}

TEST_F(MediaSockets, ASocketThatIsDescriptorZeroIsClosedTooWhenTheOtherFails) {
    const uint16_t port = free_pair();
    const int taken = bound_socket(static_cast<uint16_t>(port + 1));
    const int input = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    expect_failure(address(own_host(), port), address("127.0.0.1", 6000),
                   "failed to bind to local socket - Address already in use");
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1);
    dup2(input, STDIN_FILENO);
    close(input);
    close(taken);
}

TEST_F(MediaSockets, AFirstPortThatIsTakenFails) {
    const uint16_t port = free_pair();
    const int taken = bound_socket(port);
    expect_failure(address(own_host(), port), address("127.0.0.1", 6000),
                   "failed to bind to local socket - Address already in use");
    close(taken);
}

// Only root may have the first port, and another socket has the second.
TEST_F(MediaSockets, BothBindsAreTriedAndTheErrorOfTheLastOneIsShown) {
    const uid_t user = geteuid();
    const int taken = bound_socket(1024);
    if (taken < 0)
        GTEST_SKIP() << "port 1024 is taken on this machine";
    const sockaddr_in local = address(own_host(), 1023), remote = address("127.0.0.1", 6000);
    const bool ordinary = user != 0 || seteuid(65534) == 0;
    const int probe = bound_socket(1023);
    const int answer = libvoice_connectMediaSockets(&local, &remote, &stream_, &control_);
    if (user == 0 && ordinary) {
        ASSERT_EQ(seteuid(user), 0);
    }
    close(taken);
    if (probe >= 0) {
        close(probe);
        GTEST_SKIP() << "any user may have any port on this machine";
    }
    EXPECT_EQ(answer, 0);
    EXPECT_LOG_WITHOUT_MARKERS(kSockets + "failed to bind to local socket - Address already in use");
}

TEST_F(MediaSockets, AnAddressThatIsNotOursFails) {
    expect_failure(address("192.0.2.1", 5000), address("127.0.0.1", 6000),
                   "failed to bind to local socket - Cannot assign requested address");
}

TEST_F(MediaSockets, ARemoteThatIsRefusedFails) {
    // A broadcast that was not asked for; that of the loopback is there without any route.
    expect_failure(address(own_host(), free_pair()), address("127.255.255.255", 6000),
                   "failed to connect to local socket to remote address - Permission denied");
}

TEST_F(MediaSockets, NoDescriptorsLeftFails) {
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const sockaddr_in local = address(own_host(), free_pair()), remote = address("127.0.0.1", 6000);
    const int lowest = dup(STDERR_FILENO);
    close(lowest);
    for (const int room : {0, 1}) { // for none of the two sockets, and for the first only
        bus().clear_log();
        rlimit tight = before;
        tight.rlim_cur = static_cast<rlim_t>(lowest + room);
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);
        const int answer = libvoice_connectMediaSockets(&local, &remote, &stream_, &control_);
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
        EXPECT_EQ(answer, 0);
        EXPECT_LOG_WITHOUT_MARKERS(kSockets + "failed to create local socket - Too many open files");
        EXPECT_EQ(stream_, -1);
        EXPECT_EQ(control_, -1);
    }
}

TEST_F(MediaSockets, TheLargestPortWrapsToZero) {
    const int probe = bound_socket(65535);
    if (probe < 0)
        GTEST_SKIP() << "port 65535 is taken on this machine";
    close(probe);
    const sockaddr_in local = address(own_host(), 65535), remote = address("127.0.0.1", 6000);
    ASSERT_EQ(libvoice_connectMediaSockets(&local, &remote, &stream_, &control_), 1);
    EXPECT_EQ(local_port(stream_), 65535);
    EXPECT_NE(local_port(control_), 0) << "port 0 lets the system choose";
    EXPECT_EQ(remote_port(control_), 6001);
    close(stream_);
    close(control_);
}

TEST_F(MediaSockets, PortZeroPutsTheControlFlowOnPortOne) {
    const int probe = bound_socket(1);
    const int refused = errno; // not everybody may have port 1
    const sockaddr_in local = address(own_host(), 0), remote = address("127.0.0.1", 6000);
    if (probe < 0) {
        expect_failure(local, remote, "failed to bind to local socket - " + std::string(strerror(refused)));
        return;
    }
    close(probe);
    ASSERT_EQ(libvoice_connectMediaSockets(&local, &remote, &stream_, &control_), 1);
    EXPECT_NE(local_port(stream_), 0);
    EXPECT_EQ(local_port(control_), 1);
    close(stream_);
    close(control_);
}

} // namespace
} // namespace voice_test
