// SPDX-License-Identifier: MIT
// A simulated telephone and the signals that every telephone understands.
#include "telephone.h"

#include "caller_display.h"
#include "console.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace {

constexpr uint32_t kToneStep = 40; // Hz between the telephones of a plugin
constexpr int kToneCycle = 5;

telephone *phones;
int phone_count;

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

void hear(telephone *phone, const char *tone) {
    if (strcmp(phone->tone, tone) == 0)
        return;
    snprintf(phone->tone, sizeof phone->tone, "%s", tone);
    say("%d hears %s", phone->number, *tone == 0 ? "silence" : tone);
}

// What comes over RTP, said like any tone. It does not hide a tone that the application plays.
void hears_sound(audio *sound, const char *what) {
    say("%s hears %s", sound->who, *what == 0 ? "silence" : what);
}

void stop_ringing(telephone *phone) {
    if (!phone->ringing)
        return;
    phone->ringing = false;
    say("%d stops ringing", phone->number);
}

bool ring(telephone *phone, const uint8_t *params, uint32_t length) {
    if (phone->off_hook) {
        say("%d is off hook: does not ring", phone->number);
        return false;
    }
    // The cadence: milliseconds on and off in turn.
    char cadence[96] = "";
    const uint8_t *words;
    uint32_t bytes;
    if (params_bytes(params, length, LIBVOICE_PARAM_al_ri_cad, &words, &bytes)) {
        size_t used = 0;
        for (uint32_t at = 0; at + 4 <= bytes && used < sizeof cadence - 12; at += 4) {
            uint32_t ms;
            memcpy(&ms, words + at, sizeof ms);
            used += static_cast<size_t>(
                snprintf(cadence + used, sizeof cadence - used, "%s%u", at == 0 ? " cadence=" : "/", ms));
        }
    }
    phone->ringing = true;
    say("%d rings%s", phone->number, cadence);
    return true;
}

// One plain tone of a list is enough for an ear; the rest of the list is the same with pauses.
bool play_tone_list(telephone *phone, const uint8_t *params, uint32_t length) {
    const uint8_t *list;
    uint32_t bytes;
    voice_tone_t tone;
    if (!params_bytes(params, length, LIBVOICE_PARAM_tonegen_pt_tl, &list, &bytes) || bytes < sizeof tone)
        return false;
    memcpy(&tone, list, sizeof tone);
    char text[64];
    snprintf(text, sizeof text, "tone-%uHz", tone.frequency);
    hear(phone, text);
    return true;
}

bool display_call(const telephone *phone, const char *text) {
    caller_display display;
    if (!caller_display_decode(text, &display))
        return false;
    const char *number = display.number;
    if (*number == 0 && display.no_number != 0)
        number = display.no_number == 'P' ? "withheld" : "unavailable";
    say("%d displays number=%s name=\"%s\" time=%s", phone->number, number, display.name, display.time);
    return true;
}

bool display_messages(const telephone *phone, const char *text) {
    message_display display;
    if (!message_display_decode(text, &display))
        return false;
    say("%d displays messages=%u lamp=%s", phone->number, display.messages, display.lamp ? "on" : "off");
    return true;
}

bool display(const telephone *phone, const uint8_t *params, uint32_t length, uint32_t id) {
    char text[LIBVOICE_DB_TEXT_BYTES * 2];
    if (!params_text(params, length, id, text, sizeof text) || strlen(text) < 6)
        return false;
    bool done = display_is_messages(text) ? display_messages(phone, text) : display_call(phone, text);
    if (!done)
        say("%d displays nothing: bad data block", phone->number);
    return done;
}

} // namespace

void telephones_start(kex_t *bus, telephone *first, int count, uint32_t frequency) {
    audio_begin(bus);
    phones = first;
    phone_count = count;
    for (int i = 0; i < count; i++) {
        char who[16];
        snprintf(who, sizeof who, "%d", i + 1);
        phones[i].number = i + 1;
        phones[i].endpoint = -1;
        phones[i].handset_type = -1;
        audio_start(&phones[i].sound, who, frequency + static_cast<uint32_t>(i % kToneCycle) * kToneStep, hears_sound);
    }
}

int telephone_count() {
    return phone_count;
}

telephone *telephone_at(int index) {
    return &phones[index];
}

