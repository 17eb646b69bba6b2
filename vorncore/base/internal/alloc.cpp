#include "vorncore/base/internal/alloc.h"

#include <stdio.h>

void vorncore::out_of_memory(const char *call, size_t size) {
    fprintf(stderr, "vorncore: %s: out of memory (%zu bytes)\n", call, size);
    abort();
}
