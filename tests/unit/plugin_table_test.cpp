// SPDX-License-Identifier: MIT
// The voice application's table of plugins: every trace message, every search, and what an
// entry keeps when it is freed.
#include "voice_test.h"

namespace voice_test {
namespace {

class PluginTable : public VoiceTest {
protected:
    peer_t *peer_ = bus().peer("fxs"), *other_ = bus().peer("dect");

    void have_two() {
        have_plugin(2, "FXS", peer_);
        have_plugin(5, "DECT", other_);
    }
    void fill() {
        for (unsigned i = 0; i < 8; ++i)
            have_plugin(i, text("plugin%u", i).c_str(), bus().peer(text("peer%u", i)));
    }
    static std::string snapshot() {
        return std::string(reinterpret_cast<char *>(voice_plugin_table), sizeof(voice_plugin_table));
    }
};

TEST_F(PluginTable, HasEightEntries) {
    EXPECT_EQ(sizeof(voice_plugin_table) / sizeof(voice_plugin_table[0]), 8u);
    EXPECT_EQ(sizeof(voice_plugin_table[0].plugin_name), 20u);
}

TEST_F(PluginTable, InitialisingClearsNamesAndPeersToo) {
    fill();
    libvoice_plugin_init_table();
    EXPECT_EQ(snapshot(), std::string(sizeof(voice_plugin_table), '\0'));
    EXPECT_LOG_WITHOUT_MARKERS();
}

TEST_F(PluginTable, PrintingShowsFourLinesPerEntry) {
    have_two();
    const char *const formats[4] = {
        "voice_plugin_table[%d]                \t%p", "voice_plugin_table[%d].used           \t%d",
        "voice_plugin_table[%d].plugin_name    \t%s", "voice_plugin_table[%d].peer           \t%p"};
    libvoice_plugin_print_table(1);
    std::vector<fake::TraceLine> lines;
    for (const fake::TraceLine &line : bus().traces())
        if (!line.marker)
            lines.push_back(line);
    ASSERT_EQ(lines.size(), 8u);
    for (size_t i = 0; i < 8; ++i) {
        EXPECT_EQ(lines[i].level, 400);
        EXPECT_EQ(lines[i].message_format, formats[i % 4]);
        EXPECT_EQ(lines[i].function, "libvoice_plugin_print_table");
    }
    EXPECT_EQ(lines[0].message,
              text("voice_plugin_table[2]                \t%p", static_cast<void *>(&voice_plugin_table[2])));
    EXPECT_EQ(lines[1].message, "voice_plugin_table[2].used           \t1");
    EXPECT_EQ(lines[2].message, "voice_plugin_table[2].plugin_name    \tFXS");
    EXPECT_EQ(lines[3].message, text("voice_plugin_table[2].peer           \t%p", static_cast<void *>(peer_)));
    EXPECT_EQ(lines[6].message, "voice_plugin_table[5].plugin_name    \tDECT");
    bus().clear_log();
    libvoice_plugin_print_table(0);
    EXPECT_EQ(bus().log_without_markers().size(), 32u);
}

TEST_F(PluginTable, EntriesByIndex) {
    have_two();
    const char *const function = "libvoice_plugin_get_entry_by_index";
    const struct {
        uint32_t index;
        voice_plugin_entry_t *entry;
        std::string line;
    } rows[] = {
        {0, nullptr, said("i", function, "getting plugin entry for index 0")},
        {2, &voice_plugin_table[2], said("i", function, "getting plugin entry for index 2")},
        {3, nullptr, said("i", function, "getting plugin entry for index 3")},
        {7, nullptr, said("i", function, "getting plugin entry for index 7")},
        {8, nullptr, said("x", function, "Invalid Plugin Index 8")},
        {0xFFFFFFFFu, nullptr, said("x", function, "Invalid Plugin Index -1")},
    };
    for (const auto &row : rows) {
        bus().clear_log();
        EXPECT_EQ(libvoice_plugin_get_entry_by_index(row.index), row.entry) << row.index;
        EXPECT_LOG_WITHOUT_MARKERS(row.line);
    }
}

TEST_F(PluginTable, EntriesByName) {
    have_two();
    have_plugin(6, "FXS", other_);
    const char *const function = "libvoice_plugin_get_entry";
    EXPECT_EQ(libvoice_plugin_get_entry("FXS"), &voice_plugin_table[2]) << "the lower index";
    EXPECT_LOG_WITHOUT_MARKERS(said("i", function, "getting plugin entry for plugin FXS"),
                               said("i", function, "voice_plugin_table[2] matches plugin name FXS"));
    for (const char *name : {"fxs", "FX", "FXS2", ""}) {
        bus().clear_log();
        EXPECT_EQ(libvoice_plugin_get_entry(name), nullptr) << name;
        EXPECT_LOG_WITHOUT_MARKERS(said("i", function, text("getting plugin entry for plugin %s", name)));
    }
    bus().clear_log();
    EXPECT_EQ(libvoice_plugin_get_entry(nullptr), nullptr);
    EXPECT_LOG_WITHOUT_MARKERS(said("x", function, "NULL  param !!"));
    voice_plugin_table[2].used = 0;
    EXPECT_EQ(libvoice_plugin_get_entry("FXS"), &voice_plugin_table[6]) << "a freed entry is not found";
}

TEST_F(PluginTable, PeersByName) {
    have_two();
    EXPECT_EQ(libvoice_plugin_get_peer_by_name("DECT"), other_);
    EXPECT_EQ(libvoice_plugin_get_peer_by_name("none"), nullptr);
    bus().clear_log();
    EXPECT_EQ(libvoice_plugin_get_peer_by_name(nullptr), nullptr);
    EXPECT_LOG_WITHOUT_MARKERS(said("x", "libvoice_plugin_get_entry", "NULL  param !!"));
}

TEST_F(PluginTable, IndexesByName) {
    have_two();
    const char *const function = "libvoice_plugin_get_index";
    EXPECT_EQ(libvoice_plugin_get_index("DECT"), 5);
    EXPECT_LOG_WITHOUT_MARKERS(
        said("i", function, "getting or creating plugin entry for plugin DECT"),
        said("i", function, "voice_plugin_table[ plugin_table_index = 5 ] matches plugin name DECT"));
    bus().clear_log();
    const std::string before = snapshot();
    EXPECT_EQ(libvoice_plugin_get_index("none"), -1);
    EXPECT_LOG_WITHOUT_MARKERS(said("i", function, "getting or creating plugin entry for plugin none"));
    EXPECT_EQ(snapshot(), before) << "it only searches";
    bus().clear_log();
    EXPECT_EQ(libvoice_plugin_get_index(nullptr), -1);
    EXPECT_LOG_WITHOUT_MARKERS(said("x", function, "NULL  param !!"));
}

TEST_F(PluginTable, TheLowestFreeIndex) {
    const char *const function = "libvoice_plugin_get_next_free_index";
    have_plugin(0, "a", peer_);
    have_plugin(1, "b", peer_);
    EXPECT_EQ(libvoice_plugin_get_next_free_index(), 2);
    EXPECT_LOG_WITHOUT_MARKERS(said("i", function, "getting plugin next free index"),
                               said("i", function, "voice_plugin_table[ plugin_table_index = 2 ] is free"));
    fill();
    bus().clear_log();
    EXPECT_EQ(libvoice_plugin_get_next_free_index(), -1);
    EXPECT_LOG_WITHOUT_MARKERS(said("i", function, "getting plugin next free index"));
    voice_plugin_table[7].used = 0;
    EXPECT_EQ(libvoice_plugin_get_next_free_index(), 7);
}

TEST_F(PluginTable, IndexesAndEntriesByPeer) {
    have_two();
    have_plugin(7, "FXS again", peer_);
    const char *const function = "libvoice_plugin_get_index_by_peer";
    EXPECT_EQ(libvoice_plugin_get_index_by_peer(peer_), 2);
    EXPECT_LOG_WITHOUT_MARKERS(
        said("i", function, text("getting plugin entry for peer %p", static_cast<void *>(peer_))),
        said("i", function,
             text("voice_plugin_table[ plugin_table_index = 2 ] matches plugin peer %p", static_cast<void *>(peer_))));
    peer_t *stranger = bus().peer("stranger");
    bus().clear_log();
    EXPECT_EQ(libvoice_plugin_get_index_by_peer(stranger), -1);
    EXPECT_LOG_WITHOUT_MARKERS(
        said("i", function, text("getting plugin entry for peer %p", static_cast<void *>(stranger))));
    bus().clear_log();
    EXPECT_EQ(libvoice_plugin_get_index_by_peer(nullptr), -1);
    EXPECT_LOG_WITHOUT_MARKERS(said("x", function, "NULL  param !!"));
    bus().clear_log();
    EXPECT_EQ(libvoice_plugin_get_entry_by_peer(other_), &voice_plugin_table[5]);
    EXPECT_LOG_WITHOUT_MARKERS(
        said("i", function, text("getting plugin entry for peer %p", static_cast<void *>(other_))),
        said("i", function,
             text("voice_plugin_table[ plugin_table_index = 5 ] matches plugin peer %p", static_cast<void *>(other_))),
        said("i", "libvoice_plugin_get_entry_by_index", "getting plugin entry for index 5"));
    bus().clear_log();
    EXPECT_EQ(libvoice_plugin_get_entry_by_peer(stranger), nullptr);
    EXPECT_EQ(libvoice_plugin_get_entry_by_peer(nullptr), nullptr);
    EXPECT_THAT(bus().trace_log(), testing::Not(testing::Contains(HasSubstr("get_entry_by_index"))));
}

TEST_F(PluginTable, OfTwoMatchesTheFirstIsMeant) {
    voice_plugin_entry_t *first = have_plugin(2, "FXS", peer_), *second = have_plugin(6, "FXS", peer_);
    have_endpoint(0, "FXS1", 5, second);
    EXPECT_EQ(libvoice_plugin_get_entry("FXS"), first);
    EXPECT_EQ(libvoice_plugin_get_index("FXS"), 2);
    EXPECT_EQ(libvoice_plugin_get_index_by_peer(peer_), 2);
    EXPECT_EQ(libvoice_plugin_get_entry_by_peer(peer_), first);
    EXPECT_EQ(libvoice_plugin_add("FXS"), 2);
    EXPECT_EQ(libvoice_plugin_set_name_by_peer(peer_, "FXS"), 2);
    second->peer = other_;
    EXPECT_EQ(libvoice_plugin_get_peer_by_name("FXS"), peer_);
    second->peer = peer_;
    EXPECT_EQ(libvoice_plugin_free("FXS"), 0);
    EXPECT_EQ(first->used, 0u);
    first->used = 1;
    EXPECT_EQ(libvoice_plugin_deregister("FXS"), 0);
    EXPECT_EQ(first->used, 0u);
    first->used = 1;
    EXPECT_EQ(libvoice_plugin_deregister_by_peer(peer_), 0);
    EXPECT_EQ(first->used, 0u);
    EXPECT_EQ(second->used, 1u);
    EXPECT_EQ(endpt_table[0].used, 1u) << "the second one's endpoint";
}

class SetNameByPeer : public PluginTable {
protected:
    const char *const function_ = "libvoice_plugin_set_name_by_peer";
};

TEST_F(SetNameByPeer, ANewPeerTakesTheLowestFreeEntry) {
    have_plugin(0, "a", other_);
    EXPECT_EQ(libvoice_plugin_set_name_by_peer(peer_, "FXS"), 1);
    EXPECT_LOG_WITHOUT_MARKERS(
        said("i", "libvoice_plugin_get_index_by_peer",
             text("getting plugin entry for peer %p", static_cast<void *>(peer_))),
        said("i", "libvoice_plugin_get_next_free_index", "getting plugin next free index"),
        said("i", "libvoice_plugin_get_next_free_index", "voice_plugin_table[ plugin_table_index = 1 ] is free"));
    EXPECT_EQ(voice_plugin_table[1].used, 1u);
    EXPECT_STREQ(voice_plugin_table[1].plugin_name, "FXS");
    EXPECT_EQ(voice_plugin_table[1].peer, peer_);
}

TEST_F(SetNameByPeer, AKnownPeerKeepsItsEntryAndBearsTheSecondName) {
    EXPECT_EQ(libvoice_plugin_set_name_by_peer(peer_, "a long first name"), 0);
    EXPECT_EQ(libvoice_plugin_set_name_by_peer(peer_, "two"), 0);
    EXPECT_EQ(std::string(voice_plugin_table[0].plugin_name, 20), std::string("two") + std::string(17, '\0'))
        << "the copy pads with zeros";
    EXPECT_EQ(voice_plugin_table[1].used, 0u);
}

TEST_F(SetNameByPeer, TwoConnectionsMayBearOneName) {
    EXPECT_EQ(libvoice_plugin_set_name_by_peer(peer_, "FXS"), 0);
    EXPECT_EQ(libvoice_plugin_set_name_by_peer(other_, "FXS"), 1);
    EXPECT_EQ(libvoice_plugin_get_peer_by_name("FXS"), peer_);
}

TEST_F(SetNameByPeer, NamesAreCutToNineteen) {
    for (const size_t length : {0u, 18u, 19u, 20u, 21u, 25u, 3000u}) {
        const std::string name(length, 'n');
        EXPECT_EQ(libvoice_plugin_set_name_by_peer(peer_, name.c_str()), 0);
        EXPECT_EQ(std::string(voice_plugin_table[0].plugin_name), name.substr(0, 19));
        EXPECT_EQ(voice_plugin_table[0].peer, peer_) << "nothing written behind the name";
        EXPECT_EQ(libvoice_plugin_get_index(name.c_str()), length < 20 ? 0 : -1) << "a longer name never matches";
    }
}

TEST_F(SetNameByPeer, ANinthPluginIsRefused) {
    fill();
    const std::string before = snapshot();
    EXPECT_EQ(libvoice_plugin_set_name_by_peer(peer_, "FXS"), -1);
    EXPECT_THAT(bus().complaints(), ElementsAre(said("x", function_, "No more free slots availabe")));
    EXPECT_EQ(snapshot(), before);
    EXPECT_EQ(libvoice_plugin_set_name_by_peer(bus().peer("peer4"), "renamed"), 4) << "a known one is not";
}

TEST_F(SetNameByPeer, NullsAreRefusedNameFirst) {
    const std::string nil = text("%p", static_cast<void *>(nullptr));
    const char *const name = "FXS";
    EXPECT_EQ(libvoice_plugin_set_name_by_peer(nullptr, name), -1);
    EXPECT_LOG_WITHOUT_MARKERS(
        said("x", function_, text("Plugin Name %p, Peer ", static_cast<const void *>(name)) + nil + ": NULL param !!"));
    bus().clear_log();
    EXPECT_EQ(libvoice_plugin_set_name_by_peer(peer_, nullptr), -1);
    EXPECT_LOG_WITHOUT_MARKERS(
        said("x", function_, "Plugin Name " + nil + text(", Peer %p: NULL param !!", static_cast<void *>(peer_))));
    EXPECT_EQ(voice_plugin_table[0].used, 0u);
}

class AddByName : public PluginTable {
protected:
    const char *const function_ = "libvoice_plugin_add";
    static std::string searched(const char *name) {
        return said("i", "libvoice_plugin_get_index", text("getting or creating plugin entry for plugin %s", name));
    }
};

TEST_F(AddByName, AFreshEntryIsMadeWithoutAPeer) {
    have_plugin(0, "a", peer_);
    EXPECT_EQ(libvoice_plugin_add("FXS"), 1);
    EXPECT_LOG_WITHOUT_MARKERS(
        searched("FXS"), said("i", function_, "No entry was found, trying to create a fresh entry"),
        said("i", "libvoice_plugin_get_next_free_index", "getting plugin next free index"),
        said("i", "libvoice_plugin_get_next_free_index", "voice_plugin_table[ plugin_table_index = 1 ] is free"),
        said("i", function_, "voice_plugin_table[ 1 ] is reserved for plugin name FXS"));
    EXPECT_EQ(voice_plugin_table[1].used, 1u);
    EXPECT_STREQ(voice_plugin_table[1].plugin_name, "FXS");
    EXPECT_EQ(voice_plugin_table[1].peer, nullptr);
}

TEST_F(AddByName, AKnownNameKeepsItsEntry) {
    have_two();
    const std::string before = snapshot();
    EXPECT_EQ(libvoice_plugin_add("DECT"), 5);
    EXPECT_EQ(snapshot(), before);
    EXPECT_LOG_WITHOUT_MARKERS(searched("DECT"),
                               said("i", "libvoice_plugin_get_index",
                                    "voice_plugin_table[ plugin_table_index = 5 ] matches plugin name DECT"));
}

TEST_F(AddByName, NullAndFullAreRefused) {
    EXPECT_EQ(libvoice_plugin_add(nullptr), -1);
    EXPECT_LOG_WITHOUT_MARKERS(said("x", function_, "NULL  param !!"));
    fill();
    bus().clear_log();
    EXPECT_EQ(libvoice_plugin_add("FXS"), -1);
    EXPECT_LOG_WITHOUT_MARKERS(searched("FXS"),
                               said("i", function_, "No entry was found, trying to create a fresh entry"),
                               said("i", "libvoice_plugin_get_next_free_index", "getting plugin next free index"),
                               said("x", function_, "No free entry found !!"));
}

TEST_F(AddByName, LongNamesAreCutAndMakeANewEntryEachTime) {
    const std::string name(25, 'n');
    EXPECT_EQ(libvoice_plugin_add(name.c_str()), 0);
    EXPECT_EQ(std::string(voice_plugin_table[0].plugin_name), name.substr(0, 19));
    EXPECT_EQ(libvoice_plugin_add(name.c_str()), 1) << "the long name never matches its stored form";
}

TEST_F(AddByName, AReusedEntryKeepsTheOldPeer) {
    have_two();
    EXPECT_EQ(libvoice_plugin_free("FXS"), 0);
    EXPECT_EQ(voice_plugin_table[2].peer, peer_);
    EXPECT_STREQ(voice_plugin_table[2].plugin_name, "FXS");
    have_plugin(0, "a", nullptr);
    have_plugin(1, "b", nullptr);
    EXPECT_EQ(libvoice_plugin_add("new"), 2);
    EXPECT_EQ(voice_plugin_table[2].peer, peer_);
}

class FreePlugin : public PluginTable {};

TEST_F(FreePlugin, AnEntryLosesOnlyItsMark) {
    have_two();
    EXPECT_EQ(libvoice_plugin_free_entry(&voice_plugin_table[2]), 0);
    EXPECT_EQ(voice_plugin_table[2].used, 0u);
    EXPECT_STREQ(voice_plugin_table[2].plugin_name, "FXS");
    EXPECT_EQ(voice_plugin_table[2].peer, peer_);
    EXPECT_LOG_WITHOUT_MARKERS();
}

TEST_F(FreePlugin, NullsDoNoHarm) {
    have_plugin(0, "", bus().peer("nameless"));
    EXPECT_EQ(libvoice_plugin_free_entry(nullptr), 0);
    EXPECT_EQ(libvoice_plugin_free(nullptr), -1);
    EXPECT_EQ(libvoice_plugin_deregister(nullptr), -1);
    EXPECT_EQ(libvoice_plugin_deregister_by_peer(nullptr), -1);
    EXPECT_EQ(voice_plugin_table[0].used, 1u);
}

TEST_F(FreePlugin, ByNameTheEndpointsStay) {
    have_two();
    have_endpoint(0, "FXS1", 5, &voice_plugin_table[2]);
    const char *const function = "libvoice_plugin_free";
    EXPECT_EQ(libvoice_plugin_free("FXS"), 0);
    EXPECT_LOG_WITHOUT_MARKERS(
        said("i", function, "Deleting  plugin entry for plugin FXS"),
        said("i", function,
             "voice_plugin_table[ plugin_table_index = 2 ] matches plugin name FXS Removing it from "
             "plugin table"));
    EXPECT_EQ(endpt_table[0].used, 1u);
    bus().clear_log();
    EXPECT_EQ(libvoice_plugin_free("FXS"), -1);
    EXPECT_LOG_WITHOUT_MARKERS(said("i", function, "Deleting  plugin entry for plugin FXS"));
}

std::vector<int> deleted;

void on_deleted(libvoice_endpoint_t *entry) {
    deleted.push_back(static_cast<int>(entry - endpt_table));
}

class DeregisterPlugin : public PluginTable {
protected:
    DeregisterPlugin() {
        deleted.clear();
        have_two();
        libvoice_app_registered_callbacks.voice_app_endpoint_deleted = on_deleted;
        have_endpoint(0, "FXS1", 5, &voice_plugin_table[2]);
        have_endpoint(1, "DECT1", 6, &voice_plugin_table[5]);
        have_endpoint(2, "own", 7);
        have_endpoint(3, "gone", 8, &voice_plugin_table[2]);
        endpt_table[3].used = 0;
        have_endpoint(31, "FXS2", 9, &voice_plugin_table[2]);
    }
};

TEST_F(DeregisterPlugin, ExactlyItsEndpointsGo) {
    for (const bool by_peer : {false, true}) {
        deleted.clear();
        bus().clear_log();
        voice_plugin_table[2].used = endpt_table[0].used = endpt_table[31].used = 1;
        const char *function = by_peer ? "libvoice_plugin_deregister_by_peer" : "libvoice_plugin_deregister";
        EXPECT_EQ(by_peer ? libvoice_plugin_deregister_by_peer(peer_) : libvoice_plugin_deregister("FXS"), 0);
        EXPECT_THAT(deleted, ElementsAre(0, 31));
        EXPECT_EQ(voice_plugin_table[2].used, 0u);
        EXPECT_EQ(voice_plugin_table[5].used, 1u);
        EXPECT_EQ(endpt_table[1].used, 1u);
        EXPECT_EQ(endpt_table[2].used, 1u);
        const std::vector<std::string> log = log_of(function);
        EXPECT_EQ(log.front(), text("> %s@plugin_table", function));
        EXPECT_EQ(log.back(), text("< %s@plugin_table", function));
        EXPECT_THAT(bus().complaints(), IsEmpty());
    }
}

TEST_F(DeregisterPlugin, AnUnknownOneEndsWithoutAnExitMarker) {
    EXPECT_EQ(libvoice_plugin_deregister("none"), -1);
    EXPECT_LOG_OF("libvoice_plugin_deregister", "> libvoice_plugin_deregister@plugin_table",
                  said("i", "libvoice_plugin_get_entry", "getting plugin entry for plugin none"),
                  said("x", "libvoice_plugin_deregister", "No plugin entry found for plugin_name none."));
    bus().clear_log();
    peer_t *stranger = bus().peer("stranger");
    EXPECT_EQ(libvoice_plugin_deregister_by_peer(stranger), -1);
    EXPECT_LOG_OF("libvoice_plugin_deregister_by_peer", "> libvoice_plugin_deregister_by_peer@plugin_table",
                  said("i", "libvoice_plugin_get_index_by_peer",
                       text("getting plugin entry for peer %p", static_cast<void *>(stranger))),
                  said("x", "libvoice_plugin_deregister_by_peer",
                       text("No plugin entry found for peer %p.", static_cast<void *>(stranger))));
    EXPECT_THAT(deleted, IsEmpty());
}

TEST_F(PluginTable, TheFirstAndTheLastEntryAreReachedByNameAndPeer) {
    have_plugin(0, "first", peer_);
    have_plugin(7, "last", other_);
    EXPECT_EQ(libvoice_plugin_get_entry("first"), &voice_plugin_table[0]);
    EXPECT_EQ(libvoice_plugin_get_entry("last"), &voice_plugin_table[7]);
    EXPECT_EQ(libvoice_plugin_get_index("first"), 0);
    EXPECT_EQ(libvoice_plugin_get_index("last"), 7);
    EXPECT_EQ(libvoice_plugin_get_entry_by_peer(peer_), &voice_plugin_table[0]);
    EXPECT_EQ(libvoice_plugin_get_entry_by_peer(other_), &voice_plugin_table[7]);
    EXPECT_EQ(libvoice_plugin_get_entry_by_index(7), &voice_plugin_table[7]);
    EXPECT_EQ(libvoice_plugin_add("first"), 0);
    EXPECT_EQ(libvoice_plugin_free("last"), 0);
    EXPECT_EQ(libvoice_plugin_deregister_by_peer(peer_), 0);
    EXPECT_EQ(voice_plugin_table[0].used + voice_plugin_table[7].used, 0u);
}

TEST_F(PluginTable, ListingShowsAHeadingAndTheUsedOnes) {
    const char *const function = "libvoice_plugin_list_registered";
    const std::string heading =
        said("i", function, "Following plugin(s) Are currently registered to the voice application : ");
    libvoice_plugin_list_registered();
    EXPECT_LOG_WITHOUT_MARKERS(heading);
    have_two();
    bus().clear_log();
    libvoice_plugin_list_registered();
    EXPECT_LOG_WITHOUT_MARKERS(
        heading, said("i", function, "voice_plugin_table[ plugin_table_index = 2 ] having plugin name 'FXS'"),
        said("i", function, "voice_plugin_table[ plugin_table_index = 5 ] having plugin name 'DECT'"));
}

} // namespace
} // namespace voice_test
