// SPDX-License-Identifier: MIT
/**
 * @file g711.h
 * ITU-T G.711: the two companding laws of telephony.
 */
#pragma once

#include <stdint.h>

uint8_t g711_alaw_encode(int16_t sample);
int16_t g711_alaw_decode(uint8_t code);
uint8_t g711_ulaw_encode(int16_t sample);
int16_t g711_ulaw_decode(uint8_t code);
