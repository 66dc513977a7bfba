// SPDX-License-Identifier: MIT
// Tones of a country that are not proved.
#include "unproved_tones.h"

#include "console.h"
#include "country_tones.h"

#include <stdio.h>
#include <string.h>

void unproved_tones_say(const char *country) {
    static char last[8];
    if (strcmp(last, country) == 0)
        return;
    snprintf(last, sizeof last, "%s", country);
    if (!country_has_tones(country))
        say("unproved: tones of %s are those of DE", country);
    for (uint32_t i = 0; i < TONES; i++) {
        const network_tone tone = static_cast<network_tone>(i);
        const tone_cell *cell = country_tone(country, tone);
        if (tone_cell_is_unproved(cell))
            say("unproved: %s tone of %s is %s", network_tone_name(tone), country, cell->text);
    }
}
