/* SPDX-License-Identifier: MIT */
/**
 * @file ziltrace.h
 * The trace service that the host process provides: the second half of the platform contract (the first is kex.h).
 *
 * The library calls these two functions and nothing else to say what happens. On a gateway they are the gateway's own;
 * on a workstation the bundled bus brings them. Where trace messages go, and which of them pass, is the service's
 * business.
 *
 * Levels, most important first: 100 error, 200 warning, 300 notice, 400 information, 500 function entry and exit.
 */
#ifndef ZILTRACE_H
#define ZILTRACE_H

#if defined(__GNUC__)
#define ZIL_PRINTF(format_index, first_argument) __attribute__((format(printf, format_index, first_argument)))
#else
#define ZIL_PRINTF(format_index, first_argument)
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** Levels as the library uses them; any other number is allowed and sorts between them. */
enum zil_trace_level {
    ZIL_TRACE_ERROR = 100,   /**< something failed */
    ZIL_TRACE_WARNING = 200, /**< odd, and it goes on */
    ZIL_TRACE_NOTICE = 300,  /**< worth knowing in normal operation */
    ZIL_TRACE_INFO = 400,    /**< progress, and dumps that were asked for */
    ZIL_TRACE_MARKER = 500,  /**< a function was entered or left */
};

/**
 * Writes one trace message without a zone to filter by. The library sends its errors and warnings (100, 200) here.
 * @param level   one of zil_trace_level
 * @param format  printf(3) format of the whole message, without a line break
 * @return ignored by the library; the bundled service returns 1 when the message was written, 0 when a filter held it
 *         back
 */
int zilTrace(int level, const char *format, ...) ZIL_PRINTF(2, 3);

/**
 * Writes one trace message that belongs to a zone, a short upper-case word by which the service filters. The library
 * sends its notices, information and markers (300 to 500) here. Otherwise as zilTrace().
 */
int zilTraceZ(int level, const char *zone, const char *format, ...) ZIL_PRINTF(3, 4);

#ifdef __cplusplus
}
#endif

#endif
