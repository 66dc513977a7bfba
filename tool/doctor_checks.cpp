// SPDX-License-Identifier: MIT
#include "doctor_checks.h"

#include "doctor_findings.h"

namespace voicectl {

namespace {

struct Check {
    const char *name;
    Finding (*find)(const Facts &);
};

constexpr Check kChecks[] = {
    {"address", check_address},
    {"variables", check_variables},
    {"socket", check_socket},
    {"admission", check_admission},
    {"answer", check_answer},
    {"waits", check_waits},
    {"crossed waits", check_crossed},
    {"tables", check_tables},
    {"leftovers", check_leftovers},
    {"descriptors", check_descriptors},
    {"socket buffers", check_buffers},
    {"versions", check_versions},
    {"trace", check_trace},
    {"activation", check_activation},
    {"wireshark", check_wireshark},
};

} // namespace

std::vector<Finding> facts_check(const Facts &facts) {
    std::vector<Finding> findings;
    for (const Check &check : kChecks) {
        findings.push_back(check.find(facts));
        findings.back().check = check.name;
    }
    return findings;
}

} // namespace voicectl
