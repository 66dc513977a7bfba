// SPDX-License-Identifier: MIT
/*
 * fxs_plugin: a voice plugin with simulated analogue telephones.
 *
 *     voice_application --socket /tmp/voice.sock &
 *     fxs_plugin --socket /tmp/voice.sock --name fxs1 --stem FXS --lines 2
 *     1 off                            (you type)
 *     1 off hook
 *     1 plays dial-tone                (the application has ordered it; one may dial at once)
 *     1 hears dial-tone                (it has been recognised in the sound)
 *     1 dial 102
 *     1 plays ring-back
 *     2 rings cadence=1000/4000
 *     2 displays number=101 name="FXS1" time=11211024
 *     1 hears ring-back
 *     2 off
 *     1 hears 1040Hz
 *     ...
 *
 * What is here is its own: the keys of a telephone, and a display as sound. The rules of a plugin are in
 * hosts/common/line_plugin.h, the telephone behind them in hosts/simulator: a driver author writes another
 * line_driver_t in its place.
 */
#include "codecs.h"
#include "console.h"
#include "fsk.h"
#include "host.h"
#include "media_file.h"
#include "plugin_main.h"
#include "sound_commands.h"
#include "telephone.h"

#include <errno.h>
#include <initializer_list>
#include <limits.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Settings, each with its option.
constexpr int kMaxLines = LIBVOICE_ENDPOINTS;
const char *codecs = "PCMA,PCMU";   // --codecs
uint32_t tone_frequency;            // --tone; 0: by the plugin's name
const char *wav_directory;          // --display-wav; null: none
const fsk_modem *wav_modem = &kV23; // --display-modem

telephone telephones[kMaxLines];
line_driver_t driver;

// Caller display as an analogue telephone gets it: as the sound of a modem between the first and the second ring.
void display_write(const telephone *one, const char *text) {
    static unsigned written;
    char path[PATH_MAX];
    uint8_t block[kBlockBytes];
    uint32_t bytes = fsk_line_block(text, block);
    snprintf(path, sizeof path, "%s/%s-%d-%u.wav", wav_directory, plugin_name(), one->number, ++written);
    if (bytes > 0 && fsk_write_wav(path, wav_modem, block, bytes))
        say("%d display wav=%s modem=%s bytes=%u", one->number, path, wav_modem->name, bytes);
    else
        say("%d display wav=%s failed: %s", one->number, path, bytes > 0 ? strerror(errno) : "bad data block");
}

const char *fxs_display(void *line, const line_display_t *shown) {
    const char *wrong = telephone_display(line, shown);
    if (wrong == nullptr && wav_directory != nullptr && !shown->with_ringing)
        display_write(static_cast<const telephone *>(line), shown->block);
    return wrong;
}

// --------------------------------------------------------------------------------------------------------- Commands

const char *fxs_lift(int number, char *) {
    return telephone_lift(&telephones[number - 1]);
}

const char *fxs_hang_up(int number, char *) {
    return telephone_hang_up(&telephones[number - 1]);
}

const char *fxs_flash(int number, char *) {
    return telephone_flash(&telephones[number - 1]);
}

const char *fxs_dial(int number, char *rest) {
    const telephone *one = &telephones[number - 1];
    const char *digits = word_next(&rest);
    if (digits == nullptr)
        return command_error("dial what? %d dial 201", number);
    if (digits[strspn(digits, VOICE_KEYS)] != 0)
        return command_error("'%s': a telephone has the keys %s", digits, VOICE_KEYS);
    if (!one->off_hook)
        return command_error("%d is on hook: lift it first", number);
    telephone_tell(one, "dials %s", digits);
    for (; *digits != 0; digits++)
        line_report_digit(one->line, *digits);
    return nullptr;
}

void fxs_status(int lines) {
    for (int i = 0; i < lines; i++)
        telephone_answer_status(&telephones[i]);
}

constexpr plugin_command_t kCommands[] = {
    {"off", "", fxs_lift},
    {"on", "", fxs_hang_up},
    {"dial", "DIGITS", fxs_dial},
    {"flash", "", fxs_flash},
    // which every line has
    SOUND_COMMANDS,
    {},
};

// ---------------------------------------------------------------------------------------------------------- Options

const char *codecs_take(const char *value) {
    voice_codec_t list[LIBVOICE_ENDPOINT_CODECS];
    codecs = value;
    return codecs_parse(value, list, LIBVOICE_ENDPOINT_CODECS) < 0
               ? "PCMA, PCMU, G722, G729, G726-32, telephone-event, CN"
               : nullptr;
}

const char *tone_take(const char *value) {
    long tone;
    if (!word_to_number(value, 300, 3200, &tone) || tone % kDetectorStep != 0)
        return "300 to 3200 Hz, a multiple of 20";
    tone_frequency = static_cast<uint32_t>(tone);
    return nullptr;
}

// A folder that is missing shows here, not when the first call comes.
const char *wav_directory_take(const char *value) {
    struct stat status;
    wav_directory = value;
    if (stat(value, &status) == 0 && !S_ISDIR(status.st_mode))
        return strerror(ENOTDIR);
    return access(value, W_OK | X_OK) == 0 ? nullptr : strerror(errno);
}

const char *wav_modem_take(const char *value) {
    for (const fsk_modem *modem : {&kV23, &kBell202})
        if (strcmp(value, modem->name) == 0) {
            wav_modem = modem;
            return nullptr;
        }
    return "v23 or bell202";
}

constexpr plugin_option_t kOptions[] = {
    {"codecs", "LIST", "codecs, best first (PCMA,PCMU)", codecs_take},
    {"tone", "HZ", "what telephone 1 says, each next one 40 Hz more (by the plugin's name)", tone_take},
    {"display-wav", "DIR", "write each caller display as the sound that goes over the line", wav_directory_take},
    {"display-modem", "M", "its modem: v23 (Europe) or bell202 (v23)", wav_modem_take},
    MEDIA_FILE_OPTION,
    {},
};

void fxs_begin(int lines) {
    audio_begin(host_bus(), plugin_name());
    sound_commands_begin(telephones);
    driver = telephone_driver();
    driver.display = fxs_display;
    uint32_t frequency = tone_frequency != 0 ? tone_frequency : voice_of_plugin(plugin_name());
    for (int i = 0; i < lines; i++)
        telephone_begin(&telephones[i], plugin_add_line(&driver, &telephones[i], VOICE_ENDPOINT_FXS, codecs),
                        frequency);
}

} // namespace

int main(int count, char **words) {
    plugin_program_t program = {};
    program.program = "fxs_plugin";
    program.about = "Simulated analogue telephones as a voice plugin.";
    program.name = "fxs1";
    program.stem = "FXS";
    program.line_word = "telephone";
    program.lines = 2;
    program.most_lines = kMaxLines;
    program.options = kOptions;
    program.commands = kCommands;
    program.begin = fxs_begin;
    program.end = sound_commands_end;
    program.status = fxs_status;
    return plugin_main(&program, count, words);
}
