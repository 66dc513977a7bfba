// SPDX-License-Identifier: MIT
// A fixture for calls from one bus to another, whose function is what the test makes of it.
#ifndef BUS_TESTS_CALLS_H
#define BUS_TESTS_CALLS_H

#include "bus_test.h"
#include "served_functions.h"

namespace support {

class Call : public TwoBuses {
protected:
    Call() {
        served::reset();
        served::declare(server);
    }
    ~Call() override { served::reset(); }

    // Runs `body` as the called function with these arguments, and gives back the reply's lines.
    std::vector<std::string> probe(std::function<int(function_call_t *, argument_list_t *, variant_t *)> body,
                                   const std::vector<std::pair<std::string, variant_t>> &args = {},
                                   uint32_t flags = 0) {
        served::probe = std::move(body);
        request_t *r = call("Probe", "run", args, flags);
        auto lines = lines_of(r);
        request_destroy(r);
        return lines;
    }
};

} // namespace support

#endif
