// SPDX-License-Identifier: MIT
// The call logic of voice_application.
#include "calls.h"

#include "codecs.h"
#include "console.h"
#include "media.h"

#include <initializer_list>
#include <stdio.h>
#include <string.h>
#include <time.h>

plan the_plan;
line lines[LIBVOICE_ENDPOINTS];
call calls[kCalls];

namespace {

constexpr uint32_t kFirstDigitMs = 20000; // dial tone without a digit
constexpr uint32_t kNextDigitMs = 4000;   // a number is complete when nothing follows
constexpr uint32_t kRingOnMs = 1000;      // ring cadence
constexpr uint32_t kRingOffMs = 4000;
constexpr uint32_t kDisplayAfterMs = kRingOnMs + 500; // caller display stands between the first and the second ring
constexpr uint32_t kNoAnswerMs = 120000;

uint32_t last_call_id;

// ---------------------------------------------------------------------------------------------------- Small pieces

void set_state(line *line, line_state state) {
    if (line->state == state)
        return;
    line->state = state;
    if (line->used)
        say("line %s %s", line->label, line_state_name(state));
}

void stop_timer(kex_timer_t **timer) {
    kex_timer_destroy(*timer);
    *timer = nullptr;
}

void start_timer(kex_timer_t **timer, void (*handler)(kex_timer_t *), uint32_t milliseconds) {
    if (*timer == nullptr)
        *timer = kex_timer_create();
    kex_timer_setHandler(*timer, handler);
    kex_timer_start(*timer, milliseconds);
}

void silence(line *line) {
    line_signal(line, LIBVOICE_SIGNAL_zil_cancel_all_signals);
}

party *party_of(call *call, const line *line) {
    return call->from.who == line ? &call->from : &call->to;
}

party *other_party(call *call, const line *line) {
    return call->from.who == line ? &call->to : &call->from;
}

// A line hears why nothing comes of it, until it is put back.
void refuse_line(line *line, uint32_t tone) {
    stop_timer(&line->timer);
    if (line->type == VOICE_ENDPOINT_FXO) { // nobody listens there
        set_state(line, LINE_IDLE);
        return;
    }
    line_signal(line, tone);
    set_state(line, LINE_BUSY);
}

bool may_begin(const line *line) {
    return line->used && line->state == LINE_IDLE && !line->off_hook;
}

// ------------------------------------------------------------------------------------------------- Ringing, display

void ring(line *line) {
    const uint32_t cadence[] = {kRingOnMs, kRingOffMs};
    signal_message message;
    signal_begin(&message, line->endpoint, LIBVOICE_SIGNAL_al_ri, 0);
    signal_add_bytes(&message, LIBVOICE_PARAM_al_ri_cad, cadence, sizeof cadence);
    signal_add_int(&message, LIBVOICE_PARAM_al_ri_freq, 25);
    if (line->reachable)
        signal_send(&message);
}

void display_caller(call *call) {
    char now_text[16]; // MMDDhhmm, with room for what a broken clock could print
    time_t now = time(nullptr);
    struct tm parts;
    localtime_r(&now, &parts);
    strftime(now_text, sizeof now_text, "%m%d%H%M", &parts);

    uint8_t withheld = 'P';
    libvoice_db_common_fields common = {};
    common.date_time = {now_text, 8};
    if (call->from_number[0] != 0)
        common.calling_number = {call->from_number, static_cast<uint32_t>(strlen(call->from_number))};
    else
        common.no_calling_number = {&withheld, 1};
    libvoice_db_message_fields fields = {};
    if (call->from_name[0] != 0)
        fields.name = {call->from_name, static_cast<uint32_t>(strlen(call->from_name))};
    fields.slot2 = {call->to_text, static_cast<uint32_t>(strlen(call->to_text))};
    // No call type: a call without one is a voice call, and some displays stop reading at items that they do not know.

    char text[LIBVOICE_DB_TEXT_BYTES];
    uint32_t length = 0; // counts the terminator, which travels too
    libvoice_db_call_setup_encode(&fields, &common, text, &length);
    signal_message message;
    signal_begin(&message, call->to.who->endpoint, LIBVOICE_SIGNAL_andisp_data, 0);
    signal_add_bytes(&message, LIBVOICE_PARAM_andisp_data_db, text, length);
    signal_add_int(&message, LIBVOICE_PARAM_andisp_data_tas, 0);
    if (call->to.who->reachable)
        signal_send(&message);
}

void ringing_timer(kex_timer_t *timer) {
    for (call &call : calls) {
        if (!call.used || call.timer != timer)
            continue;
        if (call.displayed) {
            end_call(&call, nullptr, "no answer");
            return;
        }
        call.displayed = true;
        display_caller(&call);
        kex_timer_start(timer, kNoAnswerMs);
        return;
    }
}

// --------------------------------------------------------------------------------------------------- Making a call

call *new_call(line *from, line *to, const char *to_text, const voice_codec_t *codec) {
    for (call &call : calls) {
        if (call.used)
            continue;
        memset(&call, 0, sizeof call);
        call.used = true;
        call.id = ++last_call_id;
        call.codec = *codec;
        call.from.who = from;
        call.from.appearance = from->active;
        call.to.who = to;
        to->active = 0;
        snprintf(call.to_text, sizeof call.to_text, "%s", to_text);
        for (party *party : {&call.from, &call.to}) {
            party->who->calls[party->appearance] = &call;
            party->who->last_call[party->appearance] = call.id;
        }
        return &call;
    }
    return nullptr;
}

void refuse_call(line *from, const char *to_text, uint32_t tone, const char *why) {
    say("call %u %s->%s refused: %s", ++last_call_id, from->label, to_text, why);
    refuse_line(from, tone);
}

void start_ringing(call *call) {
    say("call %u %s ringing", call->id, call_text(call));
    if (call->from.who->type != VOICE_ENDPOINT_FXO)
        line_signal(call->from.who, LIBVOICE_SIGNAL_cg_rt);
    set_state(call->from.who, LINE_CALLING);
    ring(call->to.who);
    set_state(call->to.who, LINE_RINGING);
    start_timer(&call->timer, ringing_timer, kDisplayAfterMs);
}

void talk(call *call) {
    stop_timer(&call->timer);
    silence(call->from.who);
    silence(call->to.who);
    call->state = CALL_TALKING;
    say("call %u %s answered codec=%s", call->id, call_text(call), codec_name(call->codec.codec));
    set_state(call->from.who, LINE_TALKING);
    set_state(call->to.who, LINE_TALKING);
    const char *wrong = media_start(call);
    if (wrong != nullptr)
        end_call(call, nullptr, wrong);
}

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

// An exchange line has no answer: the caller hears the exchange from the moment the line is seized.
void call_exchange(line *from, const char *digits) {
    line *to = nullptr;
    for (line &line : lines)
        if (to == nullptr && line.used && line.type == VOICE_ENDPOINT_FXO && &line != from &&
            (the_plan.exchange_endpoint[0] == 0 || line_of_text(the_plan.exchange_endpoint) == &line) &&
            may_begin(&line))
            to = &line;
    voice_codec_t codec;
    if (to == nullptr)
        return refuse_call(from, digits, LIBVOICE_SIGNAL_cg_ct, "no exchange line is free");
    const char *wrong = media_choose_codec(from, to, &codec);
    if (wrong != nullptr)
        return refuse_call(from, digits, LIBVOICE_SIGNAL_cg_ct, wrong);
    call *call = new_call(from, to, digits, &codec);
    if (call == nullptr)
        return refuse_call(from, digits, LIBVOICE_SIGNAL_cg_ct, "too many calls");
    line_signal(to, LIBVOICE_SIGNAL_fxo_of);
    const char *number = digits + strlen(the_plan.exchange_prefix);
    signal_message message;
    signal_begin(&message, to->endpoint, LIBVOICE_SIGNAL_fxoen_sd, 0);
    signal_add_bytes(&message, LIBVOICE_PARAM_fxoen_sd_ds, number, static_cast<uint32_t>(strlen(number) + 1));
    signal_send(&message);
    to->off_hook = true;
    talk(call);
}

// ---------------------------------------------------------------------------------------------------------- Digits

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

void give_dial_tone(line *line) {
    line->digits[0] = 0;
    set_state(line, LINE_DIAL_TONE);
    line_signal(line, LIBVOICE_SIGNAL_cg_dt);
    start_timer(&line->timer, digit_timer, kFirstDigitMs);
}

// --------------------------------------------------------------------------------------------- Hold and conference

void hold(line *line) {
    call *call = line->calls[line->active];
    struct line *held = other_party(call, line)->who;
    call->state = CALL_HELD;
    call->holder = line;
    say("call %u %s held by %s", call->id, call_text(call), line->label);
    media_change(call, VOICE_MODE_INACTIVE);
    if (held->type != VOICE_ENDPOINT_FXO)
        line_signal(held, LIBVOICE_SIGNAL_srvtn_ht);
    set_state(held, LINE_HELD);
    line->active = 1 - line->active;
    give_dial_tone(line);
}

void unhold(call *call) {
    line *held = other_party(call, call->holder)->who;
    call->state = CALL_TALKING;
    call->holder = nullptr;
    silence(held);
    set_state(held, LINE_TALKING);
}

void resume(line *line) {
    stop_timer(&line->timer);
    line->active = 1 - line->active;
    call *call = line->calls[line->active];
    silence(line);
    unhold(call);
    say("call %u %s resumed", call->id, call_text(call));
    set_state(line, LINE_TALKING);
    const char *wrong = media_change(call, VOICE_MODE_SEND_RECEIVE);
    if (wrong != nullptr)
        end_call(call, nullptr, wrong);
}

void join(line *line) {
    call *first = line->calls[1 - line->active];
    call *second = line->calls[line->active];
    unhold(first);
    const char *wrong = media_join(line);
    if (wrong == nullptr) {
        say("conference %u %s: %s, %s", line->context, line->label, other_party(first, line)->who->label,
            other_party(second, line)->who->label);
        return;
    }
    say("conference of %s refused: %s", line->label, wrong);
    end_call(second, nullptr, wrong);
    end_call(first, nullptr, wrong);
}

// After a call has gone from one of a line's appearances: what its user hears now.
void settle(line *line) {
    call *left = line->calls[0] != nullptr ? line->calls[0] : line->calls[1];
    if (line->context != 0 && left != nullptr) {
        line->active = party_of(left, line)->appearance; // the conference goes on between two
        return;
    }
    if (line->context != 0)
        media_leave(line);
    if (!line->off_hook) { // it was ringing
        silence(line);
        set_state(line, LINE_IDLE);
        return;
    }
    if (line->type == VOICE_ENDPOINT_FXO) {
        line_signal(line, LIBVOICE_SIGNAL_fxo_on);
        line->off_hook = false;
        set_state(line, LINE_IDLE);
        return;
    }
    if (left != nullptr && (left->state != CALL_HELD || left->holder != line))
        return; // the held one went; the active one is not touched
    if (left != nullptr && (line->state == LINE_DIAL_TONE || line->state == LINE_COLLECTING))
        return;
    if (left == nullptr &&
        (line->state == LINE_DIAL_TONE || line->state == LINE_COLLECTING || line->state == LINE_BUSY))
        return; // the held party gave up while we were dialling
    line_signal(line, LIBVOICE_SIGNAL_cg_bt);
    set_state(line, LINE_BUSY); // with a held call left, a flash brings it back
}

} // namespace

