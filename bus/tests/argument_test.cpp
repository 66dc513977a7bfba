// SPDX-License-Identifier: MIT
// Arguments of a call: their names and kinds, and who owns what they bring.
#include "support/calls.h"

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

using namespace support;
using testing::ElementsAre;

namespace {

TEST_F(Call, GettersTakeTheirOwnKindOnly) {
    probe(
        [](function_call_t *call, argument_list_t *a, variant_t *) {
            char *chars = nullptr;
            void *data = nullptr;
            uint32_t length = 0;
            uint16_t u16_value = 0;
            uint32_t u32_value = 0;
            int32_t i32_value = 0;
            variant_list_t *items = nullptr;
            EXPECT_FALSE(argument_getChar(a, "u32", 0, &chars));
            EXPECT_FALSE(argument_getChar(a, "bytes", 0, &chars));
            EXPECT_FALSE(argument_getByteArray(a, "text", 0, &data, &length));
            EXPECT_FALSE(argument_getList(a, "text", 0, &items));
            EXPECT_FALSE(argument_getUInt32(a, "text", 0, &u32_value));
            EXPECT_FALSE(argument_getUInt32(a, "true", 0, &u32_value)) << "a boolean is no integer";
            EXPECT_FALSE(argument_getUInt16(a, "u32", 0, &u16_value)) << "70000 does not fit";
            EXPECT_FALSE(argument_getUInt32(a, "i32", 0, &u32_value)) << "-1 does not fit";
            EXPECT_FALSE(argument_getUInt32(a, "none", 0, &u32_value)) << "an integer without a value";
            EXPECT_FALSE(argument_getChar(a, "absent", 0, &chars));
            EXPECT_FALSE(argument_getChar(a, nullptr, 0, &chars));
            EXPECT_FALSE(argument_getChar(nullptr, "text", 0, &chars));
            EXPECT_TRUE(argument_getUInt32(a, "u32", 0, &u32_value));
            EXPECT_EQ(u32_value, 70000u);
            EXPECT_TRUE(argument_getInt32(a, "u32", 0, &i32_value));
            EXPECT_EQ(i32_value, 70000);
            EXPECT_TRUE(argument_getInt32(a, "i32", 0, &i32_value));
            EXPECT_EQ(i32_value, -1);
            EXPECT_TRUE(argument_getUInt16(a, "u16", 0, &u16_value));
            EXPECT_EQ(u16_value, 9);
            EXPECT_TRUE(argument_getUInt32(a, "u16", 0, &u32_value)) << "fits";
            fcall_destroy(call);
            return 0;
        },
        {{"text", text("x")},
         {"bytes", bytes("x")},
         {"u32", u32(70000)},
         {"i32", i32(-1)},
         {"u16", u16(9)},
         {"true", boolean(true)},
         {"none", none()}});
}

TEST_F(Call, PresentWithoutAValueIsNullAndThere) {
    probe(
        [](function_call_t *call, argument_list_t *a, variant_t *) {
            char *chars = reinterpret_cast<char *>(&chars);
            void *data = &chars;
            uint32_t length = 5;
            variant_list_t *items = reinterpret_cast<variant_list_t *>(&items);
            EXPECT_TRUE(argument_getChar(a, "none", 0, &chars));
            EXPECT_EQ(chars, nullptr);
            EXPECT_TRUE(argument_getByteArray(a, "none", 0, &data, &length));
            EXPECT_EQ(data, nullptr);
            EXPECT_EQ(length, 0u);
            EXPECT_TRUE(argument_getList(a, "none", 0, &items));
            EXPECT_EQ(items, nullptr);
            fcall_destroy(call);
            return 0;
        },
        {{"none", none()}});
}

TEST_F(Call, ByteArraysComeInBlocksZeroFilledBehindTheData) {
    for (size_t size : {0u, 1u, 28u, 1023u, 1024u, 1025u, 96u * 1024u}) {
        SCOPED_TRACE(size);
        std::string sent(size, 'x');
        probe(
            [&](function_call_t *call, argument_list_t *a, variant_t *) {
                void *data = nullptr;
                uint32_t length = 77;
                EXPECT_TRUE(argument_getByteArray(a, "bytes", 0, &data, &length));
                EXPECT_NE(data, nullptr) << "also an empty one has a pointer";
                EXPECT_EQ(length, size);
                std::string block(static_cast<char *>(data), std::max<size_t>(size, 1024));
                EXPECT_TRUE(block == sent + std::string(block.size() - size, '\0'));
                free(data);
                fcall_destroy(call);
                return 0;
            },
            {{"bytes", bytes(sent)}});
    }
}

TEST_F(Call, SecondNameOfAnArgumentIsTaken) {
    request_destroy(call("Probe", "note", {{"no", u32(1)}}));
    request_destroy(call("Probe", "note", {{"number", u32(2)}}));
    request_destroy(call("Probe", "note", {{"no", u32(3)}, {"number", u32(4)}}));
    request_destroy(call("Probe", "note", {{"nu", u32(5)}, {"number|no", u32(6)}}));
    EXPECT_THAT(served::log, ElementsAre("note 1", "note 2", "note 4", "note nothing"));
}

TEST_F(Call, AnyOfItsNamesFindsAnArgument) {
    const char *const row[] = {"Probe", "run", "first|second|third", "other"};
    ASSERT_TRUE(kex_declareFunctions(server, row, 1, 4));
    const struct {
        const char *sent;
        const char *read;
        bool found;
    } rows[] = {
        {"first", "first", true},  {"second", "first", true},  {"third", "first", true},
        {"first", "third", true},  {"third", "second", true},  {"other", "first", false},
        {"third", "thirs", false}, {"second", "secon", false}, {"first", "other", false},
    };
    for (const auto &one : rows) {
        bool found = !one.found;
        served::probe = [&](function_call_t *call, argument_list_t *arguments, variant_t *) {
            uint32_t number = 0;
            found = argument_getUInt32(arguments, one.read, 0, &number) != 0;
            fcall_destroy(call);
            return 0;
        };
        request_destroy(call("Probe", "run", {{one.sent, u32(1)}}));
        EXPECT_EQ(found, one.found) << one.sent << " as " << one.read;
    }
}

TEST_F(Call, DescriptorsArriveAsTheReceiversOwn) {
    int pipe_ends[2];
    ASSERT_EQ(pipe2(pipe_ends, O_CLOEXEC), 0);
    int taken = -1;
    probe(
        [&](function_call_t *call, argument_list_t *a, variant_t *) {
            variant_list_t *items = nullptr;
            EXPECT_TRUE(argument_getList(a, "filedesc", 0, &items));
            EXPECT_EQ(variant_list_size(items), 3u);
            taken = variant_fd(variant_list_at(items, 0)); // ours from here on
            EXPECT_EQ(variant_fd(variant_list_at(items, 0)), taken);
            EXPECT_EQ(variant_fd(variant_list_at(items, 1)), -1) << "a negative one keeps its place";
            variant_list_destroy(items); // closes the third, which nobody read
            fcall_destroy(call);
            return 0;
        },
        {{"filedesc", list({descriptor(pipe_ends[1]), descriptor(-7), descriptor(pipe_ends[0])})}});
    ASSERT_GE(taken, 0);
    EXPECT_NE(taken, pipe_ends[1]);
    EXPECT_EQ(fcntl(taken, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    EXPECT_EQ(write(taken, "z", 1), 1);
    char byte = 0;
    EXPECT_EQ(read(pipe_ends[0], &byte, 1), 1);
    EXPECT_EQ(byte, 'z');
    for (int fd : {taken, pipe_ends[0], pipe_ends[1]})
        EXPECT_EQ(close(fd), 0);
}

TEST_F(Call, DescriptorsNobodyReadsAreClosedWithTheCall) {
    std::vector<variant_t> many(64, descriptor(STDIN_FILENO));
    auto body = [](function_call_t *call, argument_list_t *, variant_t *) {
        fcall_destroy(call);
        return 0;
    };
    EXPECT_THAT(probe(body, {{"filedesc", list(many)}}), ElementsAre()); // the fixture counts
}

TEST_F(Call, DescriptorsReadBeforeTheCallerDiesAreStillGood) {
    int taken = -1;
    served::probe = [&](function_call_t *call, argument_list_t *a, variant_t *) {
        variant_list_t *items = nullptr;
        EXPECT_TRUE(argument_getList(a, "filedesc", 0, &items));
        taken = variant_fd(variant_list_at(items, 0));
        variant_list_destroy(items);
        fcall_destroy(call);
        return 0;
    };
    kex_t *other = kex_create("other");
    request_t *r = request_create_executeFunction("Probe", "run", 0);
    variant_t value = list({descriptor(STDIN_FILENO)});
    request_addParameter(r, "filedesc", &value);
    variant_cleanup(&value);
    ASSERT_TRUE(kex_sendRequest(other, connect(other), r));
    request_destroy(r);
    kex_destroy(other);
    EXPECT_TRUE(turn_until([&] { return taken >= 0; }));
    EXPECT_EQ(close(taken), 0);
}

TEST_F(Call, DescriptorInAListGoesToWhoeverReadsItFirst) {
    const int null = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_THAT(probe(
                    [&](function_call_t *call, argument_list_t *arguments, variant_t *) {
                        for (bool first : {true, false}) {
                            variant_list_t *items = nullptr;
                            EXPECT_TRUE(argument_getList(arguments, "fds", 0, &items));
                            const int fd = variant_fd(variant_list_at(items, 0));
                            EXPECT_EQ(fd >= 0, first);
                            if (fd >= 0)
                                close(fd);
                            variant_list_destroy(items);
                        }
                        fcall_destroy(call);
                        return 0;
                    },
                    {{"fds", list({descriptor(null)})}}),
                ElementsAre());
    close(null);
}

} // namespace
