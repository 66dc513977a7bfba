// SPDX-License-Identifier: MIT
/**
 * @file unproved_tones.h
 * Says which tones of a country are not proved, so that nobody takes them for the network's.
 */
#pragma once

/** Says it for a country, once until another one comes: "unproved: held tone of DE is 425/300,0/300,425/300,0/3000". Of a
 *  country that is not known it says that those of Germany are played. */
void unproved_tones_say(const char *country);
