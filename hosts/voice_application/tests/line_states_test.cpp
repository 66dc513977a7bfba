// SPDX-License-Identifier: MIT
// The state machine of a line: every state by every event, as one table.
//
// A is the line under test (101), B whom it talks to (201), C a third party (301), D one more who calls (401), X a line to
// the exchange whose calls ring at 101. p1 is A's plugin, and so on.
#include "application.h"

#include <cstring>
#include <map>
#include <set>

using application_test::Application;
using application_test::item;
using application_test::word;
using fake::bus;

namespace {

struct World {
    Application app;
    int32_t a, b, c, d, x;

    World() {
        strcpy(the_plan.incoming_number, "101");
        for (const char *plugin : {"p1", "p2", "p3", "p4", "px"})
            app.register_plugin(plugin);
        const char *const numbers[] = {"101", "201", "301", "401"};
        const char *const endpoints[] = {"p1.A1", "p2.B1", "p3.C1", "p4.D1"};
        for (int i = 0; i < 4; i++) {
            strcpy(the_plan.numbers[i].number, numbers[i]);
            strcpy(the_plan.numbers[i].endpoint, endpoints[i]);
        }
        the_plan.number_count = 4;
        a = add("p1", "A1", VOICE_ENDPOINT_FXS);
        b = add("p2", "B1", VOICE_ENDPOINT_FXS);
        c = add("p3", "C1", VOICE_ENDPOINT_FXS);
        d = add("p4", "D1", VOICE_ENDPOINT_FXS);
        x = add("px", "X1", VOICE_ENDPOINT_FXO);
    }

