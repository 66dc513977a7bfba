// SPDX-License-Identifier: MIT
// The functions that the bus calls in a DSP plugin: making DSPs and channels, and driving a channel.
//
// Each handler ends in two returns that differ in one word: the exit marker shows the source line it was written from,
// and each exit owes its own.
#include "call.h"
#include "libvoice_plugin.h"
#include "text.h"
#include "trace.h"

using voice::Bytes;
using voice::Call;
using voice::call_end;
using voice::Descriptors;
using voice::kLookUp;
using voice::List;
using voice::Text;

extern "C" {
libvoice_dsp_callbacks_t libvoice_dsp_registered_callbacks;
}

namespace {

bool name_read(Call &c, Text &name) {
    if (c.read_value("name", name))
        return true;
    TRACE_ERROR_AS(c.function, "Missing 'name' parameter.");
    c.error(voice::kErrorOwnSentence, "Missing 'name' parameter.", "name");
    return false;
}

// Makes an instance of the template below the called object that has no instance of that name yet.
bool instance_create(const Call &c, object_t *kind, const char *name) {
    object_t *instance = object_createInstance(kind, 0, name);
    if (!instance) {
        // Kept: the trace message says 'DSP' for channels too.
        TRACE_ERROR_AS(c.function, "Failed to create instance of 'DSP'.");
        return false;
    }
    if (!object_commit(instance)) {
        TRACE_ERROR_AS(c.function, "Failed to commit object.");
        return false;
    }
    return true;
}

bool dsp_create(Call &c) {
    Text name;
    if (!name_read(c, name))
        return false;
    TRACE_INFO_AS(c.function, "dsp_channel_name '%s'", name.get()); // Kept: the same label as for a channel.
    object_t *kind = object_getObject(c.object(), "DSP", kLookUp, nullptr);
    if (object_getObject(kind, name.get(), kLookUp, nullptr)) {
        TRACE_ERROR_AS(c.function, "DSP with name '%s' already exists in datamodel.", name.get());
        return false;
    }
    return instance_create(c, kind, name.get());
}

bool channel_create(Call &c) {
    Text name;
    if (!name_read(c, name))
        return false;
    TRACE_INFO_AS(c.function, "\n dsp_channel_name '%s'\n", name.get());
    object_t *kind = object_getObject(c.object(), "DSP_CHANNEL", kLookUp, nullptr);
    if (object_getObject(kind, name.get(), kLookUp, nullptr)) {
        TRACE_ERROR_AS(c.function, "DSP Channel with name '%s' already exists in datamodel.", name.get());
        return false;
    }
    return instance_create(c, kind, name.get());
}

// What a callback knows the called channel by; never null.
const char *channel_name(const Call &c) {
    return voice::or_empty(c.object_name());
}

bool signal_play(Call &c) {
    Bytes signal;
    if (!c.read_bytes("signal", signal)) {
        TRACE_ERROR_AS(c.function, "Missing argument cnx_info"); // Kept: reported under this name.
        c.missing_argument("cnx_info");
        return false;
    }
    const auto callback = libvoice_dsp_registered_callbacks.dsp_plugin_signal;
    if (!callback) {
        TRACE_ERROR_AS(c.function, "Call back dsp_plugin_signal is not set");
        return false;
    }
    auto *message = voice::record_validate<libvoice_signal_t>(signal, voice::Where::caller(c.function));
    if (!message)
        return false;
    const char *channel = channel_name(c);
    if (callback(channel, message) != 0) {
        TRACE_ERROR_AS(c.function, "Error running dsp_plugin_signal(%s, %p)", channel, static_cast<void *>(message));
        return false;
    }
    return true;
}

// What create and modify read first. Returns how many descriptors there are to take; 0 fails the call.
int media_read(Call &c, Bytes &cnx_info, List &filedesc) {
    if (!c.read_value("cnx_info", cnx_info)) {
        TRACE_ERROR_AS(c.function, "Missing argument cnx_info");
        c.missing_argument("cnx_info");
        return 0;
    }
    return voice::filedesc_read(c, filedesc, voice::Where::caller(c.function));
}

bool line_read(Call &c, uint32_t &line) {
    if (c.read_u32("ep_line_id", line))
        return true;
    TRACE_ERROR_AS(c.function, "Missing argument ep_line_id");
    c.missing_argument("filedesc"); // Kept: the reply names the descriptor list.
    TRACE_ERROR_Z_AT(voice::Zone::call_hold, voice::Where::caller(c.function), ""); // Kept: an empty trace message.
    return false;
}

bool media_create(Call &c) {
    Descriptors descriptors;
    Bytes cnx_info;
    List filedesc;
    const int count = media_read(c, cnx_info, filedesc);
    if (count == 0)
        return false;
    Text endpoint_path;
    if (!c.read_value("endpoint_path", endpoint_path)) {
        TRACE_ERROR_AS(c.function, "Missing argument endpoint_path");
        c.missing_argument("endpoint_path");
        return false;
    }
    for (int i = 0; i < count; ++i)
        TRACE_INFO_AS(c.function, "\nfd[%d] = %d \n", i, descriptors.take(filedesc.get(), i));
    filedesc.release();
    const char *channel = channel_name(c);
    TRACE_INFO_AS(c.function, "\nObject name = '%s' \n\n", channel);
    uint32_t line = 0;
    if (!line_read(c, line))
        return false;
    const auto callback = libvoice_dsp_registered_callbacks.dsp_plugin_create;
    if (!callback) {
        TRACE_ERROR_AS(c.function, "Call back dsp_plugin_create is not set");
        return false;
    }
    Descriptors::HandedOver handed = descriptors.hand_over();
    int32_t *array = handed.fds;
    if (callback(channel, line, cnx_info.data(), &array, endpoint_path.get()) != 0) {
        TRACE_ERROR_AS(c.function, "quibra_dsp_plugin_create FAILED ");
        return false;
    }
    return true;
}

bool media_modify(Call &c) {
    Descriptors descriptors;
    Bytes cnx_info;
    List filedesc;
    const int count = media_read(c, cnx_info, filedesc);
    if (count == 0)
        return false;
    for (int i = 0; i < count; ++i)
        TRACE_INFO_AS(c.function, "\nfd[%d] = %d\n", i, descriptors.take(filedesc.get(), i));
    filedesc.release();
    uint32_t line = 0;
    if (!line_read(c, line))
        return false;
    const auto callback = libvoice_dsp_registered_callbacks.dsp_plugin_modify;
    if (!callback) {
        TRACE_ERROR_AS(c.function, "Call back dsp_plugin_modify is not set");
        return false;
    }
    Descriptors::HandedOver handed = descriptors.hand_over();
    int32_t *array = handed.fds;
    if (callback(channel_name(c), line, cnx_info.data(), &array) != 0) {
        TRACE_ERROR_AS(c.function, "quibra_dsp_plugin_modify FAILED ");
        return false;
    }
    return true;
}

bool media_destroy(Call &c) {
    uint32_t line = 0;
    if (!c.read_u32("ep_line_id", line)) {
        TRACE_ERROR_AS(c.function, "Missing argument line_id");
        c.missing_argument("filedesc"); // Kept: as in create and modify.
        return false;
    }
    const auto callback = libvoice_dsp_registered_callbacks.dsp_plugin_destroy;
    if (!callback) {
        TRACE_ERROR_AS(c.function, "Call back dsp_plugin_modify is not set"); // Kept: modify's text.
        return false;
    }
    if (callback(channel_name(c), line) != 0) {
        TRACE_ERROR_AS(c.function, "quibra_dsp_plugin_destroy FAILED ");
        return false;
    }
    return true;
}

} // namespace

