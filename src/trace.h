// SPDX-License-Identifier: MIT
// The trace frame: the only place that knows the layout of the library's trace messages.
//
//   LIBV    - [x]message text - (function@file.cpp:line)
//
// The colours of the frame are separate empty texts, so that a build can colour messages without touching a format.
// Hundreds of places trace, therefore they pass only what differs: the call with its fourteen arguments stands once per
// argument shape, out of line, and file, line, zone and tag of a place are one number. That took a quarter off the
// library's code. Under `if (false)` the compiler still checks each format against its arguments.
#ifndef VOICE_TRACE_H
#define VOICE_TRACE_H

#include <stddef.h>
#include <stdint.h>

#include "ziltrace.h"

#define TRACE_HEAD "%s%-7.7s%s - %s[%s]%s%s"
#define TRACE_TAIL "%s - %s(%s@%s:%d)%s"

// A file that mostly traces in another zone defines this before it includes this header.
#ifndef TRACE_ZONE
#define TRACE_ZONE libv
#endif

namespace voice {

// The zones and files that messages show: texts in tables, which need no relocation.
enum class Zone : uint8_t { libv, signal, voipcfg, signl, media, gen, call_hold, none };
inline constexpr char kZones[][10] = {"LIBV", "SIGNAL", "VOIPCFG", "SIGNL", "MEDIA", "GEN", "CALL_HOLD", ""};

inline constexpr char kFiles[][19] = {
    "generic.cpp",       "kex_api_calls.cpp",  "kex_datamodel.cpp",  "kex_dspplugin.cpp",
    "kex_functions.cpp", "libvoice_codec.cpp", "libvoice_utils.cpp", "message.cpp",
    "params.cpp",        "plugin_table.cpp",   "register.cpp",       "voice_service.cpp",
};
constexpr uint32_t kFileBytes = sizeof kFiles[0];
constexpr uint32_t kFileCount = sizeof kFiles / kFileBytes;
static_assert(sizeof kFiles <= 0x100 && sizeof kZones <= 0x80); // so many bits of a place's number are theirs

// The file name without its folders.
constexpr const char *file_name(const char *path) {
    const char *name = path;
    for (const char *c = path; *c != '\0'; ++c)
        if (*c == '/')
            name = c + 1;
    return name;
}

constexpr bool same_text(const char *a, const char *b) {
    while (*a != '\0' && *a == *b)
        ++a, ++b;
    return *a == *b;
}

// The file's place in the table, or kFileCount.
constexpr uint32_t file_number(const char *path) {
    uint32_t number = 0;
    while (number < kFileCount && !same_text(kFiles[number], file_name(path)))
        ++number;
    return number;
}

// A file that traces stands in the table.
template <uint32_t file>
struct KnownFile {
    static_assert(file < kFileCount, "kFiles lacks the name of this file");
    static constexpr uint32_t number = file;
};

// The place that a trace message shows, for helpers that trace on their caller's behalf: take
// `Where here = Where::caller()` last.
struct Where {
    const char *function;
    uint32_t place; // line, then where the file's name begins in the table

    static constexpr uint32_t kLines = 1 << 12;

    static constexpr Where caller(const char *function = __builtin_FUNCTION(),
                                  uint32_t file = file_number(__builtin_FILE()), uint32_t line = __builtin_LINE()) {
        return {function, file * kFileBytes * kLines + line};
    }
};

// A text that printf can show: a null pointer shows as the C library shows it.
constexpr const char *shown(const char *text) {
    return text ? text : "(null)";
}

// What else is constant where a message is written, above the bits of the place.
enum class Tag : uint8_t { error, warning, notice, info };

constexpr uint32_t kind_of(Zone zone, Tag tag) {
    return static_cast<uint32_t>(zone) * uint32_t{sizeof kZones[0]} << 20 | static_cast<uint32_t>(tag) << 27;
}

// An argument in one of few types, so that few shapes of messages remain. printf() reads it as what its conversion says.
constexpr int as_shape(int number) {
    return number;
}
constexpr int as_shape(unsigned number) {
    return static_cast<int>(number);
}
constexpr long as_shape(unsigned long number) {
    return static_cast<long>(number);
}
constexpr const void *as_shape(const void *pointer) {
    return pointer;
}

// The text that begins so many bytes behind the first of a table: the table as one run of bytes, not its first row.
inline const char *text_at(const void *table, uint32_t offset) {
    return static_cast<const char *>(table) + offset;
}

// What the frame shows, taken apart again.
struct Frame {
    const char *zone, *file;
    int line;

