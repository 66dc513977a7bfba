/* SPDX-License-Identifier: MIT */
/* The bundled bus behind a broken one: a library that is linked with it and has one of its functions itself. */
#ifndef CONFORMANCE_REAL_H
#define CONFORMANCE_REAL_H

#include "kex_host.h"

#include <dlfcn.h>
#include <stdlib.h>

/* The bus's own function of that name. */
#define REAL(function) ((__typeof__(&(function)))real_find(#function))

static inline void *real_find(const char *name) {
    void *library = dlopen("libkex.so.1", RTLD_NOW | RTLD_NOLOAD);
    void *address = library != NULL ? dlsym(library, name) : NULL;
    if (address == NULL)
        abort();
    return address;
}

#endif
