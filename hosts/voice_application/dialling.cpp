// SPDX-License-Identifier: MIT
// Dial tone, digits, and what a number means.
#include "dialling.h"

#include "calls.h"
#include "country.h"
#include "exchange.h"
#include "ringing.h"
#include "timer.h"

#include <string.h>

namespace {

constexpr uint32_t kFirstDigitMs = 20000; // dial tone without a digit
constexpr uint32_t kNextDigitMs = 4000;   // a number is complete when nothing follows

void line_call_line(line *from, const char *digits, line *to) {
    if (to == nullptr)
        return call_reject(from, digits, LIBVOICE_SIGNAL_cg_sit, "not registered");
    if (to->away)
        return call_reject(from, digits, LIBVOICE_SIGNAL_cg_ct, "no answer from the handset");
    if (!line_is_free(to))
        return call_reject(from, digits, LIBVOICE_SIGNAL_cg_bt, "busy");
    call *it = call_place(from, to, digits);
    if (it == nullptr)
        return;
    call_set_caller(it, from->number, from->name);
    call_ring(it);
}

enum match { MATCH_NONE, MATCH_PARTIAL, MATCH_NUMBER, MATCH_EMERGENCY, MATCH_EXCHANGE };

// What the digits so far mean. `complete`: no more will come.
match digits_match(const line *from, bool complete) {
    const char *digits = from->digits;
    size_t length = strlen(digits);
    bool exact = false, longer = false;
    auto compare = [&](const char *number) {
        if (strcmp(number, digits) == 0)
            exact = true;
        else if (strncmp(number, digits, length) == 0)
            longer = true;
    };
    for (const line &who : lines)
        if (who.used && who.number[0] != 0)
            compare(who.number);
    for (uint32_t i = 0; i < the_plan.number_count; i++)
        compare(the_plan.numbers[i].number);
    const bool emergency = number_is_listed(plan_emergency(&the_plan), digits);
    longer = longer || number_may_be_listed(plan_emergency(&the_plan), digits);
    if ((emergency || exact) && (complete || !longer))
        return emergency ? MATCH_EMERGENCY : MATCH_NUMBER;

    size_t prefix = strlen(the_plan.exchange_prefix);
    size_t shorter = length < prefix ? length : prefix;
    bool exchange = prefix > 0 && strncmp(digits, the_plan.exchange_prefix, shorter) == 0;
    if (complete)
        return exchange && length > prefix ? MATCH_EXCHANGE : MATCH_NONE;
    return exact || emergency || longer || exchange ? MATCH_PARTIAL : MATCH_NONE;
}

void digits_timer(kex_timer_t *timer);

void digits_evaluate(line *who, bool complete) {
    switch (digits_match(who, complete)) {
    case MATCH_PARTIAL:
        timer_start(&who->timer, digits_timer, kNextDigitMs);
        return;
    case MATCH_NUMBER: {
        timer_stop(&who->timer);
        line *to = nullptr;
        for (line &candidate : lines)
            if (candidate.used && strcmp(candidate.number, who->digits) == 0)
                to = &candidate;
        line_call_line(who, who->digits, to);
        return;
    }
    case MATCH_EMERGENCY:
        timer_stop(&who->timer);
        line_call_exchange(who, who->digits, who->digits);
        return;
    case MATCH_EXCHANGE:
        timer_stop(&who->timer);
        line_call_exchange(who, who->digits, who->digits + strlen(the_plan.exchange_prefix));
        return;
    case MATCH_NONE:
        call_reject(who, who->digits, LIBVOICE_SIGNAL_cg_sit, "unknown number");
        return;
    }
}

void digits_timer(kex_timer_t *timer) {
    for (line &who : lines) {
        if (!who.used || who.timer != timer)
            continue;
        timer_stop(&who.timer);
        if (who.state == LINE_COLLECTING)
            digits_evaluate(&who, true);
        else if (who.state == LINE_DIAL_TONE)
            line_reject(&who, LIBVOICE_SIGNAL_cg_bt);
        return;
    }
}

void dialling_begin(line *who) {
    if (who->state != LINE_DIAL_TONE)
        return;
    line_silence(who);
    line_set_state(who, LINE_COLLECTING);
}

void number_is_too_long(line *who) {
    call_reject(who, who->digits, LIBVOICE_SIGNAL_cg_sit, "number too long: 23 digits at most");
}

} // namespace

void line_give_dial_tone(line *who) {
    who->digits[0] = 0;
    line_set_state(who, LINE_DIAL_TONE);
    line_signal(who, LIBVOICE_SIGNAL_cg_dt);
    timer_start(&who->timer, digits_timer, kFirstDigitMs);
}

void line_collect_digit(line *who, char digit) {
    dialling_begin(who);
    size_t length = strlen(who->digits);
    if (digit == '#' && length > 0)
        return digits_evaluate(who, true);
    if (length == sizeof who->digits - 1)
        return number_is_too_long(who);
    who->digits[length] = digit;
    who->digits[length + 1] = 0;
    digits_evaluate(who, false);
}

void line_take_number(line *who, const char *number) {
    dialling_begin(who);
    size_t length = strlen(number);
    if (length > 1 && number[length - 1] == '#') // as who ends a number by it
        length--;
    const size_t room = sizeof who->digits - 1 - strlen(who->digits); // some may have come one by one before
    const size_t taken = length < room ? length : room;
    strncat(who->digits, number, taken);
    if (taken < length)
        return number_is_too_long(who);
    if (who->digits[0] != 0)
        digits_evaluate(who, true);
}
