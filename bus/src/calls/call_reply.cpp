// SPDX-License-Identifier: MIT
// Implements call_reply.h.
#include "calls/call_reply.h"
#include "transport/output.h"
#include "transport/send.h"

namespace bus {

namespace {

wire::Writer call_write_reply(const function_call_t *call, const variant_t *value) {
    wire::Writer writer = output_begin(call->peer->connection);
    wire::reply_write(writer, call->one_way ? wire::kMissed : wire::kReply, call->request.serial, &call->request.reply,
                      value);
    return writer;
}

} // namespace

void call_send_reply(function_call_t *call, const variant_t *value) {
    Connection *connection = call->peer->connection;
    if (!connection_is_writable(connection))
        return;
    const uint32_t failures = memory_failures();
    wire::Writer writer = call_write_reply(call, value);
    if (writer.why != nullptr) {
        // Whoever called must not wait for ever because the answer cannot be sent.
        reply_t *reply = &call->request.reply;
        reply_clear(reply);
        reply_append_error(reply, KEX_ERROR_TOO_LARGE, text_of("The reply cannot be sent"), text_of(writer.why));
        wire::message_discard(writer);
        writer = call_write_reply(call, nullptr);
    }
    const bool is_queued = output_add(connection, writer, kReplyAllowance) != nullptr;
    if (memory_failures() != failures)
        connection_refuse(connection, "a reply to it is lost: out of memory");
    else if (!is_queued)
        connection_refuse(connection, "it does not read its replies");
    connection_flush_if_much(connection);
}

void call_send_miss(function_call_t *call) {
    Connection *connection = call->peer->connection;
    if (!connection_is_writable(connection))
        return;
    wire::Writer writer = call_write_reply(call, nullptr);
    output_add(connection, writer, 1);
}

} // namespace bus
