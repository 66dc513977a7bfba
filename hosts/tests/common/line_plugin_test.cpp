// SPDX-License-Identifier: MIT
// Registration by the rules of a plugin host, the loss of the application, deregistering, leaving.
#include "line_fixture.h"

#include "plugin.h"

using fake::bus;
using fake::Reply;
using fake::Value;

TEST_F(LineTest, InitRegistersEachLineAndSaysSo) {
    add("L1");
    add("L2");
    init(7);
    EXPECT_EQ(bus().requests_made(), 2u);
    EXPECT_EQ(bus().record(1).function, "register_endpoint");
    EXPECT_EQ(bus().record(1).parameter("endpoint_name").str(), "\"L1\"");
    EXPECT_EQ(bus().record(1).parameter("endpoint_path").str(), "\"stub.EndPoint.L1\"");
    EXPECT_EQ(bus().record(1).parameter("codeclist").data.size(), 2 * sizeof(voice_codec_t));
    EXPECT_EQ(bus().record(2).parameter("endpoint_name").str(), "\"L2\"");
    EXPECT_EQ(news(),
              (Texts{"L1 stop LIBVOICE_SIGNAL_zil_cancel_all_signals", "L1 lost", "says: 1 registered L1 endpoint=7",
                     "L1 registered DE", "L2 stop LIBVOICE_SIGNAL_zil_cancel_all_signals", "L2 lost",
                     "says: 2 registered L2 endpoint=7", "L2 registered DE", "says: ready country=DE lines=2"}));
    EXPECT_TRUE(bus().exists("stub.EndPoint.L1"));
}

TEST_F(LineTest, NothingIsRegisteredOutsideInit) {
    line_t *line = add();
    EXPECT_FALSE(line_is_registered(line));
    EXPECT_FALSE(line_report_off_hook(line));
    EXPECT_EQ(callbacks_.voice_plugin_destroy(0, 0), 1);
    EXPECT_EQ(bus().requests_made(), 0u);
}

TEST_F(LineTest, InitMayComeTwice) {
    line_t *line = add();
    init(7);
    news();
    init(9);
    EXPECT_EQ(bus().requests_made(), 1u) << "the line is registered already";
    EXPECT_EQ(news(), (Texts{"says: ready country=DE lines=1"})) << "and is left as it is";
    EXPECT_TRUE(line_is_registered(line));
    EXPECT_TRUE(line_report_flash(line));
    EXPECT_EQ(events(), (Texts{"7 LIBVOICE_EVENT_al_fl line=0"}));
}

TEST_F(LineTest, ARefusedLineLeavesNothingBehind) {
    line_t *line = add();
    init(-1); // and the answer is 0, see init()
    EXPECT_EQ(news(), (Texts{"says: 1 refused: the application does not take L1", "says: ready country=DE lines=0"}));
    EXPECT_FALSE(line_is_registered(line));
    EXPECT_FALSE(bus().exists("stub.EndPoint.L1"));
    EXPECT_EQ(libvoice_get_endpoint_index_by_name("L1"), -1);
    init(3);
    EXPECT_TRUE(line_is_registered(line)) << "it may try again";
}

TEST_F(LineTest, AnObjectLeftFromBeforeIsTakenAwayFirst) {
    add();
    bus().object("stub.EndPoint.L1");
    init(7);
    EXPECT_TRUE(bus().exists("stub.EndPoint.L1"));
    EXPECT_EQ(news().back(), "says: ready country=DE lines=1");
    for (const std::string &complaint : bus().complaints())
        ADD_FAILURE() << complaint;
}

TEST_F(LineTest, NoObjectIsDeletedThatIsNotThere) {
    add();
    init(7);
    for (const std::string &complaint : bus().complaints())
        ADD_FAILURE() << complaint << ": deleting what is not there is traced as an error";
}

TEST_F(LineTest, WhoIsOffHookIsReportedAfterRegistration) {
    line_t *lifted = add("L1");
    add("L2");
    line_t *back = add("L3");
    line_report_off_hook(lifted);
    line_report_off_hook(back);
    line_report_on_hook(back);
    init(7);
    EXPECT_EQ(events(), (Texts{"7 LIBVOICE_EVENT_al_of line=0"}));
    int32_t initial = 0;
    EXPECT_TRUE(event_int(LIBVOICE_PARAM_al_of_init, &initial));
    EXPECT_EQ(initial, 1) << "found so, not happening now";
    EXPECT_EQ(bus().record(4).function, "event") << "after all lines are registered";
}

