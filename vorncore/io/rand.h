/* Random numbers from a 48-bit linear congruential generator: fast, evenly spread, and predictable. Not for secrets.
 *
 * Threads: a generator belongs to one thread at a time. */
#ifndef VORNCORE_IO_RAND_H
#define VORNCORE_IO_RAND_H

#include <stdint.h>

#include "vorncore/base/decls.h"

VORNCORE_BEGIN_DECLS

/* The generator's 48 bits are the seed and the low half of the clock word, and every number changes them in place. */
typedef struct xp_random {
    uint32_t seed;
    uint32_t clock;    /* at init the milliseconds of the clock, so that equal seeds give different sequences */
    uint64_t state[3]; /* of the C library's jrand48_r */
} xp_random;

void xp_rand32_init(xp_random *generator, uint32_t seed);
/* The next number of the whole 32-bit range. */
int32_t xp_rand32(xp_random *generator);
uint32_t xp_rand32u(xp_random *generator);

VORNCORE_END_DECLS

#endif
