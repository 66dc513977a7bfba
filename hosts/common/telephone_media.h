// SPDX-License-Identifier: MIT
/**
 * @file telephone_media.h
 * The media and parameter callbacks of a plugin whose endpoints are simulated telephones: they go straight into the
 * table.
 */
#pragma once

#include "telephone.h"

int32_t telephone_media_create(int32_t endpoint, uint32_t line, void *cnx_info, int32_t **descriptors);
int32_t telephone_media_modify(int32_t endpoint, uint32_t line, void *cnx_info, int32_t **descriptors);
int32_t telephone_media_destroy(int32_t endpoint, uint32_t line);

int32_t telephone_create_context(uint32_t context);
int32_t telephone_add_stream(uint32_t context, void *stream_info, int32_t **descriptors, int32_t endpoint,
                             uint32_t line);
int32_t telephone_modify_stream(uint32_t context, void *stream_info);
int32_t telephone_remove_stream(uint32_t context, uint32_t stream);
int32_t telephone_destroy_context(uint32_t context);

int32_t telephone_get_parameters(libvoice_param_set_t *request, libvoice_param_set_t **result, int32_t reserved);
int32_t telephone_set_parameters(libvoice_param_set_t *params);

/** Closes media that is open, without a word to the application: it is gone, or starts anew. */
void telephone_media_drop(telephone *phone);
/** Forgets all conferences. */
void telephone_contexts_drop();
