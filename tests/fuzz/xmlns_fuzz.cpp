// Every attribute that was bound is found by its namespace and name; a run that fails breaks nothing.
#include "tests/fuzz/target.h"
#include "vorncore/xml/xmlns.h"
#include "vorncore/xml/xpath.h"

static void check_attributes(const xp_xmlnode *element) {
    xp_hashenum e;
    for (xp_init_hashenum(&e, element->attributes); xphe_next(&e);)
        for (auto *a = static_cast<xp_xmlattr *>(e.current->value); a; a = a->next) {
            const char *const found = xpxn_attribute_ns(element, a->ns, a->name);
            require(a->ns ? found == a->value : found != nullptr);
        }
}

static void check(std::string_view input) {
    std::string text(input);
    xp_xmltree tree;
    if (!xp_init_xmltree(&tree, text.data(), 0, nullptr)) return;
    const int done = xpxt_enable_ns(&tree);
    require(done == tree.ns_enabled);
    require(xpxt_enable_ns(&tree) || !done);
    for (const char *path : {"*", "*/*", "*/*/*"}) {
        xp_array elements;
        xp_init_array(&elements, 16, nullptr, nullptr);
        xpxn_select(xpxt_node(&tree), path, &elements);
        for (int i = 0; done && i < elements.count; i++) {
            auto *const element = static_cast<xp_xmlnode *>(elements.items[i]);
            if (element->attributes) check_attributes(element);
        }
        xp_close_array(&elements);
    }
    xpxt_unescape(&tree);
    xp_close_xmltree(&tree);
}
