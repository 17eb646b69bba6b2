// A path, a line feed, a document. What is found is the first of what is selected, and the path written for a match
// selects it again.
#include "tests/fuzz/target.h"
#include "vorncore/xml/xpath.h"

static void check(std::string_view input) {
    const std::string path(input.substr(0, input.find('\n')));
    std::string text(input.substr(std::min(path.size() + 1, input.size())));
    xp_xmltree tree;
    if (!xp_init_xmltree(&tree, text.data(), 0, nullptr)) return;
    xp_array all, again;
    xp_init_array(&all, 1, nullptr, nullptr);
    xp_init_array(&again, 1, nullptr, nullptr);
    const xp_xmlnode *const found = xpxn_find(xpxt_node(&tree), path.c_str());
    require(xpxn_select(xpxt_node(&tree), path.c_str(), &all) == all.count);
    require(!found || (all.count > 0 && all.items[0] == found));
    for (int i = 0; i < std::min(all.count, 20); i++) {
        auto *const match = static_cast<xp_xmlnode *>(all.items[i]);
        char *const written = xpxn_gen_xpath_str(match, 0);
        xpar_clear(&again);
        xpxn_select(xpxt_node(&tree), written + 1, &again);
        require(std::count(again.items, again.items + again.count, match) > 0);
        free(written);
    }
    xp_close_array(&again);
    xp_close_array(&all);
    xp_close_xmltree(&tree);
}
