/* SPDX-License-Identifier: MIT */
/* What a telephone's display shows: written by the application and read by the plugin; here both in one process. */
#include "voice_records.h"

#include <stdio.h>

/* [reading] */
/* The text for a telephone's display: a caller, or how many messages wait. -1: the block is broken, or says neither. */
static int32_t display_text(const libvoice_signal_t *message, char *shown, size_t size) {
    char block[LIBVOICE_DB_TEXT_BYTES];
    char number[20 + 1] = "", name[50 + 1] = ""; /* one more than is read: the terminator goes behind a full text */
    uint8_t no_number = 0, messages = 0, lamp = 0x55; /* what is not there leaves these as they are */
    libvoice_db_common_fields caller = {.calling_number = {number, 20}, .no_calling_number = {&no_number, 1}};
    libvoice_db_message_fields call = {.name = {name, 50}};
    libvoice_db_message_fields waiting = {.slot2 = {&lamp, 1}, .messages = {&messages, 1}};
    if (voice_params_get_block(voice_signal_params(message), LIBVOICE_PARAM_andisp_data_db, block, sizeof block) != 1)
        return -1;
    if (strncmp(block, "82", 2) == 0) /* LIBVOICE_DB_MESSAGE_WAITING: each decoder complains about the other's type */
        libvoice_db_message_waiting_decode(block, (uint32_t)strlen(block), &waiting, NULL);
    else
        libvoice_db_call_setup_decode(block, (uint32_t)strlen(block), &call, &caller);
    if (*number != 0 || no_number != 0)
        snprintf(shown, size, "%s %s", *number != 0 ? number : no_number == 'P' ? "withheld" : "unknown", name);
    else if (lamp != 0x55)
        snprintf(shown, size, "%u messages, lamp %s", messages, lamp == 0 ? "off" : "on");
    else
        return -1; /* a broken block is answered like a good one, and is told in the library's trace */
    return 0;
}
/* [end] */

/* [writing] */
/* A caller's number and name. The time is that of the telephone's clock: month, day, hour, minute. */
static const char *display_caller(voice_signal_message_t *signal, int32_t endpoint, char *number, char *name) {
    char block[LIBVOICE_DB_TEXT_BYTES], now[] = "11301530", withheld = 'P';
    uint32_t length;
    libvoice_db_common_fields common = {.date_time = {now, 8}};
    libvoice_db_message_fields fields = {.name = {name, (uint32_t)strlen(name)}};
    if (*number != 0)
        common.calling_number = (libvoice_db_field){number, (uint32_t)strlen(number)};
    else
        common.no_calling_number = (libvoice_db_field){&withheld, 1};
    libvoice_db_call_setup_encode(&fields, &common, block, &length);
    voice_signal_begin(signal, endpoint, LIBVOICE_SIGNAL_andisp_data, 0);
    voice_signal_add_block(signal, LIBVOICE_PARAM_andisp_data_db, block);
    return voice_signal_send(signal);
}
/* [end] */

static int shows(const libvoice_signal_t *message, const char *expected) {
    char shown[100] = "";
    const int32_t answer = display_text(message, shown, sizeof shown);
    if ((answer == 0) == (expected != NULL) && (expected == NULL || strcmp(shown, expected) == 0))
        return 1;
    fprintf(stderr, "shows \"%s\"\n", shown);
    return 0;
}

int main(void) {
    voice_signal_message_t signal;
    char long_number[] = "01234567890123456789", long_name[] = "12345678901234567890123456789012345678901234567890";
    char block[LIBVOICE_DB_TEXT_BYTES], expected[100];
    uint8_t lamp = 0xFF, messages = 3;
    uint32_t length;
    const libvoice_db_message_fields waiting = {.slot2 = {&lamp, 1}, .messages = {&messages, 1}};
    libvoice_set_endpoint("TEL1", 0, NULL);

    int right = display_caller(&signal, 0, (char[]){"201"}, (char[]){"Study"}) == NULL;
    right &= shows(&signal.record, "201 Study");
    display_caller(&signal, 0, (char[]){""}, (char[]){"Study"});
    right &= shows(&signal.record, "withheld Study");
    display_caller(&signal, 0, long_number, long_name);
    snprintf(expected, sizeof expected, "%s %s", long_number, long_name);
    right &= shows(&signal.record, expected);

    libvoice_db_message_waiting_encode(&waiting, NULL, block, &length);
    voice_signal_begin(&signal, 0, LIBVOICE_SIGNAL_andisp_data, 0);
    voice_signal_add_block(&signal, LIBVOICE_PARAM_andisp_data_db, block);
    right &= shows(&signal.record, "3 messages, lamp on");

    block[length - 2] ^= 1; /* the checksum */
    voice_signal_begin(&signal, 0, LIBVOICE_SIGNAL_andisp_data, 0);
    voice_signal_add_block(&signal, LIBVOICE_PARAM_andisp_data_db, block);
    right &= shows(&signal.record, NULL);
    voice_signal_begin(&signal, 0, LIBVOICE_SIGNAL_andisp_data, 0);
    right &= shows(&signal.record, NULL);
    return !right;
}
