/* Pointer list: a circular doubly linked list whose nodes hold one pointer each.
 *
 * Callers work with nodes: an insertion returns the new node, which stays where it is in memory until it is deleted, so
 * it can be kept to insert beside it, or to delete it, without a search. The list owns its nodes; it owns what they
 * point to only through its two hooks: what the copy hook returns is what is stored, and what the list drops goes
 * through the release hook.
 *
 *     xp_list jobs;
 *     xp_init_list(&jobs, NULL, NULL);
 *     xpls_add(&jobs, job);
 *     for (xp_listnode *n = jobs.sentinel.first, *end = xpls_head(&jobs); n != end; n = n->next) run(n->datum);
 *     xp_close_list(&jobs);
 *
 * The nodes link back to the sentinel inside the record: a list that is in use must not be moved or copied.
 *
 * Threads: a list belongs to one thread at a time. */
#ifndef VORNCORE_BASE_LIST_H
#define VORNCORE_BASE_LIST_H

#include "vorncore/base/types.h"

VORNCORE_BEGIN_DECLS

typedef struct xp_listnode {
    struct xp_listnode *next;
    struct xp_listnode *previous;
    void *datum; /* may be assigned; what is overwritten is not released */
} xp_listnode;

/* The sentinel: the two links of a node, without a datum. */
typedef struct xp_listlink {
    xp_listnode *first; /* the sentinel itself when the list is empty */
    xp_listnode *last;
} xp_listlink;

typedef struct xp_list {
    int32_t count;         /* nodes */
    xp_copy_fn copy;       /* gives what is stored; null stores the datum as given */
    xp_release_fn release; /* gets the datum of a node that is deleted; null drops it silently */
    xp_listlink sentinel;
} xp_list;

typedef struct xp_listenum {
    xp_list *list; /* borrowed */
    xp_listnode *current;
} xp_listenum;

/* Allocates nothing. */
void xp_init_list(xp_list *list, xp_copy_fn copy, xp_release_fn release);
/* Null when out of memory. */
xp_list *xp_create_list(xp_copy_fn copy, xp_release_fn release);
void xp_close_list(xp_list *list);
void xp_destroy_list(xp_list *list);

/* The sentinel seen as a node: in front of the first node and behind the last, the end of every walk. It has no datum.
 */
xp_listnode *xpls_head(xp_list *list);

/* Deletes every node, from the first to the last. Both do the same. */
void xpls_clear(xp_list *list);
void xpls_reset(xp_list *list);

/* Insert a new node that holds copy(datum) in front of a node, behind it, at the end, at the front. `node` may be the
 * sentinel. Return the new node; null when out of memory, and then the copy hook has not been called. */
xp_listnode *xpls_insert_before(xp_list *list, xp_listnode *node, const void *datum);
xp_listnode *xpls_insert_after(xp_list *list, xp_listnode *node, const void *datum);
xp_listnode *xpls_add(xp_list *list, const void *datum);
xp_listnode *xpls_insert(xp_list *list, const void *datum);

/* Unlinks a node, releases its datum and frees it. Returns the node that followed, which may be the sentinel. */
xp_listnode *xpls_del(xp_list *list, xp_listnode *node);

/* Moves the first node to the end; with direction 0 the last node to the front. Returns the node that moved, null for
 * an empty list. A list of one node stays as it is. */
xp_listnode *xpls_rotate(xp_list *list, int direction);

/* The first node with compare(key, datum) == 0, or null. With a null comparison: whose datum is the pointer `key`. */
xp_listnode *xpls_search(xp_list *list, const void *key, xp_compare_fn compare);

/* An enumerator stands on the sentinel at first. Every move returns 1, or 0 when it is back there, and may then go
 * round again.
 *
 *     xp_listenum e;
 *     xp_init_listenum(&e, &jobs);
 *     for (int more = xple_next(&e); more;)
 *         more = done(e.current->datum) ? xple_del(&e) : xple_next(&e); */
void xp_init_listenum(xp_listenum *e, xp_list *list);
xp_listenum *xp_create_listenum(xp_list *list);
void xp_close_listenum(xp_listenum *e);
void xp_destroy_listenum(xp_listenum *e);
int xple_next(xp_listenum *e);
int xple_prev(xp_listenum *e);
/* Deletes the current node, which must not be the sentinel; the node that followed becomes the current one. */
int xple_del(xp_listenum *e);

VORNCORE_END_DECLS

#endif