    void lift(int32_t who) { app.event(who, LIBVOICE_EVENT_al_of); }
    void hang_up(int32_t who) { app.event(who, LIBVOICE_EVENT_al_on); }
    void flash(int32_t who) { app.event(who, LIBVOICE_EVENT_al_fl); }
    void fail(int32_t who, uint32_t appearance = 0) { app.event(who, LIBVOICE_EVENT_g_cause, "", appearance); }
    void ring_in() { app.event(x, LIBVOICE_EVENT_fxo_ri); }
    void call(int32_t from, const char *number) {
        lift(from);
        app.dial(from, number);
    }

private:
    int32_t add(const char *plugin, const char *name, int32_t type) {
        return app.register_endpoint(plugin, name, type, {application_test::kPcma}, std::string(1, name[0]));
    }
};

using Step = void (*)(World &);

// ---------------------------------------------------------------------------------------------------------- The states

void nothing(World &) {}
void dial_tone(World &w) {
    w.lift(w.a);
}
void collecting(World &w) {
    w.call(w.a, "2");
}
void calling(World &w) {
    w.call(w.a, "201");
}
void ringing(World &w) {
    w.call(w.b, "101");
}
void talking(World &w) {
    calling(w);
    w.lift(w.b);
}
void held(World &w) {
    talking(w);
    w.flash(w.b);
}
void busy(World &w) {
    w.call(w.a, "9");
}
void dial_tone_holding(World &w) {
    talking(w);
    w.flash(w.a);
}
void collecting_holding(World &w) {
    dial_tone_holding(w);
    w.app.dial(w.a, "3");
}
void calling_holding(World &w) {
    dial_tone_holding(w);
    w.app.dial(w.a, "301");
}
void talking_holding(World &w) {
    calling_holding(w);
    w.lift(w.c);
}
void busy_holding(World &w) {
    dial_tone_holding(w);
    w.app.dial(w.a, "9");
}
void held_holding(World &w) {
    talking_holding(w);
    w.flash(w.c);
}
void conference(World &w) {
    talking_holding(w);
    w.flash(w.a);
}
// B has A and C in its conference.
void conferee(World &w) {
    w.call(w.b, "101");
    w.lift(w.a);
    w.flash(w.b);
    w.app.dial(w.b, "301");
    w.lift(w.c);
    w.flash(w.b);
}
void collecting_exchange(World &w) {
    w.call(w.a, "05");
}
void talking_exchange(World &w) {
    w.call(w.a, "05#");
}
void holding_exchange(World &w) {
    talking_exchange(w);
    w.flash(w.a);
}
void ringing_exchange(World &w) {
    w.ring_in();
}
void answered_exchange(World &w) {
    w.ring_in();
    w.lift(w.a);
}

const std::map<std::string, Step> kStates = {
    {"idle", nothing},
    {"dial tone", dial_tone},
    {"collecting", collecting},
    {"calling", calling},
    {"ringing", ringing},
    {"talking", talking},
    {"held", held},
    {"busy", busy},
    {"dial tone, holds B", dial_tone_holding},
    {"collecting, holds B", collecting_holding},
    {"calling C, holds B", calling_holding},
    {"talking to C, holds B", talking_holding},
    {"busy, holds B", busy_holding},
    {"held by C, holds B", held_holding},
    {"conference with B and C", conference},
    {"in the conference of B", conferee},
    {"collecting for the exchange", collecting_exchange},
    {"talking to the exchange", talking_exchange},
    {"dial tone, holds the exchange", holding_exchange},
    {"rung by the exchange", ringing_exchange},
    {"answered the exchange", answered_exchange},
};

// ---------------------------------------------------------------------------------------------------------- The events

void second_call_begins(World &w) {
    w.call(w.d, "10");
}

struct Event {
    Step before; // what belongs to it but is not looked at
    Step run;
};

const std::map<std::string, Event> kEvents = {
    {"off hook", {nothing, [](World &w) { w.lift(w.a); }}},
    {"on hook", {nothing, [](World &w) { w.hang_up(w.a); }}},
    {"flash", {nothing, [](World &w) { w.flash(w.a); }}},
    {"digit 3", {nothing, [](World &w) { w.app.dial(w.a, "3"); }}},
    {"digit 9", {nothing, [](World &w) { w.app.dial(w.a, "9"); }}},
    {"digits 01", {nothing, [](World &w) { w.app.dial(w.a, "01"); }}},
    {"digit #", {nothing, [](World &w) { w.app.dial(w.a, "#"); }}},
    {"number 301",
     {nothing,
      [](World &w) {
          w.app.event(w.a, LIBVOICE_EVENT_dd_ce, item(LIBVOICE_PARAM_dd_ce_ds, std::string("301\0", 4)));
      }}},
    {"4 s", {nothing, [](World &) { bus().advance(4000); }}},
    {"20 s", {nothing, [](World &) { bus().advance(20000); }}},
    {"2 min", {nothing, [](World &) { bus().advance(122000); }}},
    {"fails", {nothing, [](World &w) { w.fail(w.a); }}},
    {"fails in its second call", {nothing, [](World &w) { w.fail(w.a, 1); }}},
    {"its endpoint goes", {nothing, [](World &w) { w.app.deregister_endpoint(w.a); }}},
    {"its plugin goes", {nothing, [](World &w) { w.app.close("p1"); }}},
    {"B off hook", {nothing, [](World &w) { w.lift(w.b); }}},
    {"B on hook", {nothing, [](World &w) { w.hang_up(w.b); }}},
    {"B flashes", {nothing, [](World &w) { w.flash(w.b); }}},
    {"B fails", {nothing, [](World &w) { w.fail(w.b); }}},
    {"B's plugin goes", {nothing, [](World &w) { w.app.close("p2"); }}},
    {"C off hook", {nothing, [](World &w) { w.lift(w.c); }}},
    {"C on hook", {nothing, [](World &w) { w.hang_up(w.c); }}},
    {"C flashes", {nothing, [](World &w) { w.flash(w.c); }}},
    {"C's plugin goes", {nothing, [](World &w) { w.app.close("p3"); }}},
    {"exchange rings", {nothing, [](World &w) { w.ring_in(); }}},
    {"exchange releases", {nothing, [](World &w) { w.app.event(w.x, LIBVOICE_EVENT_fxo_rh); }}},
    {"exchange's plugin goes", {nothing, [](World &w) { w.app.close("px"); }}},
    {"D calls", {second_call_begins, [](World &w) { w.app.dial(w.d, "1"); }}},
};

// The eight states, without a second call, meet each of these.
const char *const kBasicStates[] = {"idle", "dial tone", "collecting", "calling", "ringing", "talking", "held", "busy"};
const char *const kBasicEvents[] = {
    "off hook",  "on hook",   "flash",   "digit 3",           "number 301",      "4 s",
    "20 s",      "2 min",     "fails",   "its endpoint goes", "its plugin goes", "B off hook",
    "B on hook", "B flashes", "B fails", "B's plugin goes",   "exchange rings",  "exchange releases",
    "D calls"};

// ----------------------------------------------------------------------------------------------------------- The table

struct Row {
    const char *state, *event;
    const char *next; // A's state afterwards
    const char *sent; // to whom what; "" is nothing
};

// clang-format off
constexpr Row kRows[] = {
    {"idle", "off hook",          "dial-tone", "A: cg_dt"},
    {"idle", "on hook",           "idle",      ""},
    {"idle", "flash",             "idle",      ""},
    {"idle", "digit 3",           "idle",      ""},
    {"idle", "number 301",        "idle",      ""},
    {"idle", "4 s",               "idle",      ""},
    {"idle", "20 s",              "idle",      ""},
    {"idle", "2 min",             "idle",      ""},
    {"idle", "fails",             "idle",      ""},
    {"idle", "its endpoint goes", "gone",      ""},
    {"idle", "its plugin goes",   "gone",      ""},
    {"idle", "B off hook",        "idle",      "B: cg_dt"},
    {"idle", "B on hook",         "idle",      ""},
    {"idle", "B flashes",         "idle",      ""},
    {"idle", "B fails",           "idle",      ""},
    {"idle", "B's plugin goes",   "idle",      ""},
    {"idle", "exchange rings",    "ringing",   "A: al_ri"},
    {"idle", "exchange releases", "idle",      ""},
    {"idle", "D calls",           "ringing",   "A: al_ri | D: cg_rt"},

    {"dial tone", "off hook",          "dial-tone",  ""},
    {"dial tone", "on hook",           "idle",       "A: silence"},
    {"dial tone", "flash",             "dial-tone",  ""},
    {"dial tone", "digit 3",           "collecting", "A: silence"},
    {"dial tone", "number 301",        "calling",    "A: silence, cg_rt | C: al_ri"},
    {"dial tone", "4 s",               "dial-tone",  ""},
    {"dial tone", "20 s",              "busy",       "A: cg_bt"},
    {"dial tone", "2 min",             "busy",       "A: cg_bt, tonegen_pt"},
    {"dial tone", "fails",             "dial-tone",  ""},
    {"dial tone", "its endpoint goes", "gone",       ""},
    {"dial tone", "its plugin goes",   "gone",       ""},
    {"dial tone", "B off hook",        "dial-tone",  "B: cg_dt"},
    {"dial tone", "B on hook",         "dial-tone",  ""},
    {"dial tone", "B flashes",         "dial-tone",  ""},
    {"dial tone", "B fails",           "dial-tone",  ""},
    {"dial tone", "B's plugin goes",   "dial-tone",  ""},
    {"dial tone", "exchange rings",    "dial-tone",  ""},
    {"dial tone", "exchange releases", "dial-tone",  ""},
    {"dial tone", "D calls",           "dial-tone",  "D: cg_bt"},
    {"dial tone", "digit 9",           "busy",       "A: silence, cg_sit"},
    {"dial tone", "digit #",           "busy",       "A: silence, cg_sit"},

    {"collecting", "off hook",          "collecting", ""},
    {"collecting", "on hook",           "idle",       "A: silence"},
    {"collecting", "flash",             "collecting", ""},
    {"collecting", "digit 3",           "busy",       "A: cg_sit"},
    {"collecting", "number 301",        "busy",       "A: cg_sit"},
    {"collecting", "4 s",               "busy",       "A: cg_sit"},
    {"collecting", "20 s",              "busy",       "A: cg_sit"},
    {"collecting", "2 min",             "busy",       "A: cg_sit, tonegen_pt"},
    {"collecting", "fails",             "collecting", ""},
    {"collecting", "its endpoint goes", "gone",       ""},
    {"collecting", "its plugin goes",   "gone",       ""},
    {"collecting", "B off hook",        "collecting", "B: cg_dt"},
    {"collecting", "B on hook",         "collecting", ""},
    {"collecting", "B flashes",         "collecting", ""},
    {"collecting", "B fails",           "collecting", ""},
    {"collecting", "B's plugin goes",   "collecting", ""},
    {"collecting", "exchange rings",    "collecting", ""},
    {"collecting", "exchange releases", "collecting", ""},
    {"collecting", "D calls",           "collecting", "D: cg_bt"},
    {"collecting", "digits 01",         "calling",    "A: cg_rt | B: al_ri"},
    {"collecting", "digit #",           "busy",       "A: cg_sit"},

    {"calling", "off hook",          "calling", ""},
    {"calling", "on hook",           "idle",    "A: silence | B: silence"},
    {"calling", "flash",             "calling", ""},
    {"calling", "digit 3",           "calling", ""},
    {"calling", "number 301",        "calling", ""},
    {"calling", "4 s",               "calling", "B: andisp_data"},
    {"calling", "20 s",              "calling", "B: andisp_data"},
    {"calling", "2 min",             "busy",    "A: cg_bt | B: andisp_data, silence"},
    {"calling", "fails",             "busy",    "A: cg_bt | B: silence"},
    {"calling", "its endpoint goes", "gone",    "B: silence"},
    {"calling", "its plugin goes",   "gone",    "B: silence"},
    {"calling", "B off hook",        "talking", "A: silence, create | B: silence, create"},
    {"calling", "B on hook",         "calling", ""},
    {"calling", "B flashes",         "calling", ""},
    {"calling", "B fails",           "busy",    "A: cg_bt | B: silence"},
    {"calling", "B's plugin goes",   "busy",    "A: cg_bt"},
    {"calling", "exchange rings",    "calling", ""},
    {"calling", "exchange releases", "calling", ""},
    {"calling", "D calls",           "calling", "D: cg_bt"},

    {"ringing", "off hook",          "talking", "A: silence, create | B: silence, create"},
    {"ringing", "on hook",           "ringing", ""},
    {"ringing", "flash",             "ringing", ""},
    {"ringing", "digit 3",           "ringing", ""},
    {"ringing", "number 301",        "ringing", ""},
    {"ringing", "4 s",               "ringing", "A: andisp_data"},
    {"ringing", "20 s",              "ringing", "A: andisp_data"},
    {"ringing", "2 min",             "idle",    "A: andisp_data, silence | B: cg_bt"},
    {"ringing", "fails",             "idle",    "A: silence | B: cg_bt"},
    {"ringing", "its endpoint goes", "gone",    "B: cg_bt"},
    {"ringing", "its plugin goes",   "gone",    "B: cg_bt"},
    {"ringing", "B off hook",        "ringing", ""},
    {"ringing", "B on hook",         "idle",    "A: silence | B: silence"},
    {"ringing", "B flashes",         "ringing", ""},
    {"ringing", "B fails",           "idle",    "A: silence | B: cg_bt"},
    {"ringing", "B's plugin goes",   "idle",    "A: silence"},
    {"ringing", "exchange rings",    "ringing", ""},
    {"ringing", "exchange releases", "ringing", ""},
    {"ringing", "D calls",           "ringing", "D: cg_bt"},

    {"talking", "off hook",          "talking",   ""},
    {"talking", "on hook",           "idle",      "A: destroy, silence | B: destroy, cg_bt"},
    {"talking", "flash",             "dial-tone", "A: modify inactive, cg_dt | B: modify inactive, srvtn_ht"},
    {"talking", "digit 3",           "talking",   ""},
    {"talking", "number 301",        "talking",   ""},
    {"talking", "4 s",               "talking",   ""},
    {"talking", "20 s",              "talking",   ""},
    {"talking", "2 min",             "talking",   ""},
    {"talking", "fails",             "busy",      "A: destroy, cg_bt | B: destroy, cg_bt"},
    {"talking", "its endpoint goes", "gone",      "B: destroy, cg_bt"},
    {"talking", "its plugin goes",   "gone",      "B: destroy, cg_bt"},
    {"talking", "B off hook",        "talking",   ""},
    {"talking", "B on hook",         "busy",      "A: destroy, cg_bt | B: destroy, silence"},
    {"talking", "B flashes",         "held",      "A: modify inactive, srvtn_ht | B: modify inactive, cg_dt"},
    {"talking", "B fails",           "busy",      "A: destroy, cg_bt | B: destroy, cg_bt"},
    {"talking", "B's plugin goes",   "busy",      "A: destroy, cg_bt"},
    {"talking", "exchange rings",    "talking",   ""},
    {"talking", "exchange releases", "talking",   ""},
    {"talking", "D calls",           "talking",   "D: cg_bt"},
    {"talking", "fails in its second call", "talking", ""},

    {"held", "off hook",          "held",    ""},
    {"held", "on hook",           "idle",    "A: destroy, silence | B: destroy"},
    {"held", "flash",             "held",    ""},
    {"held", "digit 3",           "held",    ""},
    {"held", "number 301",        "held",    ""},
    {"held", "4 s",               "held",    ""},
    {"held", "20 s",              "held",    "B: cg_bt"},
    {"held", "2 min",             "held",    "B: cg_bt, tonegen_pt"},
    {"held", "fails",             "busy",    "A: destroy, cg_bt | B: destroy"},
    {"held", "its endpoint goes", "gone",    "B: destroy"},
    {"held", "its plugin goes",   "gone",    "B: destroy"},
    {"held", "B off hook",        "held",    ""},
    {"held", "B on hook",         "busy",    "A: destroy, cg_bt | B: destroy, silence"},
    {"held", "B flashes",         "talking", "A: silence, modify both | B: silence, modify both"},
    {"held", "B fails",           "busy",    "A: destroy, cg_bt | B: destroy"},
    {"held", "B's plugin goes",   "busy",    "A: destroy, cg_bt"},
    {"held", "exchange rings",    "held",    ""},
    {"held", "exchange releases", "held",    ""},
    {"held", "D calls",           "held",    "D: cg_bt"},

    {"busy", "off hook",          "busy", ""},
    {"busy", "on hook",           "idle", "A: silence"},
    {"busy", "flash",             "busy", ""},
    {"busy", "digit 3",           "busy", ""},
    {"busy", "number 301",        "busy", ""},
    {"busy", "4 s",               "busy", ""},
    {"busy", "20 s",              "busy", ""},
    {"busy", "2 min",             "busy", "A: tonegen_pt, silence"},
    {"busy", "fails",             "busy", ""},
    {"busy", "its endpoint goes", "gone", ""},
    {"busy", "its plugin goes",   "gone", ""},
    {"busy", "B off hook",        "busy", "B: cg_dt"},
    {"busy", "B on hook",         "busy", ""},
    {"busy", "B flashes",         "busy", ""},
    {"busy", "B fails",           "busy", ""},
    {"busy", "B's plugin goes",   "busy", ""},
    {"busy", "exchange rings",    "busy", ""},
    {"busy", "exchange releases", "busy", ""},
    {"busy", "D calls",           "busy", "D: cg_bt"},

    {"dial tone, holds B", "on hook",         "idle",       "A: destroy, silence | B: destroy, cg_bt"},
    {"dial tone, holds B", "flash",           "talking",    "A: silence, modify both | B: silence, modify both"},
    {"dial tone, holds B", "digit 3",         "collecting", "A: silence"},
    {"dial tone, holds B", "digit 9",         "busy",       "A: silence, cg_sit"},
    {"dial tone, holds B", "number 301",      "calling",    "A: silence, cg_rt | C: al_ri"},
    {"dial tone, holds B", "20 s",            "busy",       "A: cg_bt"},
    {"dial tone, holds B", "fails",           "dial-tone",  "A: destroy | B: destroy, cg_bt"},
    {"dial tone, holds B", "its plugin goes", "gone",       "B: destroy, cg_bt"},
    {"dial tone, holds B", "B on hook",       "dial-tone",  "A: destroy | B: destroy, silence"},
    {"dial tone, holds B", "B flashes",       "dial-tone",  ""},
    {"dial tone, holds B", "B fails",         "dial-tone",  "A: destroy | B: destroy, cg_bt"},
    {"dial tone, holds B", "B's plugin goes", "dial-tone",  "A: destroy"},
    {"dial tone, holds B", "exchange rings",  "dial-tone",  ""},
    {"dial tone, holds B", "D calls",         "dial-tone",  "D: cg_bt"},

    {"collecting, holds B", "on hook",         "idle",       "A: destroy, silence | B: destroy, cg_bt"},
    {"collecting, holds B", "flash",           "talking",    "A: silence, modify both | B: silence, modify both"},
    {"collecting, holds B", "digits 01",       "calling",    "A: cg_rt | C: al_ri"},
    {"collecting, holds B", "digit 9",         "busy",       "A: cg_sit"},
    {"collecting, holds B", "4 s",             "busy",       "A: cg_sit"},
    {"collecting, holds B", "its plugin goes", "gone",       "B: destroy, cg_bt"},
    {"collecting, holds B", "B on hook",       "collecting", "A: destroy | B: destroy, silence"},
    {"collecting, holds B", "B's plugin goes", "collecting", "A: destroy"},
    {"collecting, holds B", "D calls",         "collecting", "D: cg_bt"},

    {"calling C, holds B", "on hook",         "idle",    "A: destroy, silence | B: destroy, cg_bt | C: silence"},
    {"calling C, holds B", "flash",           "talking", "A: silence, modify both | B: silence, modify both | C: silence"},
    {"calling C, holds B", "digit 3",         "calling", ""},
    {"calling C, holds B", "2 min",           "busy",    "A: cg_bt | C: andisp_data, silence"},
    {"calling C, holds B", "fails",           "calling", "A: destroy | B: destroy, cg_bt"},
    {"calling C, holds B", "fails in its second call", "busy", "A: cg_bt | C: silence"},
    {"calling C, holds B", "its plugin goes", "gone",    "B: destroy, cg_bt | C: silence"},
    {"calling C, holds B", "B on hook",       "calling", "A: destroy | B: destroy, silence"},
    {"calling C, holds B", "B flashes",       "calling", ""},
    {"calling C, holds B", "B's plugin goes", "calling", "A: destroy"},
    {"calling C, holds B", "C off hook",      "talking", "A: silence, create/1 | C: silence, create"},
    {"calling C, holds B", "C's plugin goes", "busy",    "A: cg_bt"},
    {"calling C, holds B", "D calls",         "calling", "D: cg_bt"},

    {"talking to C, holds B", "on hook",         "idle",    "A: destroy, destroy/1, silence | B: destroy, cg_bt | C: destroy, cg_bt"},
    {"talking to C, holds B", "flash",           "talking", "A: destroy, destroy/1 | B: silence, destroy, create | C: destroy, create | p1: create_ctx, add_stream 1, add_stream 2"},
    {"talking to C, holds B", "digit 3",         "talking", ""},
    {"talking to C, holds B", "fails",           "talking", "A: destroy | B: destroy, cg_bt"},
    {"talking to C, holds B", "fails in its second call", "busy", "A: destroy/1, cg_bt | C: destroy, cg_bt"},
    {"talking to C, holds B", "its plugin goes", "gone",    "B: destroy, cg_bt | C: destroy, cg_bt"},
    {"talking to C, holds B", "B on hook",       "talking", "A: destroy | B: destroy, silence"},
    {"talking to C, holds B", "B flashes",       "talking", ""},
    {"talking to C, holds B", "B's plugin goes", "talking", "A: destroy"},
    {"talking to C, holds B", "C on hook",       "busy",    "A: destroy/1, cg_bt | C: destroy, silence"},
    {"talking to C, holds B", "C flashes",       "held",    "A: modify/1 inactive, srvtn_ht | C: modify inactive, cg_dt"},
    {"talking to C, holds B", "C's plugin goes", "busy",    "A: destroy/1, cg_bt"},
    {"talking to C, holds B", "D calls",         "talking", "D: cg_bt"},

    {"busy, holds B", "on hook",         "idle",    "A: destroy, silence | B: destroy, cg_bt"},
    {"busy, holds B", "flash",           "talking", "A: silence, modify both | B: silence, modify both"},
    {"busy, holds B", "digit 3",         "busy",    ""},
    {"busy, holds B", "its plugin goes", "gone",    "B: destroy, cg_bt"},
    {"busy, holds B", "B on hook",       "busy",    "A: destroy | B: destroy, silence"},
    {"busy, holds B", "B's plugin goes", "busy",    "A: destroy"},

    {"held by C, holds B", "on hook",         "idle",    "A: destroy, destroy/1, silence | B: destroy, cg_bt | C: destroy"},
    {"held by C, holds B", "flash",           "talking", "A: destroy/1, silence, modify both | B: silence, modify both | C: destroy"},
    {"held by C, holds B", "digit 3",         "held",    ""},
    {"held by C, holds B", "B on hook",       "held",    "A: destroy | B: destroy, silence"},
    {"held by C, holds B", "B's plugin goes", "held",    "A: destroy"},
    {"held by C, holds B", "C on hook",       "busy",    "A: destroy/1, cg_bt | C: destroy, silence"},
    {"held by C, holds B", "C flashes",       "talking", "A: silence, modify/1 both | C: silence, modify both"},
    {"held by C, holds B", "C's plugin goes", "busy",    "A: destroy/1, cg_bt"},

    {"conference with B and C", "off hook",        "talking", ""},
    {"conference with B and C", "on hook",         "idle",    "A: silence | B: destroy, cg_bt | C: destroy, cg_bt | p1: remove_stream 1, remove_stream 2, destroy_ctx"},
    {"conference with B and C", "flash",           "talking", ""},
    {"conference with B and C", "digit 3",         "talking", ""},
    {"conference with B and C", "fails",           "talking", "B: destroy, cg_bt | p1: remove_stream 1"},
    {"conference with B and C", "fails in its second call", "talking", "C: destroy, cg_bt | p1: remove_stream 2"},
    {"conference with B and C", "its endpoint goes", "gone",  "B: destroy, cg_bt | C: destroy, cg_bt | p1: destroy_ctx"},
    {"conference with B and C", "its plugin goes", "gone",    "B: destroy, cg_bt | C: destroy, cg_bt"},
    {"conference with B and C", "B on hook",       "talking", "B: destroy, silence | p1: remove_stream 1"},
    {"conference with B and C", "B flashes",       "talking", ""},
    {"conference with B and C", "B's plugin goes", "talking", "p1: remove_stream 1"},
    {"conference with B and C", "C on hook",       "talking", "C: destroy, silence | p1: remove_stream 2"},
    {"conference with B and C", "C's plugin goes", "talking", "p1: remove_stream 2"},
    {"conference with B and C", "D calls",         "talking", "D: cg_bt"},

    {"in the conference of B", "on hook",         "idle",    "A: destroy, silence | p2: remove_stream 1"},
    {"in the conference of B", "flash",           "talking", ""},
    {"in the conference of B", "digit 3",         "talking", ""},
    {"in the conference of B", "fails",           "busy",    "A: destroy, cg_bt | p2: remove_stream 1"},
    {"in the conference of B", "its plugin goes", "gone",    "p2: remove_stream 1"},
    {"in the conference of B", "B on hook",       "busy",    "A: destroy, cg_bt | B: silence | C: destroy, cg_bt | p2: remove_stream 1, remove_stream 2, destroy_ctx"},
    {"in the conference of B", "B's plugin goes", "busy",    "A: destroy, cg_bt | C: destroy, cg_bt"},
    {"in the conference of B", "C on hook",       "talking", "C: destroy, silence | p2: remove_stream 2"},

    {"collecting for the exchange", "digit 3", "collecting", ""},
    {"collecting for the exchange", "digit #", "talking",    "A: silence, create | X: fxo_of, fxoen_sd 5, create"},
    {"collecting for the exchange", "4 s",     "talking",    "A: silence, create | X: fxo_of, fxoen_sd 5, create"},
    {"collecting for the exchange", "on hook", "idle",       "A: silence"},
    {"collecting for the exchange", "exchange's plugin goes", "collecting", ""},

    {"talking to the exchange", "on hook",           "idle",      "A: destroy, silence | X: destroy, fxo_on"},
    {"talking to the exchange", "flash",             "dial-tone", "A: modify inactive, cg_dt | X: modify inactive"},
    {"talking to the exchange", "digit 3",           "talking",   "X: fxoen_sd 3"},
    {"talking to the exchange", "digit #",           "talking",   "X: fxoen_sd #"},
    {"talking to the exchange", "number 301",        "talking",   "X: fxoen_sd 3, fxoen_sd 0, fxoen_sd 1"},
    {"talking to the exchange", "fails",             "busy",      "A: destroy, cg_bt | X: destroy, fxo_on"},
    {"talking to the exchange", "its plugin goes",   "gone",      "X: destroy, fxo_on"},
    {"talking to the exchange", "exchange rings",    "talking",   ""},
    {"talking to the exchange", "exchange releases", "busy",      "A: destroy, cg_bt | X: destroy, fxo_on"},
    {"talking to the exchange", "exchange's plugin goes", "busy", "A: destroy, cg_bt"},
    {"talking to the exchange", "D calls",           "talking",   "D: cg_bt"},

    {"dial tone, holds the exchange", "on hook",           "idle",      "A: destroy, silence | X: destroy, fxo_on"},
    {"dial tone, holds the exchange", "flash",             "talking",   "A: silence, modify both | X: modify both"},
    {"dial tone, holds the exchange", "exchange releases", "dial-tone", "A: destroy | X: destroy, fxo_on"},
    {"dial tone, holds the exchange", "exchange's plugin goes", "dial-tone", "A: destroy"},

    {"rung by the exchange", "off hook",          "talking", "A: silence, create | X: fxo_of, create"},
    {"rung by the exchange", "on hook",           "ringing", ""},
    {"rung by the exchange", "4 s",               "ringing", "A: andisp_data"},
    {"rung by the exchange", "2 min",             "idle",    "A: andisp_data, silence"},
    {"rung by the exchange", "fails",             "idle",    "A: silence"},
    {"rung by the exchange", "its plugin goes",   "gone",    ""},
    {"rung by the exchange", "exchange rings",    "ringing", ""},
    {"rung by the exchange", "exchange releases", "idle",    "A: silence"},
    {"rung by the exchange", "exchange's plugin goes", "idle", "A: silence"},
    {"rung by the exchange", "D calls",           "ringing", "D: cg_bt"},

    {"answered the exchange", "on hook",           "idle", "A: destroy, silence | X: destroy, fxo_on"},
    {"answered the exchange", "exchange releases", "busy", "A: destroy, cg_bt | X: destroy, fxo_on"},
};
// clang-format on

// What holds in every state of every line.
void expect_sound(const line &who) {
    const bool dials = who.state == LINE_DIAL_TONE || who.state == LINE_COLLECTING;
    EXPECT_TRUE(who.timer != nullptr || !dials) << who.label << ": the timer of its digits runs while it dials";
    EXPECT_TRUE(who.timer == nullptr || dials || who.state == LINE_BUSY || who.rings_in)
        << who.label << ": a timer is for digits, for a reminder to hang up, or for the next ring";
    EXPECT_TRUE(who.timer != nullptr || !who.rings_in) << who.label << ": ringing ends";
    const bool is_free = who.state == LINE_IDLE;
    const bool is_rung = who.state == LINE_RINGING || (who.type == VOICE_ENDPOINT_FXO && who.state == LINE_CALLING);
    EXPECT_EQ(who.off_hook, !is_free && !is_rung) << who.label;
    EXPECT_TRUE(!is_free || (who.active == 0 && who.context == 0)) << who.label;
    EXPECT_TRUE(!is_free || (who.calls[0] == nullptr && who.calls[1] == nullptr)) << who.label;
}

class LineStates : public testing::TestWithParam<const char *> {};

TEST_P(LineStates, MeetEachEvent) {
    for (const Row &row : kRows) {
        if (strcmp(row.state, GetParam()) != 0)
            continue;
        SCOPED_TRACE(std::string(row.state) + " / " + row.event);
        {
            World world;
            kStates.at(row.state)(world);
            const Event &event = kEvents.at(row.event);
            event.before(world);
            world.app.sent();
            event.run(world);
            EXPECT_EQ(world.app.sent(), row.sent);
            EXPECT_EQ(Application::state(world.a), row.next);
            for (const line &who : lines)
                if (who.used)
                    expect_sound(who);
        }
        for (const std::string &wrong : bus().check())
            ADD_FAILURE() << wrong;
    }
}

std::vector<const char *> states_of_the_table() {
    std::vector<const char *> result;
    for (const Row &row : kRows)
        if (result.empty() || strcmp(result.back(), row.state) != 0)
            result.push_back(row.state);
    return result;
}

std::string plain_name(const testing::TestParamInfo<const char *> &state) {
    std::string result;
    bool begins = true;
    for (const char *at = state.param; *at != 0; at++) {
        if (isalnum(static_cast<unsigned char>(*at)))
            result += static_cast<char>(begins ? toupper(static_cast<unsigned char>(*at)) : *at);
        begins = isalnum(static_cast<unsigned char>(*at)) == 0;
    }
    return result;
}

INSTANTIATE_TEST_SUITE_P(, LineStates, testing::ValuesIn(states_of_the_table()), plain_name);

// A pair that nobody thought of is the one that fails at a user's home.
TEST(LineStatesTable, HasEachOfTheEightStatesByEachEventOnce) {
    std::set<std::pair<std::string, std::string>> pairs;
    for (const Row &row : kRows)
        EXPECT_TRUE(pairs.emplace(row.state, row.event).second) << row.state << " / " << row.event << " stands twice";
    for (const char *state : kBasicStates)
        for (const char *event : kBasicEvents)
            EXPECT_EQ(pairs.count({state, event}), 1u) << state << " / " << event << " is missing";
    std::set<std::string> states;
    for (const char *state : states_of_the_table())
        EXPECT_TRUE(states.insert(state).second) << state << " stands in two places";
    EXPECT_EQ(states.size(), kStates.size());
}

} // namespace
