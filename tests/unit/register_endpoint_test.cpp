// SPDX-License-Identifier: MIT
// Endpoints that a plugin registers and takes back: the request, its answer, the object and the entry.
#include "register_fixture.h"

#include <memory>

namespace voice_test {
namespace {

const char *const kKex = "libvoice_kex_register_endpoint";

class RegisterEndpoint : public Register {
protected:
    RegisterEndpoint() { have(); }

    void have() {
        libvoice_set_kex_peer_handler(bus().peer("application"));
        bus().object("FXS.EndPoint");
        bus().answer("register_endpoint", Reply().value(Value::i16(7)));
        bus().answer("deregister_endpoint", Reply());
        bus().clear_log();
    }
    void start_over() {
        again();
        have();
    }

    // `count` records and the null at the end; each record a heap block of exactly its size.
    const void *const *codecs(size_t count) {
        pointers_.clear();
        blocks_.clear();
        for (size_t i = 0; i < count; ++i) {
            blocks_.emplace_back(new char[16]);
            memset(blocks_.back().get(), static_cast<int>('A' + i), 16);
            pointers_.push_back(blocks_.back().get());
        }
        pointers_.push_back(nullptr);
        return pointers_.data();
    }

    static std::string records(size_t count) {
        std::string result;
        for (size_t i = 0; i < count; ++i)
            result += std::string(16, static_cast<char>('A' + i));
        return result;
    }

