// SPDX-License-Identifier: MIT
// Dial tone, digits, and what a number means.
#include "dialling.h"

#include "calls.h"
#include "exchange.h"
#include "media.h"
#include "ringing.h"
#include "timer.h"

#include <stdio.h>
#include <string.h>

namespace {

constexpr uint32_t kFirstDigitMs = 20000; // dial tone without a digit
constexpr uint32_t kNextDigitMs = 4000;   // a number is complete when nothing follows

void call_line(line *from, const char *digits, line *to) {
    voice_codec_t codec;
    if (to == nullptr)
        return refuse_call(from, digits, LIBVOICE_SIGNAL_cg_sit, "not registered");
    if (!may_begin(to))
        return refuse_call(from, digits, LIBVOICE_SIGNAL_cg_bt, "busy");
    const char *wrong = media_choose_codec(from, to, &codec);
    if (wrong != nullptr)
        return refuse_call(from, digits, LIBVOICE_SIGNAL_cg_ct, wrong);
    call *call = new_call(from, to, digits, &codec);
    if (call == nullptr)
        return refuse_call(from, digits, LIBVOICE_SIGNAL_cg_ct, "too many calls");
    snprintf(call->from_number, sizeof call->from_number, "%s", from->number);
    snprintf(call->from_name, sizeof call->from_name, "%s", from->name);
    start_ringing(call);
}

enum match { MATCH_NONE, MATCH_PARTIAL, MATCH_NUMBER, MATCH_EXCHANGE };

// What the digits so far mean. `complete`: no more will come.
match match_digits(const line *from, bool complete) {
    const char *digits = from->digits;
    size_t length = strlen(digits);
    bool exact = false, longer = false;
    auto compare = [&](const char *number) {
        if (strcmp(number, digits) == 0)
            exact = true;
        else if (strncmp(number, digits, length) == 0)
            longer = true;
    };
    for (const line &line : lines)
        if (line.used && line.number[0] != 0)
            compare(line.number);
    for (uint32_t i = 0; i < the_plan.number_count; i++)
        compare(the_plan.numbers[i].number);
    if (exact && (complete || !longer))
        return MATCH_NUMBER;

    size_t prefix = strlen(the_plan.exchange_prefix);
    size_t shorter = length < prefix ? length : prefix;
    bool exchange = prefix > 0 && strncmp(digits, the_plan.exchange_prefix, shorter) == 0;
    if (complete)
        return exchange && length > prefix ? MATCH_EXCHANGE : MATCH_NONE;
    return exact || longer || exchange ? MATCH_PARTIAL : MATCH_NONE;
}

void digit_timer(kex_timer_t *timer);

void evaluate_digits(line *line, bool complete) {
    switch (match_digits(line, complete)) {
    case MATCH_PARTIAL:
        start_timer(&line->timer, digit_timer, kNextDigitMs);
        return;
    case MATCH_NUMBER: {
        stop_timer(&line->timer);
        struct line *to = nullptr;
        for (struct line &candidate : lines)
            if (candidate.used && strcmp(candidate.number, line->digits) == 0)
                to = &candidate;
        call_line(line, line->digits, to);
        return;
    }
    case MATCH_EXCHANGE:
        stop_timer(&line->timer);
        call_exchange(line, line->digits);
        return;
    case MATCH_NONE:
        refuse_call(line, line->digits, LIBVOICE_SIGNAL_cg_sit, "unknown number");
        return;
    }
}

void digit_timer(kex_timer_t *timer) {
    for (line &line : lines) {
        if (!line.used || line.timer != timer)
            continue;
        stop_timer(&line.timer);
        if (line.state == LINE_COLLECTING)
            evaluate_digits(&line, true);
        else if (line.state == LINE_DIAL_TONE)
            refuse_line(&line, LIBVOICE_SIGNAL_cg_bt);
        return;
    }
}

} // namespace

void give_dial_tone(line *line) {
    line->digits[0] = 0;
    set_state(line, LINE_DIAL_TONE);
    line_signal(line, LIBVOICE_SIGNAL_cg_dt);
    start_timer(&line->timer, digit_timer, kFirstDigitMs);
}

void collect_digit(line *line, char digit) {
    if (line->state == LINE_DIAL_TONE) {
        silence(line);
        set_state(line, LINE_COLLECTING);
    }
    size_t length = strlen(line->digits);
    if (digit == '#' && length > 0)
        return evaluate_digits(line, true);
    if (length < sizeof line->digits - 1) {
        line->digits[length] = digit;
        line->digits[length + 1] = 0;
    }
    evaluate_digits(line, false);
}
