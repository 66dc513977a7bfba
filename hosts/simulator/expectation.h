// SPDX-License-Identifier: MIT
/**
 * @file expectation.h
 * A command that waits until a line hears something: "1 expect busy-tone 3s". It is answered "ok" as soon as it does,
 * else, when the time is over, with what it heard instead. Nothing is expected any more when who gave it has left.
 */
#pragma once

#include "kex.h"
#include "telephone.h"

struct expectation {
    telephone *line; // null: nothing is expected
    uint32_t ticket; // of the command
    uint64_t end;    // sampling clock
    uint32_t limit_ms;
    kex_timer_t *answer_timer; // the answer has its own turn: what follows it may change the line
    bool met;
    bool heard_is_full; // more was heard than there is room for
    char wanted[48];
    char heard[200]; // with commas between
};

/** Expects something of a line that nothing is expected of. @param wanted  as the line says it: "busy-tone", "440Hz",
 *  "silence", or how another of its lines begins: "rings" @return what the command returns */
const char *expectation_begin(expectation *one, telephone *line, const char *wanted, uint32_t limit_ms);
/** Answers the command now, if one waits. */
void expectation_end(expectation *one);
