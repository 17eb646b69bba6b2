// What a node owns: made, filled and freed.
#pragma once

#include "vorncore/xml/internal/attributes.h"
#include "vorncore/xml/internal/blocks.h"

namespace vorncore {

constexpr int initial_children = 10;
constexpr int attribute_buckets = 11;

/// The children of a node that was parsed: the array and its first vector in one block. A vector that becomes too short
/// is left behind for one from malloc.
struct child_room {
    xp_array array;
    void *first_items[initial_children];

    /// The room of an array; null for an array that stands alone.
    static child_room *of(xp_array *children) {
        return is_block(children) ? reinterpret_cast<child_room *>(children) : nullptr;
    }
    bool in_use() const { return array.items == first_items; }
    bool leave();
};

xp_array *create_children(block_source &blocks);
void free_children(xp_array *children, block_release &release);
/// False when memory is short.
bool append_child(xp_array *children, xp_xmlnode *child);

xp_hashtable *create_attribute_table();

/// Frees all that is below a node; its own record stays.
void free_contents(xp_xmlnode *node);
void free_node(xp_xmlnode *node);

} // namespace vorncore
