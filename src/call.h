// SPDX-License-Identifier: MIT
// Helpers of handlers: reading the arguments of a call that has arrived, adding to its reply, ending it.
//
// A handler reads top to bottom like its contract: enter, find the object, read in order, check, run the callback,
// reply, destroy, leave. The text of a trace message, the name in an error entry and the name of an argument are three
// separate literals, because in some handlers they differ on purpose.
#ifndef VOICE_CALL_H
#define VOICE_CALL_H

#include <string.h> // memcpy

#include "libvoice_plugin.h"
#include "owned.h"
#include "trace.h"

namespace voice {

constexpr int kCallDone = KEX_FUNCTION_DONE;
constexpr int kCallFailed = KEX_FUNCTION_FAILED;

constexpr uint32_t kErrorOwnSentence = 196638; // 0x3001E: the description says what is missing
constexpr uint32_t kErrorMissing = 196640;     // 0x30020: "Missing mandatory argument"
constexpr uint32_t kLookUp = 1;                // the flag word of names and look-ups in the data model

constexpr int status_of(bool done) {
    return done ? kCallDone : kCallFailed;
}

// How a handler reads its arguments: most pass the request's attributes on, those of contexts pass none.
enum class Attributes { of_request, none };

// A call as its handler sees it. `function` is the handler's name, for the trace messages of its body.
class Call {
public:
    Call(function_call_t *call, argument_list_t *arguments, const char *function_name,
         Attributes attributes = Attributes::of_request)
        : function(function_name), call_(call), arguments_(arguments),
          attributes_(attributes == Attributes::none ? 0 : request_attributes(fcall_request(call))) {}

    const char *const function;

    // Readers: no for an argument that is missing.
    bool read_text(const char *name, Text &text) {
        return argument_getChar(arguments_, name, attributes_, text.out()) != 0;
    }
    bool read_bytes(const char *name, Bytes &bytes) {
        return argument_getByteArray(arguments_, name, attributes_, bytes.out(), bytes.out_length()) != 0;
    }
    bool read_list(const char *name, List &list) {
        return argument_getList(arguments_, name, attributes_, list.out()) != 0;
    }
    bool read_u16(const char *name, uint16_t &value) {
        return argument_getUInt16(arguments_, name, attributes_, &value) != 0;
    }
    bool read_u32(const char *name, uint32_t &value) {
        return argument_getUInt32(arguments_, name, attributes_, &value) != 0;
    }
    bool read_i32(const char *name, int32_t &value) {
        return argument_getInt32(arguments_, name, attributes_, &value) != 0;
    }
    // The same where an argument without a value counts as missing.
    bool read_value(const char *name, Text &text) { return read_text(name, text) && text.get(); }
    bool read_value(const char *name, Bytes &bytes) { return read_bytes(name, bytes) && bytes.data(); }

    void error(uint32_t code, const char *description, const char *info) {
        reply_addError(request_reply(fcall_request(call_)), code, description, info);
    }
    void missing_argument(const char *info) { error(kErrorMissing, "Missing mandatory argument", info); }

    object_t *object() const { return fcall_object(call_); }
    const char *object_name() const { return ::object_name(fcall_object(call_), kLookUp); }
    peer_t *peer() const { return fcall_peer(call_); }

private:
    function_call_t *call_;
    argument_list_t *arguments_;
    uint32_t attributes_;
};

// The list of "filedesc" and how many of its descriptors a call takes; 0 after the caller's trace message when there
// are none.
inline int filedesc_read(Call &c, List &list, Where here) {
    if (!c.read_list("filedesc", list)) {
        TRACE_ERROR_AT(here, "Missing argument filedesc");
        c.missing_argument("filedesc");
        return 0;
    }
    const uint32_t size = variant_list_size(list.get());
    if (size == 0)
        TRACE_ERROR_AT(here, "Empty argument filedesc");
    return size < LIBVOICE_DESCRIPTORS ? static_cast<int>(size) : LIBVOICE_DESCRIPTORS;
}

// The usual end of a call: boolean reply, destroy, exit marker at the caller's place.
inline int call_end(bool done, function_call_t *call, variant_t *return_value, Where here = Where::caller()) {
    variant_setBool(return_value, done);
    fcall_destroy(call);
    trace_leave(here);
    return status_of(done);
}

// A record that has arrived. Null, and one trace message, when it is shorter than its head or announces more than what
// arrived. Bytes after the announced ones are accepted.
template <typename Head>
Head *record_validate(const Bytes &bytes, Where here) {
    Head head = {};
    if (bytes.length() >= sizeof(Head))
        memcpy(&head, bytes.data(), sizeof(Head));
    if (bytes.length() < sizeof(Head) || head.length > bytes.length() - sizeof(Head)) {
        TRACE_ERROR_AT(here, "Malformed message: %lu bytes, parameter length %lu",
                       static_cast<unsigned long>(bytes.length()), static_cast<unsigned long>(head.length));
        return nullptr;
    }
    return static_cast<Head *>(bytes.block()); // what malloc() gave, aligned for any head
}

// The same with its pointer word set to its own parameter bytes when it has any.
template <typename Head>
Head *record_take(const Bytes &bytes, Where here) {
    Head *record = record_validate<Head>(bytes, here);
    if (record && record->length != 0)
        record->params = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(bytes.data() + sizeof(Head)));
    return record;
}

} // namespace voice

#endif
