/* Resource files: files opened into a resource pool (base/respool.h), which closes them.
 *
 * Threads: as the pool. */
#ifndef VORNCORE_APP_RPUTIL_H
#define VORNCORE_APP_RPUTIL_H

#include <stdint.h>
#include <stdio.h>
#include <sys/types.h>

#include "vorncore/base/respool.h"

VORNCORE_BEGIN_DECLS

/* A file in memory. */
typedef struct xp_filedata {
    char *data;      /* `length` bytes and a zero byte; owned by the pool */
    uint64_t length; /* bytes */
} xp_filedata;

/* As open and fopen, always close-on-exec; what was opened belongs to the pool. -1 or null and `errno` on failure, and
 * then the pool owns nothing new. */
int xprp_open(xp_respool *rp, const char *path, int flags, mode_t mode);
FILE *xprp_fopen(xp_respool *rp, const char *path, const char *mode);

/* Reads a whole regular file into a block of the pool: 1, or 0 with the pool and `out` as they were. Blocks for as long
 * as the file system takes.
 *
 * The length is the size that the file states before it is opened. A file that shrinks meanwhile, or that states more
 * than it holds as those of /sys do, fails (IOERROR_EOF); what a file grew by, or holds beyond the size it states as
 * those of /proc do (0), is not read.
 *
 * A failure is reported through the log hook, category XP_LOGCATE_RPUTL; a lack of memory is not. */
int xprp_load_file(xp_respool *rp, const char *path, xp_filedata *out);

VORNCORE_END_DECLS

#endif
