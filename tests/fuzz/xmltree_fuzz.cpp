// Every node hangs where it says, and points into the text; so it is after replacing, and whatever is dropped.
#include "tests/fuzz/target.h"
#include "vorncore/xml/xmltree.h"

static void check(std::string_view input) {
    for (const uint32_t mask : {0u, 2u, 16u, 12u, 1u}) {
        std::vector<char> text(input.begin(), input.end());
        text.push_back('\0');
        const auto in_text = [&](const char *p) { return p >= text.data() && p <= &text.back(); };
        int offset = 0;
        xp_xmltree tree;
        if (!xp_init_xmltree(&tree, text.data(), mask, &offset)) {
            require(offset >= 0 && in_text(text.data() + offset));
            continue;
        }
        xpxt_unescape(&tree);
        std::vector<xp_xmlnode *> open = {xpxt_node(&tree)};
        while (!open.empty()) {
            xp_xmlnode *const node = open.back();
            open.pop_back();
            for (int i = 0; i < xpxn_child_count(node); i++) {
                open.push_back(xpxn_child(node, i));
                require(open.back()->parent == node && !(open.back()->kind & mask) && in_text(open.back()->text));
            }
        }
        xp_destroy_xmlnode(tree.root);
        xp_close_xmltree(&tree);
    }
}
