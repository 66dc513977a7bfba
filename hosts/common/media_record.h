// SPDX-License-Identifier: MIT
/**
 * @file media_record.h
 * Connection and stream information from the application, read with every length checked.
 */
#pragma once

#include "line_driver.h"

/**
 * Reads connection information: at least 704 readable bytes on a word boundary, as the library hands them out. Context,
 * stream and descriptors are left as none.
 * @return null, or why it cannot be followed
 */
const char *media_read_connection(const void *cnx_info, line_media_t *media);
/** Reads stream information of at least 712 bytes; the stream's number too. */
const char *media_read_stream(const void *stream_info, line_media_t *media);
