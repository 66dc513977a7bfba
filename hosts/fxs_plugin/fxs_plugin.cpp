// SPDX-License-Identifier: MIT
/*
 * fxs_plugin: a voice plugin with simulated analogue telephones.
 *
 *     voice_application --socket /tmp/voice.sock &
 *     fxs_plugin --socket /tmp/voice.sock --name fxs1 --stem FXS --lines 2
 *     1 off                            (you type)
 *     1 off hook
 *     1 hears dial-tone
 *     1 dial 102
 *     1 hears ring-back
 *     2 rings cadence=1000/4000
 *     2 displays number=101 name="FXS1" time=11211024
 *     2 off
 *     1 hears silence
 *     ...
 *
 * A driver author copies this file and replaces the telephone (hosts/common/telephone.*) by the hardware: the
 * callbacks, the registration and the way out stay as they are.
 */
#include "console.h"
#include "digits.h"
#include "fsk.h"
#include "host.h"
#include "kex_host.h"
#include "plugin.h"
#include "telephone_plugin.h"

#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <string.h>

namespace {

// Settings, each with its option.
constexpr int kMaxLines = LIBVOICE_ENDPOINTS;
const char *plugin_name = "fxs1"; // --name
const char *stem = "FXS";         // --stem: endpoints are <stem>1, <stem>2, ...
int line_count = 2;               // --lines
voice_codec_t codecs[LIBVOICE_ENDPOINT_CODECS];
int codec_count;                    // --codecs
uint32_t tone_frequency;            // --tone; 0: by the plugin's name
const char *wav_directory;          // --display-wav; null: none
const fsk_modem *wav_modem = &kV23; // --display-modem

telephone phones[kMaxLines];

constexpr char kHelp[] = "usage: fxs_plugin [options]\n"
                         "Simulated analogue telephones as a voice plugin.\n"
                         "\n"
                         "  --name NAME        plugin name, at most 19 characters (fxs1)\n"
                         "  --stem STEM        endpoints are STEM1, STEM2, ..., at most 15 characters each (FXS)\n"
                         "  --lines N          telephones, 1 to 32 (2)\n"
                         "  --codecs LIST      codecs, best first (PCMA,PCMU)\n"
                         "  --tone HZ          what telephone 1 says, each next one 40 Hz more (by the plugin's name)\n"
                         "  --display-wav DIR  write each caller display as the sound that goes over the line\n"
                         "  --display-modem M  its modem: v23 (Europe) or bell202 (v23)\n" HOST_OPTIONS_HELP "\n"
                         "Commands, one per line: N off | N on | N dial DIGITS | N flash | status | help | quit\n";

// Caller display as an analogue telephone gets it: as the sound of a modem between the first and the second ring.
void write_display(const telephone *phone, const uint8_t *params, uint32_t length) {
    static unsigned written;
    char text[LIBVOICE_DB_TEXT_BYTES * 2], path[PATH_MAX];
    uint8_t block[kBlockBytes];
    uint32_t bytes = 0;
    if (params_text(params, length, LIBVOICE_PARAM_andisp_data_db, text, sizeof text))
        bytes = fsk_line_block(text, block);
    snprintf(path, sizeof path, "%s/%s-%d-%u.wav", wav_directory, plugin_name, phone->number, ++written);
    if (bytes > 0 && fsk_write_wav(path, wav_modem, block, bytes))
        say("%d display wav=%s modem=%s bytes=%u", phone->number, path, wav_modem->name, bytes);
    else
        say("%d display wav=%s failed: %s", phone->number, path, bytes > 0 ? strerror(errno) : "bad data block");
}

// ------------------------------------------------------------------------------------------ Callbacks of the library

// The application is there and names the country. The lines are registered here and nowhere else: each new connection
// comes through here. Always 0: any other answer would end the process.
int32_t plugin_init(const char *country) {
    int registered = 0;
    for (int i = 0; i < line_count; i++) {
        char name[LIBVOICE_ENDPOINT_NAME_BYTES];
        plugin_endpoint_name(stem, i + 1, name, sizeof name);
        bool is_new;
        registered += telephone_register(&phones[i], VOICE_ENDPOINT_FXS, name, codecs,
                                         static_cast<uint32_t>(codec_count), &is_new);
    }
    say("ready country=%s lines=%d", country, registered);
    for (int i = 0; i < line_count; i++)
        telephone_report_off_hook(&phones[i]);
    return 0;
}

int32_t plugin_signal(libvoice_signal_t *message) {
    voice_signal_t head;
    memcpy(&head, message, sizeof head);
    telephone *phone = telephone_of_endpoint(head.endpoint);
    if (phone == nullptr || !telephone_signal(phone, message))
        return 1;
    if (wav_directory != nullptr && head.signal == LIBVOICE_SIGNAL_andisp_data)
        write_display(phone, libvoice_signal_params(message), head.length);
    return 0;
}

// --------------------------------------------------------------------------------------------------------- Commands

const char *dial(telephone *phone, const char *digits) {
    if (digits == nullptr)
        return refuse("dial what? %d dial 201", phone->number);
    if (digits[strspn(digits, kKeys)] != 0)
        return refuse("'%s': a telephone has the keys %s", digits, kKeys);
    if (!phone->off_hook)
        return refuse("%d is on hook: lift it first", phone->number);
    say("%d dials %s", phone->number, digits);
    for (; *digits != 0; digits++)
        telephone_event(phone, event_of_key(*digits));
    return nullptr;
}

const char *status() {
    answer("%s %s", plugin_name, plugin_is_connected() ? "connected" : "without application");
    for (int i = 0; i < line_count; i++)
        telephone_answer_status(&phones[i]);
    return nullptr;
}

const char *command(char *line) {
    char *rest = line;
    const char *first = next_word(&rest);
    const char *verb = next_word(&rest);
    if (strcmp(first, "status") == 0)
        return status();
    if (strcmp(first, "help") == 0) {
        answer("%d..%d off | on | dial DIGITS | flash; status; help; quit; watch", 1, line_count);
        return nullptr;
    }
    if (strcmp(first, "quit") == 0) {
        host_terminate();
        return nullptr;
    }
    long number;
    if (!read_number(first, 1, line_count, &number))
        return refuse("'%s' is neither a command nor a telephone from 1 to %d", first, line_count);
    telephone *phone = &phones[number - 1];
    if (verb == nullptr)
        return refuse("%ld what? off, on, dial, flash", number);
    if (strcmp(verb, "off") == 0)
        return telephone_lift(phone);
    if (strcmp(verb, "on") == 0)
        return telephone_hang_up(phone);
    if (strcmp(verb, "dial") == 0)
        return dial(phone, next_word(&rest));
    if (strcmp(verb, "flash") == 0)
        return telephone_flash(phone);
    return refuse("a telephone cannot '%s': off, on, dial, flash", verb);
}

void read_options(int count, char **words) {
    enum { NAME = 1, STEM, LINES, CODECS, TONE, WAV, MODEM };
    static const option options[] = {
        {"name", required_argument, nullptr, NAME},           {"stem", required_argument, nullptr, STEM},
        {"lines", required_argument, nullptr, LINES},         {"codecs", required_argument, nullptr, CODECS},
        {"tone", required_argument, nullptr, TONE},           {"display-wav", required_argument, nullptr, WAV},
        {"display-modem", required_argument, nullptr, MODEM}, HOST_OPTIONS,
    };
    const char *codec_list = "PCMA,PCMU";
    long lines = line_count, tone = 0;
    for (int code; (code = getopt_long(count, words, "", options, nullptr)) != -1;) {
        switch (code) {
        case NAME:
            plugin_name = optarg;
            break;
        case STEM:
            stem = optarg;
            break;
        case LINES:
            if (!read_number(optarg, 1, kMaxLines, &lines))
                host_usage_error("--lines %s: a number from 1 to %d", optarg, kMaxLines);
            break;
        case CODECS:
            codec_list = optarg;
            break;
        case TONE:
            if (!read_number(optarg, 300, 1500, &tone) || tone % kEarStep != 0)
                host_usage_error("--tone %s: 300 to 1500 Hz, a multiple of %u", optarg, kEarStep);
            break;
        case WAV:
            wav_directory = optarg;
            break;
        case MODEM:
            if (strcmp(optarg, kV23.name) != 0 && strcmp(optarg, kBell202.name) != 0)
                host_usage_error("--display-modem %s: v23 or bell202", optarg);
            wav_modem = strcmp(optarg, kV23.name) == 0 ? &kV23 : &kBell202;
            break;
        default:
            host_option(code, optarg, kHelp);
        }
    }
    if (optind < count)
        host_usage_error("'%s' is no option", words[optind]);
    line_count = static_cast<int>(lines);
    tone_frequency = static_cast<uint32_t>(tone);
    codec_count = plugin_parse_codecs(codec_list, codecs, LIBVOICE_ENDPOINT_CODECS);
    if (codec_count < 0)
        host_usage_error("--codecs %s: PCMA, PCMU, G722, G729, G726-32", codec_list);
    plugin_check_stem(stem, line_count);
}

} // namespace

int main(int count, char **words) {
    read_options(count, words);
    kex_t *bus = host_start("fxs_plugin");
    plugin_declare(plugin_name, stem);
    telephones_start(bus, phones, line_count, tone_frequency != 0 ? tone_frequency : tone_of_plugin(plugin_name));
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
    host_end();
    return result;
}
