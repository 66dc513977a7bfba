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
    {"address", address_check},
    {"variables", variables_check},
    {"socket", socket_check},
    {"admission", admission_check},
    {"answer", answer_check},
    {"waits", waits_check},
    {"crossed waits", crossed_check},
    {"tables", tables_check},
    {"leftovers", leftovers_check},
    {"descriptors", descriptors_check},
    {"socket buffers", buffers_check},
    {"versions", versions_check},
    {"trace", trace_check},
    {"activation", activation_check},
    {"wireshark", wireshark_check},
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
