/* Resource pool: a stack of resources that are released together, the last acquired first.
 *
 * Each entry is a pointer-sized value and the procedure that releases it: a heap block, a file, a descriptor, a stream,
 * any object with a destroy call. A mark, the index of the topmost entry, lets a function undo just what it acquired:
 *
 *     int mark = xprp_last_index(rp);
 *     char *name = xprp_printf(rp, "%s.tmp", path);
 *     FILE *out = xprp_fopen(rp, name, "w");
 *     if (!out) {
 *         xprp_pop_ex(rp, mark);
 *         return 0;
 *     }
 *
 * A resource that is freed or forgotten in the middle leaves an empty entry, which everything passes over until what
 * lies above it is popped. A release procedure finds its own entry empty and may use the pool's entries below.
 *
 * Out of memory: calls that make a block return null, and add a null entry for it like any other; nothing is leaked.
 * Calls that take a resource return null or -1, own nothing new, and leave the resource with the caller.
 *
 * Threads: a pool belongs to one thread at a time. The calls on files by name are in app/rputil.h. */
#ifndef VORNCORE_BASE_RESPOOL_H
#define VORNCORE_BASE_RESPOOL_H

#include <stdarg.h>
#include <sys/types.h>

#include "vorncore/base/types.h"

VORNCORE_BEGIN_DECLS

typedef struct xp_resentry {
    xp_release_fn release; /* called with the value; null: nothing is owned here */
    void *value;           /* a pointer, or a descriptor widened to one */
} xp_resentry;

typedef struct xp_respool {
    int32_t count;        /* entries in use, empty ones included */
    uint32_t capacity;    /* entries allocated: 16 at first, doubled when all are in use */
    xp_resentry *entries; /* owned vector */
} xp_respool;

void xp_init_respool(xp_respool *rp);
xp_respool *xp_create_respool(void);
void xp_close_respool(xp_respool *rp);
void xp_destroy_respool(xp_respool *rp);

/* Releases everything, from the last entry to the first; the capacity stays. */
void xprp_clear(xp_respool *rp);
/* Releases everything and goes back to the initial capacity. */
void xprp_reset(xp_respool *rp);

/* Takes a resource. Returns `value`, which may be null and is then stored and released like any other. */
void *xprp_add(xp_respool *rp, void *value, xp_release_fn release);
/* Takes a descriptor, to be closed. Returns it; a negative one is returned and not added. */
int xprp_add_file(xp_respool *rp, int descriptor);
/* Takes one of the three stream records of base/stream.h, to be released with its own `destroy`. Returns it. */
void *xprp_add_interface(xp_respool *rp, void *stream);

/* Make a heap block that the pool owns. */
void *xprp_malloc(xp_respool *rp, size_t size);
void *xprp_calloc(xp_respool *rp, size_t count, size_t size);
/* Resizes a block of the pool. One that moved is the topmost entry afterwards. A size of 0 frees it.
 * Kept for callers: when this returns null for a block, nobody owns the old block, which is still there unless the size
 * was 0; there is a null entry in its stead. */
void *xprp_realloc(xp_respool *rp, void *block, size_t size);
/* Null for a null text, and then nothing is added. */
char *xprp_strdup(xp_respool *rp, const char *text);
/* The texts one behind the other; those of xprp_strcat_v end with a null pointer. */
char *xprp_strcat(xp_respool *rp, const char *a, const char *b);
char *xprp_strcat_v(xp_respool *rp, const char *text, ...);
/* Formats as xp_vsprintf does (base/format.h). */
char *xprp_vprintf(xp_respool *rp, const char *format, va_list arguments);
char *xprp_printf(xp_respool *rp, const char *format, ...);

/* The mark of what is owned now: the index of the topmost entry, -1 for an empty pool. */
int xprp_last_index(const xp_respool *rp);
/* Releases all entries above a mark, from the top down. A negative mark stands for -1; one at or above the top leaves
 * the pool as it is. */
void xprp_pop_ex(xp_respool *rp, int mark);
/* Releases the topmost resource, and drops the empty entries above it: 1, or 0 when none was owned. */
int xprp_pop(xp_respool *rp);

/* The index of the resource most recently added with this value, -1 if none is owned. */
int xprp_search(const xp_respool *rp, const void *value);
/* Release one resource now, or give it up to the caller: 1, or 0 when there is none. Their entry is empty afterwards.
 */
int xprp_free(xp_respool *rp, int index);
int xprp_free_obj(xp_respool *rp, const void *value);
int xprp_forget(xp_respool *rp, int index);
int xprp_forget_obj(xp_respool *rp, const void *value);

VORNCORE_END_DECLS

#endif