// ---------------------------------------------------------------------------------------------------------- Look-ups

const char *line_state_name(line_state state) {
    static const char *const names[] = {"idle",    "dial-tone", "collecting", "calling",
                                        "ringing", "talking",   "held",       "busy"};
    return names[state];
}

line *line_of_endpoint(int32_t endpoint) {
    if (endpoint < 0 || endpoint >= LIBVOICE_ENDPOINTS || !lines[endpoint].used)
        return nullptr;
    return &lines[endpoint];
}

line *line_of_text(const char *text) {
    if (text == nullptr || *text == 0) // an empty number is none
        return nullptr;
    for (line &line : lines)
        if (line.used && strcmp(line.number, text) == 0)
            return &line;
    for (line &line : lines) {
        if (!line.used)
            continue;
        char full[64];
        snprintf(full, sizeof full, "%s.%s", line.plugin, endpt_table[line.endpoint].name);
        if (strcmp(full, text) == 0 || strcmp(endpt_table[line.endpoint].name, text) == 0)
            return &line;
    }
    return nullptr;
}

const char *call_text(const call *call) {
    static char text[2 * 40 + 4];
    snprintf(text, sizeof text, "%s->%s", call->from.who->label, call->to_text);
    return text;
}

void line_signal(line *line, uint32_t signal) {
    if (!line->used || !line->reachable)
        return;
    signal_message message;
    signal_begin(&message, line->endpoint, signal, line->active);
    signal_send(&message);
}

