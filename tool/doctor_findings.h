// SPDX-License-Identifier: MIT
// The single checks, each a row of the table in doctor_checks.cpp, and what they share.
#ifndef VOICECTL_DOCTOR_FINDINGS_H
#define VOICECTL_DOCTOR_FINDINGS_H

#include <string>

#include "doctor_checks.h"

namespace voicectl {

inline Finding fine(const std::string &text) {
    return {.verdict = Verdict::ok, .text = text};
}
inline Finding unseen(const std::string &text, const std::string &fix = "") {
    return {.verdict = Verdict::unseen, .text = text, .fix = fix};
}
inline Finding warned(const std::string &text, const std::string &fix) {
    return {.verdict = Verdict::warn, .text = text, .fix = fix};
}
inline Finding failed(const std::string &text, const std::string &fix) {
    return {.verdict = Verdict::fail, .text = text, .fix = fix};
}

inline bool is_connected(const Facts &facts) {
    return !facts.place.path.empty() && facts.place.error == 0;
}
inline Finding not_connected() {
    return unseen("not visible: the application does not answer");
}
// Of what only the owner of a process may look at; nothing is to be seen without a connection either.
inline Finding not_ours(const Facts &facts) {
    return is_connected(facts) ? unseen("not visible from here", "run it as root or as the application's user")
                               : not_connected();
}

// The address and what stands there: doctor_place_checks.cpp.
Finding address_check(const Facts &facts);
Finding variables_check(const Facts &facts);
Finding socket_check(const Facts &facts);
Finding admission_check(const Facts &facts);
// What passes on the bus, and the application's tables: doctor_bus_checks.cpp.
Finding answer_check(const Facts &facts);
Finding waits_check(const Facts &facts);
Finding crossed_check(const Facts &facts);
Finding tables_check(const Facts &facts);
Finding leftovers_check(const Facts &facts);
// Processes and the machine: doctor_process_checks.cpp.
Finding descriptors_check(const Facts &facts);
Finding buffers_check(const Facts &facts);
Finding versions_check(const Facts &facts);
Finding trace_check(const Facts &facts);
Finding activation_check(const Facts &facts);
Finding wireshark_check(const Facts &facts);

} // namespace voicectl

#endif
