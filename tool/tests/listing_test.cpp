// SPDX-License-Identifier: MIT
#include "listing.h"

#include <gtest/gtest.h>

namespace voicectl {

namespace {

TEST(Listing, EntryIsTakenApart) {
    const std::optional<ListedObject> object = listed_object_read("A.B instance Class one() two(first,second|2nd)");
    ASSERT_TRUE(object);
    EXPECT_EQ(object->path, "A.B");
    EXPECT_EQ(object->kind, "instance");
    EXPECT_EQ(object->class_name, "Class");
    ASSERT_EQ(object->functions.size(), 2U);
    EXPECT_EQ(object->functions[0].name, "one");
    EXPECT_TRUE(object->functions[0].arguments.empty());
    EXPECT_EQ(object->functions[1].arguments, (std::vector<std::string>{"first", "second|2nd"}));
    EXPECT_EQ(listed_object_text(*object), "  B                                 instance, class Class\n"
                                           "      one()\n"
                                           "      two(first, second|2nd)\n");
    EXPECT_EQ(listed_object_json(*object),
              R"({"path":"A.B","kind":"instance","class":"Class","functions":[{"name":"one","arguments":[]},)"
              R"({"name":"two","arguments":["first","second|2nd"]}]})");
}

TEST(Listing, ObjectWithoutAClassHasNone) {
    const std::optional<ListedObject> object = listed_object_read("A object -");
    ASSERT_TRUE(object);
    EXPECT_EQ(object->class_name, "");
    EXPECT_EQ(listed_object_text(*object), "A\n");
}

TEST(Listing, WhatIsNoEntryIsNone) {
    for (const char *entry : {"", "A", "A object", "A thing -", " object -", "A object - f", "A object - (x)",
                              "A object - f(x", "A object -  f()"})
        EXPECT_FALSE(listed_object_read(entry)) << entry;
}

TEST(Listing, NamesCannotSteerATerminal) {
    const std::optional<ListedObject> object = listed_object_read("A\x1B[2J object \x1B[31m f\x1B(\n)");
    ASSERT_TRUE(object);
    EXPECT_EQ(listed_object_text(*object), "A\\x1B[2J                            class \\x1B[31m\n    f\\x1B(\\x0A)\n");
    EXPECT_EQ(listed_object_json(*object).find('\x1B'), std::string::npos);
}

TEST(Listing, DeepPathsStayOnTheScreen) {
    std::string path = "A";
    for (int i = 0; i < 1000; ++i)
        path += ".A";
    EXPECT_EQ(listed_object_text({.path = path, .kind = "object"}), std::string(32, ' ') + "A\n");
}

TEST(Listing, FunctionsOfTheContractAreThoseOfTheClass) {
    const std::vector<ListedFunction> functions = contract_functions("VoiceService");
    ASSERT_EQ(functions.size(), 5U);
    EXPECT_EQ(functions[2].name, "register_endpoint");
    EXPECT_EQ(functions[2].arguments.size(), 5U);
    EXPECT_TRUE(contract_functions("none").empty());
}

} // namespace

} // namespace voicectl
