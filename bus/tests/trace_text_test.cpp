// SPDX-License-Identifier: MIT
// Texts from outside in trace messages: fit for a line, and everything else as printf(3) writes it.
#include "base/conversion.h"
#include "base/trace_text.h"

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <sys/types.h>

namespace {

std::string shown(const char *format, ...) ZIL_PRINTF(1, 2);

std::string shown(const char *format, ...) {
    char message[2000];
    va_list arguments;
    va_start(arguments, format);
    const int length = bus::trace_text_format(message, sizeof message, format, arguments);
    va_end(arguments);
    EXPECT_EQ(length, static_cast<int>(strlen(message)));
    return message;
}

std::string cut_to(size_t size, const char *text) {
    char message[64] = "";
    const auto write = [&](const char *format, ...) {
        va_list arguments;
        va_start(arguments, format);
        bus::trace_text_format(message, size, format, arguments);
        va_end(arguments);
    };
    write("%s", text);
    return message;
}

// The same bytes as printf's, alone and in front of a text that has to be treated.
#define EXPECT_AS_PRINTF(format, ...)                                                     \
    do {                                                                                  \
        char expected[2000];                                                              \
        errno = ENOENT;                                                                   \
        snprintf(expected, sizeof expected, format "|", __VA_ARGS__);                     \
        errno = ENOENT;                                                                   \
        EXPECT_EQ(shown(format "|", __VA_ARGS__), expected);                              \
        errno = ENOENT;                                                                   \
        EXPECT_EQ(shown(format "|%s", __VA_ARGS__, "\n"), std::string(expected) + "\\n"); \
    } while (false)

TEST(TraceText, ConversionsAreThoseOfPrintf) {
    EXPECT_AS_PRINTF("%d %i %u %x %X %o %c", -1, INT_MIN, UINT_MAX, 255u, 255u, 8u, 'x');
    EXPECT_AS_PRINTF("%5d|%-5d|%05d|%+d|% d|%#x|%.3d", 1, 2, 3, 4, 5, 6u, 7);
    EXPECT_AS_PRINTF("%*d|%-*d|%.*d|%*.*d|%*d", 5, 1, 6, 2, 3, 7, 8, 4, 9, -6, 42);
    EXPECT_AS_PRINTF("%ld %lu %lld %llu %zu %zd %jd %td", LONG_MIN, ULONG_MAX, LLONG_MIN, ULLONG_MAX, size_t{7},
                     ssize_t{-7}, intmax_t{-9}, ptrdiff_t{-3});
    EXPECT_AS_PRINTF("%hhd %hd %hhu %hu", static_cast<signed char>(-3), static_cast<short>(-4),
                     static_cast<unsigned char>(200), static_cast<unsigned short>(60000));
    EXPECT_AS_PRINTF("%f %.2f %10.3e %g %a %Lf", 1.5, 2.25, 3.0, 4.0, 0.5, 1.25L);
    EXPECT_AS_PRINTF("%p %p %%", static_cast<void *>(nullptr), reinterpret_cast<void *>(0x1234));
    EXPECT_AS_PRINTF("%m %d", 1);
    EXPECT_AS_PRINTF("%*s|%-*s|%*s|%.*s|%.*s|%-8.3s|%8s|%.0s|%.s", -6, "a", 6, "b", 6, "c", 1, "de", -1, "fg", "hijklm",
                     "n", "o", "p");
}

TEST(TraceText, NullTextIsAsTheLibraryShowsIt) {
    const char *volatile none = nullptr;
    EXPECT_EQ(shown("%s|%s", none, "\n"), "(null)|\\n");
}

TEST(TraceText, CharactersOfAllLanguagesStay) {
    const char *text = "\xc3\xa9\xc3\x9f\xe2\x82\xac\xf0\x9f\x98\x80 \xc2\xa0";
    EXPECT_EQ(shown("%s", text), text);
    EXPECT_EQ(shown("%s", "Latin-1: \xe9"), "Latin-1: \xe9") << "no character of UTF-8, and steers nothing";
}

TEST(TraceText, ControlCharactersOfTextsAreShownAsNumbers) {
    EXPECT_EQ(shown("%s", "c\nd\r\te\x1b[2J\x7f\x01"), "c\\nd\\r\\te\\x1b[2J\\x7f\\x01");
    EXPECT_EQ(shown("%s", "\xc2\x9b"
                          "31m"),
              "\\xc2\\x9b31m");
    EXPECT_EQ(shown("%s", "\x9b"
                          "31m"),
              "\\x9b31m");
    EXPECT_EQ(shown("%s%s", "\xc3", "\x9f"), "\xc3\\x9f") << "two texts make no character";
}

TEST(TraceText, LineBreaksOfFormatsStay) {
    EXPECT_EQ(shown("a\nb\t%s\x1b[0m\n", "c\nd"), "a\nb\tc\\nd\x1b[0m\n");
}

TEST(TraceText, WidthsCountWhatIsShownAndPrecisionsWhatIsThere) {
    EXPECT_EQ(shown("%-6s|%6s|%1s", "\n", "\n", "\n"), "\\n    |    \\n|\\n");
    EXPECT_EQ(shown("%.1s|%-7.7s|%*.*s", "\n\n", "LIBV", -4, 1, "\n\n"), "\\n|LIBV   |\\n  ");
}

TEST(TraceText, AFormatThatIsNotUnderstoodIsTreatedAsAWhole) {
    EXPECT_EQ(shown("%ls\n%s", L"w", "x\x1b"), "w\\nx\\x1b");
    EXPECT_EQ(shown("%2$s %1$s\n", "a", "b\x9b"), "b\\x9b a\\n");
}

TEST(TraceText, RoomThatIsTooSmallIsNotPassed) {
    EXPECT_EQ(cut_to(5, "\n\n\n"), "\\n\\n");
    EXPECT_EQ(cut_to(4, "\n\n\n"), "\\n\\");
    EXPECT_EQ(cut_to(1, "\n"), "");
    EXPECT_EQ(cut_to(0, "\n"), "");
    EXPECT_EQ(cut_to(3, "abc"), "ab");
}

TEST(TraceText, WhatIsEmptyIsNothing) {
    EXPECT_AS_PRINTF("%.0d", 0);
    EXPECT_EQ(shown("%2$.0s%1$.0s", "a", "b"), "");
    EXPECT_EQ(shown("%s", "\xf5\x80\x80\x80 \xff"), "\xf5\\x80\\x80\\x80 \xff") << "no character of UTF-8";
    EXPECT_EQ(shown("%s", "\xf0\x9f"), "\xf0\\x9f") << "cut off";
}

// What stands at the end of a format, or is none of printf's, is not understood: the message is treated as a whole.
TEST(Conversion, WhatIsNotUnderstood) {
    using Kind = bus::ConversionKind;
    const struct {
        std::string text;
        Kind kind;
        size_t length;
    } rows[] = {
        {"%", Kind::unknown, 1},
        {"%-", Kind::unknown, 2},
        {"%5", Kind::unknown, 2},
        {"%.", Kind::unknown, 2},
        {"%l", Kind::unknown, 2},
        {"%Ld", Kind::unknown, 3},
        {"%Lf", Kind::number, 3},
        {"%lc", Kind::unknown, 3},
        {"%k", Kind::unknown, 2},
        {"%" + std::string(29, '0') + "d", Kind::integer, 31},
        {"%" + std::string(30, '0') + "d", Kind::unknown, 32},
    };
    for (const auto &one : rows) {
        const bus::Conversion conversion = bus::conversion_read(one.text.c_str());
        EXPECT_EQ(conversion.kind, one.kind) << one.text;
        EXPECT_EQ(conversion.length, one.length) << one.text;
    }
}

TEST(Conversion, NumbersDoNotWrap) {
    EXPECT_EQ(bus::conversion_read("%99999d").numbers[0], 99999);
    EXPECT_GE(bus::conversion_read("%99999999999999999999d").numbers[0], 100000);
    EXPECT_LE(bus::conversion_read("%99999999999999999999d").numbers[0], 1000000);
}

} // namespace
