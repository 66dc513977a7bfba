/* SPDX-License-Identifier: MIT */
/* A platform that does next to nothing: its objects, and what arrives with a call. */
#ifndef BENCH_LIBRARY_QUIET_PLATFORM_H
#define BENCH_LIBRARY_QUIET_PLATFORM_H

#include "kex.h"
#include "ziltrace.h"

#ifdef __cplusplus
extern "C" {
#endif

#define QUIET_BYTES 1024

extern request_t *const quiet_request;
extern function_call_t *const quiet_call;
extern argument_list_t *const quiet_arguments;
extern object_t *const quiet_object;
extern peer_t *const quiet_peer;

extern unsigned char quiet_copy[QUIET_BYTES];    /* the bytes of the last argument that was given */
extern unsigned char quiet_arrived[QUIET_BYTES]; /* every byte argument that is read */
extern uint32_t quiet_arrived_length;

#ifdef __cplusplus
}
#endif

#endif
