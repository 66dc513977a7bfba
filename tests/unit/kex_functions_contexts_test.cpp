// SPDX-License-Identifier: MIT
// Contexts and their streams: arguments in reading order, the two ways to end without one of them, and descriptors.
#include "kex_functions_fixture.h"

namespace voice_test {
namespace {

const std::string kStream(712, 's');

class Contexts : public Handlers {};

struct ContextFunction : Named {
    const char *function;
    kex_function_t *run;
    std::vector<std::pair<const char *, Value>> arguments;
    std::vector<std::string> reads; // getter names
    const char *called;
};

const ContextFunction kContextFunctions[] = {
    {"create", "__create_ctx", __create_ctx, {{"ctx_id", Value::u32(4)}}, {"UInt32"}, "voice_plugin_create_ctx(4)"},
    {"modify_stream",
     "__modify_stream",
     __modify_stream,
     {{"ctx_id", Value::u32(4)}, {"stream_info", Value::bytes(kStream)}},
     {"UInt32", "ByteArray"},
     "voice_plugin_modify_stream(4)"},
    {"remove_stream",
     "__remove_stream",
     __remove_stream,
     {{"ctx_id", Value::u32(4)}, {"stream_id", Value::u32(6)}},
     {"UInt32", "UInt32"},
     "voice_plugin_remove_stream(4, 6)"},
    {"destroy", "__destroy_ctx", __destroy_ctx, {{"ctx_id", Value::u32(4)}}, {"UInt32"}, "voice_plugin_destroy_ctx(4)"},
    {"add_stream",
     "__add_stream",
     __add_stream,
     {{"ep_id", Value::i32(-5)},
      {"ctx_id", Value::u32(4)},
      {"line_id", Value::u32(9)},
      {"stream_info", Value::bytes(kStream)},
      {"filedesc", Value::fds({-1, -1})}},
     {"Int32", "UInt32", "UInt32", "ByteArray", "List"},
     "voice_plugin_add_stream(4, endpoint -5, line 9)"},
};

TEST_F(Contexts, ArgumentsAreReadInOrderWithoutAttributesAndReachTheirCallback) {
    for (const ContextFunction &f : kContextFunctions)
        for (const int32_t result : {0, 7, -7}) {
            again();
            SCOPED_TRACE(text("%s, callback answers %d", f.function, result));
            host.result = result;
            host.cnx_bytes = 712;
            host.descriptors.resize(2);
            Call call;
            std::vector<std::string> expected = {enter(f.function)};
            for (size_t i = 0; i < f.arguments.size(); ++i) {
                call.with(f.arguments[i].first, f.arguments[i].second);
                expected.push_back(plain(f.reads[i].c_str(), f.arguments[i].first, f.arguments[i].second));
            }
            if (strcmp(f.function, "__add_stream") == 0) {
                expected.push_back(said("i", f.function, "\\nfd[0] = -1\\n"));
                expected.push_back(said("i", f.function, "\\nfd[1] = -1\\n"));
            }
            expected.push_back(f.called);
            if (result)
                expected.push_back(said("x", f.function, "voice plugin modify FAILED"));
            for (const std::string &line : {result ? kFalse : kTrue, kDestroyed, leave(f.function)})
                expected.push_back(line);
            EXPECT_EQ(call.run(f.run), result ? 2 : 0);
            EXPECT_EQ(fake::difference(expected, log_of(f.function)), "");
            EXPECT_THAT(call.errors(), IsEmpty());
            if (f.reads.size() > 1 && f.reads[1] == "ByteArray") {
                EXPECT_EQ(host.bytes, kStream);
            }
            expect_settled(f.function);
        }
}

struct MissingRow {
    const char *function, *argument, *said, *entry;
    bool complete; // with a return value and an exit marker
};

const MissingRow kMissingRows[] = {
    {"__create_ctx", "ctx_id", "Missing argument ctx_id", "ctx_id", false},
    {"__destroy_ctx", "ctx_id", "Missing argument ctx_id", "ctx_id", false},
    {"__modify_stream", "ctx_id", "Missing argument ctx_id", "ctx_id", false},
    {"__modify_stream", "stream_info", "Missing argument stream_info", "cnx_info", true},
    {"__remove_stream", "ctx_id", "Missing argument ctx_id", "ctx_id", false},
    {"__remove_stream", "stream_id", "Missing argument stream_id", "stream_id", false},
    {"__add_stream", "ep_id", "Missing argument ep_id", "ep_id", false},
    {"__add_stream", "ctx_id", "Missing argument ctx_id", "ctx_id", false},
    {"__add_stream", "line_id", "Missing argument line_id", "line_id", true},
    {"__add_stream", "stream_info", "Missing argument stream_info", "cnx_info", true},
    {"__add_stream", "filedesc", "Missing argument filedesc", "filedesc", true},
};

TEST_F(Contexts, AMissingArgumentEndsTheCallAsItsKindDoes) {
    for (const MissingRow &row : kMissingRows)
        for (const bool without_value : {false, true}) {
            if (without_value && strcmp(row.argument, "stream_info") != 0)
                continue;
            again();
            SCOPED_TRACE(text("%s / missing \"%s\"", row.function, row.argument));
            const ContextFunction *f = kContextFunctions;
            while (strcmp(f->function, row.function) != 0)
                ++f;
            Call call;
            std::vector<std::string> expected = {enter(f->function)};
            bool reached = false;
            for (size_t i = 0; i < f->arguments.size(); ++i) {
                const bool left_out = strcmp(f->arguments[i].first, row.argument) == 0;
                if (!left_out)
                    call.with(f->arguments[i].first, f->arguments[i].second);
                else if (without_value)
                    call.with(row.argument, Value::without_value(VARIANT_BYTES));
                if (!reached)
                    expected.push_back(
                        !left_out       ? plain(f->reads[i].c_str(), f->arguments[i].first, f->arguments[i].second)
                        : without_value ? plain("ByteArray", row.argument, Value::without_value(VARIANT_BYTES))
                                        : absent(f->reads[i].c_str(), row.argument));
                reached = reached || left_out;
            }
            expected.push_back(said("x", row.function, row.said));
            expected.push_back(entry(row.entry));
            if (row.complete)
                expected.push_back(kFalse);
            expected.push_back(kDestroyed);
            if (row.complete)
                expected.push_back(leave(row.function));
            EXPECT_EQ(call.run(f->run), 2);
            EXPECT_EQ(fake::difference(expected, log_of(row.function)), "");
            EXPECT_EQ(call.returned().str(), row.complete ? "bool false" : "none");
            expect_settled(text("%s / missing \"%s\"", row.function, row.argument));
        }
}

class AddStream : public Contexts {
protected:
    Call &fill(Call &call, const Value &descriptors) {
        call.with("ep_id", Value::i32(5)).with("ctx_id", Value::u32(4)).with("line_id", Value::u32(9));
        return call.with("stream_info", Value::bytes(kStream)).with("filedesc", descriptors);
    }
};

TEST_F(AddStream, AnEmptyDescriptorListNeverReachesTheCallback) {
    Call call;
    EXPECT_EQ(fill(call, Value::fds({})).run(__add_stream), 2);
    EXPECT_END_OF_LOG_OF("__add_stream", said("x", "__add_stream", "Empty argument filedesc"), kFalse, kDestroyed,
                         leave("__add_stream"));
    EXPECT_THAT(call.errors(), IsEmpty());
}

TEST_F(AddStream, DescriptorsReachTheCallbackInOrderAtMostTen) {
    for (const size_t count : {1u, 3u, 10u, 12u}) {
        have_files(12);
        host.cnx_bytes = 712;
        host.descriptors.resize(std::min<size_t>(count, 10));
        Call call;
        EXPECT_EQ(fill(call, Value::fds(files(count))).run(__add_stream), 0);
        for (size_t i = 0; i < host.descriptors.size(); ++i) {
            EXPECT_TRUE(same_file(host.descriptors[i], files(count)[i])) << "position " << i;
            EXPECT_THAT(bus().trace_log(), testing::Contains(said("i", "__add_stream",
                                                                  text("\\nfd[%zu] = %d\\n", i, host.descriptors[i]))));
        }
        EXPECT_EQ(host.bytes, kStream);
        close_received();
        expect_settled(text("%zu descriptors", count));
    }
}

// Hosts close all ten places, whatever came.
TEST_F(AddStream, PlacesThatTheListDidNotFillHoldMinusOne) {
    for (const size_t count : {1u, 3u, 9u}) {
        have_files(count);
        host.cnx_bytes = 712;
        host.descriptors.assign(LIBVOICE_DESCRIPTORS, 77);
        Call call;
        EXPECT_EQ(fill(call, Value::fds(files(count))).run(__add_stream), 0);
        ASSERT_EQ(host.descriptors.size(), 10u);
        EXPECT_THAT(std::vector<int32_t>(host.descriptors.begin() + static_cast<long>(count), host.descriptors.end()),
                    testing::Each(-1))
            << count << " descriptors";
        close_received();
    }
}

TEST_F(AddStream, AFailingCallbackKeepsItsDescriptors) {
    have_files(3);
    host.result = 1;
    host.cnx_bytes = 712;
    host.descriptors.resize(3);
    Call call;
    EXPECT_EQ(fill(call, Value::fds(files(3))).run(__add_stream), 2);
    for (size_t i = 0; i < 3; ++i)
        EXPECT_TRUE(same_file(host.descriptors[i], files(3)[i]));
    close_received();
}

} // namespace
} // namespace voice_test
