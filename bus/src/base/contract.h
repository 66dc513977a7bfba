// SPDX-License-Identifier: MIT
// The public headers, with what they declare visible; everything else in this library is hidden.
#ifndef KEX_CONTRACT_H
#define KEX_CONTRACT_H

#pragma GCC visibility push(default)
#include "kex.h"
#include "kex_host.h"
#include "kex_tap.h"
#include "ziltrace.h"
#pragma GCC visibility pop

#endif
