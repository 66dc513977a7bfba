// SPDX-License-Identifier: MIT
// A simulated telephone: what it does, and what its user hears and sees.
#include "telephone.h"

#include "console.h"
#include "telephone_parameters.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

namespace {

constexpr uint32_t kToneStep = 40; // Hz between the telephones of a plugin
constexpr uint32_t kToneCycle = 5;

struct named_tone {
    uint32_t signal;
    const char *name;
};

constexpr named_tone kTones[] = {
    {LIBVOICE_SIGNAL_cg_dt, "dial-tone"},           {LIBVOICE_SIGNAL_cg_rt, "ring-back"},
    {LIBVOICE_SIGNAL_cg_bt, "busy-tone"},           {LIBVOICE_SIGNAL_cg_ct, "congestion-tone"},
    {LIBVOICE_SIGNAL_cg_sit, "sit-tone"},           {LIBVOICE_SIGNAL_cg_wt, "warning-tone"},
    {LIBVOICE_SIGNAL_cg_prt, "payphone-tone"},      {LIBVOICE_SIGNAL_cg_cw, "call-waiting-tone"},
    {LIBVOICE_SIGNAL_cg_cr, "caller-waiting-tone"}, {LIBVOICE_SIGNAL_srvtn_conf, "conference-tone"},
    {LIBVOICE_SIGNAL_srvtn_ht, "held-tone"},        {LIBVOICE_SIGNAL_srvtn_mwt, "message-waiting-tone"},
};

const char *tone_name(uint32_t signal) {
    for (const named_tone &row : kTones)
        if (row.signal == signal)
            return row.name;
    return nullptr;
}

telephone *telephone_of(void *line) {
    return static_cast<telephone *>(line);
}

void telephone_hear(telephone *one, const char *tone) {
    if (strcmp(one->tone, tone) == 0)
        return;
    snprintf(one->tone, sizeof one->tone, "%s", tone);
    telephone_tell(one, "hears %s", *tone == 0 ? "silence" : tone);
}

// What comes over RTP, said like any tone. It does not hide a tone that the application plays.
void hears_sound(const audio *sound, const char *what) {
    char text[64];
    snprintf(text, sizeof text, "hears %s", *what == 0 ? "silence" : what);
    say("%s %s", sound->who, text);
    audio_event(sound, text);
}

const char *ignored(uint32_t signal) {
    static char text[80];
    snprintf(text, sizeof text, "ignores %s", libvoice_param_str(signal));
    return text;
}

// -------------------------------------------------------------------------------------------------- Tones and ringing

constexpr char kListTone[] = "tone-"; // begins the name of a tone that is none of the network's

const char *telephone_play(void *line, const line_tone_t *tone) {
    char text[64];
    const char *name = tone_name(tone->signal);
    if (name == nullptr && tone->count == 0)
        return ignored(tone->signal);
    // One plain tone of a list is enough to be told by; the rest of the list is the same with pauses.
    if (name == nullptr)
        snprintf(text, sizeof text, "%s%uHz", kListTone, tone->list[0].frequency);
    telephone_hear(telephone_of(line), name != nullptr ? name : text);
    return nullptr;
}

void telephone_stop(void *line, uint32_t signal) {
    telephone *one = telephone_of(line);
    bool all = signal == LIBVOICE_SIGNAL_zil_cancel_all_signals;
    const char *name = tone_name(signal);
    if (all || signal == LIBVOICE_SIGNAL_al_ri)
        telephone_stop_ringing(one);
    if (all || (name != nullptr && strcmp(one->tone, name) == 0) ||
        (signal == LIBVOICE_SIGNAL_tonegen_pt && strncmp(one->tone, kListTone, sizeof kListTone - 1) == 0))
        telephone_hear(one, "");
}

const char *telephone_ring(void *line, const line_ring_t *ring) {
    telephone *one = telephone_of(line);
    if (one->off_hook)
        return "is off hook: does not ring";
    char cadence[96] = "";
    size_t used = 0;
    for (uint32_t i = 0; i < ring->count && used < sizeof cadence - 12; i++)
        used += static_cast<size_t>(
            snprintf(cadence + used, sizeof cadence - used, "%s%u", i == 0 ? " cadence=" : "/", ring->cadence_ms[i]));
    one->ringing = true;
    telephone_tell(one, "rings%s", cadence);
    return nullptr;
}

const char *telephone_other_signal(void *line, uint32_t signal, const void *, uint32_t) {
    if (signal != LIBVOICE_SIGNAL_xal_nd) // network disconnect: the line's current is taken away for a moment
        return ignored(signal);
    telephone_tell(telephone_of(line), "line open");
    return nullptr;
}

// -------------------------------------------------------------------------------------------------------------- Media

const char *telephone_open(void *line, uint32_t appearance, const line_media_t *media) {
    telephone *one = telephone_of(line);
    const char *wrong = audio_open(&one->sound, appearance, media);
    if (wrong == nullptr)
        telephone_tell(one, "%s", audio_begin_text(&one->sound, appearance));
    return wrong;
}

const char *telephone_change(void *line, uint32_t appearance, const line_media_t *media) {
    telephone *one = telephone_of(line);
    const char *wrong = audio_change(&one->sound, appearance, media);
    if (wrong == nullptr)
        telephone_tell(one, "%s", audio_begin_text(&one->sound, appearance));
    return wrong;
}

void telephone_close(void *line, uint32_t appearance) {
    telephone *one = telephone_of(line);
    line_statistics_t statistics;
    if (!audio_close(&one->sound, appearance, &statistics))
        return;
    telephone_tell(one, "%s", audio_end_text(appearance, &statistics));
    line_report_statistics(one->line, appearance, &statistics);
}

} // namespace

