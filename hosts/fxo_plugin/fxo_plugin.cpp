// SPDX-License-Identifier: MIT
/*
 * fxo_plugin: a voice plugin with simulated lines to a telephone exchange.
 *
 *     voice_application --socket /tmp/voice.sock &
 *     fxs_plugin --socket /tmp/voice.sock --control /tmp/fxs1 &
 *     fxo_plugin --socket /tmp/voice.sock --name fxo1
 *     1 ring 03012345678 "Aunt Mary"   (you type: the exchange rings)
 *     1 rings in number=03012345678 name="Aunt Mary"
 *     1 seized                         (somebody answered)
 *     1 talking line=0 codec=PCMA ports=30002->30000
 *     1 hangup                         (the exchange releases the line)
 *     1 released
 *
 * You play the exchange; the application plays the gateway's side of the line: it seizes, dials, flashes and releases.
 */
#include "caller_display.h"
#include "console.h"
#include "country.h"
#include "country_tones.h"
#include "host.h"
#include "media_file.h"
#include "plugin_main.h"
#include "sound_commands.h"
#include "telephone.h"

#include <stdio.h>
#include <string.h>

namespace {

constexpr int kMaxLines = 8;

// A line to the exchange speaks like a telephone; "off hook" says that the gateway has seized it, "ringing" that the
// exchange rings.
telephone exchange_lines[kMaxLines];
line_driver_t driver;

// What rings: each ring is reported, so that a call that nobody could take is offered anew.
struct exchange_call {
    char number[kCallerNumberBytes], name[kCallerNameBytes];
    kex_timer_t *next_ring; // null: the exchange does not ring
};
exchange_call calls[kMaxLines];
const country_rules *country = country_get("");

telephone *line_of(void *line) {
    return static_cast<telephone *>(line);
}

exchange_call *call_of(const telephone *one) {
    return &calls[one->number - 1];
}

void call_ring_again(kex_timer_t *timer) {
    for (int i = 0; i < kMaxLines; i++) {
        if (calls[i].next_ring != timer)
            continue;
        line_report_exchange_ring(exchange_lines[i].line, calls[i].number, calls[i].name);
        kex_timer_start(timer, country_ring_ms(country));
    }
}

void call_begin(telephone *ringing, const char *number, const char *name) {
    exchange_call *one = call_of(ringing);
    snprintf(one->number, sizeof one->number, "%s", number);
    snprintf(one->name, sizeof one->name, "%s", name);
    ringing->ringing = true;
    one->next_ring = kex_timer_create();
    kex_timer_setHandler(one->next_ring, call_ring_again);
    kex_timer_start(one->next_ring, country_ring_ms(country));
    line_report_exchange_ring(ringing->line, number, name);
}

void call_end(telephone *ringing) {
    ringing->ringing = false;
    kex_timer_destroy(call_of(ringing)->next_ring);
    call_of(ringing)->next_ring = nullptr;
}

// --------------------------------------------------------------------------------------------- The line driver's part

const char *exchange_line_seize(void *line) {
    telephone *seized = line_of(line);
    telephone_tell(seized, "%s", seized->ringing ? "answered" : "seized");
    call_end(seized);
    seized->off_hook = true;
    return nullptr;
}

const char *exchange_line_release(void *line) {
    telephone *released = line_of(line);
    if (released->off_hook)
        telephone_tell(released, "released");
    released->off_hook = false;
    tone_player_stop(&released->sound.tone);
    return nullptr;
}

const char *exchange_line_flash(void *line) {
    if (!line_of(line)->off_hook)
        return "hook-flash on an idle line";
    telephone_tell(line_of(line), "hook-flash");
    return nullptr;
}

const char *exchange_line_dial(void *line, const char *digits) {
    if (!line_of(line)->off_hook)
        return "is not seized: does not dial";
    telephone_tell(line_of(line), "dials %s", digits);
    return nullptr;
}

// Nobody would ever put it back, and nobody would answer.
void exchange_line_lost(void *line) {
    telephone_stop_ringing(line_of(line));
    call_end(line_of(line));
    exchange_line_release(line);
}

void exchange_line_registered(void *line, const char *code) {
    telephone_driver().registered(line, code);
    country = country_get(code);
}

// --------------------------------------------------------------------------------------------------------- Commands

const char *exchange_ring(int number, char *rest) {
    telephone *ringing = &exchange_lines[number - 1];
    const char *caller = word_next(&rest);
    const char *name = word_next(&rest);
    if (ringing->off_hook)
        return command_error("%d is seized: it cannot ring", number);
    if (ringing->ringing)
        return command_error("%d rings already", number);
    caller = caller == nullptr ? "" : caller;
    name = name == nullptr ? "" : name;
    if (strlen(caller) >= kCallerNumberBytes || strlen(name) >= kCallerNameBytes)
        return "a number has at most 20 characters, a name 50";
    telephone_tell(ringing, "rings in number=%s name=\"%s\"", caller, name);
    call_begin(ringing, caller, name);
    return nullptr;
}

const char *exchange_stop(int number, char *) {
    telephone *ringing = &exchange_lines[number - 1];
    if (!ringing->ringing)
        return command_error("%d does not ring", number);
    call_end(ringing);
    telephone_tell(ringing, "stops ringing in");
    line_report_exchange_release(ringing->line);
    return nullptr;
}

const char *exchange_hang_up(int number, char *) {
    const telephone *seized = &exchange_lines[number - 1];
    if (!seized->off_hook)
        return command_error("%d is not seized", number);
    telephone_tell(seized, "hung up by the exchange");
    line_report_exchange_release(seized->line); // the application answers by releasing its end
    return nullptr;
}

const char *exchange_tone(int number, char *rest) {
    telephone *seized = &exchange_lines[number - 1];
    const char *word = word_next(&rest);
    if (word == nullptr)
        return command_error("which tone? %d tone busy-tone, %d tone off", number, number);
    if (!seized->off_hook)
        return command_error("%d is not seized", number);
    const network_tone tone = network_tone_find(word);
    if (tone == TONES && strcmp(word, "off") != 0)
        return command_error("'%s': no tone; there are dial-tone, ring-back, busy-tone and others", word);
    if (tone == TONES) {
        tone_player_stop(&seized->sound.tone);
        telephone_tell(seized, "plays no tone");
        return nullptr;
    }
    const tone_pattern pattern = tone_pattern_read(country_tone(country->code, tone)->text);
    tone_player_start(&seized->sound.tone, &pattern);
    telephone_tell(seized, "plays %s", word);
    return nullptr;
}

void exchange_lines_status(int lines) {
    for (int i = 0; i < lines; i++) {
        const telephone *one = &exchange_lines[i];
        answer("%d %s%s", i + 1,
               one->off_hook  ? "seized"
               : one->ringing ? "rings in"
                              : "idle",
               line_is_registered(one->line) ? "" : ", not registered");
    }
}

constexpr plugin_command_t kCommands[] = {
    {"ring", "[NUMBER [NAME]]", exchange_ring}, {"stop", "", exchange_stop},
    {"hangup", "", exchange_hang_up},           SOUND_COMMANDS,
    {"tone", "NAME|off", exchange_tone},        {},
};

constexpr plugin_option_t kOptions[] = {MEDIA_FILE_OPTION, {}};

void exchange_lines_begin(int lines) {
    audio_begin(host_bus(), plugin_name());
    sound_commands_begin(exchange_lines);
    driver = telephone_driver();
    driver.play = nullptr; // nobody listens on this side but the far end of a call
    driver.stop = nullptr; // the exchange's ringing is not the application's to stop
    driver.ring = nullptr;
    driver.display = nullptr;
    driver.signal = nullptr;
    driver.seize = exchange_line_seize;
    driver.release = exchange_line_release;
    driver.flash = exchange_line_flash;
    driver.dial = exchange_line_dial;
    driver.lost = exchange_line_lost;
    driver.registered = exchange_line_registered;
    uint32_t frequency = voice_of_exchange(plugin_name());
    for (int i = 0; i < lines; i++) {
        telephone *one = &exchange_lines[i];
        telephone_begin(one, plugin_add_line(&driver, one, VOICE_ENDPOINT_FXO, "PCMA,PCMU"), frequency);
    }
}

} // namespace

int main(int count, char **words) {
    plugin_program_t program = {};
    program.program = "fxo_plugin";
    program.about = "Simulated lines to a telephone exchange as a voice plugin.";
    program.name = "fxo1";
    program.stem = "FXO";
    program.acting_word = "exchange";
    program.acting_text = ", as the exchange";
    program.lines = 1;
    program.most_lines = kMaxLines;
    program.commands = kCommands;
    program.options = kOptions;
    program.begin = exchange_lines_begin;
    program.end = sound_commands_end;
    program.status = exchange_lines_status;
    return plugin_main(&program, count, words);
}