    const std::string enter_ = text("> %s@register", kKex), leave_ = text("< %s@register", kKex);
    std::vector<std::string> request(const char *name, unsigned type, const std::string &list) {
        return {enter_,
                text("r1 = request_create_executeFunction(\"%s\", \"register_endpoint\", 0x0001)", kService),
                "request_addParameter(r1, \"plugin_name\", \"FXS\")",
                text("request_addParameter(r1, \"endpoint_name\", \"%s\")", name),
                text("request_addParameter(r1, \"endpoint_path\", \"FXS.EndPoint.%s\")", name),
                text("request_addParameter(r1, \"type\", u16 %u)", type),
                "request_addParameter(r1, \"codeclist\", " + Value::bytes(list).str() + ")"};
    }
    void expect_log(std::vector<std::string> expected, const std::vector<std::string> &rest) {
        expected.insert(expected.end(), rest.begin(), rest.end());
        EXPECT_EQ(fake::difference(expected, log_of(kKex)), "");
    }
    const std::string sent_ = "kex_sendRequest(bus, application, r1) = 1",
                      waited_ = "kex_waitForReply(bus, r1, no limit) = 1", destroyed_ = "request_destroy(r1)";

private:
    std::vector<const void *> pointers_;
    std::vector<std::unique_ptr<char[]>> blocks_;
};

TEST_F(RegisterEndpoint, TheRequestCarriesItsArgumentsInOrder) {
    int32_t number = 99;
    EXPECT_EQ(libvoice_kex_register_endpoint(3, "FXS1", nullptr, codecs(2), &number), 1);
    expect_log(request("FXS1", 3, records(2)),
               {sent_, waited_, said("i", kKex, "Got endpoint index '7'."), destroyed_, leave_});
    EXPECT_EQ(number, 7);
}

TEST_F(RegisterEndpoint, TheThirdArgumentIsIgnored) {
    int32_t number = 0;
    EXPECT_EQ(libvoice_kex_register_endpoint(3, "FXS1", reinterpret_cast<void *>(1), codecs(0), &number), 1);
}

TEST_F(RegisterEndpoint, OnlyTheLowSixteenBitsOfTheTypeTravel) {
    const struct {
        int32_t type;
        unsigned travels;
    } rows[] = {{0, 0}, {65535, 65535}, {65536, 0}, {0x12345, 0x2345}, {-1, 65535}};
    for (const auto &row : rows) {
        start_over();
        int32_t number = 0;
        EXPECT_EQ(libvoice_kex_register_endpoint(row.type, "FXS1", nullptr, codecs(0), &number), 1);
        EXPECT_EQ(bus().record(1).parameter("type").str(), text("u16 %u", row.travels));
        expect_settled(text("type %d", row.type));
    }
}

TEST_F(RegisterEndpoint, TheFirstSixteenCodecsTravel) {
    for (const size_t count : {0u, 1u, 15u, 16u, 17u, 20u}) {
        start_over();
        int32_t number = 0;
        EXPECT_EQ(libvoice_kex_register_endpoint(3, "FXS1", nullptr, codecs(count), &number), 1);
        EXPECT_EQ(bus().record(1).parameter("codeclist").data, records(std::min<size_t>(count, 16))) << count;
        EXPECT_EQ(bus().record(1).parameter("codeclist").type, static_cast<uint32_t>(VARIANT_BYTES));
        expect_settled(text("%zu codecs", count));
    }
}

TEST_F(RegisterEndpoint, AFullCodecListNeedsNoNullBehindIt) {
    int32_t number = 0;
    // Sixteen pointers in a block of exactly their size: a sanitizer sees a look at a seventeenth.
    std::unique_ptr<const void *[]> full(new const void *[16]);
    memcpy(full.get(), codecs(16), 16 * sizeof(const void *));
    EXPECT_EQ(libvoice_kex_register_endpoint(3, "FXS1", nullptr, full.get(), &number), 1);
    EXPECT_EQ(bus().record(1).parameter("codeclist").data, records(16));
}

TEST_F(RegisterEndpoint, NoCodecListIsAnEmptyOne) {
    int32_t number = 0;
    EXPECT_EQ(libvoice_kex_register_endpoint(3, "FXS1", nullptr, nullptr, &number), 1);
    EXPECT_EQ(bus().record(1).parameter("codeclist").str(), "bytes(0)");
}

TEST_F(RegisterEndpoint, APathThatWouldOverflowIsCut) {
    memset(_PLUGIN_NAME, 'p', 255);
    int32_t number = 0;
    EXPECT_EQ(libvoice_kex_register_endpoint(3, "FXS1", nullptr, codecs(0), &number), 1);
    EXPECT_EQ(bus().record(1).parameter("endpoint_path").data, std::string(255, 'p'));
    strcpy(_PLUGIN_NAME, "FXS");
    const std::string name(1000, 'n');
    EXPECT_EQ(libvoice_kex_register_endpoint(3, name.c_str(), nullptr, codecs(0), &number), 1);
    EXPECT_EQ(bus().record(2).parameter("endpoint_path").data, ("FXS.EndPoint." + name).substr(0, 255));
    EXPECT_EQ(bus().record(2).parameter("endpoint_name").data, name) << "the name goes as given";
}

TEST_F(RegisterEndpoint, TheAnswerIsReadAsASigned16BitNumber) {
    const struct {
        Value value;
        int32_t number;
    } rows[] = {{Value::i16(0), 0},      {Value::i16(-1), -1},    {Value::u16(32767), 32767},
                {Value::u16(65535), -1}, {Value::i32(40000), -1}, {Value::boolean(false), -1},
                {Value::chars("7"), -1}, {Value(), -1},           {Value::i32(-32768), -32768}};
    for (const auto &row : rows) {
        start_over();
        bus().answer("register_endpoint", Reply().value(row.value));
        int32_t number = 99;
        EXPECT_EQ(libvoice_kex_register_endpoint(3, "FXS1", nullptr, codecs(0), &number), 1) << row.value.str();
        EXPECT_EQ(number, row.number) << row.value.str();
        EXPECT_THAT(bus().trace_log(),
                    testing::Contains(said("i", kKex, text("Got endpoint index '%d'.", row.number))));
        expect_settled(row.value.str());
    }
    start_over();
    bus().answer("register_endpoint", Reply());
    int32_t number = 99;
    EXPECT_EQ(libvoice_kex_register_endpoint(3, "FXS1", nullptr, codecs(0), &number), 1) << "without a value";
    EXPECT_EQ(number, -1);
}

TEST_F(RegisterEndpoint, EachFailureHasItsTraceMessageAndKeepsTheNumber) {
    const struct {
        const char *fails;
        Reply reply;
        std::vector<std::string> rest;
    } rows[] = {
        {"kex_sendRequest",
         Reply(),
         {"kex_sendRequest(bus, application, r1) = 0", said("x", kKex, "Failed to send register request."), destroyed_,
          leave_}},
        {"kex_waitForReply",
         Reply(),
         {sent_, "kex_waitForReply(bus, r1, no limit) = 0", said("x", kKex, "Communication failed."), destroyed_,
          leave_}},
        {"", Reply::none(), {sent_, waited_, said("x", kKex, "No reply available."), destroyed_, leave_}},
        {"",
         Reply().error(9, "no", "way").value(Value::i16(1)),
         {sent_, waited_, "x _reply_ok@kex_api_calls: Function call error (9) - no - way",
          said("x", kKex, "Function call error."), destroyed_, leave_}},
    };
    for (const auto &row : rows) {
        start_over();
        bus().answer("register_endpoint", row.reply);
        if (*row.fails)
            bus().fail(row.fails);
        int32_t number = 99;
        EXPECT_EQ(libvoice_kex_register_endpoint(3, "FXS1", nullptr, codecs(1), &number), 0);
        EXPECT_EQ(number, 99);
        expect_log(request("FXS1", 3, records(1)), row.rest);
        expect_settled(row.rest[0]);
    }
}

TEST_F(RegisterEndpoint, ARequestThatCannotBeMadeFailsAtItsSend) {
    bus().fail("request_create_executeFunction");
    int32_t number = 99;
    EXPECT_EQ(libvoice_kex_register_endpoint(3, "FXS1", nullptr, codecs(1), &number), 0);
    EXPECT_THAT(bus().complaints(), ElementsAre(said("x", kKex, "Failed to send register request.")));
    EXPECT_EQ(number, 99);
}

TEST_F(RegisterEndpoint, TheWholeRegistrationPublishesAsksAndStores) {
    int32_t number = 99;
    EXPECT_EQ(libvoice_register_endpoint(3, "FXS1", nullptr, codecs(0), &number), 0u);
    const std::vector<std::string> acts = bus().acts();
    ASSERT_GE(acts.size(), 5u);
    EXPECT_LINES(std::vector<std::string>(acts.begin(), acts.begin() + 4),
                 "kex_getObject(bus, \"FXS.EndPoint\", 1) = <FXS.EndPoint>",
                 "object_getObject(<FXS.EndPoint>, \"FXS1\", 1, null) = null",
                 "object_createInstance(<FXS.EndPoint>, 0, \"FXS1\") = <FXS.EndPoint.FXS1>",
                 "object_commit(<FXS.EndPoint>) = 1");
    EXPECT_EQ(number, 7);
    EXPECT_EQ(endpt_table[0].used, 1u);
    EXPECT_STREQ(endpt_table[0].name, "FXS1");
    EXPECT_EQ(endpt_table[0].endpoint, 7);
    EXPECT_EQ(endpt_table[0].userdata, nullptr);
    EXPECT_TRUE(bus().exists("FXS.EndPoint.FXS1"));
}

TEST_F(RegisterEndpoint, ARefusalTakesTheObjectBack) {
    bus().answer("register_endpoint", Reply().error(1, "", ""));
    int32_t number = 99;
    EXPECT_EQ(libvoice_register_endpoint(3, "FXS1", nullptr, codecs(0), &number), 4u);
    EXPECT_FALSE(bus().exists("FXS.EndPoint.FXS1"));
    EXPECT_EQ(endpt_table[0].used, 0u);
    EXPECT_EQ(number, 99);
}

TEST_F(RegisterEndpoint, AnObjectThatExistsDoesNotStopTheRegistration) {
    bus().object("FXS.EndPoint.FXS1");
    int32_t number = 99;
    EXPECT_EQ(libvoice_register_endpoint(3, "FXS1", nullptr, codecs(0), &number), 0u);
    EXPECT_THAT(
        bus().complaints(),
        ElementsAre("x libvoice_kex_datamodel_add_endpoint@kex_datamodel: Endpoint with name 'FXS1' already exists "
                    "in datamodel."));
    EXPECT_EQ(number, 7);
}

TEST_F(RegisterEndpoint, ARefusalTakesAnObjectThatExistedToo) {
    bus().object("FXS.EndPoint.FXS1");
    bus().answer("register_endpoint", Reply().error(1, "", ""));
    int32_t number = 99;
    EXPECT_EQ(libvoice_register_endpoint(3, "FXS1", nullptr, codecs(0), &number), 4u);
    EXPECT_FALSE(bus().exists("FXS.EndPoint.FXS1"));
}

TEST_F(RegisterEndpoint, AFullTableIsFourAndNothingIsUndone) {
    for (unsigned i = 0; i < 32; ++i)
        have_endpoint(i, text("E%u", i).c_str(), static_cast<int32_t>(100 + i));
    int32_t number = 99;
    EXPECT_EQ(libvoice_register_endpoint(3, "FXS1", nullptr, codecs(0), &number), 4u);
    EXPECT_EQ(number, 7);
    EXPECT_TRUE(bus().exists("FXS.EndPoint.FXS1"));
}

// ---------------------------------------------------------------------------------------------- deregister endpoint

const char *const kKexDeregister = "libvoice_kex_deregister_endpoint";

class DeregisterEndpoint : public RegisterEndpoint {
protected:
    DeregisterEndpoint() { have_one(); }
    void have_one() {
        have_endpoint(2, "FXS1", 7);
        bus().object("FXS.EndPoint.FXS1");
    }
    const std::string in_ = text("> %s@register", kKexDeregister), out_ = text("< %s@register", kKexDeregister);
    const std::string made_ =
        text("r1 = request_create_executeFunction(\"%s\", \"deregister_endpoint\", 0x0001)", kService);
};

TEST_F(DeregisterEndpoint, TheRequestNamesTheNumberEndpointId) {
    const struct {
        int32_t number;
        unsigned travels;
    } rows[] = {{7, 7}, {65535, 65535}, {-1, 65535}, {0x10007, 7}};
    for (const auto &row : rows) {
        start_over();
        EXPECT_EQ(libvoice_kex_deregister_endpoint(row.number), 1);
        EXPECT_LOG_OF(kKexDeregister, in_, made_,
                      text("request_addParameter(r1, \"endpoint_id\", u16 %u)", row.travels), sent_, waited_,
                      destroyed_, out_);
        expect_settled(text("number %d", row.number));
    }
}

TEST_F(DeregisterEndpoint, TheAnswersValueIsNotRead) {
    bus().answer("deregister_endpoint", Reply().value(Value::boolean(false)));
    EXPECT_EQ(libvoice_kex_deregister_endpoint(7), 1);
}

TEST_F(DeregisterEndpoint, EachFailureHasItsTraceMessage) {
    const struct {
        const char *fails;
        Reply reply;
        std::vector<std::string> lines;
    } rows[] = {
        {"request_create_executeFunction", Reply(), {"Can't create request to send deregister_endpoint."}},
        {"kex_sendRequest", Reply(), {"Failed to send deregister request."}},
        {"kex_waitForReply", Reply(), {"Communication failed."}},
        {"", Reply::none(), {"No reply available."}},
        {"", Reply().error(9, "no", "way"), {"Function call error."}},
    };
    for (const auto &row : rows) {
        start_over();
        have_one();
        bus().answer("deregister_endpoint", row.reply);
        if (*row.fails)
            bus().fail(row.fails);
        EXPECT_EQ(libvoice_deregister_endpoint(7), 2u) << row.lines[0];
        std::vector<std::string> expected;
        if (!row.reply.items.empty())
            expected.push_back("x _reply_ok@kex_api_calls: Function call error (9) - no - way");
        expected.push_back(said("x", kKexDeregister, row.lines[0]));
        EXPECT_EQ(fake::difference(expected, bus().complaints()), "");
        EXPECT_EQ(log_of(kKexDeregister).back(), out_);
        EXPECT_EQ(endpt_table[2].used, 1u) << "the table stays";
        EXPECT_TRUE(bus().exists("FXS.EndPoint.FXS1")) << "the object stays";
        expect_settled(row.lines[0]);
    }
}

TEST_F(DeregisterEndpoint, TheObjectAndTheEntryGo) {
    EXPECT_EQ(libvoice_deregister_endpoint(7), 0u);
    EXPECT_FALSE(bus().exists("FXS.EndPoint.FXS1"));
    EXPECT_EQ(endpt_table[2].used, 0u);
    EXPECT_THAT(bus().complaints(), IsEmpty());
}

TEST_F(DeregisterEndpoint, AnObjectThatCannotGoKeepsTheEntry) {
    bus().fail("object_delete");
    EXPECT_EQ(libvoice_deregister_endpoint(7), 2u);
    EXPECT_EQ(endpt_table[2].used, 1u);
}

TEST_F(DeregisterEndpoint, AnUnknownNumberIsStillSentAndAnEmptyNameRemoved) {
    EXPECT_EQ(libvoice_deregister_endpoint(99), 2u);
    EXPECT_TRUE(bus().record(1).sent);
    EXPECT_THAT(
        bus().complaints(),
        ElementsAre("x libvoice_kex_datamodel_delete_endpoint@kex_datamodel: No instance [FXS.EndPoint.] found : "
                    "ignoring delete request"));
}

TEST_F(DeregisterEndpoint, EveryFailureOnTheWayEndsAsPromised) {
    for (unsigned n = 1;; ++n) {
        ASSERT_LT(n, 40u);
        start_over();
        have_one();
        bus().fail_call(n);
        const uint32_t result = libvoice_deregister_endpoint(7);
        const std::string failed = bus().failed();
        const bool unseen = failed.empty() || failed == "variant_setUInt16" || failed == "request_addParameter";
        EXPECT_EQ(result, unseen ? 0u : 2u) << failed;
        EXPECT_EQ(endpt_table[2].used, unseen ? 0u : 1u) << failed;
        EXPECT_EQ(bus().complaints().size(), unseen ? 0u : 1u) << failed;
        expect_settled(failed);
        if (failed.empty())
            break;
    }
}

TEST_F(RegisterEndpoint, EveryFailureOnTheWayEndsAsPromised) {
    for (unsigned n = 1;; ++n) {
        ASSERT_LT(n, 60u);
        start_over();
        int32_t number = 99;
        bus().fail_call(n);
        const uint32_t result = libvoice_register_endpoint(3, "FXS1", nullptr, codecs(1), &number);
        const std::string failed = bus().failed();
        const bool refused = failed == "request_create_executeFunction" || failed == "kex_sendRequest" ||
                             failed == "kex_waitForReply" || failed == "request_reply";
        EXPECT_EQ(result, refused ? 4u : 0u) << failed;
        EXPECT_EQ(endpt_table[0].used, refused ? 0u : 1u) << failed;
        EXPECT_EQ(number, refused ? 99 : failed == "variant_toInt16" ? -1 : 7) << failed;
        if (refused) {
            EXPECT_FALSE(bus().exists("FXS.EndPoint.FXS1")) << failed;
        }
        expect_settled(failed);
        if (failed.empty())
            break;
    }
}

} // namespace
} // namespace voice_test
