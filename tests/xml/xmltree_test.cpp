#include "vorncore/xml/xmltree.h"

#include <thread>

#include "support/folder.h"
#include "xml/outline.h"

namespace {

TEST(XmlTree, ANodeIsParsedAloneAndThenHasANewParent) {
    outline::document doc("<a><b><c/></b></a>");
    doc.tree.skip_mask = XP_XML_COMMENT | XP_XML_ELEMENT;
    char more[] = " <n i='1'>x<!--c--><m>y</m></n> <rest/>", broken[] = "<n><m></n>",
         third[] = "<own><?1?><?2?><?3?><?4?><?5?><?6?><?7?><?8?><?9?><?10?><m>x</m></own>";
    xp_xmlnode *const root = doc.tree.root, *const b = doc.child(0);
    char *end = nullptr;
    xp_xmlnode *const node = xp_create_xmlnode(&doc.tree, b, more, &end);
    EXPECT_STREQ(end, " <rest/>");
    EXPECT_EQ(xpxn_detach(node), 0) << "it is not yet a child";
    xpxn_add_child(b, node);
    EXPECT_EQ(outline::of(root), "a[b[c[] n{i=1}['x']]]");
    EXPECT_EQ(xp_create_xmlnode(&doc.tree, b, broken, &end), nullptr);
    EXPECT_EQ(end - broken, 7);

    EXPECT_EQ(xpxn_detach(node), 1);
    EXPECT_EQ(xpxn_detach(node), 0);
    xp_destroy_xmlnode(b);
    xpxn_add_child(root, node);
    EXPECT_EQ(node->parent, b) << "the caller's to change";
    node->parent = root;
    xp_xmlnode own;
    ASSERT_EQ(xp_init_xmlnode(&own, &doc.tree, root, third, nullptr), 1);
    EXPECT_EQ(own.children->count, 10);
    EXPECT_EQ(own.children->capacity, 10) << "what is left out takes no room";
    xpxn_add_child(root, &own);
    EXPECT_EQ(xpxn_child_count(root), 2);
    xp_close_xmlnode(&own);
    EXPECT_EQ(doc.outline(), "a[n{i=1}['x']]");
    xp_destroy_xmlnode(root);
    EXPECT_EQ(doc.tree.root, nullptr);
    EXPECT_EQ(doc.outline(), "");
}

// Wherever they lie: each text ends before an unmapped page.
TEST(XmlTree, EndTagsAreComparedToTheLastLetter) {
    for (size_t length = 1; length < 20; length++) {
        const std::string name(length, 'n'), begin = "<r> <" + name + ">texttext</";
        EXPECT_EQ(outline::document(begin + name + "></r>").outline(), "r[" + name + "['texttext']]");
        for (size_t at = 0; at < length; at++) {
            std::string other = name;
            other[at] = 'm';
            EXPECT_EQ(outline::document(begin + other + "></r>").offset, static_cast<int>(begin.size()) - 1);
            EXPECT_EQ(outline::document(begin + name.substr(0, at)).offset, static_cast<int>(begin.size()) - 1);
        }
    }
}

TEST(XmlTree, ChildrenAreFoundAddedAndTakenOut) {
    outline::document doc("<r>t<i n='0'/><j>x</j><i n='1'/><i/></r>");
    std::string found;
    for (int next = 0; xpxn_search_element(doc.tree.root, "i", next, &next);) found += std::to_string(next) + ' ';
    EXPECT_EQ(found, "2 4 5 ");
    EXPECT_EQ(xpxn_search_element(doc.tree.root, "t", 0, nullptr), nullptr) << "no element";
    EXPECT_EQ(xpxn_search_element(doc.top(), "r", 0, nullptr), doc.tree.root);
    xp_xmlnode *const attribute = xpxa_node(static_cast<xp_xmlattr *>(xpht_get(doc.child(1)->attributes, "n")));
    EXPECT_EQ(outline::of(attribute), "@0@");
    EXPECT_EQ(attribute->parent, doc.child(1));
    for (xp_xmlnode *node : {attribute, doc.top()}) EXPECT_EQ(xpxn_detach(node), 0);
    EXPECT_EQ(doc.child(1)->attributes->bucket_count, 11);
    EXPECT_EQ(doc.tree.nodes->capacity, 10);
    EXPECT_TRUE(!doc.child(4)->children && !doc.child(4)->attributes);

    xp_xmlnode *const parent = doc.child(2); // its array grows out of what the parser gave it
    EXPECT_EQ(parent->children->capacity, 10);
    std::vector<std::string> sources(20, "<k/>");
    for (auto &source : sources) xpxn_add_child(parent, xp_create_xmlnode(&doc.tree, parent, source.data(), nullptr));
    EXPECT_EQ(parent->children->capacity, 40);
    while (xpxn_child_count(parent) > 4) xp_destroy_xmlnode(xpxn_child(parent, xpxn_child_count(parent) / 2));
    EXPECT_EQ(outline::of(parent), "j['x' k[] k[] k[]]");
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
    EXPECT_EQ(outline::of(last), "e{a=1}[f[] 'x']");
    while (xpxn_child_count(last)) xp_destroy_xmlnode(xpxn_child(last, 0));
    EXPECT_EQ(xpar_reset(last->children)->capacity, 10);
    xp_destroy_xmlnode(last);
}

TEST(XmlTree, EntityReferencesAreReplacedInPlace) {
    const std::pair<std::string, std::string> cases[] = {
        {"a &amp;&#65;&#x42; b", "a &AB b"},
        {"&lt;&gt;&quot;&apos;&amp;lt;&#x4a;&#x4A;&#0065;", "<>\"'&lt;JJA"},
        {"x&#256;y", "x"},
        {"&#321;|&#x3bb;|&#4294967361;|&#255;", "AA|\xBB\xBB|AA|\xFF"},
        {"& &; &lt &LT; &nbsp; &#; &#x; &#X41; &#x &# &#a; &", "& &; &lt &LT; &nbsp; &#; &#x; &#X41; &#x &# &#a; &"},
        {"&#65 &lt;", "&#65 &lt;"},
        {"a&lt;b&#65 c", "a<bt;b&#65 c"},
        {"&lt;&#x41G;", "<lt;&#x41G;"},
    };
    using harness::replaced;
    for (const auto &[text, result] : cases)
        for (const bool whole : {false, true}) {
            outline::document doc(replaced("<?xml v='_'?><a v='_'>_<b><!--_--><![CDATA[_]]><?_?></b></a>", "_", text));
            whole ? void(xpxt_unescape(&doc.tree)) : xpxn_unescape(doc.tree.root);
            const std::string root = replaced(replaced("a{v=*}['*' b[#_# !_! %_%]]", "_", text), "*", result);
            EXPECT_EQ(doc.outline(), replaced("xml{v=_} ", "_", whole ? result : text) + root);
        }
}

} // namespace
