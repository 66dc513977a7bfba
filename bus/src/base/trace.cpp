// SPDX-License-Identifier: MIT
// The trace service (ziltrace.h): filters, time stamps, colour and where trace messages go, all from the environment.
#include "base/trace.h"

#include <errno.h>
#include <limits.h>
#include <pthread.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

namespace {

constexpr uint32_t kMaxZones = 32;
constexpr size_t kMaxZoneName = 16;
constexpr size_t kUsualLength = 1024; // longer messages cost an allocation
constexpr size_t kMaxStamp = 48;
constexpr size_t kMaxTail = 8; // end of colour, line break

struct Zone {
    char name[kMaxZoneName];
    int level;
};

struct Settings {
    // The highest level that any filter lets pass: one comparison turns away everything else. Until the environment has
    // been read it lets everything through to the point where that is done.
    int highest = INT_MAX;
    bool configured = false;
    int level = ZIL_TRACE_WARNING;
    Zone zones[kMaxZones] = {};
    uint32_t zone_count = 0;
    bool to_syslog = false;
    bool time = false;
    bool colour = false;
    bool to_pipe = false;
};

Settings settings;

bool variable_is_on(const char *name) {
    const char *value = getenv(name);
    return value != nullptr && (strcmp(value, "1") == 0 || strcmp(value, "on") == 0 || strcmp(value, "yes") == 0 ||
                                strcmp(value, "true") == 0);
}

// Anything but a number up to the end of its word leaves *level as it was: a slip in the environment must not silence
// the errors.
bool level_read(const char *text, const char *word_end, int *level) {
    char *end;
    errno = 0;
    long number = strtol(text, &end, 10);
    if (end == text || end != word_end || errno != 0 || number < INT_MIN || number > INT_MAX)
        return false;
    *level = static_cast<int>(number);
    return true;
}

// "LIBV=500,SIGNAL=400". What does not read so is passed over.
void zones_read(const char *text) {
    while (*text != '\0' && settings.zone_count < kMaxZones) {
        size_t length = strcspn(text, ",");
        size_t name_length = strcspn(text, "=,");
        int level;
        if (name_length < length && name_length > 0 && name_length < kMaxZoneName &&
            level_read(text + name_length + 1, text + length, &level)) {
            Zone &zone = settings.zones[settings.zone_count++];
            memcpy(zone.name, text, name_length);
            zone.level = level;
            settings.highest = zone.level > settings.highest ? zone.level : settings.highest;
        }
        text += length;
        text += *text == ',';
    }
}

int zone_level(const char *zone) {
    for (uint32_t i = 0; zone != nullptr && i < settings.zone_count; i++) {
        if (strcmp(settings.zones[i].name, zone) == 0)
            return settings.zones[i].level;
    }
    return settings.level;
}

bool trace_passes(int level, const char *zone) {
    if (!settings.configured)
        bus::trace_configure();
    return level <= (settings.zone_count > 0 ? zone_level(zone) : settings.level);
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

// A reader of standard error that went away must not take the process with it: the signal of a broken pipe is held back
// and taken out again. Other files raise none.
void trace_write(const char *message, size_t length) {
    if (!settings.to_pipe) {
        while (write(STDERR_FILENO, message, length) < 0 && errno == EINTR)
            ;
        return;
    }
    sigset_t pipe_signal;
    sigset_t before;
    sigset_t pending;
    sigemptyset(&pipe_signal);
    sigaddset(&pipe_signal, SIGPIPE);
    sigpending(&pending);
    bool was_pending = sigismember(&pending, SIGPIPE) == 1;
    pthread_sigmask(SIG_BLOCK, &pipe_signal, &before);
    ssize_t written;
    while ((written = write(STDERR_FILENO, message, length)) < 0 && errno == EINTR)
        ;
    const timespec at_once = {};
    if (written < 0 && errno == EPIPE && !was_pending)
        sigtimedwait(&pipe_signal, nullptr, &at_once);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

int trace_format(int level, const char *format, va_list arguments) ZIL_PRINTF(2, 0);

int trace_format(int level, const char *format, va_list arguments) {
    int error = errno;
    char usual[kUsualLength];
    char *message = usual;
    size_t size = sizeof usual;
    size_t start = 0;
    if (!settings.to_syslog && settings.time)
        start = time_stamp(usual, kMaxStamp);
    const char *colour = !settings.to_syslog && settings.colour ? level_colour(level) : "";
    size_t colour_length = strlen(colour);
    memcpy(usual + start, colour, colour_length);
    start += colour_length;

    va_list again;
    va_copy(again, arguments);
    errno = error; // for %m
    int length = vsnprintf(message + start, size - start - kMaxTail, format, arguments);
    if (length >= 0 && static_cast<size_t>(length) >= size - start - kMaxTail) {
        size_t needed = start + static_cast<size_t>(length) + 1 + kMaxTail;
        char *longer = static_cast<char *>(malloc(needed));
        if (longer != nullptr) {
            memcpy(longer, usual, start);
            errno = error;
            vsnprintf(longer + start, static_cast<size_t>(length) + 1, format, again);
            message = longer;
            size = needed;
        }
    }
    va_end(again);

    size_t end = start + strnlen(message + start, size - start - kMaxTail);
    if (settings.to_syslog) {
        syslog(LOG_USER | level_priority(level), "%s", message);
    } else {
        if (colour_length > 0) {
            memcpy(message + end, "\033[0m", 4);
            end += 4;
        }
        message[end++] = '\n';
        trace_write(message, end);
    }
    if (message != usual)
        free(message);
    errno = error;
    return 1;
}

} // namespace

namespace bus {

void trace_configure() {
    settings = Settings{};
    settings.configured = true;
    const char *level = getenv("ZIL_TRACE_LEVEL");
    if (level != nullptr)
        level_read(level, level + strlen(level), &settings.level);
    settings.highest = settings.level;
    const char *zones = getenv("ZIL_TRACE_ZONES");
    if (zones != nullptr)
        zones_read(zones);
    const char *output = getenv("ZIL_TRACE_OUTPUT");
    settings.to_syslog = output != nullptr && strcmp(output, "syslog") == 0;
    settings.time = variable_is_on("ZIL_TRACE_TIME");
    settings.colour = variable_is_on("ZIL_TRACE_COLOR");
    struct stat status;
    settings.to_pipe = fstat(STDERR_FILENO, &status) != 0 || S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode);
}

void note(int level, const char *format, ...) {
    char text[768];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    const char *tag = level <= ZIL_TRACE_ERROR ? "x" : level <= ZIL_TRACE_WARNING ? "!" : "i";
    zilTraceZ(level, "KEX", "%-7.7s - [%s]%s", "KEX", tag, text);
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
    if (level > settings.highest || format == nullptr || !trace_passes(level, nullptr))
        return 0;
    va_list arguments;
    va_start(arguments, format);
    int written = trace_format(level, format, arguments);
    va_end(arguments);
    return written;
}

int zilTraceZ(int level, const char *zone, const char *format, ...) {
    if (level > settings.highest || format == nullptr || !trace_passes(level, zone))
        return 0;
    va_list arguments;
    va_start(arguments, format);
    int written = trace_format(level, format, arguments);
    va_end(arguments);
    return written;
}
