// SPDX-License-Identifier: MIT
// The tones of the network by signal and by name.
#include "network_tones.h"

#include "libvoice_plugin.h"

#include <string.h>

namespace {

constexpr struct {
    uint32_t signal;
    const char *name, *word;
} kTones[TONES] = {
    {LIBVOICE_SIGNAL_cg_dt, "dial", "dial-tone"},
    {LIBVOICE_SIGNAL_cg_rt, "ringing", "ring-back"},
    {LIBVOICE_SIGNAL_cg_bt, "busy", "busy-tone"},
    {LIBVOICE_SIGNAL_cg_ct, "congestion", "congestion-tone"},
    {LIBVOICE_SIGNAL_cg_sit, "special-information", "sit-tone"},
    {LIBVOICE_SIGNAL_cg_wt, "warning", "warning-tone"},
    {LIBVOICE_SIGNAL_cg_prt, "payphone", "payphone-tone"},
    {LIBVOICE_SIGNAL_cg_cw, "call-waiting", "call-waiting-tone"},
    {LIBVOICE_SIGNAL_cg_cr, "caller-waiting", "caller-waiting-tone"},
    {LIBVOICE_SIGNAL_srvtn_conf, "confirmation", "conference-tone"},
    {LIBVOICE_SIGNAL_srvtn_ht, "held", "held-tone"},
    {LIBVOICE_SIGNAL_srvtn_mwt, "message-waiting", "message-waiting-tone"},
};

} // namespace

const char *network_tone_name(network_tone tone) {
    return kTones[tone].name;
}

const char *network_tone_word(network_tone tone) {
    return kTones[tone].word;
}

network_tone network_tone_of(uint32_t signal) {
    for (uint32_t tone = 0; tone < TONES; tone++)
        if (kTones[tone].signal == signal)
            return static_cast<network_tone>(tone);
    return TONES;
}

network_tone network_tone_find(const char *word) {
    for (uint32_t tone = 0; tone < TONES; tone++)
        if (strcmp(kTones[tone].word, word) == 0)
            return static_cast<network_tone>(tone);
    return TONES;
}