TEST_F(LineTest, TheLossOfTheApplicationBringsLinesToRest) {
    line_t *line = add();
    init(7);
    voice_cnx_info_t info;
    connection_of(&info, LIBVOICE_CODEC_PCMA, 8);
    int32_t descriptors[LIBVOICE_DESCRIPTORS], *given = descriptors;
    fill_descriptors(descriptors, 2);
    ASSERT_EQ(callbacks_.voice_plugin_create(7, 0, &info, &given), 0);
    EXPECT_EQ(callbacks_.voice_plugin_create_ctx(5), 0);
    news();
    line_plugin_application_lost();
    EXPECT_EQ(news(), (Texts{"says: application lost", "L1 close 0", "L1 stop LIBVOICE_SIGNAL_zil_cancel_all_signals",
                             "L1 lost"}));
    EXPECT_FALSE(line_is_registered(line));
    EXPECT_FALSE(line_report_flash(line));
    EXPECT_EQ(callbacks_.voice_plugin_create_ctx(5), 0) << "contexts are forgotten";
    EXPECT_FALSE(is_open(descriptors[0]));
}

TEST_F(LineTest, ExitEndsTheLoop) {
    EXPECT_EQ(callbacks_.voice_plugin_exit(32), 0);
    EXPECT_EQ(news(), (Texts{"says: exit reason=32", "host_stop"}));
}

TEST_F(LineTest, ChannelsAreNoBusinessOfLines) {
    libvoice_event_t event = {};
    EXPECT_NE(callbacks_.voice_plugin_event(&event, 1), 0);
}

TEST_F(LineTest, LeavingSendsOneWay) {
    plugin_leave();
    EXPECT_EQ(bus().record(1).function, "deregister_plugin");
    EXPECT_EQ(bus().record(1).parameter("plugin_name").str(), "\"stub\"");
    EXPECT_EQ(news(), Texts{}) << "the application answers with exit";
    libvoice_set_kex_peer_handler(nullptr);
    plugin_leave();
    EXPECT_EQ(news(), (Texts{"host_stop"})) << "nobody will answer";
}

TEST_F(LineTest, ADeregisteredLineStaysOut) {
    line_t *line = add();
    EXPECT_STREQ(line_deregister(line), "1 is not registered");
    init(7);
    news();
    bus().answer("deregister_endpoint", Reply().value(Value::boolean(true)));
    EXPECT_EQ(line_deregister(line), nullptr);
    EXPECT_EQ(news(), (Texts{"L1 stop LIBVOICE_SIGNAL_zil_cancel_all_signals", "L1 lost", "says: 1 deregistered"}));
    EXPECT_FALSE(line_is_registered(line));
    init(7);
    EXPECT_EQ(news(), (Texts{"says: ready country=DE lines=0"}));
}

TEST_F(LineTest, DeregisteringLaterWaitsForTheLoop) {
    line_t *line = add();
    init(7);
    news();
    bus().answer("deregister_endpoint", Reply().value(Value::boolean(true)));
    line_deregister_later(line);
    EXPECT_EQ(news(), Texts{});
    bus().advance(1);
    EXPECT_EQ(news().back(), "says: 1 deregistered");
    line_deregister_later(line);
    bus().advance(1);
    EXPECT_EQ(news(), (Texts{"says: 1 is not registered"}));
}

TEST_F(LineTest, WhatCannotBeALineIsNotAdded) {
    EXPECT_EQ(line_add(&driver_, nullptr, 1, "sixteen_letters_", "PCMA"), nullptr);
    EXPECT_EQ(line_add(&driver_, nullptr, 1, "a.b", "PCMA"), nullptr);
    EXPECT_EQ(line_add(&driver_, nullptr, 1, "", "PCMA"), nullptr);
    EXPECT_EQ(line_add(&driver_, nullptr, 1, "L1", "PCMA,OPUS"), nullptr);
    line_driver_t cannot_close = driver_;
    cannot_close.close = nullptr;
    EXPECT_EQ(line_add(&cannot_close, nullptr, 1, "L1", "PCMA"), nullptr);
    for (int i = 0; i < LIBVOICE_ENDPOINTS; i++)
        EXPECT_EQ(line_number(add(("L" + std::to_string(i)).c_str())), i + 1);
    EXPECT_EQ(add("one_more"), nullptr);
}

TEST_F(LineTest, ADriverWithoutOperationsIsALine) {
    const line_driver_t nothing = {};
    line_t *line = add("L1", &nothing);
    init(7);
    EXPECT_TRUE(line_is_registered(line));
    line_plugin_application_lost();
    EXPECT_FALSE(line_is_registered(line));
}
