// SPDX-License-Identifier: MIT
/*
 * dect_plugin: a voice plugin with simulated cordless handsets on one base station.
 *
 *     voice_application --socket /tmp/voice.sock &
 *     dect_plugin --socket /tmp/voice.sock --name dect1
 *     1 registered DECT1 endpoint=0
 *     2 registered DECT2 endpoint=1
 *     1 off                            (you type)
 *     1 hears dial-tone
 *     1 dial 502
 *     1 hears congestion-tone          (handset 2 has G.722 only: the application says "no common codec")
 *
 * What differs from fxs_plugin: a handset sends a dialled number at once, reports its properties, has a type, and one
 * can be deregistered alone while the other one talks.
 */
#include "console.h"
#include "host.h"
#include "kex_host.h"
#include "plugin.h"
#include "telephone_plugin.h"

#include <stdio.h>
#include <string.h>

namespace {

constexpr int kHandsets = 2;
constexpr uint32_t kToneOffset = 20; // Hz: a handset never sounds like an analogue telephone
constexpr char kSoftware[] = "2.1.0";
constexpr char kHardware[] = "HS-1";

// Settings.
const char *plugin_name = "dect1"; // --name
const char *stem = "DECT";         // --stem
const struct {
    int32_t type;       // libvoice_dect_pp_type_str() names it
    const char *codecs; // best first
} kModels[kHandsets] = {
    {1, "PCMA,PCMU"}, // GAP: narrowband; the base transcodes to G.711
    {3, "G722"},      // CAT-iq 2.0: this one has wideband only, to show a call that finds no common codec
};

telephone handsets[kHandsets];
bool subscribed[kHandsets]; // one that was deregistered stays out until the host is started again
kex_timer_t *deregister_timer;
bool deregister_asked[kHandsets];

constexpr char kHelp[] =
    "usage: dect_plugin [options]\n"
    "Two simulated cordless handsets as a voice plugin.\n"
    "\n"
    "  --name NAME        plugin name, at most 19 characters (dect1)\n"
    "  --stem STEM        endpoints are STEM1 and STEM2, at most 15 characters each (DECT)\n" HOST_OPTIONS_HELP "\n"
    "Commands, one per line: N off | N on | N dial DIGITS | N flash | N deregister | N away | N back |\n"
    "status | help | quit\n";

void report_properties(const telephone *handset, bool reachable) {
    if (handset->endpoint < 0 || !plugin_is_connected())
        return;
    event_message message;
    event_begin(&message, handset->endpoint, LIBVOICE_EVENT_zil_dect_property, 0);
    event_add_text(&message, LIBVOICE_PARAM_zil_dect_property_sw_version, kSoftware);
    event_add_text(&message, LIBVOICE_PARAM_zil_dect_property_hw_version, kHardware);
    event_add_int(&message, LIBVOICE_PARAM_zil_dect_property_reachability_status, reachable);
    event_send(&message);
}

// ------------------------------------------------------------------------------------------ Callbacks of the library

// As in fxs_plugin: registration happens here and nowhere else, and the answer is always 0.
int32_t plugin_init(const char *country) {
    int registered = 0;
    for (int i = 0; i < kHandsets; i++) {
        char name[LIBVOICE_ENDPOINT_NAME_BYTES];
        voice_codec_t codecs[LIBVOICE_ENDPOINT_CODECS];
        bool is_new;
        if (!subscribed[i])
            continue;
        plugin_endpoint_name(stem, i + 1, name, sizeof name);
        int count = plugin_parse_codecs(kModels[i].codecs, codecs, LIBVOICE_ENDPOINT_CODECS);
        if (!telephone_register(&handsets[i], VOICE_ENDPOINT_DECT, name, codecs, static_cast<uint32_t>(count), &is_new))
            continue;
        registered++;
        if (is_new)
            report_properties(&handsets[i], true);
    }
    say("ready country=%s lines=%d", country, registered);
    for (const telephone &handset : handsets)
        telephone_report_off_hook(&handset);
    return 0;
}

const char *deregister(telephone *handset) {
    if (handset->endpoint < 0)
        return refuse("%d is not registered", handset->number);
    uint32_t result = libvoice_deregister_endpoint(handset->endpoint); // waits for the application
    if (result != LIBVOICE_OK)
        return refuse("%d cannot be deregistered: %s", handset->number, libvoice_strerror(result));
    subscribed[handset->number - 1] = false;
    handset->endpoint = -1;
    telephone_media_drop(handset);
    telephone_silence(handset);
    say("%d deregistered", handset->number);
    return nullptr;
}

// Outside of the call that asked for it: deregistering takes away the very object whose function runs then.
void deregister_asked_for(kex_timer_t *) {
    for (int i = 0; i < kHandsets; i++) {
        if (!deregister_asked[i])
            continue;
        deregister_asked[i] = false;
        const char *wrong = deregister(&handsets[i]);
        if (wrong != nullptr)
            say("%s", wrong);
    }
}

int32_t plugin_signal(libvoice_signal_t *message) {
    voice_signal_t head;
    memcpy(&head, message, sizeof head);
    telephone *handset = telephone_of_endpoint(head.endpoint);
    if (handset == nullptr)
        return 1;
    if (head.signal != LIBVOICE_SIGNAL_zil_deregister)
        return telephone_signal(handset, message) ? 0 : 1;
    deregister_asked[handset->number - 1] = true;
    kex_timer_start(deregister_timer, 0);
    return 0;
}

// --------------------------------------------------------------------------------------------------------- Commands

const char *dial(telephone *handset, const char *digits) {
    static const char keys[] = "0123456789*#";
    if (digits == nullptr)
        return refuse("dial what? %d dial 501", handset->number);
    if (digits[strspn(digits, keys)] != 0 || strlen(digits) > 23)
        return refuse("'%s': at most 23 of %s", digits, keys);
    if (!handset->off_hook)
        return refuse("%d is on hook: lift it first", handset->number);
    say("%d dials %s", handset->number, digits);
    if (handset->endpoint < 0 || !plugin_is_connected())
        return nullptr;
    event_message message;
    event_begin(&message, handset->endpoint, LIBVOICE_EVENT_dd_ce, 0);
    event_add_text(&message, LIBVOICE_PARAM_dd_ce_ds, digits);
    event_add_text(&message, LIBVOICE_PARAM_dd_ce_meth, "UM"); // unambiguous match: the user has sent a whole number
    event_send(&message);
    return nullptr;
}

const char *status() {
    answer("%s %s", plugin_name, plugin_is_connected() ? "connected" : "without application");
    for (int i = 0; i < kHandsets; i++) {
        telephone_answer_status(&handsets[i]);
        answer("%d type=\"%s\" codecs=%s name=\"%s\"", i + 1, libvoice_dect_pp_type_str(kModels[i].type),
               kModels[i].codecs, handsets[i].name);
    }
    return nullptr;
}

const char *command(char *line) {
    char *rest = line;
    const char *first = next_word(&rest);
    const char *verb = next_word(&rest);
    if (strcmp(first, "status") == 0)
        return status();
    if (strcmp(first, "help") == 0) {
        answer("1..%d off | on | dial DIGITS | flash | deregister | away | back; status; help; quit; watch", kHandsets);
        return nullptr;
    }
    if (strcmp(first, "quit") == 0) {
        host_terminate();
        return nullptr;
    }
    long number;
    if (!read_number(first, 1, kHandsets, &number))
        return refuse("'%s' is neither a command nor a handset from 1 to %d", first, kHandsets);
    telephone *handset = &handsets[number - 1];
    if (verb == nullptr)
        return refuse("%ld what? off, on, dial, flash, deregister, away, back", number);
    if (strcmp(verb, "off") == 0)
        return telephone_lift(handset);
    if (strcmp(verb, "on") == 0)
        return telephone_hang_up(handset);
    if (strcmp(verb, "dial") == 0)
        return dial(handset, next_word(&rest));
    if (strcmp(verb, "flash") == 0)
        return telephone_flash(handset);
    if (strcmp(verb, "deregister") == 0)
        return deregister(handset);
    if (strcmp(verb, "away") == 0 || strcmp(verb, "back") == 0) {
        say("%d %s", handset->number, strcmp(verb, "away") == 0 ? "out of reach" : "in reach");
        report_properties(handset, strcmp(verb, "back") == 0);
        return nullptr;
    }
    return refuse("a handset cannot '%s': off, on, dial, flash, deregister, away, back", verb);
}

void read_options(int count, char **words) {
    enum { NAME = 1, STEM };
    static const option options[] = {
        {"name", required_argument, nullptr, NAME}, {"stem", required_argument, nullptr, STEM}, HOST_OPTIONS};
    for (int code; (code = getopt_long(count, words, "", options, nullptr)) != -1;) {
        if (code == NAME)
            plugin_name = optarg;
        else if (code == STEM)
            stem = optarg;
        else
            host_option(code, optarg, kHelp);
    }
    if (optind < count)
        host_usage_error("'%s' is no option", words[optind]);
    plugin_check_stem(stem, kHandsets);
}

} // namespace

int main(int count, char **words) {
    read_options(count, words);
    kex_t *bus = host_start("dect_plugin");
    plugin_declare(plugin_name, stem);
    telephones_start(bus, handsets, kHandsets, tone_of_plugin(plugin_name) + kToneOffset);
    for (int i = 0; i < kHandsets; i++) {
        handsets[i].handset_type = kModels[i].type;
        subscribed[i] = true;
    }
    deregister_timer = kex_timer_create();
    kex_timer_setHandler(deregister_timer, deregister_asked_for);
    kex_onPeerClosed(bus, telephones_application_lost, nullptr);
    bool keep_going = host_control_path() != nullptr || !host_reads_stdin();
    if (!console_start(bus, host_reads_stdin(), host_control_path(), keep_going, command, host_terminate))
        return kExitFailure;

    libvoice_callbacks_t callbacks = telephone_callbacks();
    callbacks.voice_plugin_init = plugin_init;
    callbacks.voice_plugin_signal = plugin_signal;
    libvoice_init(callbacks);

    int result = host_run(plugin_leave);
    console_stop();
    kex_timer_destroy(deregister_timer);
    host_end();
    return result;
}
