// What the pointer list and the data list share. They differ in what a node holds: each has a Kind that names its
// record and its node, and gives `make(list, source)` (a node holding the item, null when memory is short) and
// `item(node)` (what hooks and comparisons see).
#pragma once

#include <stdlib.h>

#include "vorncore/base/internal/ring.h"
#include "vorncore/base/types.h"

namespace vorncore {

template <class Kind>
struct ring_list {
    using List = typename Kind::list;
    using Node = typename Kind::node;
    using links = ring<Node, &Node::next, &Node::previous>;

    static Node *head(List *list) { return as_node<Node>(&list->sentinel); }

    static void make_empty(List *list) {
        list->count = 0;
        links::make_empty(head(list));
    }

    static void clear(List *list) {
        Node *const end = head(list);
        while (!links::is_empty(end)) del(list, end->next);
    }

    static Node *insert_before(List *list, Node *position, const void *source) {
        Node *node = Kind::make(list, source);
        if (!node) return nullptr;
        links::link_before(position, node);
        list->count++;
        return node;
    }

    static Node *insert_after(List *list, Node *position, const void *source) {
        return insert_before(list, position->next, source);
    }

    static Node *del(List *list, Node *node) {
        Node *const following = node->next;
        links::unlink(node);
        if (list->release) list->release(Kind::item(node));
        free(node);
        list->count--;
        return following;
    }

    static Node *rotate(List *list, bool first_to_back) {
        Node *const sentinel = head(list);
        if (links::is_empty(sentinel)) return nullptr;
        return first_to_back ? links::first_to_back(sentinel) : links::last_to_front(sentinel);
    }

    template <class Matches>
    static Node *search(List *list, Matches matches) {
        Node *const end = head(list);
        for (Node *node = end->next; node != end; node = node->next)
            if (matches(Kind::item(node))) return node;
        return nullptr;
    }

    /// Makes a node the current one of an enumerator; 0 when it is the sentinel.
    template <class Enumerator>
    static int move_to(Enumerator *e, Node *node) {
        e->current = node;
        return node != head(e->list);
    }
};

} // namespace vorncore
