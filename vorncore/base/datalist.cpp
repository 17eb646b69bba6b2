#include "vorncore/base/datalist.h"

#include "vorncore/base/internal/alloc.h"
#include "vorncore/base/internal/ringlist.h"
#include "vorncore/base/internal/slot.h"

using namespace vorncore;

namespace {

struct data_kind {
    using list = xp_datalist;
    using node = xp_datanode;

    static node *make(const list *of, const void *source) {
        auto *made = static_cast<node *>(malloc(saturating_sum(sizeof(node), of->item_size)));
        if (made) fill_slot(of->copy, made->data, source, of->item_size);
        return made;
    }
    static void *item(node *of) { return of->data; }
};

using nodes = ring_list<data_kind>;

} // namespace

void xp_init_datalist(xp_datalist *list, uint32_t item_size, xp_slot_copy_fn copy, xp_release_fn release) {
    list->item_size = item_size;
    list->copy = copy;
    list->release = release;
    nodes::make_empty(list);
}

xp_datalist *xp_create_datalist(uint32_t item_size, xp_slot_copy_fn copy, xp_release_fn release) {
    return create_record<xp_datalist>(xp_init_datalist, item_size, copy, release);
}

void xp_close_datalist(xp_datalist *list) { nodes::clear(list); }

void xp_destroy_datalist(xp_datalist *list) { destroy_record(list, xp_close_datalist); }

xp_datanode *xpdl_head(xp_datalist *list) { return nodes::head(list); }

void xpdl_clear(xp_datalist *list) { nodes::clear(list); }

xp_datanode *xpdl_insert_before(xp_datalist *list, xp_datanode *node, const void *source) {
    return nodes::insert_before(list, node, source);
}

xp_datanode *xpdl_insert_after(xp_datalist *list, xp_datanode *node, const void *source) {
    return nodes::insert_after(list, node, source);
}

xp_datanode *xpdl_add(xp_datalist *list, const void *source) {
    return nodes::insert_before(list, nodes::head(list), source);
}

xp_datanode *xpdl_insert(xp_datalist *list, const void *source) {
    return nodes::insert_after(list, nodes::head(list), source);
}

xp_datanode *xpdl_del(xp_datalist *list, xp_datanode *node) { return nodes::del(list, node); }

xp_datanode *xpdl_rotate(xp_datalist *list, int direction) { return nodes::rotate(list, direction != 0); }

xp_datanode *xpdl_search(xp_datalist *list, const void *key, xp_compare_fn compare) {
    return nodes::search(list, [=](const void *block) { return compare(key, block) == 0; });
}

void xp_init_datalistenum(xp_datalistenum *e, xp_datalist *list) { *e = {list, nodes::head(list)}; }

xp_datalistenum *xp_create_datalistenum(xp_datalist *list) {
    return create_record<xp_datalistenum>(xp_init_datalistenum, list);
}

void xp_close_datalistenum(xp_datalistenum *) {}

void xp_destroy_datalistenum(xp_datalistenum *e) { destroy_record(e, xp_close_datalistenum); }

int xpdle_next(xp_datalistenum *e) { return nodes::move_to(e, e->current->next); }

int xpdle_prev(xp_datalistenum *e) { return nodes::move_to(e, e->current->previous); }

int xpdle_del(xp_datalistenum *e) { return nodes::move_to(e, nodes::del(e->list, e->current)); }
