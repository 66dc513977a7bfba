/* SPDX-License-Identifier: MIT */
/* Sizes and offsets of everything that crosses the library's border, as written numbers. DO NOT EVER CHANGE ONE: hosts
 * that are not recompiled depend on them. */
#include "layout.h"

#include "libvoice_plugin.h"

/* Records that travel as bytes: the same on every host. */
SIZE(libvoice_signal_t, 28);
AT(libvoice_signal_t, endpoint, 0);
AT(libvoice_signal_t, carried, 4);
AT(libvoice_signal_t, params, 20);
AT(libvoice_signal_t, length, 24);
SIZE(libvoice_event_t, 20);
AT(libvoice_event_t, endpoint, 0);
AT(libvoice_event_t, carried, 4);
AT(libvoice_event_t, params, 12);
AT(libvoice_event_t, length, 16);
SIZE(libvoice_param_set_t, 8);
AT(libvoice_param_set_t, params, 0);
AT(libvoice_param_set_t, length, 4);
SIZE(libvoice_param_block_t, 264);
AT(libvoice_param_block_t, head, 0);
AT(libvoice_param_block_t, buffer, 8);
SIZE(libvoice_codec_record_t, 16);
AT(libvoice_codec_record_t, bytes, 0);
ASSERT(LIBVOICE_CNX_INFO_BYTES == 704);
ASSERT(LIBVOICE_CNX_INFO_SOCKET_BYTES == 736);
ASSERT(LIBVOICE_CNX_INFO_LOCAL == 704);
ASSERT(LIBVOICE_CNX_INFO_REMOTE == 720);
ASSERT(LIBVOICE_STREAM_INFO_BYTES == 712);
ASSERT(LIBVOICE_DESCRIPTORS == 10);

/* Exported tables. */
SIZE(voice_plugin_entry_t, N(32, 28));
AT(voice_plugin_entry_t, used, 0);
AT(voice_plugin_entry_t, plugin_name, 4);
AT(voice_plugin_entry_t, peer, 24);
ASSERT(sizeof(voice_plugin_table) == N(256, 224));
SIZE(libvoice_endpoint_t, N(568, 556));
AT(libvoice_endpoint_t, used, 0);
AT(libvoice_endpoint_t, name, 4);
AT(libvoice_endpoint_t, endpoint, 20);
AT(libvoice_endpoint_t, userdata, 24);
AT(libvoice_endpoint_t, type, N(32, 28));
AT(libvoice_endpoint_t, encaps_capab, N(36, 32));
AT(libvoice_endpoint_t, num_of_codecs, N(40, 36));
AT(libvoice_endpoint_t, codec_list, N(44, 40));
AT(libvoice_endpoint_t, endpoint_path, N(300, 296));
AT(libvoice_endpoint_t, plugin_table, N(560, 552));
ASSERT(sizeof(endpt_table) == N(18176, 17792));
ASSERT(sizeof(_PLUGIN_NAME) == 256);
ASSERT(sizeof(ep_suffix) == 14);
ASSERT(sizeof(libvoice_result_texts) == N(80, 40));
ASSERT(sizeof(voice_service_result_texts) == N(104, 52));

/* Callback tables: plain arrays of pointers. */
SIZE(libvoice_callbacks_t, N(112, 56));
CALLBACK(libvoice_callbacks_t, voice_plugin_init, 0);
CALLBACK(libvoice_callbacks_t, voice_plugin_exit, 1);
CALLBACK(libvoice_callbacks_t, voice_plugin_signal, 2);
CALLBACK(libvoice_callbacks_t, voice_plugin_event, 3);
CALLBACK(libvoice_callbacks_t, voice_plugin_create, 4);
CALLBACK(libvoice_callbacks_t, voice_plugin_modify, 5);
CALLBACK(libvoice_callbacks_t, voice_plugin_destroy, 6);
CALLBACK(libvoice_callbacks_t, voice_plugin_get, 7);
CALLBACK(libvoice_callbacks_t, voice_plugin_set, 8);
CALLBACK(libvoice_callbacks_t, voice_plugin_create_ctx, 9);
CALLBACK(libvoice_callbacks_t, voice_plugin_add_stream, 10);
CALLBACK(libvoice_callbacks_t, voice_plugin_modify_stream, 11);
CALLBACK(libvoice_callbacks_t, voice_plugin_remove_stream, 12);
CALLBACK(libvoice_callbacks_t, voice_plugin_destroy_ctx, 13);
SIZE(libvoice_app_callbacks_t, N(56, 28));
CALLBACK(libvoice_app_callbacks_t, voice_app_get_country, 0);
CALLBACK(libvoice_app_callbacks_t, voice_app_event, 1);
CALLBACK(libvoice_app_callbacks_t, voice_app_register_endpoint, 2);
CALLBACK(libvoice_app_callbacks_t, voice_app_endpoint_deleted, 3);
CALLBACK(libvoice_app_callbacks_t, voice_app_get_done, 4);
CALLBACK(libvoice_app_callbacks_t, voice_app_init_reply, 5);
CALLBACK(libvoice_app_callbacks_t, voice_app_exit_reply, 6);
SIZE(libvoice_dsp_callbacks_t, N(32, 16));
CALLBACK(libvoice_dsp_callbacks_t, dsp_plugin_signal, 0);
CALLBACK(libvoice_dsp_callbacks_t, dsp_plugin_create, 1);
CALLBACK(libvoice_dsp_callbacks_t, dsp_plugin_modify, 2);
CALLBACK(libvoice_dsp_callbacks_t, dsp_plugin_destroy, 3);

/* Data block fields: a pointer followed by a 32-bit length. */
SIZE(libvoice_db_field, N(16, 8));
AT(libvoice_db_field, value, 0);
AT(libvoice_db_field, length, N(8, 4));
SIZE(libvoice_db_common_fields, N(48, 24));
AT(libvoice_db_common_fields, date_time, 0);
AT(libvoice_db_common_fields, calling_number, N(16, 8));
AT(libvoice_db_common_fields, no_calling_number, N(32, 16));
SIZE(libvoice_db_message_fields, N(128, 64));
AT(libvoice_db_message_fields, name, 0);
AT(libvoice_db_message_fields, no_name, N(16, 8));
AT(libvoice_db_message_fields, slot2, N(32, 16));
AT(libvoice_db_message_fields, slot3, N(48, 24));
AT(libvoice_db_message_fields, call_type, N(64, 32));
AT(libvoice_db_message_fields, slot5, N(80, 40));
AT(libvoice_db_message_fields, slot6, N(96, 48));
AT(libvoice_db_message_fields, messages, N(112, 56));

/* The platform's one open type. */
SIZE(variant_t, 32);
AT(variant_t, opaque, 0);
typedef struct after_a_byte {
    char byte;
    variant_t variant;
} after_a_byte;
AT(after_a_byte, variant, 8);
