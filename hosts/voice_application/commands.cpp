// SPDX-License-Identifier: MIT
// The commands of voice_application.
#include "commands.h"

#include "caller_display.h"
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

namespace {

const char *status_print() {
    answer("country %s, codecs %s, media by %s", the_plan.country, the_plan.codec_count == 0 ? "any" : "by plan",
           libvoice_get_convert_media() ? "address" : "descriptor");
    for (const voice_plugin_entry_t &entry : voice_plugin_table)
        if (entry.used)
            answer("plugin %s process=%d", entry.plugin_name, peer_processId(entry.peer));
    for (const line &who : lines)
        if (who.used)
            answer("line %s %s endpoint=%d %s.%s \"%s\"", who.label, line_state_name(who.state), who.endpoint,
                   who.plugin, endpt_table[who.endpoint].name, who.name);
    return nullptr;
}

const char *calls_print() {
    static const char *const states[] = {"ringing", "talking", "held"};
    for (const call &it : calls)
        if (it.used)
            answer("call %u %s %s codec=%s ports=%u,%u", it.id, call_text(&it), states[it.state],
                   codec_name(it.codec.codec), it.from.port, it.to.port);
    return nullptr;
}

const char *line_show_messages(line *who, const char *count) {
    long messages;
    if (who->type == VOICE_ENDPOINT_FXO)
        return command_error("%s is an exchange line", who->label);
    if (!word_to_number(count, 0, 255, &messages))
        return "mwi LINE COUNT: the count is a number from 0 to 255";
    char text[LIBVOICE_DB_TEXT_BYTES];
    uint32_t length = message_display_encode(static_cast<uint8_t>(messages), text);
    voice_signal_message_t message;
    voice_signal_begin(&message, who->endpoint, LIBVOICE_SIGNAL_andisp_data, 0);
    voice_signal_add_bytes(&message, LIBVOICE_PARAM_andisp_data_db, text, length);
    voice_signal_send(&message);
    return nullptr;
}

const char *line_change_codec(line *who, const char *name) {
    const voice_codec_t *wanted = name == nullptr ? nullptr : codec_by_name(name);
    if (wanted != nullptr && !voice_codec_is_audio(wanted->codec))
        return command_error("%s carries no voice", codec_name(wanted->codec));
    call *it = who->calls[who->active];
    if (wanted == nullptr)
        return "codec LINE CODEC: a codec like PCMA, PCMU, G722";
    if (it == nullptr || it->state != CALL_TALKING)
        return command_error("%s is not talking", who->label);
    voice_codec_t codec = {};
    for (const party *own : {&it->from, &it->to})
        if (!media_offers(own->who, wanted->codec, &codec))
            return command_error("%s does not offer %s", own->who->label, codec_name(wanted->codec));
    media_offers(it->from.who, wanted->codec, &codec); // the caller's payload type, as that of its telephone events
    it->codec = codec;
    const char *wrong = media_change(it, VOICE_MODE_SEND_RECEIVE);
    if (wrong != nullptr) {
        call_end(it, nullptr, wrong); // what is left of its media would be silent, or of two codecs
        return wrong;
    }
    say("call %u %s codec=%s", it->id, call_text(it), codec_name(codec.codec));
    return nullptr;
}

const char *call_hang_up(const char *text) {
    long id;
    if (!word_to_number(text, 1, INT32_MAX, &id))
        return "hangup CALL: the number of a call";
    for (call &it : calls)
        if (it.used && it.id == static_cast<uint32_t>(id)) {
            call_end(&it, nullptr, "ended by command");
            return nullptr;
        }
    return command_error("there is no call %ld", id);
}

// ------------------------------------------------------------------------------------------------ The table of them

const char *help_print(char **) {
    answer("status | calls | stats | hangup CALL | mwi LINE COUNT | codec LINE CODEC");
    answer("set LINE PARAMETER VALUE | get LINE PARAMETER | flash LINE | deregister LINE |");
    answer("dsp PLUGIN [codec CODEC | destroy] | watch | quit");
    return nullptr;
}

const char *application_leave(char **) {
    host_terminate();
    return nullptr;
}

const char *dsp_drive(char **rest) {
    const char *plugin = word_next(rest);
    const char *verb = word_next(rest);
    return dsp_command(plugin, verb, word_next(rest));
}

struct command {
    const char *verb;
    const char *(*run)(char **rest); // with the words behind the verb
};

constexpr command kCommands[] = {
    {"status", [](char **) { return status_print(); }},
    {"calls", [](char **) { return calls_print(); }},
    {"stats", [](char **) { return statistics_print(); }},
    {"hangup", [](char **rest) { return call_hang_up(word_next(rest)); }},
    {"dsp", dsp_drive},
    {"help", help_print},
    {"quit", application_leave},
};

const char *line_set_parameter(line *who, char **rest) {
    const char *name = word_next(rest);
    return parameter_set(who, name, word_next(rest));
}

const char *exchange_flash(line *who, char **) {
    if (who->type != VOICE_ENDPOINT_FXO)
        return command_error("%s is no exchange line", who->label);
    line_signal(who, LIBVOICE_SIGNAL_fxo_fl);
    return nullptr;
}

const char *handset_ask_to_leave(line *who, char **) {
    if (who->type != VOICE_ENDPOINT_DECT)
        return command_error("%s is no handset", who->label);
    line_signal(who, LIBVOICE_SIGNAL_zil_deregister);
    return nullptr;
}

struct line_command {
    const char *verb;
    const char *(*run)(line *who, char **rest); // with the words behind the line
};

constexpr line_command kLineCommands[] = {
    {"mwi", [](line *who, char **rest) { return line_show_messages(who, word_next(rest)); }},
    {"codec", [](line *who, char **rest) { return line_change_codec(who, word_next(rest)); }},
    {"set", line_set_parameter},
    {"get", [](line *who, char **rest) { return parameter_get(who, word_next(rest)); }},
    {"flash", exchange_flash},
    {"deregister", handset_ask_to_leave},
};

const char *line_command_run(const line_command &known, char **rest) {
    const char *text = word_next(rest);
    line *who = line_of_text(text);
    if (who == nullptr)
        return command_error("there is no line '%s'", text == nullptr ? "" : text);
    return known.run(who, rest);
}

} // namespace

const char *command_run(char *text) {
    char *rest = text;
    const char *verb = word_next(&rest);
    for (const command &known : kCommands)
        if (strcmp(verb, known.verb) == 0)
            return known.run(&rest);
    for (const line_command &known : kLineCommands)
        if (strcmp(verb, known.verb) == 0)
            return line_command_run(known, &rest);
    return command_error("unknown command '%s'; try help", verb);
}
