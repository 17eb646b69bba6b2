#include "vorncore/base/list.h"

#include "vorncore/base/internal/alloc.h"
#include "vorncore/base/internal/ringlist.h"

using namespace vorncore;

namespace {

struct pointer_kind {
    using list = xp_list;
    using node = xp_listnode;

    static node *make(const list *of, const void *datum) {
        auto *made = try_array<node>(1);
        if (made) made->datum = of->copy ? of->copy(datum) : const_cast<void *>(datum);
        return made;
    }
    static void *item(const node *of) { return of->datum; }
};

using nodes = ring_list<pointer_kind>;

} // namespace

void xp_init_list(xp_list *list, xp_copy_fn copy, xp_release_fn release) {
    list->copy = copy;
    list->release = release;
    nodes::make_empty(list);
}

xp_list *xp_create_list(xp_copy_fn copy, xp_release_fn release) {
    return create_record<xp_list>(xp_init_list, copy, release);
}

void xp_close_list(xp_list *list) { nodes::clear(list); }

void xp_destroy_list(xp_list *list) { destroy_record(list, xp_close_list); }

xp_listnode *xpls_head(xp_list *list) { return nodes::head(list); }

void xpls_clear(xp_list *list) { nodes::clear(list); }

void xpls_reset(xp_list *list) { nodes::clear(list); }

xp_listnode *xpls_insert_before(xp_list *list, xp_listnode *node, const void *datum) {
    return nodes::insert_before(list, node, datum);
}

xp_listnode *xpls_insert_after(xp_list *list, xp_listnode *node, const void *datum) {
    return nodes::insert_after(list, node, datum);
}

xp_listnode *xpls_add(xp_list *list, const void *datum) { return nodes::insert_before(list, nodes::head(list), datum); }

xp_listnode *xpls_insert(xp_list *list, const void *datum) {
    return nodes::insert_after(list, nodes::head(list), datum);
}

xp_listnode *xpls_del(xp_list *list, xp_listnode *node) { return nodes::del(list, node); }

xp_listnode *xpls_rotate(xp_list *list, int direction) { return nodes::rotate(list, direction != 0); }

xp_listnode *xpls_search(xp_list *list, const void *key, xp_compare_fn compare) {
    if (!compare) return nodes::search(list, [=](const void *datum) { return datum == key; });
    return nodes::search(list, [=](const void *datum) { return compare(key, datum) == 0; });
}

void xp_init_listenum(xp_listenum *e, xp_list *list) { *e = {list, nodes::head(list)}; }

xp_listenum *xp_create_listenum(xp_list *list) { return create_record<xp_listenum>(xp_init_listenum, list); }

void xp_close_listenum(xp_listenum *) {}

void xp_destroy_listenum(xp_listenum *e) { destroy_record(e, xp_close_listenum); }

int xple_next(xp_listenum *e) { return nodes::move_to(e, e->current->next); }

int xple_prev(xp_listenum *e) { return nodes::move_to(e, e->current->previous); }

int xple_del(xp_listenum *e) { return nodes::move_to(e, nodes::del(e->list, e->current)); }
