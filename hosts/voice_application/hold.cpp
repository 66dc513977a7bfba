// SPDX-License-Identifier: MIT
// Two calls of one line.
#include "hold.h"

#include "console.h"
#include "dialling.h"
#include "media.h"
#include "timer.h"

namespace {

void unhold(call *call) {
    line *held = other_party(call, call->holder)->who;
    call->state = CALL_TALKING;
    call->holder = nullptr;
    silence(held);
    set_state(held, LINE_TALKING);
}

} // namespace

call *held_call(const line *line) {
    call *other = line->calls[1 - line->active];
    return other != nullptr && other->state == CALL_HELD && other->holder == line ? other : nullptr;
}

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
