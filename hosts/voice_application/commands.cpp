// SPDX-License-Identifier: MIT
// The commands of voice_application.
#include "commands.h"

#include "calls.h"
#include "codecs.h"
#include "console.h"
#include "dsp.h"
#include "host.h"
#include "kex_host.h"
#include "media.h"
#include "parameters.h"
#include "statistics.h"

#include <initializer_list>
#include <string.h>
#include <time.h>

namespace {

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

} // namespace

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
        return print_statistics(), nullptr;
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
