#include "vorncore/xml/internal/nodes.h"

namespace vorncore {

xp_array *create_children() { return xp_create_array(initial_children, nullptr, nullptr); }

static void free_children(xp_xmlnode *node) {
    if (node->children != &parent_block::of(node)->children.array)
        xp_destroy_array(node->children);
    else if (!is_in_room(node->children))
        xp_close_array(node->children);
}

static void free_attributes(xp_hashtable *attributes, block_release &release) {
    if (!attributes) return;
    each_attribute(attributes, [&](xp_xmlattr *record) {
        release(record);
        return true;
    });
    if (!is_block(attributes)) return xp_destroy_hashtable(attributes);
    xpht_clear(attributes);
    release(attributes);
}

/// From the last node to the first, by their order in the arrays alone: the parent field of a node need not say where
/// it hangs, and is written here to find the way up.
static void free_contents(xp_xmlnode *top, block_release &release) {
    for (xp_xmlnode *node = top;;) {
        if (xp_array *const children = node->children) {
            if (children->count) {
                auto *const child = static_cast<xp_xmlnode *>(children->items[--children->count]);
                // Blocks were cut in document order: the siblings to come lie before this one, what is below it behind.
                prefetch<parent_block>(reinterpret_cast<const char *>(child) - blocks_ahead);
                prefetch<parent_block>(reinterpret_cast<const char *>(child) + blocks_ahead);
                if (child->parent != node) child->parent = node; // mostly it is: nothing to write back
                node = child;
                continue;
            }
            free_children(node);
        }
        free_attributes(node->attributes, release);
        if (node == top) break;
        xp_xmlnode *const parent = node->parent;
        release(node);
        node = parent;
    }
    top->children = nullptr;
    top->attributes = nullptr;
}

void free_attributes(xp_hashtable *attributes) {
    block_release release;
    free_attributes(attributes, release);
}

void free_contents(xp_xmlnode *node) {
    block_release release;
    free_contents(node, release);
}

void free_node(xp_xmlnode *node) {
    block_release release;
    free_contents(node, release);
    release(node);
}

} // namespace vorncore
