// SPDX-License-Identifier: MIT
// Peers and objects.
#include "sanity_fixture.h"

namespace sanity {
namespace {

int closed_peers;

int on_close(peer_t *, int event, void *) {
    EXPECT_EQ(event, PEER_EVENT_CLOSED);
    ++closed_peers;
    return 1;
}

TEST_F(Harness, AClosedPeerTellsItsHandlerAndTakesNothingMore) {
    closed_peers = 0;
    peer_t *peer = bus().peer("application");
    EXPECT_TRUE(peer_setEventHandler(peer, PEER_EVENT_CLOSED, nullptr, on_close));
    EXPECT_EQ(bus().close(peer), 1);
    EXPECT_EQ(closed_peers, 1);
    request_t *r = make_request();
    EXPECT_FALSE(kex_sendRequest(bus().handle(), peer, r));
    EXPECT_FALSE(peer_setEventHandler(peer, PEER_EVENT_CLOSED, nullptr, on_close));
    request_destroy(r);
}

// As on a real bus: a handle is never used again.
TEST_F(Harness, AConnectionAfterTheEndOfTheLastIsANewOne) {
    peer_t *first = kex_client_connect(bus().handle(), "kex://ipc:[/socket]");
    EXPECT_EQ(kex_client_connect(bus().handle(), "kex://ipc:[/socket]"), first);
    bus().close(first);
    peer_t *second = kex_client_connect(bus().handle(), "kex://ipc:[/socket]");
    EXPECT_NE(second, first);
    EXPECT_EQ(second, bus().peer("application"));
    EXPECT_NE(peer_processId(second), peer_processId(first));
    request_t *request = request_create_executeFunction("A", "f", 1);
    EXPECT_FALSE(kex_sendRequest(bus().handle(), first, request));
    EXPECT_TRUE(kex_sendRequest(bus().handle(), second, request));
    request_destroy(request);
}

TEST_F(Harness, ObjectsAreCreatedAndDeletedOnCommit) {
    object_t *root = bus().object("FXS.EndPoint");
    object_t *made = object_createInstance(root, 0, "FXS1");
    EXPECT_EQ(kex_getObject(bus().handle(), "FXS.EndPoint.FXS1", 1), made);
    EXPECT_EQ(object_getObject(root, "FXS1", 1, nullptr), made);
    EXPECT_EQ(object_createInstance(root, 0, "FXS1"), nullptr);
    EXPECT_TRUE(object_delete(made));
    EXPECT_TRUE(bus().exists("FXS.EndPoint.FXS1")) << "until it is committed";
    EXPECT_TRUE(object_commit(root));
    EXPECT_FALSE(bus().exists("FXS.EndPoint.FXS1"));
    EXPECT_TRUE(bus().exists("FXS"));
}

TEST_F(Harness, ObjectsAreWhatTheyWereDeclaredAs) {
    kex_t *on = bus().handle();
    EXPECT_NE(kex_declareObject(on, "A.B", "Service"), nullptr);
    EXPECT_EQ(bus().class_of("A.B"), "Service");
    EXPECT_EQ(bus().class_of("A"), "");
    EXPECT_NE(kex_declareObject(on, "A.B", "Service"), nullptr);
    EXPECT_EQ(kex_declareObject(on, "A.B", "Another"), nullptr);
    EXPECT_EQ(kex_declareTemplate(on, "A.B", "Service"), nullptr);
    for (const char *path : {"", ".", "A.", ".A", "A..B"})
        EXPECT_EQ(kex_declareObject(on, path, nullptr), nullptr) << path;
    EXPECT_EQ(kex_declareObject(on, nullptr, nullptr), nullptr);
    EXPECT_EQ(object_createInstance(kex_getObject(on, "A.B", 0), 0, "X"), nullptr) << "no template";
}

TEST_F(Harness, ATemplatesTemplatesAreMadeWithEachInstance) {
    kex_t *on = bus().handle();
    object_t *dsps = kex_declareTemplate(on, "P.DSPPlugin", "DSPPlugin");
    kex_declareTemplate(on, "P.DSPPlugin.DSP", "DSP");
    kex_declareTemplate(on, "P.DSPPlugin.DSP.CHANNEL", "DSP_CHANNEL");
    object_t *first = object_createInstance(dsps, 0, "dsp0");
    object_t *channels = object_createInstance(object_getObject(first, "DSP", 1, nullptr), 0, "0");
    EXPECT_NE(object_createInstance(object_getObject(channels, "CHANNEL", 1, nullptr), 0, "3"), nullptr);
    EXPECT_EQ(bus().class_of("P.DSPPlugin.dsp0"), "DSPPlugin");
    EXPECT_EQ(bus().class_of("P.DSPPlugin.dsp0.DSP.0"), "DSP");
    EXPECT_EQ(bus().class_of("P.DSPPlugin.dsp0.DSP.0.CHANNEL.3"), "DSP_CHANNEL");
    object_createInstance(dsps, 0, "dsp1");
    EXPECT_TRUE(bus().exists("P.DSPPlugin.dsp1.DSP"));
    EXPECT_FALSE(bus().exists("P.DSPPlugin.dsp1.dsp0")) << "an instance is no part of its template";
    EXPECT_FALSE(bus().exists("P.DSPPlugin.dsp1.dsp0.DSP"));
    object_delete(first);
    object_commit(dsps);
    EXPECT_FALSE(bus().exists("P.DSPPlugin.dsp0.DSP.0.CHANNEL.3"));
}

TEST_F(Harness, DeclaredFunctionsAreKept) {
    const char *const rows[] = {"EndPoint", "signal", "signal", nullptr, "", "init", "country", nullptr};
    EXPECT_TRUE(kex_declareFunctions(bus().handle(), rows, 2, 4));
    EXPECT_THAT(bus().declared_functions(),
                ElementsAre(ElementsAre("EndPoint", "signal", "signal"), ElementsAre("", "init", "country")));
    const char *const nameless[] = {"EndPoint", ""};
    EXPECT_FALSE(kex_declareFunctions(bus().handle(), nameless, 1, 2));
    EXPECT_FALSE(kex_declareFunctions(bus().handle(), rows, 2, 1));
    EXPECT_FALSE(kex_declareFunctions(bus().handle(), nullptr, 2, 4));
    EXPECT_EQ(bus().declared_functions().size(), 2u);
}

void on_any_close(kex_t *on, peer_t *peer, void *userdata) {
    EXPECT_EQ(on, bus().handle());
    bus().note("closed " + *static_cast<std::string *>(userdata) + peer_processName(peer));
}

TEST_F(Harness, TheHostIsToldOfEachClosingAfterThePeersOwnHandler) {
    closed_peers = 0;
    std::string text = "peer ";
    peer_t *peer = bus().peer("fxs1");
    kex_onPeerClosed(bus().handle(), on_any_close, &text);
    peer_setEventHandler(peer, PEER_EVENT_CLOSED, nullptr, on_close);
    bus().clear_log();
    EXPECT_TRUE(peer_disconnect(peer));
    EXPECT_FALSE(peer_disconnect(peer));
    EXPECT_EQ(closed_peers, 0) << "in a later turn";
    request_t *r = make_request();
    EXPECT_FALSE(kex_sendRequest(bus().handle(), peer, r));
    request_destroy(r);
    EXPECT_EQ(bus().turn(), 1);
    EXPECT_EQ(closed_peers, 1);
    EXPECT_EQ(bus().acts().back(), "closed peer fxs1");
    EXPECT_FALSE(peer_disconnect(peer));
    EXPECT_FALSE(peer_disconnect(nullptr));
}

TEST_F(Harness, PeersHaveProcesses) {
    peer_t *peer = bus().peer("application");
    EXPECT_STREQ(peer_processName(peer), "application");
    EXPECT_GT(peer_processId(peer), 0);
    EXPECT_NE(peer_processId(bus().peer("another")), peer_processId(peer));
    bus().process(peer, "voice_application", 77);
    EXPECT_STREQ(peer_processName(peer), "voice_application");
    EXPECT_EQ(peer_processId(peer), 77);
    EXPECT_STREQ(peer_processName(nullptr), "");
    EXPECT_EQ(peer_processId(nullptr), 0);
}

} // namespace
} // namespace sanity
