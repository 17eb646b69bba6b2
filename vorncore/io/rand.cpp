#include "vorncore/io/rand.h"

#include <stdlib.h>

#include "vorncore/io/timeutil.h"

static_assert(sizeof(xp_random::state) == sizeof(drand48_data));

void xp_rand32_init(xp_random *generator, uint32_t seed) { *generator = {seed, xp_time_ms(), {}}; }

int32_t xp_rand32(xp_random *generator) {
    long number;
    // The first three 16-bit words of the record.
    jrand48_r(reinterpret_cast<unsigned short *>(generator), reinterpret_cast<drand48_data *>(generator->state),
              &number);
    return static_cast<int32_t>(number);
}

uint32_t xp_rand32u(xp_random *generator) { return static_cast<uint32_t>(xp_rand32(generator)); }
