// SPDX-License-Identifier: MIT
/**
 * @file message.h
 * Filling and reading the parameter buffers of signals, events and sets, with every length checked.
 */
#pragma once

#include "voice_records.h"

constexpr uint32_t kMessageParameterBytes = 512;

/** A signal with room for its parameters. */
struct signal_message {
    voice_signal_t head;
    uint8_t params[kMessageParameterBytes];
};

/** An event with room for its parameters. */
struct event_message {
    voice_event_t head;
    uint8_t params[kMessageParameterBytes];
};

void signal_begin(signal_message *message, int32_t endpoint, uint32_t signal, uint32_t line);
void event_begin(event_message *message, int32_t endpoint, uint32_t event, uint32_t line);
/** Sends it to the endpoint that it names. */
void signal_send(signal_message *message);
/** Sends it to the application. @return whether it was handed to the bus. */
bool event_send(event_message *message);

/* Appending one item; no: it does not fit, and nothing is written. */
bool signal_add_int(signal_message *message, uint32_t id, int32_t value);
bool signal_add_bytes(signal_message *message, uint32_t id, const void *value, uint32_t length);
bool event_add_int(event_message *message, uint32_t id, int32_t value);
bool event_add_text(event_message *message, uint32_t id, const char *text);
bool event_add_bytes(event_message *message, uint32_t id, const void *value, uint32_t length);
/** The same for any buffer of `capacity` bytes of which *length are used. */
bool params_add_int(void *params, uint32_t capacity, uint32_t *length, uint32_t id, int32_t value);
bool params_add_bytes(void *params, uint32_t capacity, uint32_t *length, uint32_t id, const void *value,
                      uint32_t bytes);

/* Reading the first item of an identifier. No: absent, cut off, or not of that kind; outputs then keep what they held.
 */
bool params_int(const void *params, uint32_t length, uint32_t id, int32_t *value);
/** Copies a text into `out`, cut to fit and always terminated; an item without a terminator ends with its bytes. */
bool params_text(const void *params, uint32_t length, uint32_t id, char *out, uint32_t size);
/** Points into the buffer. */
bool params_bytes(const void *params, uint32_t length, uint32_t id, const uint8_t **value, uint32_t *bytes);
