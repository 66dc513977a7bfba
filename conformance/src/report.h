// SPDX-License-Identifier: MIT
// What is printed: the Test Anything Protocol, with what was seen of each check, and a summary.
#ifndef CONFORMANCE_REPORT_H
#define CONFORMANCE_REPORT_H

#include "run.h"

namespace conformance {

void report_begin(unsigned checks);
// `reason`: why it is expected to fail; null: it is to hold.
void report_check(const Check &check, const Result &result, const char *reason);
// One that takes long, and was not asked for.
void report_left_out(const Check &check);
// Nothing can be checked, because of this.
void report_bail_out(const char *why);
// The summary. False: a MUST does not hold, or something that is expected to fail holds.
bool report_end();

// All checks, one a line.
void report_list(bool (*is_chosen)(const Check &check));

} // namespace conformance

#endif
