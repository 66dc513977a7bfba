// SPDX-License-Identifier: MIT
// Driving a DSP plugin: the requests of each step, and what is said of their answers.
#include "application.h"
#include "dsp.h"
#include "local_sockets.h"
#include "plan.h"

#include <cstring>
#include <gmock/gmock.h>
#include <unistd.h>

using application_test::ApplicationTest;
using fake::bus;
using fake::Reply;
using fake::Value;
using testing::Contains;
using testing::Each;
using testing::HasSubstr;

namespace {

class Dsp : public ApplicationTest {
protected:
    Dsp() { app().register_plugin("dsp1"); }

    // The paths and functions of the requests since `from`.
    static std::vector<std::string> requests(unsigned from) {
        std::vector<std::string> result;
        for (unsigned id = from + 1; id <= bus().requests_made(); id++)
            result.push_back(bus().record(id).path + " " + bus().record(id).function);
        return result;
    }
    // Answers all that waits, so that the application gives its requests back.
    static void answer_all(const Reply &reply) {
        for (unsigned id = 1; id <= bus().requests_made(); id++)
            if (bus().record(id).reply_handler != nullptr)
                bus().complete(bus().request(id), reply);
    }
    // Makes a DSP, all answered with yes. @return its name
    std::string make() {
        const unsigned before = bus().requests_made();
        EXPECT_EQ(dsp_command("dsp1", nullptr, nullptr), nullptr);
        const std::string name = bus().record(before + 1).parameter("name").data;
        answer_all(Reply().value(Value::boolean(true)));
        return name;
    }
};

TEST_F(Dsp, IsMadeWithTwoChannelsThatTalkAndPlay) {
    const unsigned before = bus().requests_made();
    const std::string name = make();
    const std::string dsp = "dsp1.DSPPlugin.DSP." + name, channel = dsp + ".DSP_CHANNEL." + name;
    EXPECT_LINES(requests(before), "dsp1.DSPPlugin createDsp", dsp + " createDspChannel", dsp + " createDspChannel",
                 channel + "C1 create", channel + "C2 create", channel + "C1 signal");
    const fake::RequestRecord &create = bus().record(before + 4);
    EXPECT_EQ(create.parameter("cnx_info").data.size(), static_cast<size_t>(LIBVOICE_CNX_INFO_BYTES));
    EXPECT_EQ(create.parameter("filedesc").items.size(), 3u);
    EXPECT_EQ(create.parameter("endpoint_path").str(), "\"\"");
    EXPECT_EQ(create.parameter("ep_line_id").str(), "u32 0");
    uint32_t signal = 0;
    memcpy(&signal, bus().record(before + 6).parameter("signal").data.data() + 4, sizeof signal);
    EXPECT_EQ(signal, static_cast<uint32_t>(LIBVOICE_SIGNAL_cg_rt));
    EXPECT_THAT(app().said(), Contains("dsp dsp1 createDsp " + name + ": true"));
}

TEST_F(Dsp, AnswersAreSaidAsTheyCome) {
    ASSERT_EQ(dsp_command("dsp1", nullptr, nullptr), nullptr);
    app().said();
    bus().answer("createDsp", Reply().value(Value::boolean(false)));
    bus().turn();
    EXPECT_THAT(app().said(), testing::ElementsAre(HasSubstr(": false")));
    bus().answer("createDspChannel", Reply().error(196640, "Missing mandatory argument", "name"));
    bus().turn();
    EXPECT_THAT(app().said(), Each(HasSubstr(": Missing mandatory argument (name)")));
    answer_all(Reply());
    EXPECT_THAT(app().said(), Each(HasSubstr(": no answer")));
}

TEST_F(Dsp, OnlyTheFirstItemOfAnAnswerIsSaid) {
    ASSERT_EQ(dsp_command("dsp1", nullptr, nullptr), nullptr);
    app().said();
    answer_all(Reply().error(1, "first", "").value(Value::boolean(true)));
    EXPECT_THAT(app().said(), Each(HasSubstr(": first ()")));
}

TEST_F(Dsp, CodecAndDestroyReachBothChannels) {
    const std::string name = make();
    const std::string channel = "dsp1.DSPPlugin.DSP." + name + ".DSP_CHANNEL." + name;
    unsigned before = bus().requests_made();
    EXPECT_EQ(dsp_command("dsp1", "codec", "pcmu"), nullptr);
    EXPECT_LINES(requests(before), channel + "C1 modify", channel + "C2 modify");
    EXPECT_EQ(bus().record(before + 1).parameter("filedesc").str(), "list[fd -1, fd -1, fd -1]") << "the sockets stay";
    before = bus().requests_made();
    EXPECT_EQ(dsp_command("dsp1", "destroy", nullptr), nullptr);
    EXPECT_LINES(requests(before), channel + "C1 destroy", channel + "C2 destroy");
    answer_all(Reply().value(Value::boolean(true)));
}

TEST_F(Dsp, BadCommandsAreRejected) {
    make();
    EXPECT_STREQ(dsp_command(nullptr, nullptr, nullptr), "there is no plugin ''");
    EXPECT_STREQ(dsp_command("dsp2", nullptr, nullptr), "there is no plugin 'dsp2'");
    EXPECT_STREQ(dsp_command("dsp1", "codec", nullptr), "dsp PLUGIN codec CODEC: a codec like PCMA, PCMU");
    EXPECT_STREQ(dsp_command("dsp1", "codec", "MP3"), "dsp PLUGIN codec CODEC: a codec like PCMA, PCMU");
    EXPECT_STREQ(dsp_command("dsp1", "play", nullptr), "dsp PLUGIN | dsp PLUGIN codec CODEC | dsp PLUGIN destroy");
}

// Nothing is begun that has no ports, nor counted as the DSP that later commands change.
TEST_F(Dsp, WithoutPortsForBothChannelsNothingIsMade) {
    const std::string name = make();
    const uint16_t last = the_plan.last_port;
    the_plan.last_port = static_cast<uint16_t>(the_plan.first_port + 3);
    const int other = voice_test::bound_socket(the_plan.first_port);
    ASSERT_GE(other, 0);
    unsigned before = bus().requests_made();
    EXPECT_STREQ(dsp_command("dsp1", nullptr, nullptr), "no media ports left");
    EXPECT_EQ(bus().requests_made(), before);
    close(other);
    the_plan.last_port = last;
    before = bus().requests_made();
    EXPECT_EQ(dsp_command("dsp1", "destroy", nullptr), nullptr);
    EXPECT_THAT(requests(before)[0], HasSubstr(name + "C1 destroy"));
    answer_all(Reply().value(Value::boolean(true)));
}

TEST_F(Dsp, WhatCannotBeSentLeavesNothing) {
    make();
    bus().fail_always("kex_sendRequest");
    EXPECT_STREQ(dsp_command("dsp1", nullptr, nullptr), "not sent");
    EXPECT_STREQ(dsp_command("dsp1", "destroy", nullptr), "not sent");
}

TEST_F(Dsp, WhatCannotBeMadeLeavesNothing) {
    make();
    bus().fail("request_create_executeFunction");
    EXPECT_STREQ(dsp_command("dsp1", "destroy", nullptr), "not sent");
}

} // namespace
