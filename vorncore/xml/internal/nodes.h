// What a node owns: made, filled and freed.
#pragma once

#include "vorncore/base/internal/arrayroom.h"
#include "vorncore/base/internal/hashchain.h"
#include "vorncore/xml/internal/attributes.h"
#include "vorncore/xml/internal/blocks.h"

namespace vorncore {

constexpr int initial_children = 10;
constexpr int attribute_buckets = 11;

/// Leaves, and attributes.
using leaf_block = block<xp_xmlnode>;
using attribute_block = block<xp_xmlattr>;

/// An element that has content: the array for its children comes along.
struct parent_block {
    xp_xmlnode record;
    uint64_t offset;
    array_with_room<initial_children> children;

    static parent_block *of(xp_xmlnode *node) { return reinterpret_cast<parent_block *>(node); }
};
/// The table of an element's attributes, with its buckets.
struct table_block {
    xp_hashtable record;
    uint64_t offset;
    bucket_room<xp_hashitem, attribute_buckets> buckets;

    /// An empty table. It must not be closed, but cleared.
    xp_hashtable *init() {
        buckets = {};
        record = {buckets.heads,   attribute_buckets, 0, nullptr, nullptr, nullptr, nullptr,
                  xp_rotate_hashf, compare_texts()};
        return &record;
    }
};
static_assert(offsetof(table_block, offset) == offsetof(block<xp_hashtable>, offset));
static_assert(offsetof(parent_block, offset) == offsetof(leaf_block, offset));
static_assert(offsetof(parent_block, children) % 16 == 8, "blocks lie 8 behind a multiple of 16, arrays at one");

xp_array *create_children();
/// False when memory is short. Arrays of children have no hooks.
inline bool append_child(xp_array *children, xp_xmlnode *child) {
    if (children->count >= children->capacity) return xpar_insert(children, children->count, child);
    children->items[children->count++] = child;
    return true;
}

/// Frees a table of attributes and the attributes; there may be none.
void free_attributes(xp_hashtable *attributes);
/// Frees all that is below a node; its own record stays.
void free_contents(xp_xmlnode *node);
void free_node(xp_xmlnode *node);

} // namespace vorncore