// ------------------------------------------------------------------------------------------------- What plugins report

void line_added(line *line) {
    set_state(line, LINE_IDLE);
}

void line_gone(line *line, const char *why) {
    line->used = false;
    stop_timer(&line->timer);
    for (call *call : line->calls)
        if (call != nullptr)
            end_call(call, line, why);
    line->context = 0; // it went with its plugin, or with the endpoint
    line->off_hook = false;
    line->state = LINE_IDLE;
}

void line_off_hook(line *line) {
    if (line->off_hook)
        return; // "init" can come twice, and each time the plugin reports it again
    line->off_hook = true;
    if (line->state == LINE_RINGING) {
        call *call = line->calls[line->active];
        if (call->from.who->type == VOICE_ENDPOINT_FXO) {
            line_signal(call->from.who, LIBVOICE_SIGNAL_fxo_of);
            call->from.who->off_hook = true;
        }
        talk(call);
    } else if (line->state == LINE_IDLE) {
        give_dial_tone(line);
    }
}

void line_on_hook(line *line) {
    if (!line->off_hook)
        return;
    line->off_hook = false;
    stop_timer(&line->timer);
    for (call *call : line->calls)
        if (call != nullptr)
            end_call(call, line, "hung up");
    if (line->context != 0)
        media_leave(line);
    silence(line);
    line->active = 0;
    set_state(line, LINE_IDLE);
}

