// SPDX-License-Identifier: MIT
// Two calls of one line.
#include "hold.h"

#include "console.h"
#include "dialling.h"
#include "media.h"
#include "timer.h"

namespace {

void call_unhold(call *it) {
    line *held = party_opposite(it, it->holder)->who;
    it->state = CALL_TALKING;
    it->holder = nullptr;
    line_silence(held);
    line_set_state(held, LINE_TALKING);
}

} // namespace

call *line_held_call(const line *who) {
    call *other = who->calls[1 - who->active];
    return other != nullptr && other->state == CALL_HELD && other->holder == who ? other : nullptr;
}

void line_hold(line *who) {
    call *it = who->calls[who->active];
    line *held = party_opposite(it, who)->who;
    it->state = CALL_HELD;
    it->holder = who;
    say("call %u %s held by %s", it->id, call_text(it), who->label);
    media_change(it, VOICE_MODE_INACTIVE);
    if (held->type != VOICE_ENDPOINT_FXO)
        line_signal(held, LIBVOICE_SIGNAL_srvtn_ht);
    line_set_state(held, LINE_HELD);
    who->active = 1 - who->active;
    line_give_dial_tone(who);
}

void line_resume(line *who) {
    timer_stop(&who->timer);
    who->active = 1 - who->active;
    call *it = who->calls[who->active];
    line_silence(who);
    call_unhold(it);
    say("call %u %s resumed", it->id, call_text(it));
    line_set_state(who, LINE_TALKING);
    const char *wrong = media_change(it, VOICE_MODE_SEND_RECEIVE);
    if (wrong != nullptr)
        call_end(it, nullptr, wrong);
}

void line_join(line *who) {
    call *first = who->calls[1 - who->active];
    call *second = who->calls[who->active];
    call_unhold(first);
    const char *wrong = media_join(who);
    if (wrong == nullptr) {
        say("conference %u %s: %s, %s", who->context, who->label, party_opposite(first, who)->who->label,
            party_opposite(second, who)->who->label);
        return;
    }
    say("conference of %s refused: %s", who->label, wrong);
    call_end(second, nullptr, wrong);
    call_end(first, nullptr, wrong);
}
