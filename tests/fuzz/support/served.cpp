// SPDX-License-Identifier: MIT
// The functions that a fuzzed bus serves, and the requests that it makes.
#include "packets.h"

#include "require.h"

#include <cstdlib>
#include <unistd.h>

namespace fuzz {

namespace {

kex_t *serving; // whose functions the bus calls
unsigned open_requests;

struct Ends {
    unsigned replies = 0; // how often the reply handler was told the end
};

void item_read(reply_item_t *item) {
    const int32_t type = reply_item_type(item);
    require(type == REPLY_ITEM_ERROR || type == REPLY_ITEM_RETURN_VALUE, "an item is an error or a value");
    if (type == REPLY_ITEM_ERROR)
        require(reply_item_errorDescription(item) && reply_item_errorInfo(item), "an error has its texts");
    else
        require(reply_item_returnValue(item) != nullptr, "a value is there");
}

void on_reply(request_t *request, reply_item_t *item) {
    if (item != nullptr)
        return item_read(item);
    auto *ends = static_cast<Ends *>(request_data(request));
    require(++ends->replies == 1, "a request ends once");
    delete ends;
    --open_requests;
    request_destroy(request);
}

void on_done(request_t *request) {
    require(request_reply(request) != nullptr, "a request that is done has a reply");
    for (reply_item_t *item = reply_firstItem(request_reply(request)); item; item = reply_nextItem(item))
        item_read(item);
    delete static_cast<Ends *>(request_data(request));
    --open_requests;
    request_destroy(request);
}

void on_done_only(request_t *request) {
    ++static_cast<Ends *>(request_data(request))->replies;
}

request_t *request_make(Input &in) {
    static const char *const kFunctions[] = {"take", "call_back", "leave", "list", "none"};
    const char *path = in.flag() ? "Probe" : "kex";
    const char *function = kFunctions[in.below(std::size(kFunctions))];
    request_t *request = request_create_executeFunction(path, function, in.byte());
    variant_t value = {};
    variant_setByteArray(&value, "bytes", in.below(6));
    request_addParameter(request, "bytes", &value);
    variant_setFd(&value, STDIN_FILENO);
    request_addParameter(request, "fd", &value);
    variant_cleanup(&value);
    return request;
}

// Reads every argument with the getter of its name; what came as descriptors is closed.
void arguments_read(argument_list_t *arguments) {
    char *text = nullptr;
    argument_getChar(arguments, "text", 0, &text);
    free(text);
    uint16_t u16 = 0;
    argument_getUInt16(arguments, "u16", 0, &u16);
    uint32_t u32 = 0;
    argument_getUInt32(arguments, "u32", 0, &u32);
    int32_t i32 = 0;
    argument_getInt32(arguments, "i32", 0, &i32);
    void *bytes = nullptr;
    uint32_t length = 0;
    if (argument_getByteArray(arguments, "bytes", 0, &bytes, &length))
        require(bytes != nullptr || length == 0, "bytes without a value have no length");
    free(bytes);
    variant_list_t *list = nullptr;
    if (!argument_getList(arguments, "list", 0, &list) || list == nullptr)
        return;
    for (uint32_t i = 0; i < variant_list_size(list); i += 2) { // the others are the list's to close
        const int descriptor = variant_fd(variant_list_at(list, i));
        if (descriptor >= 0)
            require(close(descriptor) == 0, "a descriptor that was read is open");
    }
    variant_list_destroy(list);
}

} // namespace

void request_send(Input &in, kex_t *bus, peer_t *peer) {
    request_t *request = request_make(in);
    request_setData(request, new Ends);
    if (in.flag())
        request_setReplyHandler(request, on_reply);
    else
        request_setDoneHandler(request, on_done);
    ++open_requests;
    if (kex_sendRequest(bus, peer, request))
        return;
    --open_requests; // after a failed send no handler runs
    delete static_cast<Ends *>(request_data(request));
    request_destroy(request);
}

void request_wait(Input &in, kex_t *bus, peer_t *peer) {
    Ends ends;
    request_t *request = request_make(in);
    request_setData(request, &ends);
    request_setDoneHandler(request, on_done_only);
    const timeval limit = {0, in.flag() ? 1000 : 0};
    const bool sent = kex_sendRequest(bus, peer, request) != 0;
    if (sent && kex_waitForReply(bus, request, &limit))
        for (reply_item_t *item = reply_firstItem(request_reply(request)); item; item = reply_nextItem(item))
            item_read(item);
    require(ends.replies <= (sent ? 1u : 0u), "a request ends once");
    request_destroy(request);
}

unsigned requests_open() {
    return open_requests;
}

void functions_declare(kex_t *bus) {
    serving = bus;
    static const char *const rows[][8] = {
        {"Probe", "take", "text", "u16", "u32", "i32|number", "bytes", "list"},
        {"Probe", "call_back", "text"},
        {"Probe", "leave", nullptr},
        {"Probe", "wait", nullptr},
    };
    require(kex_declareFunctions(bus, &rows[0][0], std::size(rows), std::size(rows[0])) != 0, "functions are found");
    require(kex_declareObject(bus, "Probe", "Probe") != nullptr, "an object is declared");
}

} // namespace fuzz

extern "C" {

kex_function_t __Probe_take, __Probe_call_back, __Probe_leave, __Probe_wait;

// Reads all and answers its text, an error too when there is none.
int __Probe_take(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    char *text = nullptr;
    if (!argument_getChar(arguments, "text", request_attributes(fcall_request(call)), &text))
        reply_addError(request_reply(fcall_request(call)), 196640, "Missing mandatory argument", "text");
    fuzz::arguments_read(arguments);
    fuzz::require(fcall_peer(call) != nullptr, "a call has a peer");
    fuzz::require(object_name(fcall_object(call), 1) != nullptr, "an object has a name");
    fcall_destroy(call);
    if (text != nullptr)
        variant_setChar(return_value, text);
    free(text);
    return KEX_FUNCTION_DONE;
}

// Asks its caller something.
int __Probe_call_back(function_call_t *call, argument_list_t *, variant_t *return_value) {
    fuzz::Input none(nullptr, 0);
    fuzz::request_send(none, fuzz::serving, fcall_peer(call));
    fcall_destroy(call);
    variant_setBool(return_value, 1);
    return KEX_FUNCTION_DONE;
}

// Closes the connection that it was called on.
int __Probe_leave(function_call_t *call, argument_list_t *, variant_t *) {
    peer_disconnect(fcall_peer(call));
    fcall_destroy(call);
    return KEX_FUNCTION_FAILED;
}

// Waits for its caller, who does not answer in time.
int __Probe_wait(function_call_t *call, argument_list_t *, variant_t *) {
    fuzz::Input none(nullptr, 0);
    fuzz::request_wait(none, fuzz::serving, fcall_peer(call));
    fcall_destroy(call);
    return KEX_FUNCTION_DONE;
}

} // extern "C"
