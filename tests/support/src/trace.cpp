// SPDX-License-Identifier: MIT
// The trace service of the fake bus: takes each line apart by the frame that the library writes.
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "state.h"

namespace fake {
namespace {

const char kHead[] = "%s%-7.7s%s - %s[%s]%s%s";
const char kTail[] = "%s - %s(%s@%s:%d)%s";
const char kEnter[] = "%s%-7.7s%s - >>>>>>>>>>%s - %s(%s@%s:%d)%s";
const char kLeave[] = "%s%-7.7s%s - <<<<<<<<<<%s - %s(%s@%s:%d)%s";

std::string render(const char *format, va_list arguments) {
    char *line = nullptr;
    const int length = vasprintf(&line, format, arguments);
    std::string result(length < 0 ? "" : line, length < 0 ? 0 : static_cast<size_t>(length));
    free(line);
    return result;
}

bool starts(const std::string &text, const std::string &with) {
    return text.compare(0, with.size(), with) == 0;
}

bool ends(const std::string &text, const std::string &with) {
    return text.size() >= with.size() && text.compare(text.size() - with.size(), with.size(), with) == 0;
}

// "(function@file:line)" at the end of a line. Answers where " - (" begins, or npos.
size_t read_place(TraceLine &line) {
    const size_t at = line.rendered.rfind(" - (");
    if (at == std::string::npos || line.rendered.back() != ')')
        return std::string::npos;
    const std::string place = line.rendered.substr(at + 4, line.rendered.size() - at - 5);
    const size_t file = place.find('@'), number = place.rfind(':');
    if (file == std::string::npos || number == std::string::npos || number < file)
        return std::string::npos;
    line.function = place.substr(0, file);
    line.file = place.substr(file + 1, number - file - 1);
    line.line = atoi(place.c_str() + number + 1);
    return at;
}

// Takes the line apart; the complaint, or an empty text.
std::string take_apart(TraceLine &line, const char *const *head) {
    const std::string head_text = fake::text("%s%-7.7s%s - ", "", head[1], "");
    line.zone = head[1];
    if (!starts(line.rendered, head_text))
        return "a colour field is not empty";
    const size_t place = read_place(line);
    if (place == std::string::npos)
        return "no place at the end";
    if (line.marker) {
        if (line.level != ZIL_TRACE_MARKER)
            return "a marker of another level than 500";
        if (!line.zoned || line.zone_argument != "LIBV" || line.zone != "LIBV")
            return "a marker outside zone LIBV";
        if (line.rendered.substr(head_text.size(), place - head_text.size()) !=
            (line.enter ? ">>>>>>>>>>" : "<<<<<<<<<<"))
            return "a marker with a colour";
    } else {
        line.tag = head[4];
        const std::string tag = "[" + line.tag + "]";
        if (line.rendered.compare(head_text.size(), tag.size(), tag) != 0)
            return "a colour field is not empty";
        const size_t message = head_text.size() + tag.size();
        line.message = line.rendered.substr(message, place - message);
        const char *expected = line.level == ZIL_TRACE_ERROR     ? "x"
                               : line.level == ZIL_TRACE_WARNING ? "!"
                               : line.level == ZIL_TRACE_NOTICE  ? "n"
                               : line.level == ZIL_TRACE_INFO    ? "i"
                                                                 : "none";
        if (line.tag != expected)
            return "tag and level do not belong together";
        if (line.zoned != (line.level >= ZIL_TRACE_NOTICE))
            return "errors and warnings go to zilTrace(), the rest to zilTraceZ()";
        if (line.zoned && line.zone_argument != line.zone)
            return "the zone argument is not the zone of the line";
    }
    if (line.line <= 0)
        return "no line number";
    if (!ends(line.file, ".cpp") && !ends(line.file, ".c") && !ends(line.file, ".cc"))
        return "no source file";
    if (line.file.find('/') != std::string::npos)
        return "a folder in the file name";
    return "";
}

void take(TraceLine &&line, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    line.rendered = render(line.format.c_str(), again);
    va_end(again);

    const bool message =
        starts(line.format, kHead) && ends(line.format, kTail) && line.format.size() >= strlen(kHead) + strlen(kTail);
    line.enter = line.format == kEnter;
    line.marker = line.enter || line.format == kLeave;
    Bus::State &s = bus().state();
    std::string wrong = s.own_traces ? "" : "a line out of frame (the host's own? bus().takes_own_traces())";
    if (message || line.marker) {
        const char *head[7] = {};
        va_copy(again, arguments);
        for (size_t i = 0; i < (message ? 7u : 2u); ++i)
            head[i] = va_arg(again, const char *);
        va_end(again);
        if (message)
            line.message_format = line.format.substr(strlen(kHead), line.format.size() - strlen(kHead) - strlen(kTail));
        wrong = take_apart(line, head);
    }
    if (!wrong.empty())
        bus().problem("trace: " + wrong + ": " + line.rendered);
    s.log.push_back({line.marker ? Kind::Marker : Kind::Trace, escaped(line.str()), line.level});
    s.traces.push_back(std::move(line));
}

} // namespace

std::string TraceLine::str() const {
    if (function.empty()) // the host's own
        return fake::text("trace %d", level) + (zoned ? " [" + zone_argument + "]" : "") + ": " + rendered;
    const std::string place = function + "@" + file.substr(0, file.rfind('.'));
    if (marker)
        return (enter ? "> " : "< ") + place;
    return tag + (zone == "LIBV" ? "" : "[" + zone + "]") + " " + place + ": " + message;
}

} // namespace fake

extern "C" int zilTrace(int level, const char *format, ...) {
    fake::TraceLine line;
    line.level = level;
    line.format = format;
    va_list arguments;
    va_start(arguments, format);
    fake::take(std::move(line), arguments);
    va_end(arguments);
    return 1;
}

extern "C" int zilTraceZ(int level, const char *zone, const char *format, ...) {
    fake::TraceLine line;
    line.level = level;
    line.zoned = true;
    line.zone_argument = zone;
    line.format = format;
    va_list arguments;
    va_start(arguments, format);
    fake::take(std::move(line), arguments);
    va_end(arguments);
    return 1;
}
