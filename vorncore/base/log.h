/* The banner and the logging hook.
 *
 * Every family reports problems through one process-wide hook, called as
 *
 *     xp_logfn(xp_logparam, category, source file, line, format, ...)
 *
 * with a printf-style format and no line feed at the end (the driver loader alone ends its messages with one). At start
 * the hook writes "CATEGORY (FILE:LINE) MESSAGE" and a line feed to standard error and flushes it; the category is cut
 * and padded to six characters. The format goes to the C library's formatter, not to the engine of base/format.h.
 *
 * Threads: the hook is read without a lock. Install it once, before the first thread starts; it must be callable from
 * any thread. */
#ifndef VORNCORE_BASE_LOG_H
#define VORNCORE_BASE_LOG_H

#include "vorncore/base/decls.h"

VORNCORE_BEGIN_DECLS

/* "Vorncore Library VERSION BUILD STAMP". */
extern const char *const vorncore_name;

/* The result of a hook is ignored. */
typedef int (*xp_logproc)(void *parameter, const char *category, const char *file, int line, const char *format, ...);

extern xp_logproc xp_logfn; /* never null */
extern void *xp_logparam;   /* first argument of every call of the hook; null at start */

/* Categories: tags of six characters. */
extern const char *const XP_LOGCATE_ABORT; /* "|ABRT|", not used by the library */
extern const char *const XP_LOGCATE_RWLK;  /* "|RWLK|", reader-writer lock */
extern const char *const XP_LOGCATE_RPUTL; /* "|RUTL|", resource files */
extern const char *const XP_LOGCATE_MMAP;  /* "|MMAP|", not used by the library */
extern const char *const XP_LOGCATE_DBI;   /* "|EDBI|", database driver loader */
extern const char *const XP_LOGCATE_OCI;   /* "|EOCI|", for the driver module */
extern const char *const XP_LOGCATE_MYSQL; /* "|MSQL|", for the driver module */
extern const char *const XP_LOGCATE_ODBC;  /* "|ODBC|", for the driver module */

/* Installs a hook and its parameter. A null procedure installs silence (not the hook of the start); the parameter is
 * stored all the same. */
void xp_set_logproc(xp_logproc procedure, void *parameter);

VORNCORE_END_DECLS

#endif
