#include <stdint.h>
#include <stdlib.h>

#include <string>

#include "vorncore/xml/xmlns.h"
#include "vorncore/xml/xpath.h"

// Every attribute that was bound is found by its namespace and name; a run that fails breaks nothing.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string text(data, data + size);
    xp_xmltree tree;
    if (!xp_init_xmltree(&tree, text.data(), 0, nullptr)) return 0;
    const int done = xpxt_enable_ns(&tree);
    if (done != tree.ns_enabled || (done && !xpxt_enable_ns(&tree))) abort();
    if (!done) xpxt_enable_ns(&tree);
    for (const char *path : {"*", "*/*", "*/*/*"}) {
        xp_array elements;
        xp_init_array(&elements, 16, nullptr, nullptr);
        xpxn_select(xpxt_node(&tree), path, &elements);
        for (int i = 0; done && i < elements.count; i++) {
            auto *const element = static_cast<xp_xmlnode *>(elements.items[i]);
            if (!element->attributes) continue;
            xp_hashenum e;
            for (xp_init_hashenum(&e, element->attributes); xphe_next(&e);)
                for (auto *a = static_cast<xp_xmlattr *>(e.current->value); a; a = a->next)
                    if (!(a->ns ? xpxn_attribute_ns(element, a->ns, a->name) == a->value
                                : xpxn_attribute_ns(element, nullptr, a->name) != nullptr))
                        abort();
        }
        xp_close_array(&elements);
    }
    xpxt_unescape(&tree);
    xp_close_xmltree(&tree);
    return 0;
}
