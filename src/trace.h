// SPDX-License-Identifier: MIT
// The trace frame: the only place that knows the layout of the library's trace messages.
//
//   LIBV    - [x]message text - (function@file.cpp:line)
//
// The colours of the frame are separate empty texts, so that a build can colour messages without touching a format.
// Hundreds of places trace, therefore they pass only what differs: the call with its fourteen arguments stands once per
// argument shape, out of line. Under `if (false)` the compiler still checks each format against its arguments.
#ifndef VOICE_TRACE_H
#define VOICE_TRACE_H

#include "ziltrace.h"

#define TRACE_HEAD "%s%-7.7s%s - %s[%s]%s%s"
#define TRACE_TAIL "%s - %s(%s@%s:%d)%s"

// A file that mostly traces in another zone defines this before it includes this header.
#ifndef TRACE_ZONE
#define TRACE_ZONE "LIBV"
#endif

namespace voice {

// The file name without its folders.
constexpr const char *file_name(const char *path) {
    const char *name = path;
    for (const char *c = path; *c != '\0'; ++c)
        if (*c == '/')
            name = c + 1;
    return name;
}

// The place that a trace message shows, for helpers that trace on their caller's behalf: take
// `Where here = Where::caller()` last.
struct Where {
    const char *function;
    const char *file;
    int line;

    static constexpr Where caller(const char *function = __builtin_FUNCTION(), const char *file = __builtin_FILE(),
                                  int line = __builtin_LINE()) {
        return {function, file_name(file), line};
    }
};

// A text that printf can show: a null pointer shows as the C library shows it.
constexpr const char *shown(const char *text) {
    return text ? text : "(null)";
}

// Errors and warnings reach zilTrace(), which has no zone argument to filter by.
template <typename... Arguments>
[[gnu::noinline]] void trace_urgent(int level, const char *zone, const char *format, Where where,
                                    Arguments... arguments) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    const char *tag = level == ZIL_TRACE_ERROR ? "x" : "!";
    zilTrace(level, format, "", zone, "", "", tag, "", "", arguments..., "", "", where.function, where.file, where.line,
             "");
#pragma GCC diagnostic pop
}

template <typename... Arguments>
[[gnu::noinline]] void trace_zoned(int level, const char *zone, const char *format, Where where,
                                   Arguments... arguments) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    const char *tag = level == ZIL_TRACE_NOTICE ? "n" : "i";
    zilTraceZ(level, zone, format, "", zone, "", "", tag, "", "", arguments..., "", "", where.function, where.file,
              where.line, "");
#pragma GCC diagnostic pop
}

void trace_enter(Where where);
void trace_leave(Where where);

} // namespace voice

#define TRACE_FRAMED_(writer, level, zone, where, format, ...)                                                         \
    do {                                                                                                               \
        if (false)                                                                                                     \
            zilTrace(level, TRACE_HEAD format TRACE_TAIL, "", zone, "", "", "", "", "" __VA_OPT__(, ) __VA_ARGS__, "", \
                     "", "", "", 0, "");                                                                               \
        voice::writer(level, zone, TRACE_HEAD format TRACE_TAIL, where __VA_OPT__(, ) __VA_ARGS__);                    \
    } while (false)

#define TRACE_HERE_ voice::Where::caller(__func__)

// One macro per level; the text stands at the call, so that a search for a message seen in the field finds it.
#define TRACE_ERROR(format, ...) \
    TRACE_FRAMED_(trace_urgent, ZIL_TRACE_ERROR, TRACE_ZONE, TRACE_HERE_, format __VA_OPT__(, ) __VA_ARGS__)
#define TRACE_WARNING(format, ...) \
    TRACE_FRAMED_(trace_urgent, ZIL_TRACE_WARNING, TRACE_ZONE, TRACE_HERE_, format __VA_OPT__(, ) __VA_ARGS__)
#define TRACE_NOTICE(format, ...) \
    TRACE_FRAMED_(trace_zoned, ZIL_TRACE_NOTICE, TRACE_ZONE, TRACE_HERE_, format __VA_OPT__(, ) __VA_ARGS__)
#define TRACE_INFO(format, ...) \
    TRACE_FRAMED_(trace_zoned, ZIL_TRACE_INFO, TRACE_ZONE, TRACE_HERE_, format __VA_OPT__(, ) __VA_ARGS__)

// The same where the zone differs, or where a helper traces for its caller.
#define TRACE_ERROR_Z(zone, format, ...) \
    TRACE_FRAMED_(trace_urgent, ZIL_TRACE_ERROR, zone, TRACE_HERE_, format __VA_OPT__(, ) __VA_ARGS__)
#define TRACE_ERROR_Z_AT(zone, where, format, ...) \
    TRACE_FRAMED_(trace_urgent, ZIL_TRACE_ERROR, zone, where, format __VA_OPT__(, ) __VA_ARGS__)
#define TRACE_ERROR_AT(where, format, ...) \
    TRACE_FRAMED_(trace_urgent, ZIL_TRACE_ERROR, TRACE_ZONE, where, format __VA_OPT__(, ) __VA_ARGS__)
#define TRACE_WARNING_AT(where, format, ...) \
    TRACE_FRAMED_(trace_urgent, ZIL_TRACE_WARNING, TRACE_ZONE, where, format __VA_OPT__(, ) __VA_ARGS__)
#define TRACE_INFO_AT(where, format, ...) \
    TRACE_FRAMED_(trace_zoned, ZIL_TRACE_INFO, TRACE_ZONE, where, format __VA_OPT__(, ) __VA_ARGS__)

// The same for the body of an exported function: its trace messages bear that function's name.
#define TRACE_ERROR_AS(function, format, ...)                                                \
    TRACE_FRAMED_(trace_urgent, ZIL_TRACE_ERROR, TRACE_ZONE, voice::Where::caller(function), \
                  format __VA_OPT__(, ) __VA_ARGS__)
#define TRACE_INFO_AS(function, format, ...)                                               \
    TRACE_FRAMED_(trace_zoned, ZIL_TRACE_INFO, TRACE_ZONE, voice::Where::caller(function), \
                  format __VA_OPT__(, ) __VA_ARGS__)

// Entry and exit of a public function. Exit markers are written out, one per return path: each shows its own source
// line.
#define TRACE_ENTER() voice::trace_enter(TRACE_HERE_)
#define TRACE_LEAVE() voice::trace_leave(TRACE_HERE_)

#endif
