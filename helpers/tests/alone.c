/* SPDX-License-Identifier: MIT */
/* The helper headers compile first and alone, as C and as C++, under strict warnings. HEADER names the one to try. */
#include HEADER

int helper_header_alone(void);
int helper_header_alone(void) {
    const voice_codec_t codecs[] = {VOICE_CODEC_PCMA, VOICE_CODEC_PCMU};
    return voice_media_of(&codecs[0], VOICE_MODE_SEND_RECEIVE).sent.ptime != 20;
}
