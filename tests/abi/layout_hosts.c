/* SPDX-License-Identifier: MIT */
/* The same for the other headers of hosts: the bundled bus's, and the helpers'. */
#include "layout.h"

#include "kex_host.h"
#include "kex_tap.h"
#include "voice_records.h"

/* The bundled bus's. */
SIZE(kex_text_t, N(16, 8));
AT(kex_text_t, bytes, 0);
AT(kex_text_t, length, N(8, 4));
SIZE(kex_call_t, N(40, 20));
AT(kex_call_t, peer, 0);
AT(kex_call_t, path, N(8, 4));
AT(kex_call_t, function, N(24, 12));
SIZE(kex_failed_call_t, N(64, 32));
AT(kex_failed_call_t, bus, 0);
AT(kex_failed_call_t, peer, N(8, 4));
AT(kex_failed_call_t, process_name, N(16, 8));
AT(kex_failed_call_t, process_id, N(24, 12));
AT(kex_failed_call_t, path, N(32, 16));
AT(kex_failed_call_t, function, N(48, 24));
SIZE(kex_tap_end_t, 72);
AT(kex_tap_end_t, process_id, 0);
AT(kex_tap_end_t, connection, 4);
AT(kex_tap_end_t, name, 8);
SIZE(kex_tap_record_t, N3(256, 216, 212));
AT(kex_tap_record_t, kind, 0);
AT(kex_tap_record_t, time_ns, N3(8, 8, 4));
AT(kex_tap_record_t, from, N3(16, 16, 12));
AT(kex_tap_record_t, to, N3(88, 88, 84));
AT(kex_tap_record_t, serial, N3(160, 160, 156));
AT(kex_tap_record_t, flags, N3(164, 164, 160));
AT(kex_tap_record_t, path, N3(168, 168, 164));
AT(kex_tap_record_t, function, N3(176, 172, 168));
AT(kex_tap_record_t, text, N3(184, 176, 172));
AT(kex_tap_record_t, argument_count, N3(192, 180, 176));
AT(kex_tap_record_t, argument_names, N3(200, 184, 180));
AT(kex_tap_record_t, arguments, N3(208, 188, 184));
AT(kex_tap_record_t, error_count, N3(216, 192, 188));
AT(kex_tap_record_t, error_codes, N3(224, 196, 192));
AT(kex_tap_record_t, error_descriptions, N3(232, 200, 196));
AT(kex_tap_record_t, error_infos, N3(240, 204, 200));
AT(kex_tap_record_t, lost, N3(248, 208, 204));
AT(kex_tap_record_t, bytes, N3(252, 212, 208));

/* Records of the helpers that travel as bytes: the same on every host. */
SIZE(voice_signal_t, 28);
AT(voice_signal_t, endpoint, 0);
AT(voice_signal_t, signal, 4);
AT(voice_signal_t, line, 8);
AT(voice_signal_t, message_id, 12);
AT(voice_signal_t, flags, 16);
AT(voice_signal_t, params, 20);
AT(voice_signal_t, length, 24);
SIZE(voice_event_t, 20);
AT(voice_event_t, endpoint, 0);
AT(voice_event_t, event, 4);
AT(voice_event_t, line, 8);
AT(voice_event_t, params, 12);
AT(voice_event_t, length, 16);
SIZE(voice_codec_t, 16);
AT(voice_codec_t, codec, 0);
AT(voice_codec_t, payload_type, 4);
AT(voice_codec_t, ptime_mask, 8);
AT(voice_codec_t, max_bitrate, 12);
SIZE(voice_cnx_info_t, 736);
AT(voice_cnx_info_t, version, 0);
AT(voice_cnx_info_t, length, 4);
AT(voice_cnx_info_t, params, 8);
AT(voice_cnx_info_t, local, 704);
AT(voice_cnx_info_t, remote, 720);
SIZE(voice_stream_info_t, 712);
AT(voice_stream_info_t, stream, 0);
AT(voice_stream_info_t, mode, 4);
AT(voice_stream_info_t, version, 8);
AT(voice_stream_info_t, length, 12);
AT(voice_stream_info_t, params, 16);
SIZE(voice_tone_t, 16);
AT(voice_tone_t, frequency, 0);
AT(voice_tone_t, level, 4);
AT(voice_tone_t, on_ms, 8);
AT(voice_tone_t, off_ms, 12);

/* Of the helpers, inside a process. */
SIZE(voice_params_t, N(16, 8));
AT(voice_params_t, bytes, 0);
AT(voice_params_t, length, N(8, 4));
SIZE(voice_item_t, N(16, 12));
AT(voice_item_t, id, 0);
AT(voice_item_t, length, 4);
AT(voice_item_t, value, 8);
SIZE(voice_event_message_t, N(544, 536));
AT(voice_event_message_t, record, 0);
AT(voice_event_message_t, params, 20);
AT(voice_event_message_t, wrong, N(536, 532));
SIZE(voice_signal_message_t, N(552, 544));
AT(voice_signal_message_t, record, 0);
AT(voice_signal_message_t, params, 28);
AT(voice_signal_message_t, wrong, N(544, 540));
SIZE(voice_set_message_t, N(16, 8));
AT(voice_set_message_t, block, 0);
AT(voice_set_message_t, wrong, N(8, 4));
SIZE(voice_direction_t, 12);
AT(voice_direction_t, codec, 0);
AT(voice_direction_t, payload_type, 4);
AT(voice_direction_t, ptime, 8);
SIZE(voice_media_t, 28);
AT(voice_media_t, mode, 0);
AT(voice_media_t, sent, 4);
AT(voice_media_t, received, 16);
