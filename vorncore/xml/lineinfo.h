/* Lines and columns: where in a text a byte offset lies, such as that of a failed parse (xml/xmltree.h).
 *
 * To be made before the parse, which cuts the text up with NUL bytes.
 *
 * Threads: the record is only read once it has been made. */
#ifndef VORNCORE_XML_LINEINFO_H
#define VORNCORE_XML_LINEINFO_H

#include "vorncore/base/array.h"

VORNCORE_BEGIN_DECLS

typedef struct xp_lineinfo {
    xp_array starts; /* offsets of the first byte of each line, widened to pointers: 0, then behind every line feed */
} xp_lineinfo;

/* The text is needed no more afterwards. */
void xp_init_lineinfo(xp_lineinfo *info, const char *text);
/* Null when out of memory. */
xp_lineinfo *xp_create_lineinfo(const char *text);
void xp_close_lineinfo(xp_lineinfo *info);
void xp_destroy_lineinfo(xp_lineinfo *info);

/* Stores the line and the column of an offset; either pointer may be null.
 * Kept for callers: the last line counts otherwise than those before it. There, lines count from 1 and columns from -1;
 * in the last line, the line number is one less, as if counted from 0, and columns count from 1. An offset below 0 is
 * in line 0, its column the offset itself. */
void xpli_resolve_pos(const xp_lineinfo *info, int offset, int *line, int *column);

VORNCORE_END_DECLS

#endif
