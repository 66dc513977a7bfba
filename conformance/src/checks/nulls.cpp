// SPDX-License-Identifier: MIT
// Null handles and null texts.
#include "groups.h"
#include "host.h"
#include "request.h"

namespace conformance {

namespace {

constexpr Level kMust = Level::must;
constexpr char kSentence[] = "A null handle never crashes: creators return NULL, actions return 0 (variant_fd: -1), "
                             "destroyers do nothing.";

void variants() {
    int yes = 7;
    int16_t number = 7;
    variant_t value = {};
    expect_number("variant_initialize", lib.variant_initialize(nullptr, VARIANT_TEXT), 0);
    expect_number("variant_setChar", lib.variant_setChar(nullptr, "text"), 0);
    expect_number("variant_setBool", lib.variant_setBool(nullptr, 1), 0);
    expect_number("variant_setInt16", lib.variant_setInt16(nullptr, 1), 0);
    expect_number("variant_setInt32", lib.variant_setInt32(nullptr, 1), 0);
    expect_number("variant_setUInt16", lib.variant_setUInt16(nullptr, 1), 0);
    expect_number("variant_setUInt32", lib.variant_setUInt32(nullptr, 1), 0);
    expect_number("variant_setByteArray", lib.variant_setByteArray(nullptr, "b", 1), 0);
    expect_number("variant_setFd", lib.variant_setFd(nullptr, 1), 0);
    expect_number("variant_toBool", lib.variant_toBool(nullptr, &yes), 0);
    expect_number("variant_toInt16", lib.variant_toInt16(nullptr, &number), 0);
    expect_number("variant_fd", lib.variant_fd(nullptr), -1);
    expect(yes == 7 && number == 7, "a conversion of a null variant changed its output");
    lib.variant_cleanup(nullptr);
    expect(lib.variant_da_list(nullptr) == nullptr, "variant_da_list gives a list");
    expect_number("variant_list_add", lib.variant_list_add(nullptr, &value), 0);
    expect_number("variant_list_size", lib.variant_list_size(nullptr), 0);
    expect(lib.variant_list_at(nullptr, 0) == nullptr, "variant_list_at gives a value");
    lib.variant_list_destroy(nullptr);
}

void requests() {
    variant_t value = {};
    const timeval limit = {0, 0};
    host_begin();
    expect_number("request_addParameter", lib.request_addParameter(nullptr, "value", &value), 0);
    lib.request_setReplyHandler(nullptr, nullptr);
    lib.request_setDoneHandler(nullptr, nullptr);
    lib.request_setData(nullptr, &value);
    expect(lib.request_data(nullptr) == nullptr, "request_data gives something");
    expect_number("request_attributes", lib.request_attributes(nullptr), 0);
    expect(lib.request_reply(nullptr) == nullptr, "request_reply gives a reply");
    lib.request_destroy(nullptr);
    expect_number("kex_sendRequest", lib.kex_sendRequest(bus, nullptr, nullptr), 0);
    expect_number("kex_waitForReply", lib.kex_waitForReply(bus, nullptr, &limit), 0);
    host_end();
}

void replies() {
    expect(lib.reply_firstItem(nullptr) == nullptr, "reply_firstItem gives an item");
    expect(lib.reply_nextItem(nullptr) == nullptr, "reply_nextItem gives an item");
    expect_number("reply_item_type", lib.reply_item_type(nullptr), 0);
    expect_number("reply_item_error", lib.reply_item_error(nullptr), 0);
    expect(lib.reply_item_returnValue(nullptr) == nullptr, "reply_item_returnValue gives a value");
    lib.reply_item_errorDescription(nullptr);
    lib.reply_item_errorInfo(nullptr);
    expect_number("reply_addError", lib.reply_addError(nullptr, 1, "description", "info"), 0);
}

void calls() {
    char *text = nullptr;
    uint16_t number16 = 0;
    uint32_t number = 0;
    int32_t integer = 0;
    void *bytes = nullptr;
    variant_list_t *list = nullptr;
    expect(lib.fcall_request(nullptr) == nullptr, "fcall_request gives a request");
    expect(lib.fcall_object(nullptr) == nullptr, "fcall_object gives an object");
    expect(lib.fcall_peer(nullptr) == nullptr, "fcall_peer gives a peer");
    lib.fcall_destroy(nullptr);
    expect(lib.object_name(nullptr, 1) == nullptr, "object_name gives a name");
    expect_number("argument_getChar", lib.argument_getChar(nullptr, "value", 0, &text), 0);
    expect_number("argument_getUInt16", lib.argument_getUInt16(nullptr, "value", 0, &number16), 0);
    expect_number("argument_getUInt32", lib.argument_getUInt32(nullptr, "value", 0, &number), 0);
    expect_number("argument_getInt32", lib.argument_getInt32(nullptr, "value", 0, &integer), 0);
    expect_number("argument_getByteArray", lib.argument_getByteArray(nullptr, "value", 0, &bytes, &number), 0);
    expect_number("argument_getList", lib.argument_getList(nullptr, "value", 0, &list), 0);
}

void peers() {
    host_begin();
    expect(lib.kex_client_connect(nullptr, "kex://ipc:[/nowhere]") == nullptr, "kex_client_connect gives a peer");
    expect(lib.connection_listenOnIPC(nullptr, "/nowhere") == nullptr, "connection_listenOnIPC gives a peer");
    expect_number("peer_setEventHandler", lib.peer_setEventHandler(nullptr, PEER_EVENT_CLOSED, nullptr, nullptr), 0);
    request_t *r = request_make();
    expect_number("kex_sendRequest", lib.kex_sendRequest(bus, nullptr, r), 0);
    expect_number("kex_sendRequest without a bus", lib.kex_sendRequest(nullptr, nullptr, r), 0);
    expect_number("kex_waitForReply without a bus", lib.kex_waitForReply(nullptr, r, nullptr), 0);
    lib.request_destroy(r);
    host_end();
}

void timers() {
    lib.kex_timer_setHandler(nullptr, nullptr);
    expect_number("kex_timer_start", lib.kex_timer_start(nullptr, 1), 0);
    lib.kex_timer_destroy(nullptr);
}

void objects() {
    expect(lib.kex_getObject(nullptr, "Conformance", 0) == nullptr, "kex_getObject gives an object");
    expect(lib.object_getObject(nullptr, "Item", 0, nullptr) == nullptr, "object_getObject gives an object");
    expect(lib.object_createInstance(nullptr, 0, "one") == nullptr, "object_createInstance gives an object");
    expect_number("object_delete", lib.object_delete(nullptr), 0);
    expect_number("object_commit", lib.object_commit(nullptr), 0);
}

void texts() {
    variant_t value = {};
    host_begin();
    expect_number("variant_setChar", lib.variant_setChar(&value, nullptr), 0);
    request_t *r = request_make();
    expect_number("request_addParameter", lib.request_addParameter(r, nullptr, &value), 0);
    lib.request_destroy(r);
    expect(lib.kex_getObject(bus, nullptr, 0) == nullptr, "kex_getObject gives an object");
    expect(lib.object_getObject(lib.kex_getObject(bus, "plain", 0), nullptr, 0, nullptr) == nullptr,
           "object_getObject gives an object");
    expect(lib.object_createInstance(lib.kex_getObject(bus, "plain.Item", 0), 0, nullptr) == nullptr,
           "object_createInstance gives an object");
    expect(lib.kex_client_connect(bus, nullptr) == nullptr, "kex_client_connect gives a peer");
    expect(lib.connection_listenOnIPC(lib.kex_connection(bus), nullptr) == nullptr,
           "connection_listenOnIPC gives a peer");
    host_end();
}

constexpr Check kChecks[] = {
    {"nulls.variants", kMust, kSentence, variants, nullptr, 0, false},
    {"nulls.requests", kMust, kSentence, requests, nullptr, 0, false},
    {"nulls.replies", kMust, kSentence, replies, nullptr, 0, false},
    {"nulls.calls", kMust, kSentence, calls, nullptr, 0, false},
    {"nulls.peers", kMust, kSentence, peers, nullptr, 0, false},
    {"nulls.timers", kMust, kSentence, timers, nullptr, 0, false},
    {"nulls.objects", kMust, kSentence, objects, nullptr, 0, false},
    {"nulls.texts", kMust, "A null text where a text is expected is an error of the caller and answered with no.",
     texts, nullptr, 0, false},
};

} // namespace

const Group kNulls = group_of(kChecks);

} // namespace conformance
