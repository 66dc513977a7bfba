/* SPDX-License-Identifier: MIT */
/* How the layout of a structure is written down: as numbers. docs/layouts.py reads them too.
 * N(wide, narrow): hosts with 64-bit and with 32-bit pointers. */
#ifndef LAYOUT_H
#define LAYOUT_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define ASSERT(condition) static_assert(condition, #condition)
#else
#define ASSERT(condition) _Static_assert(condition, #condition)
#endif

#if UINTPTR_MAX == 0xFFFFFFFFu
#define N(wide, narrow) (narrow)
#else
#define N(wide, narrow) (wide)
#endif

/* The i386 aligns a 64-bit number in a structure to 4 bytes, every other target to 8. */
#ifdef __i386__
#define N3(wide, narrow, i386) (i386)
#else
#define N3(wide, narrow, i386) N(wide, narrow)
#endif

#define SIZE(type, bytes) ASSERT(sizeof(type) == (bytes))
#define AT(type, field, offset) ASSERT(offsetof(type, field) == (offset))
/* A member of a plain array of pointers. */
#define CALLBACK(type, field, place) AT(type, field, (place)*N(8, 4))

#endif