    [[gnu::always_inline]] explicit Frame(uint32_t what)
        : zone(text_at(kZones, what >> 20 & 0x7F)), file(text_at(kFiles, what >> 12 & 0xFF)),
          line(static_cast<int>(what & (Where::kLines - 1))) {}
};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
// Errors and warnings reach zilTrace(), which has no zone argument to filter by.
template <typename... Arguments>
[[gnu::noinline]] void trace_urgent_as(const char *format, const char *function, uint32_t what,
                                       Arguments... arguments) {
    const Frame frame(what);
    const bool is_error = what >> 27 == static_cast<uint32_t>(Tag::error);
    zilTrace(is_error ? ZIL_TRACE_ERROR : ZIL_TRACE_WARNING, format, "", frame.zone, "", "", is_error ? "x" : "!", "",
             "", arguments..., "", "", function, frame.file, frame.line, "");
}

template <typename... Arguments>
[[gnu::noinline]] void trace_zoned_as(const char *format, const char *function, uint32_t what, Arguments... arguments) {
    const Frame frame(what);
    const bool is_notice = what >> 27 == static_cast<uint32_t>(Tag::notice);
    zilTraceZ(is_notice ? ZIL_TRACE_NOTICE : ZIL_TRACE_INFO, frame.zone, format, "", frame.zone, "", "",
              is_notice ? "n" : "i", "", "", arguments..., "", "", function, frame.file, frame.line, "");
}
#pragma GCC diagnostic pop

// What a place passes: as little as can be.
template <typename... Arguments>
[[gnu::always_inline]] inline void trace_urgent(const char *format, Where where, uint32_t kind,
                                                Arguments... arguments) {
    trace_urgent_as(format, where.function, where.place | kind, as_shape(arguments)...);
}
template <typename... Arguments>
[[gnu::always_inline]] inline void trace_zoned(const char *format, Where where, uint32_t kind, Arguments... arguments) {
    trace_zoned_as(format, where.function, where.place | kind, as_shape(arguments)...);
}

// Entry and exit markers.
void trace_enter(const char *function, uint32_t place);
void trace_leave(const char *function, uint32_t place);

inline void trace_leave(Where where) {
    trace_leave(where.function, where.place);
}

} // namespace voice

#define TRACE_FRAMED_(writer, tag, zone, where, format, ...)                                                         \
    do {                                                                                                             \
        if (false)                                                                                                   \
            zilTrace(0, TRACE_HEAD format TRACE_TAIL, "", "", "", "", "", "", "" __VA_OPT__(, ) __VA_ARGS__, "", "", \
                     "", "", 0, "");                                                                                 \
        voice::writer(TRACE_HEAD format TRACE_TAIL, where,                                                           \
                      voice::kind_of(zone, voice::Tag::tag) __VA_OPT__(, ) __VA_ARGS__);                             \
    } while (false)

#define TRACE_FILE_ voice::KnownFile<voice::file_number(__FILE__)>::number
#define TRACE_HERE_ voice::Where::caller(__func__, TRACE_FILE_)

// One macro per level; the text stands at the call, so that a search for a message seen in the field finds it.
#define TRACE_ERROR(format, ...) \
    TRACE_FRAMED_(trace_urgent, error, voice::Zone::TRACE_ZONE, TRACE_HERE_, format __VA_OPT__(, ) __VA_ARGS__)
#define TRACE_WARNING(format, ...) \
    TRACE_FRAMED_(trace_urgent, warning, voice::Zone::TRACE_ZONE, TRACE_HERE_, format __VA_OPT__(, ) __VA_ARGS__)
#define TRACE_NOTICE(format, ...) \
    TRACE_FRAMED_(trace_zoned, notice, voice::Zone::TRACE_ZONE, TRACE_HERE_, format __VA_OPT__(, ) __VA_ARGS__)
#define TRACE_INFO(format, ...) \
    TRACE_FRAMED_(trace_zoned, info, voice::Zone::TRACE_ZONE, TRACE_HERE_, format __VA_OPT__(, ) __VA_ARGS__)

// The same where the zone differs, or where a helper traces for its caller.
#define TRACE_ERROR_Z(zone, format, ...) \
    TRACE_FRAMED_(trace_urgent, error, zone, TRACE_HERE_, format __VA_OPT__(, ) __VA_ARGS__)
#define TRACE_ERROR_Z_AT(zone, where, format, ...) \
    TRACE_FRAMED_(trace_urgent, error, zone, where, format __VA_OPT__(, ) __VA_ARGS__)
#define TRACE_ERROR_AT(where, format, ...) \
    TRACE_FRAMED_(trace_urgent, error, voice::Zone::TRACE_ZONE, where, format __VA_OPT__(, ) __VA_ARGS__)
#define TRACE_WARNING_AT(where, format, ...) \
    TRACE_FRAMED_(trace_urgent, warning, voice::Zone::TRACE_ZONE, where, format __VA_OPT__(, ) __VA_ARGS__)
#define TRACE_INFO_AT(where, format, ...) \
    TRACE_FRAMED_(trace_zoned, info, voice::Zone::TRACE_ZONE, where, format __VA_OPT__(, ) __VA_ARGS__)

// The same for the body of an exported function: its trace messages bear that function's name.
#define TRACE_ERROR_AS(function, format, ...)                                                                \
    TRACE_FRAMED_(trace_urgent, error, voice::Zone::TRACE_ZONE, voice::Where::caller(function, TRACE_FILE_), \
                  format __VA_OPT__(, ) __VA_ARGS__)
#define TRACE_INFO_AS(function, format, ...)                                                               \
    TRACE_FRAMED_(trace_zoned, info, voice::Zone::TRACE_ZONE, voice::Where::caller(function, TRACE_FILE_), \
                  format __VA_OPT__(, ) __VA_ARGS__)

// Entry and exit of a public function. Exit markers are written out, one per return path: each shows its own source
// line.
#define TRACE_ENTER() voice::trace_enter(__func__, TRACE_HERE_.place)
#define TRACE_LEAVE() voice::trace_leave(__func__, TRACE_HERE_.place)

#endif
