// SPDX-License-Identifier: MIT
/**
 * @file media.h
 * Media of a call: codec, sockets, and the requests that tell both plugins.
 */
#pragma once

#include "calls.h"

/** Chooses a codec that both parties offer and the plan allows: the caller's order counts. @return null, or why there
 * is none. */
const char *media_choose_codec(const line *from, const line *to, voice_codec_t *codec);
/** Whether a line offers a codec. */
bool media_offers(const line *who, uint32_t codec, voice_codec_t *record);

/** Opens the sockets and tells both parties to send and receive. @return null, or why it cannot be done. */
const char *media_start(call *it);
/** The plugin of a party could not open its sockets at the ports that it was told, as with convert-media on: sets the
 *  media up at others.
 *  @return no: not in this form of media, the fourth failure of this party, or no ports are left. */
bool media_try_other_ports(call *it, party *failed);
/** Tears down the media of both parties. Statistics arrive as events afterwards. */
void media_stop(call *it);
/** Tells both parties the call's codec and a mode: "modify", or, with convert-media on, destroy and create. */
const char *media_change(call *it, uint32_t mode);

/** Makes a conference in the line's own plugin: its two calls' media meet there. @return null, or why not. */
const char *media_join(line *who);
/** Takes the line's conference away, after the media of its calls was stopped. It may go with its plugin: then it is
 * only said. */
void media_leave(line *who);

/* Pieces for media that is not a call's. */
/** An even port whose neighbour is free too; 0: there is none among the next 128 pairs of the range. */
uint16_t media_take_ports();
/** Why media_take_ports() has found none. */
const char *media_ports_missing();
/** Opens the media and control socket of a party. @return whether; then both descriptors are the caller's. */
bool media_open_sockets(uint16_t local_port, uint16_t remote_port, int32_t *descriptors);
/** Connection information for a codec, without addresses. */
void media_fill_connection(const voice_codec_t *codec, uint32_t mode, voice_cnx_info_t *info);
