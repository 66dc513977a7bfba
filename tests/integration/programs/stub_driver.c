/* SPDX-License-Identifier: MIT */
/* A whole line driver: one telephone that is worked from the console. Copy it and drive your hardware in its place. */
#include "console.h"
#include "plugin_main.h"

#include <unistd.h>

struct telephone {
    line_t *line;
    int media[LINE_APPEARANCES]; /* sockets for RTP */
};

static struct telephone one;

static const char *play(void *data, const line_tone_t *tone) {
    const struct telephone *played = data;
    say("%d plays %s", line_number(played->line), libvoice_param_str(tone->signal));
    return NULL;
}

static const char *ring(void *data, const line_ring_t *ring) {
    const struct telephone *rung = data;
    say("%d rings %u ms", line_number(rung->line), ring->count > 0 ? ring->cadence_ms[0] : 0);
    return NULL;
}

static const char *open_media(void *data, uint32_t appearance, const line_media_t *media) {
    struct telephone *speaking = data;
    if (media->codec != LIBVOICE_CODEC_PCMA)
        return "A-law only"; /* the sockets stay the plugin's */
    if (media->control >= 0)
        close(media->control); /* no RTCP */
    speaking->media[appearance] = media->media;
    say("%d speaks, payload type %u", line_number(speaking->line), media->payload_type);
    return NULL;
}

static void close_media(void *data, uint32_t appearance) {
    const struct telephone *silent = data;
    close(silent->media[appearance]);
    say("%d is silent", line_number(silent->line));
}

static const char *lift(int number, char *rest) {
    (void)rest;
    return line_report_off_hook(one.line) ? NULL : command_error("%d: nobody was told", number);
}

static const char *hang_up(int number, char *rest) {
    (void)rest;
    return line_report_on_hook(one.line) ? NULL : command_error("%d: nobody was told", number);
}

static const line_driver_t driver = {.play = play, .ring = ring, .open = open_media, .close = close_media};
static const plugin_command_t commands[] = {{"off", "", lift}, {"on", "", hang_up}, {NULL, NULL, NULL}};

static void begin(int lines) {
    (void)lines;
    one.line = plugin_add_line(&driver, &one, VOICE_ENDPOINT_FXS, "PCMA");
}

int main(int count, char **words) {
    const plugin_program_t program = {.program = "stub_driver",
                                      .about = "One telephone, worked from the console.",
                                      .name = "stub1",
                                      .stem = "STUB",
                                      .lines = 1,
                                      .commands = commands,
                                      .begin = begin};
    return plugin_main(&program, count, words);
}
