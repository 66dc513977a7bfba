// SPDX-License-Identifier: MIT
// Implements groups.h: the order in which the groups run.
#include "groups.h"

namespace conformance {

const Group *const kGroups[] = {
    &kSymbols,  &kNulls,     &kVariants, &kContents,    &kConversions, &kLists,   &kRequests,  &kReplies,
    &kHandlers, &kWaits,     &kOrder,    &kDescriptors, &kUnread,      &kGetters, &kArguments, &kBytes,
    &kTexts,    &kFunctions, &kModel,    &kTimers,      &kPeers,       &kClosing, &kListening,
};
const unsigned kGroupCount = count_of(kGroups);

} // namespace conformance
