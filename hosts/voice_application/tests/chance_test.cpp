// SPDX-License-Identifier: MIT
// Events by chance, in every order: whatever comes, lines, calls, tones and media fit together afterwards. The table of
// line_states_test.cpp says what an event does; here nothing may be left over by any sequence of them.
#include "application.h"
#include "calls.h"
#include "commands.h"
#include "told_plugins.h"

#include <array>
#include <cstring>
#include <random>
#include <set>

using application_test::Application;
using application_test::item;
using application_test::ToldPlugins;
using application_test::word;
using fake::bus;

namespace {

struct Endpoint {
    const char *plugin, *name;
    int32_t type;
    int32_t number;
    std::string path() const { return std::string(plugin) + ".EndPoint." + name; }
};

class Walk {
public:
    std::set<std::string> states; // that lines were in

    explicit Walk(unsigned seed) : random_(seed) {
        libvoice_set_convert_media(seed % 2 != 0);
        come_back();
    }
    ~Walk() {
        for (const auto &[plugin, peer] : peers_)
            bus().close(bus().peer(peer));
        for (unsigned id = 1; id <= bus().requests_made(); id++)
            if (bus().record(id).alive) // "get" of a handset's type
                bus().complete(bus().request(id), fake::Reply());
    }
    Walk(const Walk &) = delete;
    Walk &operator=(const Walk &) = delete;

    void step() {
        Endpoint &one = endpoints_[below(6)];
        switch (below(64)) {
        case 0:
            return lose(one);
        case 1:
            return withdraw(one);
        case 2:
            return come_back();
        case 3:
            return pass(std::array<uint32_t, 6>{0, 1500, 4000, 10000, 60000, 122000}[below(6)]);
        case 4:
            return command("hangup " + std::to_string(calls[below(4)].id));
        case 5:
            return command("codec " + std::string(one.plugin) + "." + one.name + (below(2) != 0 ? " PCMU" : " PCMA"));
        default:
            return event(one);
        }
    }
    void check() {
        plugins_.follow();
        for (const call &it : calls)
            if (it.used)
                check_call(it);
        size_t contexts = 0;
        for (const line &who : lines)
            if (who.used) {
                check_line(who);
                contexts += who.context != 0;
            }
        EXPECT_EQ(plugins_.contexts.size(), contexts);
    }
    const std::string &history() const { return history_; }

private:
    std::mt19937 random_;
    std::unique_ptr<Application> app_ = std::make_unique<Application>();
    ToldPlugins plugins_;
    std::map<std::string, std::string> peers_; // by plugin
    std::string history_;
    Endpoint endpoints_[6] = {{"fxs1", "FXS1", VOICE_ENDPOINT_FXS, -1},    {"fxs1", "FXS2", VOICE_ENDPOINT_FXS, -1},
                              {"fxs2", "FXS1", VOICE_ENDPOINT_FXS, -1},    {"dect1", "DECT1", VOICE_ENDPOINT_DECT, -1},
                              {"dect1", "DECT2", VOICE_ENDPOINT_DECT, -1}, {"fxo1", "FXO1", VOICE_ENDPOINT_FXO, -1}};

    unsigned below(unsigned end) { return static_cast<unsigned>(random_() % end); }
    void note(const std::string &what) { history_ += what + "\n"; }

    // ------------------------------------------------------------------------------------------------------- Events

    void event(const Endpoint &one) {
        if (one.number < 0)
            return;
        const uint32_t appearance = below(2);
        const std::string who = one.path() + " ";
        if (below(3) != 0)
            return likely_event(one);
        switch (below(12)) {
        case 0:
        case 1:
            note(who + "off hook");
            return app_->event(one.number, LIBVOICE_EVENT_al_of);
        case 2:
            note(who + "on hook");
            return app_->event(one.number, LIBVOICE_EVENT_al_on);
        case 3:
        case 4:
        case 5:
            note(who + "flash");
            return app_->event(one.number, LIBVOICE_EVENT_al_fl);
        case 6:
            note(who + "rings");
            return app_->event(one.number, LIBVOICE_EVENT_fxo_ri);
        case 7:
            note(who + "released");
            return app_->event(one.number, LIBVOICE_EVENT_fxo_rh);
        case 8:
        case 9:
            return reach(one, below(2));
        case 10:
            note(who + "fails " + std::to_string(appearance));
            return app_->event(one.number, LIBVOICE_EVENT_g_cause,
                               item(LIBVOICE_PARAM_g_cause_generalcause, word(below(4))), appearance);
        default:
            return dial(one);
        }
    }
    // What a user does at that moment, so that calls come about.
    void likely_event(const Endpoint &one) {
        switch (line_of_endpoint(one.number)->state) {
        case LINE_IDLE:
        case LINE_RINGING:
            note(one.path() + " off hook");
            return app_->event(one.number, LIBVOICE_EVENT_al_of);
        case LINE_BUSY:
            note(one.path() + " on hook");
            return app_->event(one.number, LIBVOICE_EVENT_al_on);
        case LINE_TALKING:
            note(one.path() + " flash");
            return app_->event(one.number, LIBVOICE_EVENT_al_fl);
        default:
            return dial(one);
        }
    }
    void dial(const Endpoint &one) {
        static const char *const numbers[] = {"101", "102", "201", "501", "502", "05#", "9", "20"};
        const char *digits = numbers[below(8)];
        note(one.path() + " dials " + digits);
        app_->dial(one.number, digits);
    }
    void reach(const Endpoint &one, uint32_t reachable) {
        if (one.type != VOICE_ENDPOINT_DECT)
            return;
        note(one.path() + (reachable != 0 ? " back" : " away"));
        app_->event(one.number, LIBVOICE_EVENT_zil_dect_property,
                    item(LIBVOICE_PARAM_zil_dect_property_reachability_status, word(reachable)));
    }
    void pass(uint32_t milliseconds) {
        note(std::to_string(milliseconds) + " ms");
        bus().advance(milliseconds);
    }
    void command(std::string text) {
        note(text);
        command_run(text.data());
    }
    // A connection closes; what its plugin had is nobody's any more.
    void lose(const Endpoint &one) {
        const auto found = peers_.find(one.plugin);
        if (found == peers_.end())
            return;
        note(std::string(one.plugin) + " lost");
        plugins_.follow();
        plugins_.forget(std::string(one.plugin) + ".");
        plugins_.forget(std::string(one.plugin) + "#");
        for (Endpoint &other : endpoints_)
            if (strcmp(other.plugin, one.plugin) == 0)
                other.number = -1;
        bus().close(bus().peer(found->second));
        peers_.erase(found);
    }
    void withdraw(Endpoint &one) {
        if (one.number < 0)
            return;
        note(one.path() + " gone");
        plugins_.follow();
        plugins_.forget(one.path() + "/");
        app_->deregister_endpoint(one.number);
        one.number = -1;
    }
    // Each plugin that was lost connects anew, and every endpoint that is missing is registered.
    void come_back() {
        note("all are back");
        for (Endpoint &one : endpoints_) {
            std::string &peer = peers_[one.plugin];
            if (peer.empty()) {
                peer = one.plugin + std::string(" ") + std::to_string(history_.size());
                fake::Call call;
                call.from(bus().peer(peer)).with("plugin_name", fake::Value::chars(one.plugin));
                EXPECT_EQ(call.run(__VoiceService_register_plugin), KEX_FUNCTION_DONE);
            }
            if (one.number < 0) {
                plugins_.tones.erase(one.path());
                one.number = app_->register_endpoint(one.plugin, one.name, one.type);
            }
        }
    }