telephone *telephone_of_endpoint(int32_t endpoint) {
    for (int i = 0; i < phone_count; i++)
        if (endpoint >= 0 && phones[i].endpoint == endpoint)
            return &phones[i];
    return nullptr;
}

uint32_t tone_of_plugin(const char *name) {
    constexpr uint32_t kLowest = 400, kStep = 200, kPlugins = 4;
    size_t length = strlen(name);
    uint32_t figure = length > 0 && name[length - 1] > '0' && name[length - 1] <= '9'
                          ? static_cast<uint32_t>(name[length - 1] - '0')
                          : 1;
    return kLowest + (figure - 1) % kPlugins * kStep;
}

bool telephone_signal(telephone *phone, libvoice_signal_t *message) {
    voice_signal_t head;
    memcpy(&head, message, sizeof head);
    const uint8_t *params = libvoice_signal_params(message);
    bool stop = (head.flags & VOICE_SIGNAL_STOP) != 0;

    const char *tone = tone_name(head.signal);
    if (tone != nullptr) {
        if (!stop)
            hear(phone, tone);
        else if (strcmp(phone->tone, tone) == 0)
            hear(phone, "");
        return true;
    }
    switch (head.signal) {
    case LIBVOICE_SIGNAL_al_ri:
    case LIBVOICE_SIGNAL_alert_ri:
        if (!stop)
            return ring(phone, params, head.length);
        stop_ringing(phone);
        return true;
    case LIBVOICE_SIGNAL_zil_cancel_all_signals:
        telephone_silence(phone);
        return true;
    case LIBVOICE_SIGNAL_andisp_data:
        return display(phone, params, head.length, LIBVOICE_PARAM_andisp_data_db);
    case LIBVOICE_SIGNAL_andisp_dwa: // display with alerting
        return ring(phone, params, head.length) && display(phone, params, head.length, LIBVOICE_PARAM_andisp_dwa_ddb);
    case LIBVOICE_SIGNAL_tonegen_pt:
        return play_tone_list(phone, params, head.length);
    case LIBVOICE_SIGNAL_xal_nd: // network disconnect: the line's current is taken away for a moment
        say("%d line open", phone->number);
        return true;
    default:
        say("%d ignores %s", phone->number, libvoice_param_str(head.signal));
        return false;
    }
}

void telephone_silence(telephone *phone) {
    stop_ringing(phone);
    hear(phone, "");
}

void telephone_event(const telephone *phone, uint32_t event) {
    if (phone->endpoint < 0 || libvoice_get_kex_peer_handler() == nullptr)
        return;
    event_message message;
    event_begin(&message, phone->endpoint, event, 0);
    event_send(&message);
}

void telephone_report_off_hook(const telephone *phone) {
    if (!phone->off_hook || phone->endpoint < 0)
        return;
    event_message message;
    event_begin(&message, phone->endpoint, LIBVOICE_EVENT_al_of, 0);
    event_add_int(&message, LIBVOICE_PARAM_al_of_init, 1);
    event_send(&message);
}

const char *telephone_lift(telephone *phone) {
    if (phone->off_hook)
        return refuse("%d is off hook already", phone->number);
    phone->off_hook = true;
    say("%d off hook", phone->number);
    stop_ringing(phone);
    telephone_event(phone, LIBVOICE_EVENT_al_of);
    return nullptr;
}

const char *telephone_hang_up(telephone *phone) {
    if (!phone->off_hook)
        return refuse("%d is on hook already", phone->number);
    phone->off_hook = false;
    say("%d on hook", phone->number);
    phone->tone[0] = 0; // nobody listens any more
    telephone_event(phone, LIBVOICE_EVENT_al_on);
    return nullptr;
}

const char *telephone_flash(telephone *phone) {
    if (!phone->off_hook)
        return refuse("%d is on hook: lift it first", phone->number);
    say("%d flashes", phone->number);
    telephone_event(phone, LIBVOICE_EVENT_al_fl);
    return nullptr;
}

void telephone_answer_status(const telephone *phone) {
    answer("%d %s%s%s%s%s", phone->number, phone->off_hook ? "off hook" : "on hook", phone->ringing ? ", rings" : "",
           phone->tone[0] != 0 ? ", hears " : "", phone->tone, phone->endpoint < 0 ? ", not registered" : "");
}
