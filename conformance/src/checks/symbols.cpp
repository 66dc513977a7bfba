// SPDX-License-Identifier: MIT
// The names that the library has to have, and the trace service.
#include "binding.h"
#include "groups.h"

namespace conformance {

namespace {

constexpr Level kMust = Level::must;

void library_names() {
    char names[2048];
    expect(!binding_lacks(false, names, sizeof names), "it lacks%s", names);
    saw("every function of kex.h and ziltrace.h");
}

void host_names() {
    char names[2048];
    expect(!binding_lacks(true, names, sizeof names), "it lacks%s", names);
    saw("every function that these checks begin with");
}

void versions() {
    char names[2048];
    expect(!binding_misversions(names, sizeof names), "of another version than KEX_1:%s", names);
    saw("no function of another version than KEX_1");
}

void trace() {
    constexpr int kLevels[] = {ZIL_TRACE_ERROR, ZIL_TRACE_WARNING, ZIL_TRACE_NOTICE,
                               ZIL_TRACE_INFO,  ZIL_TRACE_MARKER,  250};
    for (const int level : kLevels)
        lib.zilTrace(level, "%s %d %#x %lu", "conformance", -1, 2u, 3ul);
    saw("six levels written");
}

void trace_zone() {
    constexpr int kLevels[] = {ZIL_TRACE_NOTICE, ZIL_TRACE_INFO, ZIL_TRACE_MARKER, 1};
    for (const int level : kLevels)
        lib.zilTraceZ(level, "CHECK", "%s %d %#x %lu", "conformance", -1, 2u, 3ul);
    saw("four levels written");
}

constexpr Check kChecks[] = {
    {"symbols.imports", kMust, "The library links with these functions undefined.", library_names, nullptr, 0, false},
    {"symbols.hosts", kMust,
     "A host keeps these calls together in its start-up so that only that file changes with the bus.", host_names,
     nullptr, 0, false},
    {"symbols.versions", kMust, "Programs that were linked with the bundled bus ask for functions of version KEX_1.",
     versions, nullptr, 0, false},
    {"symbols.trace", kMust, "Levels as the library uses them; any other number is allowed and sorts between them.",
     trace, nullptr, 0, false},
    {"symbols.trace_zone", kMust,
     "Writes one trace message that belongs to a zone, a short upper-case word by which the service filters.",
     trace_zone, nullptr, 0, false},
};

} // namespace

const Group kSymbols = group_of(kChecks);

} // namespace conformance
