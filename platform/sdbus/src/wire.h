// SPDX-License-Identifier: MIT
// Writing and reading messages. After the first error nothing more is written or read, so that the result is looked at once.
#ifndef SDBUS_WIRE_H
#define SDBUS_WIRE_H

#include "value.h"

#include <systemd/sd-bus.h>

namespace sdbus {

constexpr int kMaxDepth = 4; // of lists in lists

struct Writer {
    sd_bus_message *message;
    int result = 0; // negative: an error number of sd-bus
    int depth = 0;

    void number(char type, const void *value);
    void bytes(const std::string &text);
    void open(char container, const char *contents);
    void close();
    void value(const variant_t *v);
};

struct Reader {
    sd_bus_message *message;
    int result = 0;
    int depth = 0;

    void number(char type, void *value);
    void bytes(std::string &text);
    void enter(char container, const char *contents);
    void exit();
    bool more(); // in the array that was entered last
    void value(variant_t *v);
};

} // namespace sdbus

#endif