line_driver_t telephone_driver() {
    line_driver_t driver = {};
    driver.play = telephone_play;
    driver.stop = telephone_stop;
    driver.ring = telephone_ring;
    driver.display = telephone_display;
    driver.open = telephone_open;
    driver.change = telephone_change;
    driver.close = telephone_close;
    driver.get = telephone_get;
    driver.set = telephone_set;
    driver.signal = telephone_other_signal;
    return driver;
}

void telephone_begin(telephone *one, line_t *line, uint32_t frequency) {
    char who[16];
    *one = {};
    one->line = line;
    one->number = line_number(line);
    one->handset_type = -1;
    snprintf(who, sizeof who, "%d", one->number);
    audio_start(&one->sound, who, frequency + static_cast<uint32_t>(one->number - 1) % kToneCycle * kToneStep,
                hears_sound);
}

void telephone_tell(const telephone *one, const char *format, ...) {
    char text[1024]; // as long as a line of the console
    va_list values;
    va_start(values, format);
    vsnprintf(text, sizeof text, format, values);
    va_end(values);
    say("%d %s", one->number, text);
    audio_event(&one->sound, text);
}

const char *telephone_display(void *line, const line_display_t *display) {
    const telephone *one = telephone_of(line);
    if (display->is_messages) {
        telephone_tell(one, "displays messages=%u lamp=%s", display->messages, display->lamp ? "on" : "off");
        return nullptr;
    }
    const char *number = display->number;
    if (*number == 0 && display->no_number != 0)
        number = display->no_number == 'P' ? "withheld" : "unavailable";
    telephone_tell(one, "displays number=%s name=\"%s\" time=%s", number, display->name, display->time);
    return nullptr;
}

void telephone_stop_ringing(telephone *one) {
    if (!one->ringing)
        return;
    one->ringing = false;
    telephone_tell(one, "stops ringing");
}

const char *telephone_lift(telephone *one) {
    if (one->off_hook)
        return command_error("%d is off hook already", one->number);
    one->off_hook = true;
    telephone_tell(one, "off hook");
    telephone_stop_ringing(one);
    line_report_off_hook(one->line);
    return nullptr;
}

const char *telephone_hang_up(telephone *one) {
    if (!one->off_hook)
        return command_error("%d is on hook already", one->number);
    one->off_hook = false;
    telephone_tell(one, "on hook");
    one->tone[0] = 0; // nobody listens any more
    line_report_on_hook(one->line);
    return nullptr;
}

const char *telephone_flash(telephone *one) {
    if (!one->off_hook)
        return command_error("%d is on hook: lift it first", one->number);
    telephone_tell(one, "flashes");
    line_report_flash(one->line);
    return nullptr;
}

const char *telephone_hears(const telephone *one) {
    const char *what = one->tone[0] != 0 ? one->tone : one->sound.heard;
    return *what != 0 ? what : "silence";
}

void telephone_answer_status(const telephone *one) {
    answer("%d %s%s%s%s%s", one->number, one->off_hook ? "off hook" : "on hook", one->ringing ? ", rings" : "",
           one->tone[0] != 0 ? ", hears " : "", one->tone, line_is_registered(one->line) ? "" : ", not registered");
}

uint32_t tone_of_plugin(const char *name) {
    constexpr uint32_t kLowest = 400, kStep = 200, kPlugins = 4;
    size_t length = strlen(name);
    uint32_t figure = length > 0 && name[length - 1] > '0' && name[length - 1] <= '9'
                          ? static_cast<uint32_t>(name[length - 1] - '0')
                          : 1;
    return kLowest + (figure - 1) % kPlugins * kStep;
}
