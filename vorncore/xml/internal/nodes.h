// What a node owns: made, filled and freed.
#pragma once

#include "vorncore/xml/internal/attributes.h"
#include "vorncore/xml/internal/blocks.h"

namespace vorncore {

constexpr int initial_children = 10;
constexpr int attribute_buckets = 11;

/// An array that callers may grow and reset like any other. Null when memory is short.
xp_array *create_children();
/// False when memory is short.
bool append_child(xp_array *children, xp_xmlnode *child);

xp_hashtable *create_attribute_table();

/// Frees all that is below a node; its own record stays.
void free_contents(xp_xmlnode *node);
void free_node(xp_xmlnode *node);

} // namespace vorncore