void line_digit(line *line, char digit) {
    if (line->state == LINE_TALKING && line->calls[line->active] != nullptr) {
        struct line *other = other_party(line->calls[line->active], line)->who;
        if (other->type != VOICE_ENDPOINT_FXO || !other->reachable)
            return; // telephones hear each other's keys
        const char text[2] = {digit, 0};
        signal_message message;
        signal_begin(&message, other->endpoint, LIBVOICE_SIGNAL_fxoen_sd, 0);
        signal_add_bytes(&message, LIBVOICE_PARAM_fxoen_sd_ds, text, sizeof text);
        signal_send(&message);
        return;
    }
    if (line->state != LINE_DIAL_TONE && line->state != LINE_COLLECTING)
        return;
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

void line_flash(line *line) {
    if (!line->off_hook || line->type == VOICE_ENDPOINT_FXO)
        return;
    call *active = line->calls[line->active];
    call *other = line->calls[1 - line->active];
    bool holding = other != nullptr && other->state == CALL_HELD && other->holder == line;

    if (line->state == LINE_TALKING && line->context == 0 && active != nullptr) {
        if (other_party(active, line)->who->context != 0)
            return; // one of a conference cannot put the others on hold
        return holding ? join(line) : hold(line);
    }
    if (!holding)
        return;
    // Dialling, ringing or refused with somebody on hold: back to him.
    if (active != nullptr) {
        line->calls[line->active] = nullptr; // so that its end plays no busy tone here
        end_call(active, line, "given up");
    }
    resume(line);
}

void exchange_rings(line *line, const char *number, const char *name) {
    if (line->type != VOICE_ENDPOINT_FXO || line->state != LINE_IDLE)
        return; // each ring is reported; the first one counts
    struct line *to = line_of_text(the_plan.incoming_number);
    for (struct line &candidate : lines)
        if (the_plan.incoming_number[0] == 0 && candidate.used && candidate.number[0] != 0 &&
            (to == nullptr || strcmp(candidate.number, to->number) < 0))
            to = &candidate;
    if (to == nullptr || !may_begin(to)) {
        say("call %u %s->%s refused: %s", ++last_call_id, line->label,
            to != nullptr ? to->label : the_plan.incoming_number, to != nullptr ? "busy" : "nobody to ring");
        return;
    }
    voice_codec_t codec;
    const char *wrong = media_choose_codec(line, to, &codec);
    call *call = wrong == nullptr ? new_call(line, to, to->label, &codec) : nullptr;
    if (call == nullptr) {
        say("call %u %s->%s refused: %s", ++last_call_id, line->label, to->label,
            wrong != nullptr ? wrong : "too many calls");
        return;
    }
    snprintf(call->from_number, sizeof call->from_number, "%s", number);
    snprintf(call->from_name, sizeof call->from_name, "%s", name);
    start_ringing(call);
}

void exchange_released(line *line) {
    if (line->type == VOICE_ENDPOINT_FXO && line->calls[0] != nullptr)
        end_call(line->calls[0], nullptr, "released by the exchange");
}

void line_failed(line *line, uint32_t appearance, const char *why) {
    if (appearance < kAppearances && line->calls[appearance] != nullptr)
        end_call(line->calls[appearance], nullptr, why);
}

void end_call(call *call, line *leaving, const char *why) {
    if (leaving != nullptr)
        say("call %u %s ended: %s %s", call->id, call_text(call), leaving->label, why);
    else
        say("call %u %s ended: %s", call->id, call_text(call), why);
    stop_timer(&call->timer);
    media_stop(call);
    for (party *party : {&call->from, &call->to})
        if (party->who->calls[party->appearance] == call)
            party->who->calls[party->appearance] = nullptr;
    call->used = false;
    for (party *party : {&call->from, &call->to})
        if (party->who != leaving && party->who->used)
            settle(party->who);
}
