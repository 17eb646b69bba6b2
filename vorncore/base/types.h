/* Hook types that the containers share, and two integer helpers.
 *
 * Hooks are plain procedures. A copy hook turns what a caller hands in into what a container keeps; a release hook gets
 * what a container drops. A null hook does nothing: items are kept as given and dropped silently. A hook must not use
 * the container that calls it, which may be in the middle of a change. */
#ifndef VORNCORE_BASE_TYPES_H
#define VORNCORE_BASE_TYPES_H

#include <stddef.h>
#include <stdint.h>

#include "vorncore/base/decls.h"

VORNCORE_BEGIN_DECLS

/* Gives the item to keep in place of `item` (a duplicate, or `item` itself with one more reference). */
typedef void *(*xp_copy_fn)(const void *item);
/* Takes an item that a container drops. */
typedef void (*xp_release_fn)(void *item);
/* Negative, zero or positive, like strcmp; tables ask only whether it is zero. */
typedef int (*xp_compare_fn)(const void *a, const void *b);
/* The bucket of a key: below `bucket_count`. */
typedef uint32_t (*xp_hash_fn)(const void *key, uint32_t bucket_count);
/* In-place containers: fills `slot` from `source`. */
typedef void (*xp_slot_copy_fn)(void *slot, const void *source);

/* A stored key and its value. It lies inside the item that holds them: valid as long as the item is, `value` may be
 * assigned through it, `key` may not be changed to another key. */
typedef struct __attribute__((may_alias)) xp_pair {
    void *key;
    void *value;
} xp_pair;

/* Called for each pair of an enumeration; 0 stops it. */
typedef int (*xp_pair_fn)(void *argument, xp_pair *pair);

/* Flags of xpar_tokenize and xp_tokenize. */
enum {
    XP_TOKENIZE_TRIM = 1,       /* cut white space off both ends of a piece */
    XP_TOKENIZE_SKIP_EMPTY = 2, /* leave out pieces that are (or became) empty */
    XP_TOKENIZE_TABLE = 4       /* the delimiters are a table of 256 bytes, non-zero for a delimiter, not a text */
};

static inline int32_t xp_min2(int32_t a, int32_t b) { return a < b ? a : b; }
static inline int32_t xp_max2(int32_t a, int32_t b) { return b < a ? a : b; }

VORNCORE_END_DECLS

#endif
