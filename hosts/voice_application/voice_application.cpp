// SPDX-License-Identifier: MIT
/*
 * voice_application: the call logic that voice plugins connect to.
 *
 *     voice_application --socket /tmp/voice.sock
 *     ready socket=/tmp/voice.sock country=DE
 *     plugin fxs1 registered                    (when a plugin comes)
 *     endpoint 0 fxs1.FXS1 number=101 codecs=PCMA,PCMU
 *     line 101 dial-tone                        (when somebody lifts the receiver)
 *     call 1 101->102 ringing
 *     call 1 101->102 answered codec=PCMA
 *     call 1 101->102 ended: 101 hung up
 *
 * Commands come from standard input or a socket: "status", "calls", "help". Telephony is in calls.cpp, media in
 * media.cpp, the numbering plan in plan.cpp; this file joins them to the library.
 */
#include "calls.h"
#include "codecs.h"
#include "console.h"
#include "dsp.h"
#include "host.h"
#include "kex_host.h"
#include "media.h"

#include <initializer_list>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

namespace {

constexpr char kHelp[] =
    "usage: voice_application [options]\n"
    "The call logic that voice plugins connect to.\n"
    "\n"
    "  --config FILE      country, numbers, codecs, ports (see voice_application.conf)\n" HOST_OPTIONS_HELP "\n"
    "Commands, one per line: see \"help\".\n";

// ------------------------------------------------------------------------------------------------------- Statistics

struct statistic {
    const char *name;
    uint32_t id;
};

constexpr statistic kStatistics[] = {
    {"tx", LIBVOICE_PARAM_zil_call_stats_txpkts},     {"txbytes", LIBVOICE_PARAM_zil_call_stats_txbytes},
    {"rx", LIBVOICE_PARAM_zil_call_stats_rxpkts},     {"rxbytes", LIBVOICE_PARAM_zil_call_stats_rxbytes},
    {"lost", LIBVOICE_PARAM_zil_call_stats_lost},     {"discarded", LIBVOICE_PARAM_zil_call_stats_discarded},
    {"jitter", LIBVOICE_PARAM_zil_call_stats_jitter},
};
constexpr size_t kStatisticCount = sizeof kStatistics / sizeof kStatistics[0];

struct statistics_row {
    uint32_t call;
    char line[40];
    int32_t values[kStatisticCount];
};

constexpr uint32_t kStatisticsKept = 32;
statistics_row statistics[kStatisticsKept];
uint32_t statistics_seen;

void take_statistics(const line *line, const voice_event_t *head, const uint8_t *params) {
    statistics_row *row = &statistics[statistics_seen++ % kStatisticsKept];
    memset(row, 0, sizeof *row);
    row->call = head->line < kAppearances ? line->last_call[head->line] : 0;
    snprintf(row->line, sizeof row->line, "%s", line->label);
    char text[256] = "";
    size_t used = 0;
    for (size_t i = 0; i < kStatisticCount; i++) {
        params_int(params, head->length, kStatistics[i].id, &row->values[i]);
        used += static_cast<size_t>(
            snprintf(text + used, sizeof text - used, " %s=%d", kStatistics[i].name, row->values[i]));
    }
    say("stats call=%u line=%s%s", row->call, row->line, text);
}

const char *print_statistics() {
    answer("%6s %-12s %8s %9s %8s %9s %6s %9s %7s", "call", "line", "tx", "txbytes", "rx", "rxbytes", "lost",
           "discarded", "jitter");
    uint32_t first = statistics_seen > kStatisticsKept ? statistics_seen - kStatisticsKept : 0;
    for (uint32_t i = first; i < statistics_seen; i++) {
        const statistics_row *row = &statistics[i % kStatisticsKept];
        answer("%6u %-12s %8d %9d %8d %9d %6d %9d %7d", row->call, row->line, row->values[0], row->values[1],
               row->values[2], row->values[3], row->values[4], row->values[5], row->values[6]);
    }
    return nullptr;
}

// ------------------------------------------------------------------------------------------ Callbacks of the library

kex_timer_t *plugin_timer; // runs out as soon as a registration is through
char known_plugins[LIBVOICE_PLUGINS][LIBVOICE_PLUGIN_NAME_BYTES];

// The library records a plugin without asking us: compare its table with what was said last.
void say_new_plugins() {
    for (uint32_t i = 0; i < LIBVOICE_PLUGINS; i++) {
        const voice_plugin_entry_t *entry = &voice_plugin_table[i];
        if (entry->used && strcmp(known_plugins[i], entry->plugin_name) != 0) {
            memcpy(known_plugins[i], entry->plugin_name, sizeof known_plugins[i]);
            say("plugin %s registered", entry->plugin_name);
        }
    }
}

int32_t app_get_country(char *country, uint32_t size) {
    if (size < sizeof the_plan.country)
        return -1;
    memcpy(country, the_plan.country, sizeof the_plan.country);
    kex_timer_start(plugin_timer, 0); // the table has the plugin when this call is over
    return 0;
}

bool is_plain_name(const char *name) {
    if (*name == 0)
        return false;
    for (; *name != 0; name++)
        if (*name <= ' ' || *name > '~' || *name == '.' || *name == '"')
            return false;
    return true;
}

const char *refuse_endpoint(const libvoice_endpoint_t *entry) {
    char path[LIBVOICE_ENDPOINT_PATH_BYTES];
    if (!is_plain_name(entry->name) || !is_plain_name(entry->plugin_table->plugin_name))
        return "bad name";
    snprintf(path, sizeof path, "%s.EndPoint.%s", entry->plugin_table->plugin_name, entry->name);
    if (strcmp(entry->endpoint_path, path) != 0)
        return "its path is not that of its plugin";
    for (const libvoice_endpoint_t &other : endpt_table)
        if (&other != entry && other.used && strcmp(other.endpoint_path, path) == 0)
            return "registered already";
    if (entry->type < VOICE_ENDPOINT_FXS || entry->type > VOICE_ENDPOINT_FXO)
        return "unknown type";
    return nullptr;
}

void give_number(line *line, const libvoice_endpoint_t *entry) {
    const char *name = entry->name;
    const plan_number *row = plan_find(&the_plan, line->plugin, name);
    if (row != nullptr)
        memcpy(line->number, row->number, sizeof line->number);
    else if (!plan_default_number(line->type, line->plugin, name, line->number))
        line->number[0] = 0;
    for (const struct line &other : lines)
        if (&other != line && other.used && strcmp(other.number, line->number) == 0)
            line->number[0] = 0; // taken: this one can call, but not be called
    snprintf(line->name, sizeof line->name, "%s", row != nullptr && row->name[0] != 0 ? row->name : name);
    static_assert(sizeof line->label >= sizeof line->number);
    if (line->number[0] != 0)
        memcpy(line->label, line->number, sizeof line->number);
    else
        snprintf(line->label, sizeof line->label, "%s.%s", entry->plugin_table->plugin_name, name);
}

int32_t app_register_endpoint(libvoice_endpoint_t *entry) {
    int32_t endpoint = static_cast<int32_t>(entry - endpt_table);
    entry->endpoint = endpoint;
    say_new_plugins();
    const char *wrong = refuse_endpoint(entry);
    if (wrong != nullptr) {
        say("endpoint refused plugin=%s: %s", entry->plugin_table->plugin_name, wrong);
        return 1;
    }
    line *line = &lines[endpoint];
    memset(line, 0, sizeof *line);
    line->used = true;
    line->reachable = true;
    line->endpoint = endpoint;
    line->type = entry->type;
    snprintf(line->plugin, sizeof line->plugin, "%s", entry->plugin_table->plugin_name);
    give_number(line, entry);

    char codecs[128] = "";
    size_t used = 0;
    for (uint32_t i = 0; i < entry->num_of_codecs && i < LIBVOICE_ENDPOINT_CODECS && used < sizeof codecs - 20; i++) {
        voice_codec_t codec;
        memcpy(&codec, entry->codec_list[i].bytes, sizeof codec);
        used += static_cast<size_t>(
            snprintf(codecs + used, sizeof codecs - used, "%s%s", i == 0 ? "" : ",", codec_name(codec.codec)));
    }
    say("endpoint %d %s.%s number=%s codecs=%s", endpoint, line->plugin, entry->name,
        line->number[0] != 0 ? line->number : "none", codecs);

    // Requests sent from here wait in the plugin until it has our answer.
    libvoice_set_params(endpoint, LIBVOICE_PARAM_zil_ep_dispname, line->name,
                        static_cast<uint32_t>(strlen(line->name) + 1));
    if (line->type == VOICE_ENDPOINT_DECT)
        libvoice_get_params(endpoint, LIBVOICE_PARAM_zil_dect_pp_type, static_cast<uint32_t>(endpoint));
    return 0;
}

void app_endpoint_deleted(libvoice_endpoint_t *entry) {
    line *line = line_of_endpoint(static_cast<int32_t>(entry - endpt_table));
    if (line == nullptr)
        return; // one that we refused
    say("endpoint %d %s.%s gone", line->endpoint, line->plugin, entry->name);
    line_gone(line, "is gone");
}

void take_cause(line *line, const voice_event_t *head, const uint8_t *params) {
    int32_t cause = 0;
    char text[80] = "media failed", why[160];
    params_int(params, head->length, LIBVOICE_PARAM_g_cause_generalcause, &cause);
    params_text(params, head->length, LIBVOICE_PARAM_g_cause_failurecause, text, sizeof text);
    snprintf(why, sizeof why, "%s: %s (cause %d)", line->label, text, cause);
    line_failed(line, head->line, why);
}

void take_exchange_ring(line *line, const voice_event_t *head, const uint8_t *params) {
    char text[LIBVOICE_DB_TEXT_BYTES * 2];
    char number[21] = "", name[51] = ""; // one more than the capacity told: the decoder terminates there
    if (params_text(params, head->length, LIBVOICE_PARAM_fxo_ri_cid, text, sizeof text)) {
        libvoice_db_common_fields common = {};
        common.calling_number = {number, 20};
        libvoice_db_message_fields fields = {};
        fields.name = {name, 50};
        libvoice_db_call_setup_decode(text, static_cast<uint32_t>(strlen(text)), &fields, &common);
    }
    exchange_rings(line, number, name);
}

void take_dect_property(const line *line, const voice_event_t *head, const uint8_t *params) {
    char software[40] = "?", hardware[40] = "?";
    int32_t reachable = 0;
    params_text(params, head->length, LIBVOICE_PARAM_zil_dect_property_sw_version, software, sizeof software);
    params_text(params, head->length, LIBVOICE_PARAM_zil_dect_property_hw_version, hardware, sizeof hardware);
    params_int(params, head->length, LIBVOICE_PARAM_zil_dect_property_reachability_status, &reachable);
    say("handset %s software=%s hardware=%s reachable=%s", line->label, software, hardware,
        reachable != 0 ? "yes" : "no");
}

int32_t app_event(libvoice_event_t *message) {
    voice_event_t head;
    memcpy(&head, message, sizeof head);
    const uint8_t *params = libvoice_event_params(message);
    line *line = line_of_endpoint(head.endpoint);
    if (line == nullptr) {
        say("event %s of unknown endpoint %d ignored", libvoice_param_str(head.event), head.endpoint);
        return 1;
    }
    static const char keys[] = "0123456789ABCD*#";
    static const uint32_t digits[] = {
        LIBVOICE_EVENT_dd_d0, LIBVOICE_EVENT_dd_d1, LIBVOICE_EVENT_dd_d2, LIBVOICE_EVENT_dd_d3,
        LIBVOICE_EVENT_dd_d4, LIBVOICE_EVENT_dd_d5, LIBVOICE_EVENT_dd_d6, LIBVOICE_EVENT_dd_d7,
        LIBVOICE_EVENT_dd_d8, LIBVOICE_EVENT_dd_d9, LIBVOICE_EVENT_dd_da, LIBVOICE_EVENT_dd_db,
        LIBVOICE_EVENT_dd_dc, LIBVOICE_EVENT_dd_dd, LIBVOICE_EVENT_dd_ds, LIBVOICE_EVENT_dd_do,
    };
    for (size_t i = 0; i < sizeof digits / sizeof digits[0]; i++)
        if (head.event == digits[i]) {
            line_digit(line, keys[i]);
            return 0;
        }
    switch (head.event) {
    case LIBVOICE_EVENT_al_of:
        line_off_hook(line);
        return 0;
    case LIBVOICE_EVENT_al_on:
        line_on_hook(line);
        return 0;
    case LIBVOICE_EVENT_al_fl:
        line_flash(line);
        return 0;
    case LIBVOICE_EVENT_dd_ce: { // a whole number at once, as a handset sends it
        char number[kNumberBytes];
        if (!params_text(params, head.length, LIBVOICE_PARAM_dd_ce_ds, number, sizeof number))
            return 1;
        for (const char *digit = number; *digit != 0; digit++)
            if (strchr(keys, *digit) != nullptr)
                line_digit(line, *digit);
        return 0;
    }
    case LIBVOICE_EVENT_zil_call_stats:
        take_statistics(line, &head, params);
        return 0;
    case LIBVOICE_EVENT_g_cause:
        take_cause(line, &head, params);
        return 0;
    case LIBVOICE_EVENT_fxo_ri:
        take_exchange_ring(line, &head, params);
        return 0;
    case LIBVOICE_EVENT_fxo_rh:
        exchange_released(line);
        return 0;
    case LIBVOICE_EVENT_zil_dect_property:
        take_dect_property(line, &head, params);
        return 0;
    default:
        say("event %s of %s ignored", libvoice_param_str(head.event), line->label);
        return 1;
    }
}

// Prints one parameter by the value type that its identifier carries.
void say_parameter(const char *label, uint32_t id, const uint8_t *value, uint32_t length) {
    constexpr uint32_t kInteger = 1, kString = 2, kBoolean = 4;
    const char *name = libvoice_param_str(id);
    if (strncmp(name, "LIBVOICE_PARAM_", 15) == 0)
        name += 15;
    uint32_t type = id >> 24 & 0xF;
    int32_t number = 0;
    if ((type == kInteger || type == kBoolean) && length >= sizeof number) {
        memcpy(&number, value, sizeof number);
        const char *text = id == LIBVOICE_PARAM_zil_dect_pp_type ? libvoice_dect_pp_type_str(number) : "";
        say("param %s %s=%d%s%s", label, name, number, *text != 0 ? " " : "", text);
    } else if (type == kString) {
        say("param %s %s=\"%.*s\"", label, name,
            static_cast<int>(strnlen(reinterpret_cast<const char *>(value), length)),
            reinterpret_cast<const char *>(value));
    } else {
        say("param %s %s (%u bytes)", label, name, length);
    }
}

// A "get" has been answered, or its plugin has died meanwhile. The request and its context word are ours to free.
void app_get_done(request_t *request) {
    uint32_t *context = static_cast<uint32_t *>(request_data(request));
    line *line = context == nullptr ? nullptr : line_of_endpoint(static_cast<int32_t>(*context));
    const char *label = line != nullptr ? line->label : "?";
    const void *bytes = nullptr;
    uint32_t length = 0;
    libvoice_param_set_t head = {};
    bool good = _reply_ok(request_reply(request)) &&
                variant_toByteArray(_reply_return_value(request_reply(request)), &bytes, &length) &&
                length >= sizeof head;
    if (good) {
        memcpy(&head, bytes, sizeof head);
        good = head.length <= length - sizeof head;
    }
    if (!good) {
        say("param %s: no answer", label);
    } else {
        uint8_t copy[1024]; // the items stand on word boundaries here
        uint32_t remaining = head.length < sizeof copy ? head.length : static_cast<uint32_t>(sizeof copy);
        memcpy(copy, static_cast<const uint8_t *>(bytes) + sizeof head, remaining);
        uint8_t *cursor = copy;
        while (remaining > 0) {
            uint32_t id = 0, size = 0;
            uint8_t *value = nullptr;
            if (libvoice_get_current_param(&id, &size, &value, &cursor, &remaining) != LIBVOICE_OK || value == nullptr)
                break;
            if (id != LIBVOICE_PARAM_zil_ep_id)
                say_parameter(label, id, value, size);
        }
    }
    free(context);
    request_destroy(request);
}

// A connection has closed. The entry may be free already, when the plugin had taken its leave.
void peer_closed(kex_t *, peer_t *peer, void *) {
    say_new_plugins(); // one that came and went at once is told of too
    for (uint32_t i = 0; i < LIBVOICE_PLUGINS; i++) {
        if (voice_plugin_table[i].peer != peer)
            continue;
        if (!voice_plugin_table[i].used) {
            if (known_plugins[i][0] != 0)
                say("plugin %s left", known_plugins[i]);
            known_plugins[i][0] = 0;
            continue;
        }
        say("plugin %s lost", voice_plugin_table[i].plugin_name);
        // Its lines go one by one; none of them must be sent anything on behalf of the others.
        for (line &line : lines)
            if (line.used && endpt_table[line.endpoint].plugin_table == &voice_plugin_table[i])
                line.reachable = false;
        libvoice_plugin_deregister_by_peer(peer);
        known_plugins[i][0] = 0;
    }
}

// --------------------------------------------------------------------------------------------------------- Commands

const char *print_status() {
    answer("country %s, codecs %s, media by %s", the_plan.country, the_plan.codec_count == 0 ? "any" : "by plan",
           libvoice_get_convert_media() ? "address" : "descriptor");
    for (const voice_plugin_entry_t &entry : voice_plugin_table)
        if (entry.used)
            answer("plugin %s process=%d", entry.plugin_name, peer_processId(entry.peer));
    for (const line &line : lines)
        if (line.used)
            answer("line %s %s endpoint=%d %s.%s \"%s\"", line.label, line_state_name(line.state), line.endpoint,
                   line.plugin, endpt_table[line.endpoint].name, line.name);
    return nullptr;
}

const char *print_calls() {
    static const char *const states[] = {"ringing", "talking", "held"};
    for (const call &call : calls)
        if (call.used)
            answer("call %u %s %s codec=%s ports=%u,%u", call.id, call_text(&call), states[call.state],
                   codec_name(call.codec.codec), call.from.port, call.to.port);
    return nullptr;
}

const char *message_waiting(line *line, const char *count) {
    long messages;
    if (!read_number(count, 0, 255, &messages))
        return "mwi LINE COUNT: the count is a number from 0 to 255";
    char now_text[16];
    time_t now = time(nullptr);
    struct tm parts;
    localtime_r(&now, &parts);
    strftime(now_text, sizeof now_text, "%m%d%H%M", &parts);
    uint8_t lamp = messages > 0 ? 0xFF : 0x00; // what the standard gives the indicator
    uint8_t waiting = static_cast<uint8_t>(messages);
    libvoice_db_common_fields common = {};
    common.date_time = {now_text, 8};
    libvoice_db_message_fields fields = {};
    fields.slot2 = {&lamp, 1};
    fields.messages = {&waiting, 1};
    char text[LIBVOICE_DB_TEXT_BYTES];
    uint32_t length = 0;
    libvoice_db_message_waiting_encode(&fields, &common, text, &length);
    signal_message message;
    signal_begin(&message, line->endpoint, LIBVOICE_SIGNAL_andisp_data, 0);
    signal_add_bytes(&message, LIBVOICE_PARAM_andisp_data_db, text, length);
    signal_send(&message);
    return nullptr;
}

const char *change_codec(line *line, const char *name) {
    const voice_codec_t *wanted = name == nullptr ? nullptr : codec_by_name(name);
    call *call = line->calls[line->active];
    if (wanted == nullptr)
        return "codec LINE CODEC: a codec like PCMA, PCMU, G722";
    if (call == nullptr || call->state != CALL_TALKING)
        return refuse("%s is not talking", line->label);
    voice_codec_t codec = {};
    for (const party *side : {&call->from, &call->to})
        if (!media_offers(side->who, wanted->codec, &codec))
            return refuse("%s does not offer %s", side->who->label, codec_name(wanted->codec));
    call->codec = codec;
    const char *wrong = media_change(call, VOICE_MODE_SEND_RECEIVE);
    if (wrong != nullptr)
        return wrong;
    say("call %u %s codec=%s", call->id, call_text(call), codec_name(codec.codec));
    return nullptr;
}

uint32_t parameter_of_text(const char *name) {
    char full[80];
    if (name == nullptr)
        return 0xFFFFFFFF;
    snprintf(full, sizeof full, "LIBVOICE_PARAM_%s", name);
    uint32_t id = libvoice_str_to_param(full);
    return id != 0xFFFFFFFF ? id : libvoice_str_to_param(name);
}

const char *set_parameter(const line *line, const char *name, const char *value) {
    constexpr uint32_t kInteger = 1, kString = 2, kBoolean = 4;
    uint32_t id = parameter_of_text(name);
    if (id == 0xFFFFFFFF || value == nullptr)
        return "set LINE PARAMETER VALUE: for example set 101 tdmc_gain -3";
    uint32_t type = id >> 24 & 0xF;
    long number;
    int sent;
    if (type == kString) {
        sent = libvoice_set_params(line->endpoint, id, value, static_cast<uint32_t>(strlen(value) + 1));
    } else if ((type == kInteger || type == kBoolean) && read_number(value, INT32_MIN, INT32_MAX, &number)) {
        int32_t word = static_cast<int32_t>(number);
        sent = libvoice_set_params(line->endpoint, id, &word, sizeof word);
    } else {
        return refuse("'%s' is no value of %s", value, name);
    }
    return sent ? nullptr : "not sent";
}

const char *get_parameter(const line *line, const char *name) {
    uint32_t id = parameter_of_text(name);
    if (id == 0xFFFFFFFF)
        return "get LINE PARAMETER: for example get 101 tdmc_gain";
    return libvoice_get_params(line->endpoint, id, static_cast<uint32_t>(line->endpoint)) ? nullptr : "not sent";
}

const char *hang_up_call(const char *text) {
    long id;
    if (!read_number(text, 1, INT32_MAX, &id))
        return "hangup CALL: the number of a call";
    for (call &call : calls)
        if (call.used && call.id == static_cast<uint32_t>(id)) {
            end_call(&call, nullptr, "ended by command");
            return nullptr;
        }
    return refuse("there is no call %ld", id);
}

const char *command(char *text) {
    char *rest = text;
    const char *verb = next_word(&rest);
    const char *first = next_word(&rest);
    const char *second = next_word(&rest);
    if (strcmp(verb, "status") == 0)
        return print_status();
    if (strcmp(verb, "calls") == 0)
        return print_calls();
    if (strcmp(verb, "stats") == 0)
        return print_statistics();
    if (strcmp(verb, "hangup") == 0)
        return hang_up_call(first);
    if (strcmp(verb, "dsp") == 0)
        return dsp_command(first, second, next_word(&rest));
    if (strcmp(verb, "help") == 0) {
        answer("status | calls | stats | hangup CALL | mwi LINE COUNT | codec LINE CODEC");
        answer("set LINE PARAMETER VALUE | get LINE PARAMETER | flash LINE | deregister LINE |");
        answer("dsp PLUGIN [codec CODEC | destroy] | watch | quit");
        return nullptr;
    }
    if (strcmp(verb, "quit") == 0) {
        host_terminate();
        return nullptr;
    }
    static const char *const of_lines[] = {"mwi", "codec", "set", "get", "flash", "deregister"};
    bool is_of_line = false;
    for (const char *known : of_lines)
        is_of_line = is_of_line || strcmp(verb, known) == 0;
    if (!is_of_line)
        return refuse("unknown command '%s'; try help", verb);
    line *line = line_of_text(first);
    if (line == nullptr)
        return refuse("there is no line '%s'", first == nullptr ? "" : first);
    if (strcmp(verb, "mwi") == 0)
        return message_waiting(line, second);
    if (strcmp(verb, "codec") == 0)
        return change_codec(line, second);
    if (strcmp(verb, "set") == 0)
        return set_parameter(line, second, next_word(&rest));
    if (strcmp(verb, "get") == 0)
        return get_parameter(line, second);
    if (strcmp(verb, "flash") == 0) {
        if (line->type != VOICE_ENDPOINT_FXO)
            return refuse("%s is no exchange line", line->label);
        line_signal(line, LIBVOICE_SIGNAL_fxo_fl);
        return nullptr;
    }
    line_signal(line, LIBVOICE_SIGNAL_zil_deregister);
    return nullptr;
}

void read_options(int count, char **words) {
    enum { CONFIG = 1 };
    static const option options[] = {{"config", required_argument, nullptr, CONFIG}, HOST_OPTIONS};
    const char *config = nullptr;
    for (int code; (code = getopt_long(count, words, "", options, nullptr)) != -1;) {
        if (code == CONFIG)
            config = optarg;
        else
            host_option(code, optarg, kHelp);
    }
    if (optind < count)
        host_usage_error("'%s' is no option", words[optind]);
    const char *wrong = config == nullptr ? nullptr : plan_load(&the_plan, config);
    if (wrong != nullptr)
        host_fail("%s", wrong);
}

} // namespace

