// SPDX-License-Identifier: MIT
// A record in the words of the field.
#ifndef VOICECTL_SUMMARY_H
#define VOICECTL_SUMMARY_H

#include <string>
#include <vector>

#include "record.h"

namespace voicectl {

// All items with what they mean, related ones together: "sent 20 packets (3200 bytes)", "both ways", "PCMA 20 ms".
std::vector<std::string> items_summary(const Record &record);

} // namespace voicectl

#endif
