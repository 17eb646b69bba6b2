#include "abi.h"

#include <stdlib.h>
#include <string.h>

#include "vorncore/vorncore.h"

SIZE_IS(xp_xmlnode, 64);
AT(xp_xmlnode, text, 8);
AT(xp_xmlnode, ns, 16);
AT(xp_xmlnode, prefix, 24);
AT(xp_xmlnode, parent, 32);
AT(xp_xmlnode, children, 40);
AT(xp_xmlnode, attributes, 48);
AT(xp_xmlnode, attribute_count, 56);
SIZE_IS(xp_xmlattr, 56);
AT(xp_xmlattr, value, 8);
AT(xp_xmlattr, ns, 16);
AT(xp_xmlattr, prefix, 24);
AT(xp_xmlattr, owner, 32);
AT(xp_xmlattr, name, 40);
AT(xp_xmlattr, next, 48);
SIZE_IS(xp_xmltree, 56);
AT(xp_xmltree, source, 8);
AT(xp_xmltree, skip_mask, 16);
AT(xp_xmltree, ns_enabled, 24);
AT(xp_xmltree, root, 32);
AT(xp_xmltree, nodes, 40);
AT(xp_xmltree, declaration, 48);
SIZE_IS(xp_xpath, 48);
AT(xp_xpath, steps, 8);
SIZE_IS(xp_lineinfo, 40);

void abi_xml(void) {
    char text[] = "<a xmlns='U' i='1'><b/></a>";
    xp_xmltree tree;
    CHECK(xp_init_xmltree(&tree, text, 0, NULL) == 1 && xpxt_enable_ns(&tree) == 1);
    CHECK(xpxt_node(&tree)->kind == XP_XML_TREE && xpxn_child(xpxt_node(&tree), 0) == tree.root);
    CHECK(strcmp(xpxn_attribute_ns(tree.root, NULL, "i"), "1") == 0);
    CHECK(strcmp(xpxn_find(xpxt_node(&tree), "a/b")->ns, "U") == 0);
    xp_close_xmltree(&tree);

    int line = 0, column = 0;
    xp_lineinfo *info = xp_create_lineinfo("ab\ncd");
    xpli_resolve_pos(info, 1, &line, &column);
    CHECK(line == 1 && column == 0);
    xp_destroy_lineinfo(info);
}
