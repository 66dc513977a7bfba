// SPDX-License-Identifier: MIT
// Numbers of lines that were lost: each rests for its own line, half a minute, whatever happens to others.
#include "application.h"

#include <gmock/gmock.h>

using application_test::ApplicationTest;
using fake::bus;
using fake::Call;
using fake::Value;
using testing::Contains;

namespace {

class Numbers : public ApplicationTest {
protected:
    int32_t telephone(const char *plugin, const char *name) {
        return app().register_endpoint(plugin, name, VOICE_ENDPOINT_FXS);
    }
    // A plugin and its first line register again, on a new connection.
    void come_back(const char *plugin, const char *connection) {
        Call again;
        again.from(bus().peer(connection)).with("plugin_name", Value::chars(plugin));
        ASSERT_EQ(again.run(__VoiceService_register_plugin), KEX_FUNCTION_DONE);
        telephone(plugin, "FXS1");
    }
    // Two plugins whose first lines want the number 101: fxs1 has it.
    void two_want_it() {
        app().register_plugin("fxs1");
        app().register_plugin("cellar1");
        telephone("fxs1", "FXS1");
        telephone("cellar1", "FXS1");
    }
    // To the millisecond.
    void expect_rest(uint32_t milliseconds, const char *then) {
        app().said();
        bus().advance(milliseconds - 1);
        EXPECT_LINES(app().said());
        bus().advance(1);
        EXPECT_LINES(app().said(), then);
    }
};

TEST_F(Numbers, NumberOfALostLineWaitsHalfAMinuteForIt) {
    two_want_it();
    app().said();
    app().close("fxs1");
    EXPECT_LINES(app().said(), "plugin fxs1 lost", "endpoint 0 fxs1.FXS1 gone");
    bus().advance(29999);
    come_back("fxs1", "fxs1 again");
    EXPECT_THAT(app().said(), Contains("endpoint 0 fxs1.FXS1 number=101 codecs=PCMA,PCMU")) << "back in time";
    bus().advance(60000);
    EXPECT_LINES(app().said());
    app().close("fxs1 again");
    expect_rest(30000, "endpoint 1 cellar1.FXS1 has the number 101 now");
}

TEST_F(Numbers, LineThatComesMeanwhileDoesNotGetTheNumberOfALostOne) {
    app().register_plugin("fxs1");
    app().register_plugin("cellar1");
    telephone("fxs1", "FXS1");
    app().close("fxs1");
    app().said();
    telephone("cellar1", "FXS1");
    EXPECT_LINES(app().said(), "endpoint 0 cellar1.FXS1 number=none codecs=PCMA,PCMU",
                 "endpoint 0 cellar1.FXS1 has no number: 101 waits for fxs1.FXS1, which was lost");
    come_back("fxs1", "fxs1 again");
    EXPECT_THAT(app().said(), Contains("endpoint 1 fxs1.FXS1 number=101 codecs=PCMA,PCMU"));
}

TEST_F(Numbers, LossOfAnotherLineHoldsNoNumberBack) {
    app().register_plugin("fxs1");
    app().register_plugin("fxs2");
    app().register_plugin("cellar1");
    telephone("fxs1", "FXS1");
    telephone("fxs2", "FXS1");
    telephone("cellar1", "FXS1");
    app().close("fxs1");
    bus().advance(20000);
    app().close("fxs2");
    expect_rest(10000, "endpoint 2 cellar1.FXS1 has the number 101 now");
}

TEST_F(Numbers, LineThatIsLostAgainHasHalfAMinuteAgain) {
    two_want_it();
    app().close("fxs1");
    bus().advance(20000);
    come_back("fxs1", "fxs1 again");
    app().close("fxs1 again");
    expect_rest(30000, "endpoint 1 cellar1.FXS1 has the number 101 now");
}

TEST_F(Numbers, NumberThatRestedInVainIsFree) {
    app().register_plugin("fxs1");
    app().register_plugin("cellar1");
    telephone("fxs1", "FXS1");
    app().close("fxs1");
    bus().advance(30000);
    app().said();
    telephone("cellar1", "FXS1");
    EXPECT_LINES(app().said(), "endpoint 0 cellar1.FXS1 number=101 codecs=PCMA,PCMU");
}

TEST_F(Numbers, EmergencyNumbersAreNobodys) {
    app().register_plugin("fxs1");
    app().said();
    telephone("fxs1", "FXS10");
    telephone("fxs1", "FXS11");
    EXPECT_LINES(app().said(), "endpoint 0 fxs1.FXS10 number=none codecs=PCMA,PCMU",
                 "endpoint 0 fxs1.FXS10 has no number: 110 is an emergency number",
                 "endpoint 1 fxs1.FXS11 number=111 codecs=PCMA,PCMU");
    the_plan.country[0] = 'S'; // Sweden, where 110 is none
    the_plan.country[1] = 'E';
    app().deregister_endpoint(0);
    telephone("fxs1", "FXS10");
    EXPECT_THAT(app().said(), Contains("endpoint 0 fxs1.FXS10 number=110 codecs=PCMA,PCMU"));
}

TEST_F(Numbers, OfLostLinesRestOnly32AtATime) {
    app().register_plugin("fxs1");
    for (int i = 0; i < LIBVOICE_ENDPOINTS; i++)
        telephone("fxs1", fake::text("%d", i + 20).c_str());
    app().close("fxs1");
    app().register_plugin("fxs2");
    app().register_plugin("cellar2");
    telephone("fxs2", "FXS1");
    telephone("cellar2", "FXS1");
    app().said();
    app().close("fxs2");
    EXPECT_LINES(app().said(), "plugin fxs2 lost", "endpoint 0 fxs2.FXS1 gone",
                 "endpoint 1 cellar2.FXS1 has the number 201 now");
}

} // namespace
