// SPDX-License-Identifier: MIT
// What a line hears, against what it should.
#include "expectation.h"

#include "console.h"
#include "kex_host.h"

#include <stdio.h>
#include <string.h>

namespace {

constexpr char kHears[] = "hears ";

// Whether it is one of the words of a text, which stand between blanks, commas and bars.
bool has_word(const char *text, const char *word) {
    const size_t length = strlen(word);
    for (const char *at = text; *at != 0;) {
        const size_t size = strcspn(at, " ,|");
        if (size == length && memcmp(at, word, length) == 0)
            return true;
        at += size + strspn(at + size, " ,|");
    }
    return false;
}

void heard_add(expectation *one, const char *what) {
    const size_t used = strlen(one->heard);
    const int length = snprintf(one->heard + used, sizeof one->heard - used, "%s%s", used == 0 ? "" : ", ", what);
    if (static_cast<size_t>(length) < sizeof one->heard - used)
        return;
    one->heard[used] = 0;
    one->heard_is_full = true;
}

bool is_wanted(const expectation *one, const char *text) {
    const size_t length = strlen(one->wanted);
    return strncmp(text, one->wanted, length) == 0 && (text[length] == 0 || text[length] == ' ');
}

void expectation_event(void *userdata, uint64_t, const char *text);

expectation *expectations[LIBVOICE_ENDPOINTS];

void answer_now(kex_timer_t *timer) {
    for (expectation *one : expectations)
        if (one != nullptr && one->line != nullptr && one->answer_timer == timer) {
            expectation_end(one);
            return;
        }
}

// The rest of the present turn does not know yet.
void answer_soon(expectation *one) {
    if (one->answer_timer != nullptr)
        return;
    one->answer_timer = kex_timer_create();
    kex_timer_setHandler(one->answer_timer, answer_now);
    kex_timer_start(one->answer_timer, 0);
}

void expectation_event(void *userdata, uint64_t, const char *text) {
    expectation *one = static_cast<expectation *>(userdata);
    const bool hears = strncmp(text, kHears, sizeof kHears - 1) == 0;
    if (hears && !one->met)
        heard_add(one, text + sizeof kHears - 1);
    if (hears ? has_word(text + sizeof kHears - 1, one->wanted) : is_wanted(one, text))
        one->met = true;
    if (one->met)
        answer_soon(one);
}

void expectation_step(void *userdata, uint64_t position, const int16_t *, const int16_t *) {
    expectation *one = static_cast<expectation *>(userdata);
    if (one->met || position + kStepSamples >= one->end || command_is_abandoned(one->ticket))
        answer_soon(one);
}

void expectation_note(expectation *one) {
    for (expectation *&place : expectations)
        if (place == one)
            return;
    for (expectation *&place : expectations)
        if (place == nullptr) {
            place = one;
            return;
        }
}

} // namespace

const char *expectation_begin(expectation *one, telephone *line, const char *wanted, uint32_t limit_ms) {
    *one = {};
    snprintf(one->wanted, sizeof one->wanted, "%s", wanted);
    if (has_word(telephone_hears(line), wanted) || (line->ringing && is_wanted(one, "rings")))
        return nullptr;
    const sound_sink sink = {one, expectation_step, expectation_event};
    const char *wrong = audio_add_sink(&line->sound, &sink);
    if (wrong != nullptr)
        return wrong;
    expectation_note(one);
    one->line = line;
    one->limit_ms = limit_ms;
    one->end = sampling_clock_now() + uint64_t{limit_ms} * (kSampleRate / 1000);
    heard_add(one, telephone_hears(line));
    return command_wait(&one->ticket);
}

void expectation_end(expectation *one) {
    telephone *line = one->line;
    if (line == nullptr)
        return;
    one->line = nullptr;
    audio_remove_sink(&line->sound, one);
    kex_timer_destroy(one->answer_timer);
    one->answer_timer = nullptr;
    const char *why = nullptr;
    if (!one->met)
        why = command_error("%d heard %s%s, not %s, within %u.%03u s", line->number, one->heard,
                            one->heard_is_full ? " and more" : "", one->wanted, one->limit_ms / 1000,
                            one->limit_ms % 1000);
    command_finish(one->ticket, why);
}
