// SPDX-License-Identifier: MIT
/**
 * @file digits.h
 * The keys of a telephone and the DTMF events that report them.
 */
#pragma once

#include "libvoice_ids.h"

#include <stdint.h>

/** The sixteen keys of DTMF (ITU-T Q.23), in the order of kDigitEvents. */
inline constexpr char kKeys[] = "0123456789ABCD*#";
inline constexpr uint32_t kDigitEvents[] = {
    LIBVOICE_EVENT_dd_d0, LIBVOICE_EVENT_dd_d1, LIBVOICE_EVENT_dd_d2, LIBVOICE_EVENT_dd_d3,
    LIBVOICE_EVENT_dd_d4, LIBVOICE_EVENT_dd_d5, LIBVOICE_EVENT_dd_d6, LIBVOICE_EVENT_dd_d7,
    LIBVOICE_EVENT_dd_d8, LIBVOICE_EVENT_dd_d9, LIBVOICE_EVENT_dd_da, LIBVOICE_EVENT_dd_db,
    LIBVOICE_EVENT_dd_dc, LIBVOICE_EVENT_dd_dd, LIBVOICE_EVENT_dd_ds, LIBVOICE_EVENT_dd_do,
};
static_assert(sizeof kDigitEvents / sizeof kDigitEvents[0] == sizeof kKeys - 1);

/** The key that an event reports; 0: it is not the event of a key. */
constexpr char key_of_event(uint32_t event) {
    for (uint32_t i = 0; i < sizeof kKeys - 1; i++)
        if (kDigitEvents[i] == event)
            return kKeys[i];
    return 0;
}

/** The event of a key; 0: there is no such key. */
constexpr uint32_t event_of_key(char key) {
    for (uint32_t i = 0; i < sizeof kKeys - 1; i++)
        if (kKeys[i] == key)
            return kDigitEvents[i];
    return 0;
}
