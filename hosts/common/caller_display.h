// SPDX-License-Identifier: MIT
/**
 * @file caller_display.h
 * Caller display and message waiting as hosts speak of them, to and from the text of a data block.
 */
#pragma once

#include <stdint.h>

constexpr uint32_t kCallerNumberBytes = 21; // 20 characters and the terminator, by ETSI EN 300 659-3
constexpr uint32_t kCallerNameBytes = 51;   // 50 characters
constexpr uint32_t kCallerTimeBytes = 9;    // MMDDhhmm

/** What a call setup block says. Empty: that item was not there. */
struct caller_display {
    char number[kCallerNumberBytes];
    char name[kCallerNameBytes];
    char called[kCallerNumberBytes]; // the number that was dialled
    char time[kCallerTimeBytes];
    uint8_t no_number; // why there is none: 'O' unavailable, 'P' withheld; 0: nothing was said
    uint8_t no_name;
};

/** What a message waiting block says. */
struct message_display {
    uint32_t messages;
    bool lamp; // the indicator is to be on
};

/** Whether the text of a block is one of message waiting; else it is taken for a call setup. */
bool display_is_messages(const char *text);

/** Reads a call setup block. Texts are made printable. @return no: broken, of another type, or nothing in it. */
bool caller_display_decode(const char *text, caller_display *display);
/** Reads a message waiting block. @return no: broken, of another type, or without an indicator. */
bool message_display_decode(const char *text, message_display *display);

/**
 * Writes a call setup block with the time of now. Without a number (null or empty) it says that the number is withheld.
 * @param name    may be null or empty: left out
 * @param called  the number that was dialled; null: left out
 * @param text    room of LIBVOICE_DB_TEXT_BYTES
 * @return how many bytes travel, the terminator among them
 */
uint32_t caller_display_encode(const char *number, const char *name, const char *called, char *text);
/** Writes a message waiting block with the time of now, for 0 to 255 messages; the lamp is on unless there are none. */
uint32_t message_display_encode(uint8_t messages, char *text);
