// SPDX-License-Identifier: MIT
// Trace messages that nobody wants: the trace function is empty, the library still passes the full frame.
#include "paths.h"
#include "peers.h"

namespace {

constexpr unsigned kMarkers = 2;
constexpr unsigned kDumped = 11 * LIBVOICE_ENDPOINTS;

uint64_t library_markers() {
    libvoice_get_pluginname(); // nothing but its two markers
    return 0;
}

uint64_t peer_markers() {
    bare_markers();
    return 0;
}

uint64_t library_dump() {
    libvoice_print_endpoints(0);
    return 0;
}

uint64_t peer_dump() {
    bare_table_dump();
    return 0;
}

} // namespace

void add_trace_paths(std::vector<Variant> &variants) {
    variants.push_back({"trace marker", kLibrary, library_markers, kMarkers});
    variants.push_back({"trace marker", "empty function", peer_markers, kMarkers});
    variants.push_back({"trace message", kLibrary, library_dump, kDumped});
    variants.push_back({"trace message", "empty function", peer_dump, kDumped});
}
