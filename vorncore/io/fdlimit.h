/* How many descriptors the process may have open.
 *
 * Threads: the limit belongs to the process; set it at start-up. */
#ifndef VORNCORE_IO_FDLIMIT_H
#define VORNCORE_IO_FDLIMIT_H

#include "vorncore/base/decls.h"

VORNCORE_BEGIN_DECLS

/* Raises the limit as far as the system allows (the hard limit) and returns the hard limit, at most 2147483647. That
 * the system refused is not told. */
int xp_extend_fdlimit(void);
/* Sets the limit; the hard limit stays. 1, or 0 when it is negative or above the hard limit. */
int xp_set_fdlimit(int limit);

VORNCORE_END_DECLS

#endif
