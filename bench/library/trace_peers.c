/* SPDX-License-Identifier: MIT */
/* Trace messages with the full frame, each written out at the trace function, as the library's would be without helpers. */
#include "peers.h"
#include "ziltrace.h"

#define FRAME(format) "%s%-7.7s%s - %s[%s]%s%s" format "%s - %s(%s@%s:%d)%s"
#define INFO(format, ...)                                                                                            \
    zilTraceZ(ZIL_TRACE_INFO, "LIBV", FRAME(format), "", "LIBV", "", "", "i", "", "", __VA_ARGS__, "", "", __func__, \
              "trace_peers.c", __LINE__, "")
#define MARKER(arrows)                                                                                        \
    zilTraceZ(ZIL_TRACE_MARKER, "LIBV", "%s%-7.7s%s - " arrows "%s - %s(%s@%s:%d)%s", "", "LIBV", "", "", "", \
              __func__, "trace_peers.c", __LINE__, "")

void bare_markers(void) {
    MARKER(">>>>>>>>>>");
    MARKER("<<<<<<<<<<");
}

void bare_table_dump(void) {
    for (int i = 0; i < LIBVOICE_ENDPOINTS; ++i) {
        libvoice_endpoint_t *e = &endpt_table[i];
        INFO("endpt_table[%d]                \t%p", i, (void *)e);
        INFO("endpt_table[%d].used           \t%d", i, (int)e->used);
        INFO("endpt_table[%d].name           \t%s", i, e->name);
        INFO("endpt_table[%d].endpoint       \t%d", i, e->endpoint);
        INFO("endpt_table[%d].userdata       \t%p", i, e->userdata);
        INFO("endpt_table[%d].type           \t%d", i, e->type);
        INFO("endpt_table[%d].encaps_capab   \t%lu", i, (unsigned long)e->encaps_capab);
        INFO("endpt_table[%d].num_of_codecs  \t%lu", i, (unsigned long)e->num_of_codecs);
        INFO("endpt_table[%d].codec_list     \t%p", i, (void *)e->codec_list);
        INFO("endpt_table[%d].endpoint_path  \t%s", i, e->endpoint_path);
        INFO("endpt_table[%d].plugin_table   \t%p", i, (void *)e->plugin_table);
    }
}
