// SPDX-License-Identifier: MIT
/*
 * dect_plugin: a voice plugin with simulated cordless handsets on one base station.
 *
 *     voice_application --socket /tmp/voice.sock &
 *     dect_plugin --socket /tmp/voice.sock --name dect1
 *     1 registered DECT1 endpoint=0
 *     2 registered DECT2 endpoint=1
 *     1 off                            (you type)
 *     1 plays dial-tone
 *     1 dial 502
 *     1 plays congestion-tone          (handset 2 has G.722 only: the application says "no common codec")
 *
 * What differs from fxs_plugin: a handset sends a dialled number at once, reports its properties, has a type, and one
 * can be deregistered alone while the other one talks.
 */
#include "console.h"
#include "host.h"
#include "line_plugin.h"
#include "media_file.h"
#include "plugin_main.h"
#include "sound_commands.h"
#include "telephone.h"

#include <string.h>

namespace {

constexpr int kHandsets = 2;
constexpr uint32_t kVoiceOffset = 20; // Hz: a handset never sounds like an analogue telephone
constexpr char kSoftware[] = "2.1.0";
constexpr char kHardware[] = "HS-1";
constexpr char kHandsetKeys[] = "0123456789*#";
constexpr size_t kMostDigits = 23;

constexpr struct {
    int32_t type;       // libvoice_dect_pp_type_str() names it
    const char *codecs; // best first
} kModels[kHandsets] = {
    {1, "PCMA,PCMU"}, // GAP: narrowband; the base transcodes to G.711
    {3, "G722"},      // CAT-iq 2.0: this one has wideband only, to show a call that finds no common codec
};

telephone handsets[kHandsets];
bool away[kHandsets];               // out of the base's reach
line_driver_t telephone_operations; // of any telephone
line_driver_t driver;

bool is_away(const telephone *handset) {
    return away[handset->number - 1];
}

void handset_report_properties(const telephone *handset) {
    const line_property_t property = {kSoftware, kHardware, !is_away(handset)};
    line_report_property(handset->line, &property);
}

void handset_registered(void *line, const char *country) {
    telephone_operations.registered(line, country);
    handset_report_properties(static_cast<const telephone *>(line));
}

const char *handset_ring(void *line, const line_ring_t *ring) {
    return is_away(static_cast<const telephone *>(line)) ? "is out of reach: does not ring"
                                                         : telephone_operations.ring(line, ring);
}

const char *handset_display(void *line, const line_display_t *display) {
    return is_away(static_cast<const telephone *>(line)) ? "is out of reach: displays nothing"
                                                         : telephone_operations.display(line, display);
}

const char *handset_signal(void *line, uint32_t signal, const void *params, uint32_t length) {
    if (signal != LIBVOICE_SIGNAL_zil_deregister)
        return telephone_operations.signal(line, signal, params, length);
    line_deregister_later(static_cast<const telephone *>(line)->line);
    return nullptr;
}

// --------------------------------------------------------------------------------------------------------- Commands

// Null, or why what its user does cannot reach the base. That it was hung up the base notices by itself.
const char *reach_wrong(int number) {
    return away[number - 1] ? command_error("%d is out of reach", number) : nullptr;
}

const char *handset_lift(int number, char *) {
    const char *wrong = reach_wrong(number);
    return wrong != nullptr ? wrong : telephone_lift(&handsets[number - 1]);
}

const char *handset_hang_up(int number, char *) {
    return telephone_hang_up(&handsets[number - 1]);
}

const char *handset_flash(int number, char *) {
    const char *wrong = reach_wrong(number);
    return wrong != nullptr ? wrong : telephone_flash(&handsets[number - 1]);
}

const char *handset_dial(int number, char *rest) {
    const telephone *handset = &handsets[number - 1];
    const char *digits = word_next(&rest);
    if (digits == nullptr)
        return command_error("dial what? %d dial 501", number);
    if (digits[strspn(digits, kHandsetKeys)] != 0 || strlen(digits) > kMostDigits)
        return command_error("'%s': at most %zu of %s", digits, kMostDigits, kHandsetKeys);
    if (!handset->off_hook)
        return command_error("%d is on hook: lift it first", number);
    if (const char *wrong = reach_wrong(number))
        return wrong;
    telephone_tell(handset, "dials %s", digits);
    line_report_number(handset->line, digits);
    return nullptr;
}

const char *handset_deregister(int number, char *) {
    return line_deregister(handsets[number - 1].line);
}

const char *handset_go_away(int number, char *) {
    if (away[number - 1])
        return command_error("%d is out of reach already", number);
    away[number - 1] = true;
    telephone_tell(&handsets[number - 1], "out of reach");
    telephone_stop_ringing(&handsets[number - 1]);
    handset_report_properties(&handsets[number - 1]);
    return nullptr;
}

const char *handset_come_back(int number, char *) {
    if (!away[number - 1])
        return command_error("%d is in reach already", number);
    away[number - 1] = false;
    telephone_tell(&handsets[number - 1], "in reach");
    handset_report_properties(&handsets[number - 1]);
    return nullptr;
}

void handsets_status(int lines) {
    for (int i = 0; i < lines; i++) {
        telephone_answer_status(&handsets[i]);
        answer("%d type=\"%s\" codecs=%s name=\"%s\"", i + 1, libvoice_dect_pp_type_str(kModels[i].type),
               kModels[i].codecs, handsets[i].name);
    }
}

constexpr plugin_command_t kCommands[] = {
    {"off", "", handset_lift},
    {"on", "", handset_hang_up},
    {"dial", "DIGITS", handset_dial},
    {"flash", "", handset_flash},
    {"deregister", "", handset_deregister},
    {"away", "", handset_go_away},
    {"back", "", handset_come_back},
    SOUND_COMMANDS,
    {},
};

constexpr plugin_option_t kOptions[] = {MEDIA_FILE_OPTION, {}};

void handsets_begin(int lines) {
    audio_begin(host_bus(), plugin_name());
    sound_commands_begin(handsets);
    telephone_operations = driver = telephone_driver();
    driver.signal = handset_signal;
    driver.ring = handset_ring;
    driver.display = handset_display;
    driver.registered = handset_registered;
    uint32_t frequency = voice_of_plugin(plugin_name()) + kVoiceOffset;
    for (int i = 0; i < lines; i++) {
        telephone *handset = &handsets[i];
        telephone_begin(handset, plugin_add_line(&driver, handset, VOICE_ENDPOINT_DECT, kModels[i].codecs), frequency);
        handset->handset_type = kModels[i].type;
    }
}

} // namespace

int main(int count, char **words) {
    plugin_program_t program = {};
    program.program = "dect_plugin";
    program.about = "Two simulated cordless handsets as a voice plugin.";
    program.name = "dect1";
    program.stem = "DECT";
    program.line_word = "handset";
    program.lines = kHandsets;
    program.commands = kCommands;
    program.options = kOptions;
    program.begin = handsets_begin;
    program.end = sound_commands_end;
    program.status = handsets_status;
    return plugin_main(&program, count, words);
}
