/* Stack: a dynamic array (base/array.h) used from its end. Items are pushed with xpar_add.
 *
 *     xp_array open_tags;
 *     xp_init_array(&open_tags, 16, NULL, NULL);
 *     xpar_add(&open_tags, tag);
 *     while (xpst_pop(&open_tags, &tag)) finish(tag);
 *
 * Threads: as the array. */
#ifndef VORNCORE_BASE_STACK_H
#define VORNCORE_BASE_STACK_H

#include "vorncore/base/array.h"

VORNCORE_BEGIN_DECLS

/* Both return 1 and store the last item through `out` (null: it is not wanted), or return 0 for an empty stack and
 * leave `out` alone. */

/* Takes the last item off.
 * Kept for callers: the array's release hook is called on it, so what is handed out has just been released. Give a
 * stack no release hook. */
int xpst_pop(xp_array *stack, void **out);
int xpst_peek(const xp_array *stack, void **out);

VORNCORE_END_DECLS

#endif
