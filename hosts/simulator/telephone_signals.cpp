// SPDX-License-Identifier: MIT
// Tones and ringing of a simulated telephone, and what else it is signalled.
#include "telephone_signals.h"

#include "country.h"
#include "country_tones.h"
#include "telephone.h"
#include "tone_list.h"
#include "unproved_tones.h"

#include <stdio.h>

namespace {

constexpr uint32_t kSplashMs = 500; // of one short ring

telephone *telephone_of(void *line) {
    return static_cast<telephone *>(line);
}

const char *ignored(uint32_t signal) {
    static char text[80];
    snprintf(text, sizeof text, "ignores %s", libvoice_param_str(signal));
    return text;
}

// The first tone of a list is its name.
const char *list_name(const tone_pattern *list) {
    static char name[20];
    uint32_t first = 0;
    while (list->elements[first].first == 0)
        first++;
    snprintf(name, sizeof name, "tone-%uHz", list->elements[first].first);
    return name;
}

// @return null, or why it is none
const char *cadence_check_words(const line_ring_t *ring) {
    uint32_t sum = 0;
    for (uint32_t i = 0; i < ring->count; i++)
        sum |= ring->cadence_ms[i];
    if (sum == 0)
        return "does not ring: a cadence of 0 ms";
    return ring->count % 2 != 0 ? "does not ring: a cadence without its last pause" : nullptr;
}

void splash_end(kex_timer_t *timer) {
    telephone *one = telephone_of_splash(timer);
    if (one != nullptr)
        telephone_stop_ringing(one);
}

// One short ring.
const char *telephone_splash(telephone *one) {
    if (one->off_hook)
        return "is off hook: does not ring";
    if (one->ringing)
        return "rings already";
    one->splash = kex_timer_create();
    if (one->splash == nullptr)
        return "does not ring: no timer";
    kex_timer_setHandler(one->splash, splash_end);
    kex_timer_start(one->splash, kSplashMs);
    one->ringing = true;
    telephone_tell(one, "rings cadence=%u", kSplashMs);
    return nullptr;
}

} // namespace

void telephone_registered(void *line, const char *country) {
    audio_set_country(&telephone_of(line)->sound, country);
    unproved_tones_say(country);
}

// The order is told at once. What is heard is said when it has been recognised in the sound.
const char *telephone_play(void *line, const line_tone_t *order) {
    telephone *one = telephone_of(line);
    const network_tone tone = network_tone_of(order->signal);
    tone_pattern pattern = {};
    const char *word = nullptr;
    if (tone == TONES && order->count == 0)
        return ignored(order->signal);
    if (tone != TONES) {
        pattern = tone_pattern_read(country_tone(one->sound.detector.country, tone)->text);
        word = network_tone_word(tone);
    } else {
        const char *wrong = tone_list_read(order->list, order->count, order->pause_ms, &pattern);
        if (wrong != nullptr)
            return wrong;
        word = list_name(&pattern);
        audio_learn_list(&one->sound, word, &pattern);
    }
    if (!audio_play(&one->sound, &pattern))
        return "plays nothing: no clock";
    one->plays = order->signal;
    telephone_tell(one, "plays %s", word);
    return nullptr;
}

void telephone_stop(void *line, uint32_t signal) {
    telephone *one = telephone_of(line);
    const bool all = signal == LIBVOICE_SIGNAL_zil_cancel_all_signals;
    if (all || signal == LIBVOICE_SIGNAL_al_ri)
        telephone_stop_ringing(one);
    if (all || signal == one->plays)
        audio_stop(&one->sound);
}

const char *telephone_ring(void *line, const line_ring_t *ring) {
    telephone *one = telephone_of(line);
    const country_rules *country = country_get(one->sound.detector.country);
    line_ring_t order = *ring;
    if (one->off_hook)
        return "is off hook: does not ring";
    if (ring->cadence_ms == nullptr) {
        order.cadence_ms = country->cadence;
        order.count = country->cadence_words;
    }
    const char *wrong = cadence_check_words(&order);
    if (wrong != nullptr)
        return wrong;
    char text[128] = "";
    size_t used = 0;
    for (uint32_t i = 0; i < order.count && used < 84; i++)
        used += static_cast<size_t>(
            snprintf(text + used, sizeof text - used, "%s%u", i == 0 ? " cadence=" : "/", order.cadence_ms[i]));
    if (order.pattern >= 0)
        snprintf(text + used, sizeof text - used, " pattern=%d", order.pattern);
    telephone_stop_splash(one);
    one->ringing = true;
    telephone_tell(one, "rings%s", text);
    return nullptr;
}

const char *telephone_other_signal(void *line, uint32_t signal, const void *, uint32_t) {
    if (signal == LIBVOICE_SIGNAL_alert_rs)
        return telephone_splash(telephone_of(line));
    if (signal != LIBVOICE_SIGNAL_xal_nd) // network disconnect: the line's current is taken away for a moment
        return ignored(signal);
    telephone_tell(telephone_of(line), "line open");
    return nullptr;
}