    // ------------------------------------------------------------------------------------------- What always holds

    static void check_call(const call &it) {
        EXPECT_NE(it.from.who, it.to.who);
        for (const party *each : {&it.from, &it.to}) {
            EXPECT_TRUE(each->who->used);
            EXPECT_EQ(each->who->calls[each->appearance], &it);
            EXPECT_TRUE(it.state == CALL_HELD || (each->port != 0) == (it.state == CALL_TALKING));
        }
        EXPECT_EQ(it.timer != nullptr, it.state == CALL_RINGING) << "nobody answers";
        EXPECT_EQ(it.holder != nullptr, it.state == CALL_HELD);
    }
    // The call that a line in a state speaks on, or none.
    static bool is_call_of_state(const line &who, const call *it) {
        switch (who.state) {
        case LINE_CALLING:
            return it != nullptr && it->state == CALL_RINGING && it->from.who == &who;
        case LINE_RINGING:
            return it != nullptr && it->state == CALL_RINGING && it->to.who == &who && !who.away;
        case LINE_TALKING:
            return it != nullptr && it->state == CALL_TALKING;
        case LINE_HELD:
            return it != nullptr && it->state == CALL_HELD && it->holder != &who;
        default:
            return it == nullptr;
        }
    }
    void check_line(const line &who) {
        static const std::map<line_state, const char *> tones = {
            {LINE_DIAL_TONE, "cg_dt"}, {LINE_CALLING, "cg_rt"}, {LINE_RINGING, "al_ri"}, {LINE_HELD, "srvtn_ht"}};
        SCOPED_TRACE(std::string(who.label) + " is " + line_state_name(who.state));
        const std::string path = std::string(who.plugin) + ".EndPoint." + endpt_table[who.endpoint].name;
        const call *other = who.calls[1 - who.active];
        states.insert(who.context != 0 ? "conference" : line_state_name(who.state));
        EXPECT_TRUE(is_call_of_state(who, who.calls[who.active]));
        EXPECT_TRUE(who.context == 0 ? other == nullptr || other->holder == &who : who.state == LINE_TALKING);
        for (uint32_t i = 0; i < kAppearances; i++) {
            const party *own = who.calls[i] == nullptr ? nullptr : party_of_line(who.calls[i], &who);
            const bool has_media = own != nullptr && own->port != 0 && own->stream == 0;
            EXPECT_EQ(plugins_.media.count(path + "/" + std::to_string(i)), has_media ? 1u : 0u) << "line " << i;
        }
        const auto tone = plugins_.tones.find(path);
        const auto wanted = tones.find(who.state);
        const bool is_silent = wanted == tones.end() || who.type == VOICE_ENDPOINT_FXO;
        if (who.state == LINE_BUSY) // it hears why
            return;
        EXPECT_EQ(tone == plugins_.tones.end() ? "" : tone->second, is_silent ? "" : wanted->second);
    }
};

} // namespace

TEST(EventsByChance, LeaveLinesCallsTonesAndMediaThatFit) {
    std::set<std::string> states;
    for (unsigned seed = 1; seed <= 6 && !testing::Test::HasFailure(); seed++) {
        SCOPED_TRACE(seed);
        Walk walk(seed);
        for (int steps = 0; steps < 400 && !testing::Test::HasFailure(); steps++) {
            walk.step();
            walk.check();
        }
        states.merge(walk.states);
        if (testing::Test::HasFailure())
            ADD_FAILURE() << "after\n" << walk.history();
    }
    EXPECT_EQ(states, (std::set<std::string>{"busy", "calling", "collecting", "conference", "dial-tone", "held", "idle",
                                             "ringing", "talking"}));
}
