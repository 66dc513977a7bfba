/* SPDX-License-Identifier: MIT */
/* The peers: the plainest good code for each of the library's paths, in a shared object of their own. */
#ifndef BENCH_LIBRARY_PEERS_H
#define BENCH_LIBRARY_PEERS_H

#include <stddef.h>
#include <stdint.h>

#include "libvoice_plugin.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The parameter buffer in C by hand. 0: done. */
int plain_add(uint32_t id, uint32_t length, const void *value, uint8_t **cursor, uint32_t *remaining);
int plain_next(uint32_t *id, uint32_t *length, uint8_t **value, uint8_t **cursor, uint32_t *remaining);
int plain_find(uint32_t id, uint32_t *length, uint8_t **value, uint8_t **cursor, uint32_t *remaining);

/* The same with netlink attributes by libmnl, in the program; an attribute's type is the item's place. They answer as the
 * paths do: the sum of what they took. */
#define BENCH_ITEMS 8
#define BENCH_VALUE_BYTES 32
uint64_t mnl_add(const uint32_t *ids, const uint32_t *lengths, const uint8_t *values);
uint64_t mnl_walk(const uint32_t *ids);
uint64_t mnl_find(const uint32_t *ids);

/* The look-ups; 0xFFFFFFFF and NULL for what is not there. */
void names_prepare(void); /* fills the tables of those that have some */
uint32_t name_by_hash_map(const char *name);
uint32_t name_by_binary_search(const char *name);
uint32_t name_by_gperf(const char *name);
const char *number_by_hash_map(uint32_t number);
const char *number_by_binary_search(uint32_t number);
const char *number_by_switch(uint32_t number);

/* Call setup data blocks: by a table of fields, with the library's trace messages; by snprintf() and strtol(), without. */
uint32_t table_encode(const libvoice_db_message_fields *message, const libvoice_db_common_fields *common, char *out);
int table_decode(const char *text, libvoice_db_message_fields *message, libvoice_db_common_fields *common);
uint32_t printf_encode(const libvoice_db_message_fields *message, const libvoice_db_common_fields *common, char *out);
int printf_decode(const char *text, libvoice_db_message_fields *message, libvoice_db_common_fields *common);

/* Trace messages with the full frame, written straight at the trace function. */
void bare_markers(void);
void bare_table_dump(void);

#ifdef __cplusplus
}
#endif

#endif
