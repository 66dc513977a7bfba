// SPDX-License-Identifier: MIT
// Data blocks of displays, by the library's encoders and decoders.
#include "caller_display.h"

#include "libvoice_plugin.h"
#include "printable.h"

#include <initializer_list>
#include <stdio.h>
#include <string.h>
#include <time.h>

namespace {

constexpr uint8_t kWithheld = 'P';
constexpr uint8_t kLampOn = 0xFF, kLampOff = 0x00; // what the standard gives the indicator
constexpr uint8_t kNoLamp = 0x55;                  // neither of the two
constexpr uint32_t kTimeLength = kCallerTimeBytes - 1;

// MMDDhhmm, with room for what a broken clock could print.
struct time_text {
    char text[16];
};

time_text time_of_now() {
    time_text now;
    time_t seconds = time(nullptr);
    struct tm parts;
    localtime_r(&seconds, &parts);
    strftime(now.text, sizeof now.text, "%m%d%H%M", &parts);
    return now;
}

// The encoders' records are not const, but they only read.
libvoice_db_field field_of(const char *text) {
    return {const_cast<char *>(text), static_cast<uint32_t>(strlen(text))};
}

} // namespace

bool display_is_messages(const char *text) {
    char type[8];
    snprintf(type, sizeof type, "%02X", LIBVOICE_DB_MESSAGE_WAITING);
    return strncmp(text, type, strlen(type)) == 0;
}

bool caller_display_decode(const char *text, caller_display *display) {
    memset(display, 0, sizeof *display);
    // One byte of each room is not told: the decoder terminates there.
    libvoice_db_common_fields common = {};
    common.date_time = {display->time, sizeof display->time - 1};
    common.calling_number = {display->number, sizeof display->number - 1};
    common.no_calling_number = {&display->no_number, 1};
    libvoice_db_message_fields fields = {};
    fields.name = {display->name, sizeof display->name - 1};
    fields.no_name = {&display->no_name, 1};
    fields.slot2 = {display->called, sizeof display->called - 1};
    if (libvoice_db_call_setup_decode(text, static_cast<uint32_t>(strlen(text)), &fields, &common) != 0)
        return false;
    for (char *item : {display->time, display->number, display->name, display->called})
        text_make_printable(item);
    // A wrong checksum writes nothing and is answered like success.
    return display->time[0] != 0 || display->number[0] != 0 || display->name[0] != 0 || display->no_number != 0;
}

bool message_display_decode(const char *text, message_display *display) {
    char when[kCallerTimeBytes] = "";
    uint8_t lamp = kNoLamp, messages = 0;
    libvoice_db_common_fields common = {};
    common.date_time = {when, kTimeLength};
    libvoice_db_message_fields fields = {};
    fields.slot2 = {&lamp, 1};
    fields.messages = {&messages, 1};
    if (libvoice_db_message_waiting_decode(text, static_cast<uint32_t>(strlen(text)), &fields, &common) != 0 ||
        lamp == kNoLamp)
        return false;
    *display = {messages, lamp != kLampOff};
    return true;
}

uint32_t caller_display_encode(const char *number, const char *name, const char *called, char *text) {
    time_text now = time_of_now();
    uint8_t withheld = kWithheld;
    libvoice_db_common_fields common = {};
    common.date_time = {now.text, kTimeLength};
    if (number != nullptr && *number != 0)
        common.calling_number = field_of(number);
    else
        common.no_calling_number = {&withheld, 1};
    libvoice_db_message_fields fields = {};
    if (name != nullptr && *name != 0)
        fields.name = field_of(name);
    if (called != nullptr)
        fields.slot2 = field_of(called);
    // No call type: a call without one is a voice call, and some displays stop reading at items that they do not know.
    uint32_t length = 0; // counts the terminator, which travels too
    libvoice_db_call_setup_encode(&fields, &common, text, &length);
    return length;
}

uint32_t message_display_encode(uint8_t messages, char *text) {
    time_text now = time_of_now();
    uint8_t lamp = messages > 0 ? kLampOn : kLampOff;
    libvoice_db_common_fields common = {};
    common.date_time = {now.text, kTimeLength};
    libvoice_db_message_fields fields = {};
    fields.slot2 = {&lamp, 1};
    fields.messages = {&messages, 1};
    uint32_t length = 0;
    libvoice_db_message_waiting_encode(&fields, &common, text, &length);
    return length;
}