int main(int count, char **words) {
    read_options(count, words);
    kex_t *bus = host_start("voice_application");
    if (kex_declareObject(bus, LIBVOICE_APPLICATION_PATH, LIBVOICE_APPLICATION_CLASS) == nullptr)
        host_fail("cannot declare %s", LIBVOICE_APPLICATION_PATH);
    kex_onPeerClosed(bus, peer_closed, nullptr);
    plugin_timer = kex_timer_create();
    kex_timer_setHandler(plugin_timer, [](kex_timer_t *) { say_new_plugins(); });

    libvoice_app_callbacks_t callbacks = {};
    callbacks.voice_app_get_country = app_get_country;
    callbacks.voice_app_event = app_event;
    callbacks.voice_app_register_endpoint = app_register_endpoint;
    callbacks.voice_app_endpoint_deleted = app_endpoint_deleted;
    callbacks.voice_app_get_done = app_get_done;
    // voice_app_init_reply stays unset: a plugin whose init fails ends its process, which peer_closed() sees, and with
    // the slot set the request to a plugin for whom the table has no room would never be given back.
    libvoice_app_init(callbacks);
    libvoice_plugin_init_table();

    const char *socket = libvoice_get_ipc_socket();
    if (libvoice_app_connect(kex_connection(bus), socket) == nullptr)
        host_fail("cannot listen on %s", socket);
    bool keep_going = host_control_path() != nullptr || !host_reads_stdin();
    if (!console_start(bus, host_reads_stdin(), host_control_path(), keep_going, command, host_terminate))
        return kExitFailure;
    say("ready socket=%s country=%s", socket, the_plan.country);

    int result = host_run(host_stop);
    console_stop();
    kex_timer_destroy(plugin_timer);
    host_end();
    return result;
}
