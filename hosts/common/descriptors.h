// SPDX-License-Identifier: MIT
/**
 * @file descriptors.h
 * Descriptors that arrive in arrays, -1 where there is none.
 */
#pragma once

#include <stdint.h>
#include <unistd.h>

/** Closes those from `first` on, up to `count`. */
inline void descriptors_close(const int32_t *descriptors, uint32_t first, uint32_t count) {
    for (uint32_t i = first; i < count; i++)
        if (descriptors[i] >= 0)
            close(descriptors[i]);
}
