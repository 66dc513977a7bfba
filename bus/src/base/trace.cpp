// SPDX-License-Identifier: MIT
// The trace service (ziltrace.h): filters, time stamps, colour and where trace messages go, all from the environment.
#include "base/trace.h"
#include "base/trace_output.h"
#include "base/trace_settings.h"
#include "base/trace_text.h"

#include <errno.h>
#include <limits.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>
#include <time.h>

namespace {

using bus::settings;

constexpr size_t kUsualLength = 1024; // longer messages cost an allocation
constexpr size_t kMaxHead = 160;      // time or name of the program, begin of colour
constexpr size_t kMaxTail = 8;        // end of colour, line break

bool trace_passes(int level, const char *zone) {
    if (!settings.configured)
        bus::trace_configure();
    return level <= (settings.zone_count > 0 ? bus::zone_level(zone) : settings.level);
}

const char *level_colour(int level) {
    if (level <= ZIL_TRACE_ERROR)
        return "\033[31m";
    if (level <= ZIL_TRACE_WARNING)
        return "\033[33m";
    return level <= ZIL_TRACE_NOTICE ? "\033[36m" : level <= ZIL_TRACE_INFO ? "" : "\033[2m";
}

int level_priority(int level) {
    if (level <= ZIL_TRACE_ERROR)
        return LOG_ERR;
    if (level <= ZIL_TRACE_WARNING)
        return LOG_WARNING;
    return level <= ZIL_TRACE_NOTICE ? LOG_NOTICE : level <= ZIL_TRACE_INFO ? LOG_INFO : LOG_DEBUG;
}

size_t time_stamp(char *to, size_t size) {
    timespec now;
    tm parts;
    clock_gettime(CLOCK_REALTIME, &now);
    size_t length = 0;
    if (localtime_r(&now.tv_sec, &parts) != nullptr)
        length = strftime(to, size, "%Y-%m-%d %H:%M:%S", &parts);
    int rest = snprintf(to + length, size - length, ".%06ld ", static_cast<long>(now.tv_nsec / 1000));
    return length + (rest > 0 ? static_cast<size_t>(rest) : 0);
}

// In front of a message for the system's log, as syslog(3) does it.
size_t log_head(char *to, size_t size, int level) {
    tm parts;
    const time_t now = time(nullptr);
    int length = snprintf(to, size, "<%d>", LOG_USER | level_priority(level));
    if (localtime_r(&now, &parts) != nullptr)
        length +=
            static_cast<int>(strftime(to + length, size - static_cast<size_t>(length), "%b %e %H:%M:%S ", &parts));
    const size_t used = static_cast<size_t>(length);
    const int name = snprintf(to + used, size - used, "%.64s: ", program_invocation_short_name);
    return used + (name > 0 ? static_cast<size_t>(name) : 0);
}

size_t message_head(char *to, size_t size, int level) {
    if (settings.to_syslog)
        return log_head(to, size, level);
    const size_t start = settings.time ? time_stamp(to, size) : 0;
    const char *colour = settings.colour ? level_colour(level) : "";
    const size_t length = strlen(colour);
    memcpy(to + start, colour, length);
    return start + length;
}

size_t message_tail(char *to, int level) {
    if (settings.to_syslog)
        return 0;
    const char *end = settings.colour && *level_colour(level) != '\0' ? "\033[0m\n" : "\n";
    const size_t length = strlen(end);
    memcpy(to, end, length);
    return length;
}

int trace_write(int level, const char *format, va_list arguments) ZIL_PRINTF(2, 0);

int trace_write(int level, const char *format, va_list arguments) {
    const int error = errno;
    char usual[kUsualLength];
    char *message = usual;
    size_t size = sizeof usual;
    const size_t start = message_head(usual, kMaxHead, level);
    va_list again;
    va_copy(again, arguments);
    errno = error; // for %m
    const int length = bus::trace_text_format(message + start, size - start - kMaxTail, format, arguments);
    if (length >= 0 && static_cast<size_t>(length) >= size - start - kMaxTail) {
        const size_t needed = start + static_cast<size_t>(length) + 1 + kMaxTail;
        char *longer = static_cast<char *>(malloc(needed));
        if (longer != nullptr) {
            memcpy(longer, usual, start);
            errno = error;
            bus::trace_text_format(longer + start, static_cast<size_t>(length) + 1, format, again);
            message = longer;
            size = needed;
        }
    }
    va_end(again);
    const size_t end = start + strnlen(message + start, size - start - kMaxTail);
    bus::trace_output_put(message, end + message_tail(message + end, level));
    if (message != usual)
        free(message);
    errno = error;
    return 1;
}

void note_more(uint32_t more, int32_t process) {
    if (process > 0)
        bus::note(ZIL_TRACE_WARNING, "%u more errors and warnings because of process %d", more,
                  static_cast<int>(process));
    else
        bus::note(ZIL_TRACE_WARNING, "%u more errors and warnings because of other processes", more);
}

// Whoever asks for notices wants to see all there is.
bool limit_passes(int level) {
    return level >= ZIL_TRACE_NOTICE || settings.highest >= ZIL_TRACE_NOTICE || bus::trace_limit_passes(note_more);
}

} // namespace

namespace bus {

void trace_configure() {
    trace_settings_read();
    trace_output_begin(settings.to_syslog);
    trace_limit_begin();
}

namespace {

void note_write(int level, const char *format, va_list arguments) ZIL_PRINTF(2, 0);

void note_write(int level, const char *format, va_list arguments) {
    char text[768];
    vsnprintf(text, sizeof text, format, arguments);
    const char *tag = level <= ZIL_TRACE_ERROR ? "x" : level <= ZIL_TRACE_WARNING ? "!" : "i";
    zilTraceZ(level, "KEX", "%-7.7s - [%s]%s", "KEX", tag, text);
}

} // namespace

void note(int level, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    note_write(level, format, arguments);
    va_end(arguments);
}

void note_about(int32_t process, int level, const char *format, ...) {
    const TraceCause cause(process);
    va_list arguments;
    va_start(arguments, format);
    note_write(level, format, arguments);
    va_end(arguments);
}

bool trace_has_rest() {
    return trace_output_retry() != 0 || trace_limit_due() != 0;
}

uint64_t trace_deadline(uint64_t now) {
    const uint64_t retry = trace_output_retry();
    const uint64_t due = trace_limit_due();
    if (retry == 0)
        return due;
    return due != 0 && due < now + retry ? due : now + retry;
}

void trace_catch_up() {
    trace_output_flush();
    trace_limit_tell(note_more);
}

char *printable(char *to, size_t size, const void *text, size_t length) {
    const uint8_t *from = static_cast<const uint8_t *>(text);
    size_t kept = length < size - 1 ? length : size - 1;
    for (size_t i = 0; i < kept; i++)
        to[i] = from[i] >= ' ' && from[i] < 127 ? static_cast<char>(from[i]) : '?';
    to[kept] = '\0';
    return to;
}

} // namespace bus

int zilTrace(int level, const char *format, ...) {
    if (level > settings.highest || format == nullptr || !trace_passes(level, nullptr) || !limit_passes(level))
        return 0;
    va_list arguments;
    va_start(arguments, format);
    int written = trace_write(level, format, arguments);
    va_end(arguments);
    return written;
}

int zilTraceZ(int level, const char *zone, const char *format, ...) {
    if (level > settings.highest || format == nullptr || !trace_passes(level, zone) || !limit_passes(level))
        return 0;
    va_list arguments;
    va_start(arguments, format);
    int written = trace_write(level, format, arguments);
    va_end(arguments);
    return written;
}
