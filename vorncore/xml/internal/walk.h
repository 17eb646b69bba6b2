// Walks through a tree that do not recurse: a document may be nested as deep as it is long.
#pragma once

#include "vorncore/base/internal/alloc.h"
#include "vorncore/xml/xmltree.h"

namespace vorncore {

/// Null for a node without children. In an attribute another field lies there.
inline const xp_array *children_of(const xp_xmlnode *node) {
    return node->kind == XP_XML_ATTRIBUTE ? nullptr : node->children;
}

enum class visit {
    down, // to the children, then leave(node)
    past, // the node, to the next one
    stop, // here
};

/// The way from a node down to where a walk stands: short ways on the stack, long ones on the heap.
class tree_walk {
  public:
    tree_walk() = default;
    tree_walk(const tree_walk &) = delete;
    ~tree_walk() {
        if (way_ != short_way_) free(way_);
    }

    /// Calls enter(node, depth) for `top`, at depth 0, and as that directs for all below it in document order. Returns
    /// false when it directed to stop, or when memory for the way ran out.
    template <class Enter, class Leave>
    bool run(xp_xmlnode *top, Enter enter, Leave leave) {
        xp_xmlnode *node = top;
        for (;;) {
            switch (enter(node, depth_)) {
            case visit::down:
                if (!push(node)) return false;
                break;
            case visit::past: break;
            case visit::stop: return false;
            }
            while (depth_ && !(node = next_child())) leave(way_[--depth_].node);
            if (!depth_) return true;
        }
    }

    /// What there was no memory for.
    size_t bytes_wanted() const { return bytes_of<place>(2 * static_cast<size_t>(room_)); }

  private:
    struct place {
        xp_xmlnode *node;
        int next; // child
    };

    bool push(xp_xmlnode *node) {
        if (depth_ == room_ && !lengthen()) return false;
        way_[depth_++] = {node, 0};
        return true;
    }

    bool lengthen() {
        place *const longer = try_resize(way_ == short_way_ ? nullptr : way_, 2 * room_);
        if (!longer) return false;
        if (way_ == short_way_) memcpy(longer, short_way_, sizeof short_way_);
        way_ = longer;
        room_ *= 2;
        return true;
    }

    xp_xmlnode *next_child() {
        place &here = way_[depth_ - 1];
        const xp_array *const children = children_of(here.node);
        if (!children || here.next >= children->count) return nullptr;
        return static_cast<xp_xmlnode *>(children->items[here.next++]);
    }

    place short_way_[64];
    place *way_ = short_way_;
    int room_ = 64;
    int depth_ = 0;
};

} // namespace vorncore
