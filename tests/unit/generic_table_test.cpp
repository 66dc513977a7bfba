// SPDX-License-Identifier: MIT
// Entries of the endpoint table: claimed, named, deleted, printed.
#include "generic_fixture.h"

namespace voice_test {
namespace {

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

} // namespace
} // namespace voice_test
