// SPDX-License-Identifier: MIT
// The groups of checks, one a file.
#ifndef CONFORMANCE_GROUPS_H
#define CONFORMANCE_GROUPS_H

#include "check.h"

namespace conformance {

// What a file of checks ends with.
template <unsigned count>
constexpr Group group_of(const Check (&checks)[count]) {
    return {checks, count};
}

template <unsigned count>
constexpr unsigned count_of(const Group *const (&)[count]) {
    return count;
}

extern const Group kSymbols, kNulls, kVariants, kContents, kConversions, kLists, kRequests, kReplies, kHandlers, kWaits,
    kOrder, kDescriptors, kUnread, kGetters, kArguments, kBytes, kTexts, kFunctions, kModel, kTimers, kPeers, kClosing,
    kListening;

} // namespace conformance

#endif