extern "C" {

void libvoice_dsp_init(libvoice_dsp_callbacks_t callbacks) {
    libvoice_dsp_registered_callbacks = callbacks;
}

// "name" text -> boolean. 196638 "Missing 'name' parameter." "name".
int __DSPPlugin_createDsp(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    TRACE_ENTER();
    Call c(call, arguments, __func__);
    if (!dsp_create(c))
        return call_end(false, call, return_value);
    return call_end(true, call, return_value);
}

// "name" text -> boolean. 196638 "Missing 'name' parameter." "name".
int __DSP_createDspChannel(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    TRACE_ENTER();
    Call c(call, arguments, __func__);
    if (!channel_create(c))
        return call_end(false, call, return_value);
    return call_end(true, call, return_value);
}

// "signal" bytes -> boolean. 196640 "cnx_info".
// The callback is given no length, so the record is measured for it; unlike other records' its pointer word stays as it
// came.
int __DSP_CHANNEL_signal(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    TRACE_ENTER();
    Call c(call, arguments, __func__);
    if (!signal_play(c))
        return call_end(false, call, return_value);
    return call_end(true, call, return_value);
}

// "cnx_info" bytes, "filedesc" descriptors, "endpoint_path" text, "ep_line_id" uint32 -> boolean.
// 196640 "cnx_info", "filedesc" (also for ep_line_id), "endpoint_path".
int __DSP_CHANNEL_create(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    TRACE_ENTER();
    Call c(call, arguments, __func__);
    if (!media_create(c))
        return call_end(false, call, return_value);
    return call_end(true, call, return_value);
}

// "cnx_info" bytes, "filedesc" descriptors, "ep_line_id" uint32 -> boolean. 196640 "cnx_info", "filedesc" (also for
// ep_line_id).
int __DSP_CHANNEL_modify(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    TRACE_ENTER();
    Call c(call, arguments, __func__);
    if (!media_modify(c))
        return call_end(false, call, return_value);
    return call_end(true, call, return_value);
}

// "ep_line_id" uint32 -> boolean. 196640 "filedesc".
int __DSP_CHANNEL_destroy(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    TRACE_ENTER();
    Call c(call, arguments, __func__);
    if (!media_destroy(c))
        return call_end(false, call, return_value);
    return call_end(true, call, return_value);
}
}
