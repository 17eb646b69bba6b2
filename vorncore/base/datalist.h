/* Data list: a circular doubly linked list whose nodes hold a block of bytes each, in place.
 *
 * The sibling of the pointer list (base/list.h) for small records: one allocation a node, no pointer to follow. All
 * blocks of a list have the size that it was made with. They are aligned like what malloc gives and stay where they are
 * until their node is deleted.
 *
 *     xp_datalist points;
 *     xp_init_datalist(&points, sizeof(point), NULL, NULL);
 *     xpdl_add(&points, &p);
 *     ((point *)xpdl_add(&points, NULL)->data)->x = 1;       filled in place
 *     xp_close_datalist(&points);
 *
 * The nodes link back to the sentinel inside the record: a list that is in use must not be moved or copied.
 *
 * Threads: a list belongs to one thread at a time. */
#ifndef VORNCORE_BASE_DATALIST_H
#define VORNCORE_BASE_DATALIST_H

#include "vorncore/base/types.h"

VORNCORE_BEGIN_DECLS

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpedantic" /* C++ has no flexible array members */
typedef struct xp_datanode {
    struct xp_datanode *next;
    struct xp_datanode *previous;
    char data[]; /* the block: item_size bytes */
} xp_datanode;
#pragma GCC diagnostic pop

/* The sentinel: the two links of a node, without a block. */
typedef struct xp_datalink {
    xp_datanode *first; /* the sentinel itself when the list is empty */
    xp_datanode *last;
} xp_datalink;

typedef struct xp_datalist {
    uint32_t item_size;    /* bytes of a block */
    int32_t count;         /* nodes */
    xp_slot_copy_fn copy;  /* fills the block of a new node, (block, source); null copies the bytes */
    xp_release_fn release; /* gets the block of a node that is deleted; null drops it silently */
    xp_datalink sentinel;
} xp_datalist;

typedef struct xp_datalistenum {
    xp_datalist *list; /* borrowed */
    xp_datanode *current;
} xp_datalistenum;

/* Allocates nothing. `item_size` is in bytes. */
void xp_init_datalist(xp_datalist *list, uint32_t item_size, xp_slot_copy_fn copy, xp_release_fn release);
/* Null when out of memory. */
xp_datalist *xp_create_datalist(uint32_t item_size, xp_slot_copy_fn copy, xp_release_fn release);
void xp_close_datalist(xp_datalist *list);
void xp_destroy_datalist(xp_datalist *list);

/* The sentinel seen as a node: in front of the first node and behind the last, the end of every walk. It has no block.
 */
xp_datanode *xpdl_head(xp_datalist *list);

/* Deletes every node, from the first to the last. */
void xpdl_clear(xp_datalist *list);

/* Insert a new node in front of a node, behind it, at the end, at the front; `node` may be the sentinel. The copy hook
 * fills the block, also from a null source; without a hook item_size bytes are copied from the source, and a null
 * source leaves the block for the caller to fill. Return the new node; null when out of memory, and then the copy hook
 * has not been called. */
xp_datanode *xpdl_insert_before(xp_datalist *list, xp_datanode *node, const void *source);
xp_datanode *xpdl_insert_after(xp_datalist *list, xp_datanode *node, const void *source);
xp_datanode *xpdl_add(xp_datalist *list, const void *source);
xp_datanode *xpdl_insert(xp_datalist *list, const void *source);

/* Unlinks a node, releases its block and frees it. Returns the node that followed, which may be the sentinel. */
xp_datanode *xpdl_del(xp_datalist *list, xp_datanode *node);

/* Moves the first node to the end; with direction 0 the last node to the front. Returns the node that moved, null for
 * an empty list. A list of one node stays as it is. */
xp_datanode *xpdl_rotate(xp_datalist *list, int direction);

/* The first node with compare(key, block) == 0, or null. The comparison must not be null. */
xp_datanode *xpdl_search(xp_datalist *list, const void *key, xp_compare_fn compare);

/* An enumerator stands on the sentinel at first. Every move returns 1, or 0 when it is back there, and may then go
 * round again. */
void xp_init_datalistenum(xp_datalistenum *e, xp_datalist *list);
xp_datalistenum *xp_create_datalistenum(xp_datalist *list);
void xp_close_datalistenum(xp_datalistenum *e);
void xp_destroy_datalistenum(xp_datalistenum *e);
int xpdle_next(xp_datalistenum *e);
int xpdle_prev(xp_datalistenum *e);
/* Deletes the current node, which must not be the sentinel; the node that followed becomes the current one. */
int xpdle_del(xp_datalistenum *e);

VORNCORE_END_DECLS

#endif
