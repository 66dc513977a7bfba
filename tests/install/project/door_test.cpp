// SPDX-License-Identifier: MIT
// The door station's callbacks without an application: the fake bus calls them and logs what they do.
#include "door.h"
#include "expect.h"
#include "voice_records.h"

using fake::bus;
using fake::Call;
using fake::Reply;
using fake::Value;

namespace {

void begin() {
    bus().reset();
    libvoice_set_kex_handler(bus().handle());
    libvoice_set_pluginname("door");
    libvoice_registered_callbacks = door_callbacks();
    libvoice_set_kex_peer_handler(bus().peer("application"));
}

// The application says "init": the line is registered, and reported as off hook under the number that it was given.
void registers_its_line() {
    begin();
    bus().object("door.EndPoint");
    bus().answer("register_endpoint", Reply().value(Value::i32(7)));
    const voice_event_t off_hook = {7, LIBVOICE_EVENT_al_of, 0, 0, 0};

    Call call;
    const int status = call.on(bus().object("door")).with("country", Value::chars("DE")).run(__init);

    expect(status == KEX_FUNCTION_DONE, "\"init\" is done");
    expect(bus().requests_made() == 2, "two requests leave");
    expect(bus().record(1).function == "register_endpoint", "the first registers");
    expect(bus().record(1).parameter("endpoint_name").str() == "\"DOOR1\"", "under the line's name");
    expect(bus().record(2).function == "event", "the second is an event");
    expect(bus().record(2).parameter("event").str() == Value::bytes(&off_hook, sizeof off_hook).str(), "off hook");
    expect(bus().exists("door.EndPoint.DOOR1"), "the line is an object");
    expect_nothing_wrong();
}

void refuses_to_ring() {
    begin();
    const voice_signal_t ring = {7, LIBVOICE_SIGNAL_al_ri, 0, 1, 0, 0, 0};

    Call call;
    const int status = call.on(bus().object("door.EndPoint.DOOR1"))
                           .with("signal", Value::bytes(&ring, sizeof ring))
                           .run(__EndPoint_signal);

    expect(status == KEX_FUNCTION_FAILED, "ringing fails");
    expect(call.returned().str() == "bool false", "and the application is told");
    expect(bus().record(1).function == "event", "with a cause");
    expect_nothing_wrong();
}

} // namespace

int main() {
    registers_its_line();
    refuses_to_ring();
    std::puts("door: all holds");
}
