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
#include "host.h"
#include "kex_host.h"
#include "plugin.h"
#include "printable.h"
#include "telephone_plugin.h"

#include <stdio.h>
#include <string.h>

namespace {

// Settings.
constexpr int kMaxLines = 8;
constexpr uint32_t kToneOffset = 500; // Hz: who calls from far away sounds higher
const char *plugin_name = "fxo1";     // --name
const char *stem = "FXO";             // --stem
int line_count = 1;                   // --lines

// A line to the exchange speaks like a telephone; "off hook" says that the gateway has seized it, "ringing" that the
// exchange rings.
telephone exchange_lines[kMaxLines];

constexpr char kHelp[] =
    "usage: fxo_plugin [options]\n"
    "Simulated lines to a telephone exchange as a voice plugin.\n"
    "\n"
    "  --name NAME        plugin name, at most 19 characters (fxo1)\n"
    "  --stem STEM        endpoints are STEM1, STEM2, ..., at most 15 characters each (FXO)\n"
    "  --lines N          lines, 1 to 8 (1)\n" HOST_OPTIONS_HELP "\n"
    "Commands, one per line, as the exchange: N ring [NUMBER [NAME]] | N stop | N hangup | status | help |\n"
    "quit\n";

// ------------------------------------------------------------------------------------------ Callbacks of the library

// As in fxs_plugin: registration happens here and nowhere else, and the answer is always 0.
int32_t plugin_init(const char *country) {
    voice_codec_t codecs[2];
    int count = plugin_parse_codecs("PCMA,PCMU", codecs, 2);
    int registered = 0;
    for (int i = 0; i < line_count; i++) {
        char name[LIBVOICE_ENDPOINT_NAME_BYTES];
        bool is_new;
        plugin_endpoint_name(stem, i + 1, name, sizeof name);
        bool taken = telephone_register(&exchange_lines[i], VOICE_ENDPOINT_FXO, name, codecs,
                                        static_cast<uint32_t>(count), &is_new);
        registered += taken;
        if (taken && is_new)
            exchange_lines[i].off_hook = false; // whoever had seized it is gone
    }
    say("ready country=%s lines=%d", country, registered);
    return 0;
}

bool dial(const telephone *line, const uint8_t *params, uint32_t length) {
    char digits[64];
    if (!params_text(params, length, LIBVOICE_PARAM_fxoen_sd_ds, digits, sizeof digits))
        return false;
    if (!line->off_hook) {
        say("%d is not seized: does not dial", line->number);
        return false;
    }
    text_make_printable(digits);
    say("%d dials %s", line->number, digits);
    return true;
}

int32_t plugin_signal(libvoice_signal_t *message) {
    voice_signal_t head;
    memcpy(&head, message, sizeof head);
    telephone *line = telephone_of_endpoint(head.endpoint);
    if (line == nullptr)
        return 1;
    switch (head.signal) {
    case LIBVOICE_SIGNAL_fxo_of:
        say("%d %s", line->number, line->ringing ? "answered" : "seized");
        line->ringing = false;
        line->off_hook = true;
        return 0;
    case LIBVOICE_SIGNAL_fxo_on:
        if (line->off_hook)
            say("%d released", line->number);
        line->off_hook = false;
        return 0;
    case LIBVOICE_SIGNAL_fxo_fl:
        say("%d hook-flash%s", line->number, line->off_hook ? "" : " on an idle line");
        return line->off_hook ? 0 : 1;
    case LIBVOICE_SIGNAL_fxoen_sd:
        return dial(line, libvoice_signal_params(message), head.length) ? 0 : 1;
    case LIBVOICE_SIGNAL_zil_cancel_all_signals:
        return 0; // the exchange's ringing is not the application's to stop
    default:
        say("%d ignores %s", line->number, libvoice_param_str(head.signal));
        return 1;
    }
}

void application_lost(kex_t *bus, peer_t *peer, void *) {
    telephones_application_lost(bus, peer, nullptr);
    for (int i = 0; i < line_count; i++) {
        if (exchange_lines[i].off_hook)
            say("%d released", i + 1);
        exchange_lines[i].off_hook = false; // nobody would ever put it back
    }
}

// --------------------------------------------------------------------------------------------------------- Commands

const char *ring(telephone *line, const char *number, const char *name) {
    if (line->off_hook)
        return refuse("%d is seized: it cannot ring", line->number);
    if (line->ringing)
        return refuse("%d rings already", line->number);
    number = number == nullptr ? "" : number;
    name = name == nullptr ? "" : name;
    if (strlen(number) > 20 || strlen(name) > 50)
        return "a number has at most 20 characters, a name 50";
    line->ringing = true;
    say("%d rings in number=%s name=\"%s\"", line->number, number, name);
    if (line->endpoint < 0 || !plugin_is_connected())
        return nullptr;

    // Who calls, as the exchange sends it between two rings: the same block that a telephone's display gets.
    char text[LIBVOICE_DB_TEXT_BYTES];
    uint32_t length = caller_display_encode(number, name, nullptr, text);
    event_message message;
    event_begin(&message, line->endpoint, LIBVOICE_EVENT_fxo_ri, 0);
    event_add_bytes(&message, LIBVOICE_PARAM_fxo_ri_cid, text, length);
    event_send(&message);
    return nullptr;
}

const char *stop(telephone *line) {
    if (!line->ringing)
        return refuse("%d does not ring", line->number);
    line->ringing = false;
    say("%d stops ringing in", line->number);
    telephone_event(line, LIBVOICE_EVENT_fxo_rh);
    return nullptr;
}

const char *hang_up(telephone *line) {
    if (!line->off_hook)
        return refuse("%d is not seized", line->number);
    say("%d hung up by the exchange", line->number);
    telephone_event(line, LIBVOICE_EVENT_fxo_rh); // the application answers by releasing its end
    return nullptr;
}

const char *status() {
    answer("%s %s", plugin_name, plugin_is_connected() ? "connected" : "without application");
    for (int i = 0; i < line_count; i++)
        answer("%d %s%s", i + 1,
               exchange_lines[i].off_hook  ? "seized"
               : exchange_lines[i].ringing ? "rings in"
                                           : "idle",
               exchange_lines[i].endpoint < 0 ? ", not registered" : "");
    return nullptr;
}

const char *command(char *text) {
    char *rest = text;
    const char *first = next_word(&rest);
    const char *verb = next_word(&rest);
    if (strcmp(first, "status") == 0)
        return status();
    if (strcmp(first, "help") == 0) {
        answer("1..%d ring [NUMBER [NAME]] | stop | hangup; status; help; quit; watch", line_count);
        return nullptr;
    }
    if (strcmp(first, "quit") == 0) {
        host_terminate();
        return nullptr;
    }
    long number;
    if (!read_number(first, 1, line_count, &number))
        return refuse("'%s' is neither a command nor a line from 1 to %d", first, line_count);
    telephone *line = &exchange_lines[number - 1];
    if (verb == nullptr)
        return refuse("%ld what? ring, stop, hangup", number);
    if (strcmp(verb, "ring") == 0) {
        const char *caller = next_word(&rest);
        return ring(line, caller, next_word(&rest));
    }
    if (strcmp(verb, "stop") == 0)
        return stop(line);
    if (strcmp(verb, "hangup") == 0)
        return hang_up(line);
    return refuse("an exchange cannot '%s': ring, stop, hangup", verb);
}

void read_options(int count, char **words) {
    enum { NAME = 1, STEM, LINES };
    static const option options[] = {{"name", required_argument, nullptr, NAME},
                                     {"stem", required_argument, nullptr, STEM},
                                     {"lines", required_argument, nullptr, LINES},
                                     HOST_OPTIONS};
    long lines = line_count;
    for (int code; (code = getopt_long(count, words, "", options, nullptr)) != -1;) {
        if (code == NAME)
            plugin_name = optarg;
        else if (code == STEM)
            stem = optarg;
        else if (code != LINES)
            host_option(code, optarg, kHelp);
        else if (!read_number(optarg, 1, kMaxLines, &lines))
            host_usage_error("--lines %s: a number from 1 to %d", optarg, kMaxLines);
    }
    if (optind < count)
        host_usage_error("'%s' is no option", words[optind]);
    line_count = static_cast<int>(lines);
    plugin_check_stem(stem, line_count);
}

} // namespace

int main(int count, char **words) {
    read_options(count, words);
    kex_t *bus = host_start("fxo_plugin");
    plugin_declare(plugin_name, stem);
    telephones_start(bus, exchange_lines, line_count, tone_of_plugin(plugin_name) + kToneOffset);
    kex_onPeerClosed(bus, application_lost, nullptr);
    bool keep_going = host_control_path() != nullptr || !host_reads_stdin();
    if (!console_start(bus, host_reads_stdin(), host_control_path(), keep_going, command, host_terminate))
        return kExitFailure;

    libvoice_callbacks_t callbacks = telephone_callbacks();
    callbacks.voice_plugin_init = plugin_init;
    callbacks.voice_plugin_signal = plugin_signal;
    libvoice_init(callbacks);

    int result = host_run(plugin_leave);
    console_stop();
    host_end();
    return result;
}
