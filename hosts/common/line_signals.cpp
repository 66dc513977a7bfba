// SPDX-License-Identifier: MIT
// Signals from the application, decoded for a line's driver.
#include "caller_display.h"
#include "console.h"
#include "line.h"

#include <initializer_list>
#include <stdio.h>
#include <string.h>

namespace {

constexpr uint32_t kListTones = 32;
constexpr uint32_t kCadenceWords = 64;
constexpr uint32_t kDigitBytes = 64;
constexpr int kTextIsCut = 2; // what voice_params_get_text() answers then

/** A signal as it came, for one line. */
struct ordered_signal {
    uint32_t id;
    uint32_t appearance;
    bool stops;
    voice_params_t params;
};

const char *ignored(uint32_t signal) {
    static char text[80];
    snprintf(text, sizeof text, "ignores %s", libvoice_param_str(signal));
    return text;
}

bool is_tone(uint32_t signal) {
    constexpr uint32_t kWithoutItem = 0xFFFF0000;
    for (uint32_t of_package :
         {LIBVOICE_SIGNAL_tonegen_pt, LIBVOICE_SIGNAL_dg_d0, LIBVOICE_SIGNAL_cg_dt, LIBVOICE_SIGNAL_srvtn_conf})
        if ((signal & kWithoutItem) == (of_package & kWithoutItem))
            return true;
    return false;
}

const char *signal_stop(const line_t *line, uint32_t signal) {
    if (line->driver->stop != nullptr)
        line->driver->stop(line->userdata, signal);
    return nullptr;
}

const char *tone_play(const line_t *line, const ordered_signal *order) {
    voice_tone_t list[kListTones + 1];
    if (order->appearance >= LINE_APPEARANCES)
        return "plays nothing: no such line";
    line_tone_t tone = {order->id, order->appearance, nullptr, 0, 0};
    if (order->id == LIBVOICE_SIGNAL_tonegen_pt) {
        tone.list = list;
        if (!voice_params_get_tones(order->params, list, kListTones + 1, &tone.count))
            return "plays nothing: no tone list";
        if (tone.count > kListTones)
            return "plays nothing: a list has 1 to 32 tones";
        voice_params_get_i32(order->params, LIBVOICE_PARAM_tonegen_pt_ind, &tone.pause_ms);
    }
    return line->driver->play(line->userdata, &tone);
}

const char *ringing_start(const line_t *line, const ordered_signal *order) {
    uint32_t cadence[kCadenceWords];
    line_ring_t ring = {nullptr, 0, -1};
    if (voice_params_get_words(order->params, LIBVOICE_PARAM_al_ri_cad, cadence, kCadenceWords, &ring.count))
        ring.cadence_ms = cadence;
    voice_params_get_i32(order->params, LIBVOICE_PARAM_alert_ri_pattern, &ring.pattern);
    voice_params_get_i32(order->params, LIBVOICE_PARAM_andisp_dwa_pattern, &ring.pattern);
    return line->driver->ring(line->userdata, &ring);
}

const char *display_show(const line_t *line, const ordered_signal *order) {
    bool with_ringing = order->id == LIBVOICE_SIGNAL_andisp_dwa;
    uint32_t id = with_ringing ? LIBVOICE_PARAM_andisp_dwa_ddb : LIBVOICE_PARAM_andisp_data_db;
    char text[LIBVOICE_DB_TEXT_BYTES * 2];
    caller_display caller = {};
    message_display waiting = {};
    if (!voice_params_get_block(order->params, id, text, sizeof text))
        return "displays nothing: no data block";
    bool is_messages = display_is_messages(text);
    if (!(is_messages ? message_display_decode(text, &waiting) : caller_display_decode(text, &caller)))
        return "displays nothing: bad data block";
    const line_display_t display = {text,
                                    with_ringing,
                                    is_messages,
                                    caller.number,
                                    caller.name,
                                    caller.called,
                                    caller.time,
                                    static_cast<char>(caller.no_number),
                                    static_cast<char>(caller.no_name),
                                    waiting.messages,
                                    waiting.lamp};
    return line->driver->display(line->userdata, &display);
}

const char *number_dial(const line_t *line, const ordered_signal *order) {
    char digits[kDigitBytes] = "";
    const int taken = voice_params_get_text(order->params, LIBVOICE_PARAM_fxoen_sd_ds, digits, sizeof digits);
    if (digits[0] == 0)
        return "dials nothing: no digits";
    if (taken == kTextIsCut || digits[strspn(digits, VOICE_KEYS)] != 0)
        return "dials nothing: a number has 1 to 63 of " VOICE_KEYS;
    return line->driver->dial(line->userdata, digits);
}

const char *signal_run(const line_t *line, const ordered_signal *order) {
    const line_driver_t *driver = line->driver;
    if (is_tone(order->id) && driver->play != nullptr)
        return order->stops ? signal_stop(line, order->id) : tone_play(line, order);
    switch (order->id) {
    case LIBVOICE_SIGNAL_zil_cancel_all_signals:
        return signal_stop(line, order->id);
    case LIBVOICE_SIGNAL_al_ri:
    case LIBVOICE_SIGNAL_alert_ri:
        if (driver->ring == nullptr)
            break;
        return order->stops ? signal_stop(line, LIBVOICE_SIGNAL_al_ri) : ringing_start(line, order);
    case LIBVOICE_SIGNAL_andisp_data:
        if (driver->display == nullptr)
            break;
        return display_show(line, order);
    case LIBVOICE_SIGNAL_andisp_dwa: { // display with alerting: it rings, and shows the caller
        if (driver->ring == nullptr || driver->display == nullptr)
            break;
        if (order->stops)
            return signal_stop(line, LIBVOICE_SIGNAL_al_ri);
        const char *wrong = ringing_start(line, order);
        return wrong != nullptr ? wrong : display_show(line, order);
    }
    case LIBVOICE_SIGNAL_fxo_of:
        if (driver->seize == nullptr)
            break;
        return driver->seize(line->userdata);
    case LIBVOICE_SIGNAL_fxo_on:
        if (driver->release == nullptr)
            break;
        return driver->release(line->userdata);
    case LIBVOICE_SIGNAL_fxo_fl:
        if (driver->flash == nullptr)
            break;
        return driver->flash(line->userdata);
    case LIBVOICE_SIGNAL_fxoen_sd:
        if (driver->dial == nullptr)
            break;
        return number_dial(line, order);
    default:
        if (driver->signal == nullptr)
            break;
        if (order->stops && order->id == LIBVOICE_SIGNAL_alert_rs) // one short ring
            return signal_stop(line, LIBVOICE_SIGNAL_al_ri);
        return driver->signal(line->userdata, order->id, order->params.bytes, order->params.length);
    }
    return ignored(order->id);
}

} // namespace

int32_t line_signal_callback(libvoice_signal_t *message) {
    const voice_signal_t head = voice_signal_head(message);
    const line_t *line = line_of_endpoint(head.endpoint);
    if (line == nullptr)
        return 1;
    const ordered_signal order = {head.signal, head.line, (head.flags & VOICE_SIGNAL_STOP) != 0,
                                  voice_signal_params(message)};
    const char *wrong = signal_run(line, &order);
    if (wrong == nullptr)
        return 0;
    say("%d %s", line->number, wrong);
    return 1;
}
