#include "vorncore/xml/xmltree.h"

#include <thread>

#include "xml/outline.h"

namespace {

// What is read without a mask is listed in peers_test.cpp.
TEST(XmlTree, KindsInTheMaskAreLeftOut) {
    const struct {
        const char *text;
        const char *outline; // or the offset of the error
        uint32_t skip_mask;
    } cases[] = {
        {"<!--c--><a><!--c-->x<!--c--><b><!--c--></b></a>", "a['x' b]", XP_XML_COMMENT},
        {"x<a>x<b/>y<![CDATA[z]]></a>y<!--c-->", "a[b !z!] #c#", XP_XML_TEXT},
        {"<a/>x", "@4", XP_XML_TEXT},
        {"<![CDATA[x]]><a><![CDATA[x]]><?p?></a>", "a[%p%]", XP_XML_CDATA},
        {"<?p?><a>x<?p?>y</a>", "a['x' 'y']", XP_XML_PI},
        {"<a/>", "@4", XP_XML_ELEMENT},
        {"<a><!--<b>", "@7", XP_XML_COMMENT},
        {"<a><b><c/></b>", "@14", 31},
    };
    for (const auto &c : cases) EXPECT_EQ(outline::of_text(c.text, c.skip_mask), c.outline) << c.text;
}

TEST(XmlTree, ANodeIsParsedAloneAndThenHasANewParent) {
    char text[] = "<a><b><c/></b></a>", more[] = " <n i='1'>x<!--c--><m/></n> <rest/>", broken[] = "<n><m></n>";
    xp_xmltree *tree = xp_create_xmltree(text, XP_XML_COMMENT, nullptr);
    xp_xmlnode *b = xpxn_child(tree->root, 0);
    char *end = nullptr;
    xp_xmlnode *node = xp_create_xmlnode(tree, b, more, &end);
    EXPECT_STREQ(end, " <rest/>");
    EXPECT_EQ(xpxn_detach(node), 0) << "it is not yet a child";
    xpxn_add_child(b, node);
    EXPECT_EQ(outline::of(*tree), "a[b[c n{i=1}['x' m]]]");
    EXPECT_EQ(xp_create_xmlnode(tree, b, broken, &end), nullptr);
    EXPECT_EQ(end - broken, 7);

    EXPECT_EQ(xpxn_detach(node), 1);
    EXPECT_EQ(xpxn_detach(node), 0);
    EXPECT_EQ(node->parent, b);
    xp_destroy_xmlnode(b);
    EXPECT_EQ(outline::of(*tree), "a");
    xpxn_add_child(tree->root, node);
    EXPECT_EQ(node->parent, b) << "the caller's to change";
    node->parent = tree->root;
    EXPECT_EQ(outline::of(*tree), "a[n{i=1}['x' m]]");

    xp_xmlnode own;
    char *const third = end = strdup("<own><x/></own>");
    ASSERT_EQ(xp_init_xmlnode(&own, tree, tree->root, third, nullptr), 1);
    xpxn_add_child(tree->root, &own);
    EXPECT_EQ(xpxn_child_count(tree->root), 2);
    xp_close_xmlnode(&own);
    free(third);
    EXPECT_EQ(xpxn_child_count(tree->root), 1);

    xp_destroy_xmlnode(tree->root);
    EXPECT_EQ(tree->root, nullptr);
    EXPECT_EQ(outline::of(*tree), "");
    xp_destroy_xmltree(tree);
}

TEST(XmlTree, ChildrenAreFoundAddedAndTakenOut) {
    outline::document doc("<r>t<i n='0'/><j>x</j><i n='1'/><i/></r>");
    xp_xmltree &tree = doc.tree;
    EXPECT_EQ(xpxn_search_element(doc.top(), "r", 0, nullptr), tree.root);
    std::string found;
    int next = 0;
    while (xpxn_search_element(tree.root, "i", next, &next)) found += std::to_string(next) + ' ';
    EXPECT_EQ(found, "2 4 5 ");
    EXPECT_EQ(xpxn_search_element(tree.root, "t", 0, nullptr), nullptr) << "no element";
    xp_xmlnode *const attribute = xpxa_node(static_cast<xp_xmlattr *>(xpht_get(doc.child(1)->attributes, "n")));
    EXPECT_EQ(attribute->kind, 17u);
    EXPECT_STREQ(attribute->text, "0");
    EXPECT_EQ(attribute->parent, doc.child(1));
    EXPECT_EQ(xpxn_child_count(attribute), 0);
    for (xp_xmlnode *node : {attribute, doc.top()}) EXPECT_EQ(xpxn_detach(node), 0);

    xp_xmlnode *const parent = doc.child(2); // its array grows out of what the parser gave it
    std::vector<std::string> sources(20, "<k/>");
    for (auto &source : sources) xpxn_add_child(parent, xp_create_xmlnode(&tree, parent, source.data(), nullptr));
    while (xpxn_child_count(parent) > 4) xp_destroy_xmlnode(xpxn_child(parent, xpxn_child_count(parent) / 2));
    EXPECT_EQ(outline::of(parent), "j['x' k k k]");
}

TEST(XmlTree, RecordsHaveTheSizesThatWereAgreed) {
    std::string text = "<a b='1'>", other = "<n>";
    for (int i = 0; i < 10; i++) text += "<c>x</c>", other += "<?p?>";
    outline::document doc(text + "<d/></a>");
    other += "<m>x</m></n>";
    xp_xmltree &tree = doc.tree;
    EXPECT_EQ(tree.nodes->capacity, 10);
    EXPECT_EQ(tree.root->children->initial_capacity, 10);
    EXPECT_EQ(tree.root->children->capacity, 20);
    EXPECT_EQ(doc.child(0)->children->capacity, 10);
    EXPECT_EQ(tree.root->attributes->bucket_count, 11);
    EXPECT_EQ(doc.child(10)->children, nullptr);
    EXPECT_EQ(doc.child(10)->attributes, nullptr);
    tree.skip_mask = XP_XML_ELEMENT;
    xp_xmlnode *const node = xp_create_xmlnode(&tree, nullptr, other.data(), nullptr);
    EXPECT_EQ(node->children->capacity, 10) << "what is left out takes no room";
    xp_destroy_xmlnode(node);
}

// One document's records share their memory; each must still live as long as it is wanted, wherever that is.
TEST(XmlTree, NodesOutliveTheirTree) {
    std::string text = "<r>";
    for (int i = 0; i < 3000; i++) text += "<e a='1'><f/>x</e>";
    text += "</r>";
    xp_xmltree tree;
    ASSERT_EQ(xp_init_xmltree(&tree, text.data(), 0, nullptr), 1);
    std::vector<xp_xmlnode *> taken;
    for (int i = 2999; i >= 0; i -= 2) {
        taken.push_back(xpxn_child(tree.root, i));
        ASSERT_EQ(xpxn_detach(taken.back()), 1);
        taken.back()->parent = nullptr;
    }
    const long before = harness::live_blocks();
    std::thread other([&] { // counts off blocks of the same pieces
        for (size_t i = 1; i < taken.size(); i++) xp_destroy_xmlnode(taken[i]);
    });
    xp_close_xmltree(&tree);
    other.join();
    EXPECT_LT(harness::live_blocks(), before / 100);
    xp_xmlnode *const last = taken[0];
    xpar_ensure(last->children, 100); // the array is one for every call
    EXPECT_EQ(outline::of(last), "e{a=1}[f 'x']");
    while (xpxn_child_count(last)) xp_destroy_xmlnode(xpxn_child(last, 0));
    EXPECT_EQ(xpar_reset(last->children)->capacity, 10);
    xp_destroy_xmlnode(last);
}

TEST(XmlTree, EntityReferencesAreReplacedInPlace) {
    const struct {
        const char *text;
        const char *replaced;
    } cases[] = {
        {"a &amp;&#65;&#x42; b", "a &AB b"},
        {"&lt;&gt;&quot;&apos;", "<>\"'"},
        {"&amp;lt;", "&lt;"},
        {"&#x4a;&#x4A;&#0065;", "JJA"},
        {"x&#256;y", "x"},
        {"&#321;|&#x3bb;|&#4294967361;|&#255;", "AA|\xBB\xBB|AA|\xFF"},
        {"& &; &lt &LT; &nbsp; &", "& &; &lt &LT; &nbsp; &"},
        {"&#; &#x; &#X41; &#x &# &#a;", "&#; &#x; &#X41; &#x &# &#a;"},
        {"&#65 &lt;", "&#65 &lt;"},
        {"a&lt;b&#65 c", "a<bt;b&#65 c"},
        {"&lt;&#x41G;", "<lt;&#x41G;"},
        {"&gt;", ">"},
    };
    for (const auto &c : cases) {
        const std::string quote = strchr(c.text, '\'') ? "\"" : "'", t = c.text;
        outline::document doc("<?xml v=" + quote + t + quote + "?><a v=" + quote + t + quote + ">" + t + "<!--" + t +
                              "--><b><![CDATA[" + t + "]]></b><?" + t + "?></a>");
        xpxn_unescape(doc.child(2));
        EXPECT_EQ(xpxt_unescape(&doc.tree), 1);
        const std::string r = c.replaced;
        EXPECT_EQ(outline::of(doc.tree),
                  "xml{v=" + r + "} a{v=" + r + "}['" + r + "' #" + t + "# b[!" + t + "!] %" + t + "%]");
    }
}

TEST(XmlTree, NothingIsLeftWhenMemoryRunsOut) {
    const char source[] = "<?xml v='1'?><!--c--><a i='1' j='2'>x<b><!--c--><c k='1'>y</c></b>"
                          "<d/><d/><d/><d/><d/><d/><d/><d/><d/><d/><d/></a><?p?>";
    for (const uint32_t mask : {0u, 17u}) {
        std::string text;
        harness::oom_sweep([&] {
            text = source; // its memory is not counted: operator new
            xp_xmltree *const tree = xp_create_xmltree(text.data(), mask, nullptr);
            if (tree) xp_destroy_xmltree(tree);
        });
    }
    outline::document doc("<a>x</a>");
    EXPECT_DEATH(
        {
            harness::fail_allocation failure(1);
            xpxn_add_child(doc.child(0), doc.tree.root);
        },
        "vorncore: xpxn_add_child: out of memory");
}

} // namespace
