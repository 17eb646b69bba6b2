// Circular doubly linked rings, written once over the layout of their nodes.
//
// A ring runs through a sentinel, which is its beginning and its end: an empty ring is a sentinel linked to itself.
// Sentinels are smaller than nodes (mostly two links and nothing else); `as_node` views one as a node, of which only
// the links may then be touched.
#pragma once

#include <stddef.h>

namespace vorncore {

/// Next and Previous are the members of Node that hold the links. A node may be on several rings through several pairs.
/// Who shares a ring may ask for its emptiness while another thread, which has the lock, changes it.
template <class Node, Node *Node::*Next, Node *Node::*Previous, bool Shared = false>
struct ring {
    static void make_empty(Node *sentinel) {
        set_next(sentinel, sentinel);
        sentinel->*Previous = sentinel;
    }
    static bool is_empty(const Node *sentinel) {
        if constexpr (Shared) return __atomic_load_n(&(sentinel->*Next), __ATOMIC_RELAXED) == sentinel;
        return sentinel->*Next == sentinel;
    }

    static void link_before(Node *position, Node *node) { link(position->*Previous, node, position); }
    static void link_after(Node *position, Node *node) { link(position, node, position->*Next); }

    /// The links of the node itself stay as they were.
    static void unlink(Node *node) {
        set_next(node->*Previous, node->*Next);
        node->*Next->*Previous = node->*Previous;
    }

    /// The first node becomes the last. Both rotations return the node that moved, and leave a ring of one as it is.
    static Node *first_to_back(Node *sentinel) {
        Node *node = sentinel->*Next;
        unlink(node);
        link_before(sentinel, node);
        return node;
    }

    static Node *last_to_front(Node *sentinel) {
        Node *node = sentinel->*Previous;
        unlink(node);
        link_after(sentinel, node);
        return node;
    }

  private:
    static void link(Node *previous, Node *node, Node *next) {
        node->*Previous = previous;
        set_next(node, next);
        set_next(previous, node);
        next->*Previous = node;
    }

    static void set_next(Node *node, Node *next) {
        if constexpr (Shared)
            __atomic_store_n(&(node->*Next), next, __ATOMIC_RELAXED);
        else
            node->*Next = next;
    }
};

/// A sentinel whose members are the first of a node's, as a node.
template <class Node, class Sentinel>
Node *as_node(Sentinel *sentinel) {
    return reinterpret_cast<Node *>(sentinel);
}

} // namespace vorncore
