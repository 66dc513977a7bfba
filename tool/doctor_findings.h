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
Finding check_address(const Facts &facts);
Finding check_variables(const Facts &facts);
Finding check_socket(const Facts &facts);
Finding check_admission(const Facts &facts);
// What passes on the bus, and the application's tables: doctor_bus_checks.cpp.
Finding check_answer(const Facts &facts);
Finding check_waits(const Facts &facts);
Finding check_crossed(const Facts &facts);
Finding check_tables(const Facts &facts);
Finding check_leftovers(const Facts &facts);
// Processes and the machine: doctor_process_checks.cpp.
Finding check_descriptors(const Facts &facts);
Finding check_buffers(const Facts &facts);
Finding check_versions(const Facts &facts);
Finding check_trace(const Facts &facts);
Finding check_activation(const Facts &facts);
Finding check_wireshark(const Facts &facts);

} // namespace voicectl

#endif
