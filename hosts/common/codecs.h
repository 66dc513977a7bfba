// SPDX-License-Identifier: MIT
/**
 * @file codecs.h
 * The codecs that the hosts speak of by name.
 */
#pragma once

#include "voice_records.h"

/** The name of a codec number ("PCMA"), or "codec-<n>". Valid until the fourth next call. */
const char *codec_name(uint32_t codec);
/** The record of a codec by name, in any case of letters; null: unknown. */
const voice_codec_t *codec_by_name(const char *name);
/** The records of a list of names ("PCMA,PCMU,G722"). @return how many, or -1 for an unknown name or too many. */
int codecs_parse(const char *list, voice_codec_t *codecs, uint32_t room);
