/* SPDX-License-Identifier: MIT */
/* An instance is gone before the commit. */
#include "real.h"

static object_t *gone[1024];
static unsigned count;

int object_delete(object_t *object) {
    const int answer = REAL(object_delete)(object);
    if (answer != 0) {
        REAL(object_commit)(object);
        gone[count++] = object;
    }
    return answer;
}

/* Of an instance that is gone there is nothing to commit; its memory may be another one's now. */
int object_commit(object_t *object) {
    for (unsigned i = 0; i < count; i++) {
        if (object == NULL || gone[i] != object)
            continue;
        gone[i] = NULL;
        return 1;
    }
    return REAL(object_commit)(object);
}
