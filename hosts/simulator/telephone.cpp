// SPDX-License-Identifier: MIT
// A simulated telephone: what it does, and what its user hears and sees.
#include "telephone.h"

#include "console.h"
#include "telephone_parameters.h"
#include "telephone_signals.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

namespace {

constexpr uint32_t kVoiceStep = 40; // Hz between the telephones of a plugin
constexpr uint32_t kVoiceCycle = 5;

telephone *telephones[kAudios];
uint32_t telephone_count;

telephone *telephone_of(void *line) {
    return static_cast<telephone *>(line);
}

void hears_sound(const audio *sound, const char *what) {
    char text[kHeardBytes + 8];
    snprintf(text, sizeof text, "hears %s", *what == 0 ? "silence" : what);
    say("%s %s", sound->who, text);
    audio_event(sound, text);
}

// The figure at the end of its name, from 0 on.
uint32_t place_of_plugin(const char *name) {
    const size_t length = strlen(name);
    const char figure = length > 0 ? name[length - 1] : '1';
    return figure > '0' && figure <= '9' ? static_cast<uint32_t>(figure - '1') : 0;
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
    driver.registered = telephone_registered;
    return driver;
}

void telephone_begin(telephone *one, line_t *line, uint32_t frequency) {
    char who[16];
    *one = {};
    one->line = line;
    one->number = line_number(line);
    one->handset_type = -1;
    snprintf(who, sizeof who, "%d", one->number);
    audio_start(&one->sound, who, frequency + static_cast<uint32_t>(one->number - 1) % kVoiceCycle * kVoiceStep,
                hears_sound);
    for (uint32_t i = 0; i < telephone_count; i++)
        if (telephones[i] == one)
            return;
    if (telephone_count < kAudios)
        telephones[telephone_count++] = one;
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

telephone *telephone_of_splash(const kex_timer_t *timer) {
    for (uint32_t i = 0; i < telephone_count; i++)
        if (telephones[i]->splash == timer)
            return telephones[i];
    return nullptr;
}

void telephone_stop_splash(telephone *one) {
    if (one->splash != nullptr)
        kex_timer_destroy(one->splash);
    one->splash = nullptr;
}

void telephone_stop_ringing(telephone *one) {
    if (!one->ringing)
        return;
    one->ringing = false;
    telephone_stop_splash(one);
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
    audio_stop(&one->sound);
    audio_forget(&one->sound); // nobody listens any more
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
    const char *what = one->sound.detector.said;
    return *what != 0 ? what : "silence";
}

void telephone_answer_status(const telephone *one) {
    const char *heard = one->sound.detector.said;
    answer("%d %s%s%s%s%s", one->number, one->off_hook ? "off hook" : "on hook", one->ringing ? ", rings" : "",
           *heard != 0 ? ", hears " : "", heard, line_is_registered(one->line) ? "" : ", not registered");
}

uint32_t voice_of_plugin(const char *name) {
    constexpr uint32_t kVoices[] = {1000, 2200, 2400, 2600};
    return kVoices[place_of_plugin(name) % 4];
}

uint32_t voice_of_exchange(const char *name) {
    return 3000 + 200 * (place_of_plugin(name) % 2);
}
