// SPDX-License-Identifier: MIT
// Contexts and their streams.
#include "kex_api_calls_fixture.h"

#include <unistd.h>

namespace voice_test {
namespace {

// ---------------------------------------------------------------------------------------------- contexts, streams

std::string stream_info() {
    std::string result;
    for (size_t i = 0; i < 712; ++i)
        result += static_cast<char>('0' + i % 70);
    return result;
}

struct ContextRequest : Named { // the bus function's name
    const char *function;
    uint32_t (*send)(const char *plugin, void *stream_info);
    std::vector<std::pair<const char *, Value>> arguments;
};

const int32_t kDescriptors[3] = {STDERR_FILENO, -1, STDIN_FILENO};

class ContextRequests : public Requests, public testing::WithParamInterface<ContextRequest> {
protected:
    std::vector<std::string> expected(const char *peer, int answer) {
        std::vector<std::string> lines = {made("FXS", GetParam().name, 0x8001)};
        for (const auto &argument : GetParam().arguments)
            lines.push_back(added(argument.first, argument.second));
        lines.push_back(sent(peer, answer));
        if (!answer)
            lines.push_back(said("x", GetParam().function, "Failed to send request."));
        lines.push_back(kDestroyed);
        return lines;
    }
    uint32_t send(const char *plugin = "FXS") {
        Block<char> info(stream_info());
        return GetParam().send(plugin, info.get());
    }
};

INSTANTIATE_TEST_SUITE_P(
    , ContextRequests,
    testing::Values(ContextRequest{"create_ctx",
                                   "libvoice_create_ctx",
                                   [](const char *plugin, void *) { return libvoice_create_ctx(plugin, 4); },
                                   {{"ctx_id", Value::u32(4)}}},
                    ContextRequest{"add_stream",
                                   "libvoice_add_stream",
                                   [](const char *plugin, void *info) {
                                       return libvoice_add_stream(plugin, -5, 0xFFFFFFFFu, info, kDescriptors, 9);
                                   },
                                   {{"ep_id", Value::i32(-5)},
                                    {"ctx_id", Value::u32(0xFFFFFFFFu)},
                                    {"line_id", Value::u32(9)},
                                    {"stream_info", Value::bytes(stream_info())},
                                    {"filedesc", Value::fds({STDERR_FILENO, -1, STDIN_FILENO})}}},
                    ContextRequest{
                        "modify_stream",
                        "libvoice_modify_stream",
                        [](const char *plugin, void *info) { return libvoice_modify_stream(plugin, 4, info); },
                        {{"ctx_id", Value::u32(4)}, {"stream_info", Value::bytes(stream_info())}}},
                    ContextRequest{"remove_stream",
                                   "libvoice_remove_stream",
                                   [](const char *plugin, void *) { return libvoice_remove_stream(plugin, 4, 6); },
                                   {{"ctx_id", Value::u32(4)}, {"stream_id", Value::u32(6)}}},
                    ContextRequest{"destroy_ctx",
                                   "libvoice_destroy_ctx",
                                   [](const char *plugin, void *) { return libvoice_destroy_ctx(plugin, 4); },
                                   {{"ctx_id", Value::u32(4)}}}),
    [](const auto &row) { return row.param.name; });

TEST_P(ContextRequests, ArgumentsTravelInOrderWhateverTheMediaFlag) {
    for (const uint8_t convert : {0, 1}) {
        again();
        libvoice_set_convert_media(convert);
        EXPECT_EQ(send(), 0u);
        EXPECT_EQ(fake::difference(expected("fxs", 1), core_log()), "");
        for (const auto &argument : GetParam().arguments)
            EXPECT_EQ(bus().record(1).parameter(argument.first).data, argument.second.data) << argument.first;
        expect_settled("sent");
    }
}

TEST_P(ContextRequests, AFailedSendIsFour) {
    bus().fail("kex_sendRequest");
    EXPECT_EQ(send(), 4u);
    EXPECT_EQ(fake::difference(expected("fxs", 0), core_log()), "");
}

TEST_P(ContextRequests, AnUnknownPluginIsStillHandedToTheBusWithoutAPeer) {
    plugin_->used = 0;
    EXPECT_EQ(send(), 4u);
    EXPECT_EQ(fake::difference(expected("null", 0), core_log()), "");
}

TEST_P(ContextRequests, ARequestThatCannotBeMadeIsTwelve) {
    const std::string complaint =
        said("x", GetParam().function, text("Not able to create function request for '%s'.", GetParam().name));
    bus().fail("request_create_executeFunction");
    EXPECT_EQ(send(), 12u);
    EXPECT_CORE_LOG(not_made("FXS", GetParam().name, 0x8001), complaint);
    again();
    EXPECT_EQ(send(""), 12u) << "a bus takes no empty path";
    EXPECT_CORE_LOG(not_made("", GetParam().name, 0x8001), complaint);
}

class AddStreamRequest : public Requests {};

TEST_F(AddStreamRequest, AListThatCannotBeMadeIsFour) {
    bus().fail("variant_da_list");
    Block<char> info(stream_info());
    EXPECT_EQ(libvoice_add_stream("FXS", 5, 4, info.get(), kDescriptors, 9), 4u);
    EXPECT_THAT(bus().complaints(), ElementsAre(said("x", "libvoice_add_stream", "Allocation failure list == NULL")));
    EXPECT_EQ(bus().acts().back(), kDestroyed);
    EXPECT_FALSE(bus().record(1).sent);
}

} // namespace
} // namespace voice_test
