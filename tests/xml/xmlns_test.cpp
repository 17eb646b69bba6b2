#include "vorncore/xml/xmlns.h"

#include <pthread.h>

#include <algorithm>

#include "vorncore/xml/xpath.h"
#include "xml/outline.h"

namespace {

std::string in_namespace(const char *ns, const char *prefix, const char *name) {
    return (ns ? std::string(1, '{') + ns + '}' : "") + (prefix ? std::string(prefix) + '|' : "") + name;
}

/// Every element with its attributes, chains included, sorted by what is shown.
std::string resolved(const xp_xmlnode *node) {
    std::vector<std::string> attributes;
    xp_hashenum e;
    if (node->attributes)
        for (xp_init_hashenum(&e, node->attributes); xphe_next(&e);)
            for (auto *a = static_cast<xp_xmlattr *>(e.current->value); a; a = a->next)
                attributes.push_back(' ' + in_namespace(a->ns, a->prefix, a->name) + '=' + a->value);
    std::sort(attributes.begin(), attributes.end());
    std::string text = in_namespace(node->ns, node->prefix, node->text);
    for (const auto &attribute : attributes) text += attribute;
    for (int i = 0; i < xpxn_child_count(node); i++)
        if (xpxn_child(node, i)->kind == XP_XML_ELEMENT) text += '(' + resolved(xpxn_child(node, i)) + ')';
    return text;
}

TEST(XmlNs, ResolvesNamesOrFails) {
    const struct {
        const char *text;
        const char *outline; // null: fails
    } cases[] = {
        {"<a/>", "a"},
        {"<a xmlns='U'><b/>t<c xmlns='V'><d/></c><e/></a>", "{U}a({U}b)({V}c({V}d))({U}e)"},
        {"<a><b xmlns='U'/><c/></a>", "a({U}b)(c)"},
        {"<a xmlns='U'><b xmlns=''/></a>", "{U}a({}b)"},
        {"<p:a xmlns:p='P'><b/><p:c/></p:a>", "{P}p|a(b)({P}p|c)"},
        {"<a xmlns='U' xmlns:p='P'><p:b/></a>", "{U}a({P}p|b)"},
        // one table of prefixes for the whole document
        {"<a><b xmlns:p='P'/><p:c/></a>", "a(b)({P}p|c)"},
        {"<a><p:b/><c xmlns:p='P'/></a>", nullptr},
        {"<a><b xmlns:p='P'/><c xmlns:p='P'/></a>", nullptr},
        {"<a xmlns:p='P'><b xmlns:p='Q'/></a>", nullptr},
        {"<a xmlns:p='P'><b xmlns:p=''><p:c/></b></a>", nullptr},
        {"<a xmlns:p='P'><b xmlns:p=''/><c xmlns:p='Q'><p:d/></c></a>", "a(b)(c({Q}p|d))"},
        {"<a xmlns:p=''/>", "a"},
        {"<p:a/>", nullptr},
        // attributes
        {"<a href='1' x:href='2'/>", "a href=1 href=2"},
        {"<a xmlns:p='P' p:i='1'/>", "a i=1"},
        {"<a xmlns='U' i='1'/>", "{U}a i=1"},
        {"<a xmlns:p='P' x:p:i='1'/>", "a {P}p|i=1"},
        {"<a xmlns:p='P' x:p:i='1' i='2' y:i='3'/>", "a i=2 i=3 {P}p|i=1"},
        {"<a xmlns:p='P' xmlns:q='Q' x:p:i='1' x:q:i='2'/>", "a {P}p|i=1 {Q}q|i=2"},
        {"<a xmlns:p='P' xmlns:q='P' x:p:i='1' x:q:i='2'/>", nullptr},
        {"<a xmlns:p='P' x:p:i='1' y:p:i='2'/>", nullptr},
        {"<a x:p:i='1' xmlns:p='P'/>", "a {P}p|i=1"},
        {"<a><b x:p:i='1'/></a>", nullptr},
        {"<a xmlns:p='P' x:p:i:j='1'/>", "a {P}p|i:j=1"},
        {"<a xmlns:p:q='P' x:p='1'/>", "a p=1"},
    };
    for (const auto &c : cases) {
        outline::document doc(c.text);
        xp_xmltree &tree = doc.tree;
        ASSERT_EQ(xpxt_enable_ns(&tree), c.outline != nullptr) << c.text;
        EXPECT_EQ(tree.ns_enabled, c.outline != nullptr);
        if (c.outline) {
            EXPECT_EQ(resolved(tree.root), c.outline) << c.text;
            EXPECT_EQ(xpxt_enable_ns(&tree), 1);
            EXPECT_EQ(resolved(tree.root), c.outline) << "the second time changes nothing";
        } else {
            xpxt_enable_ns(&tree); // in whatever state it is, nothing may break or get lost
            xpxt_unescape(&tree);
        }
    }
}

TEST(XmlNs, CountsTheAttributesThatAreLeftAndRefusesAnEmptyTable) {
    for (const bool emptied : {false, true}) {
        outline::document doc("<a xmlns='U' i='1' xmlns:p='P'><b xmlns='V'/><c i='1'/></a>");
        if (emptied) xp_destroy_xmlnode(xpxn_find(doc.tree.root, "c/@i"));
        EXPECT_EQ(xpxt_enable_ns(&doc.tree), !emptied);
        EXPECT_EQ(doc.tree.root->attribute_count, 1u);
        EXPECT_EQ(doc.child(0)->attribute_count, 0u);
    }
}

TEST(XmlNs, AttributesAreFoundByNamespaceAndLocalName) {
    outline::document doc("<a xmlns:p='P' xmlns:q='Q' xmlns:r='R' i='0' x:p:i='1' x:q:i='2' y:j='3' z:x='4'>t</a>");
    const xp_xmlnode *const root = doc.tree.root;
    EXPECT_STREQ(xpxn_attribute_ns(root, nullptr, "y:j"), "3");
    ASSERT_EQ(xpxt_enable_ns(&doc.tree), 1);
    const struct {
        const char *ns, *name, *value;
    } cases[] = {
        {nullptr, "i", "0"}, {"P", "i", "1"},         {"Q", "i", "2"},           {"R", "i", nullptr},
        {"", "i", nullptr},  {nullptr, "j", "3"},     {"P", "j", nullptr},       {nullptr, "x", "4"},
        {"P", "x", nullptr}, {nullptr, "y", nullptr}, {nullptr, "y:j", nullptr}, {nullptr, "xmlns", nullptr},
    };
    for (const auto &c : cases)
        EXPECT_STREQ(xpxn_attribute_ns(root, c.ns, c.name), c.value) << (c.ns ? c.ns : "-") << ' ' << c.name;
    EXPECT_EQ(xpxn_attribute_ns(doc.child(0), "P", "i"), nullptr);
    EXPECT_STREQ(xpxn_find(root, "@j")->text, "3");
}

TEST(XmlNs, DestroyedAttributesLeaveTheirNamesakes) {
    outline::document doc("<a xmlns:p='P' xmlns:q='Q' i='0' x:p:i='1' x:q:i='2' k='3'/>");
    ASSERT_EQ(xpxt_enable_ns(&doc.tree), 1);
    const xp_xmlnode *const root = doc.tree.root;
    for (const char *rest : {"12", "1", ""}) { // they are chained in the order of their full names in the table
        xp_destroy_xmlnode(xpxn_find(doc.top(), "a/@i"));
        std::string values;
        for (const char *ns : {"P", "Q"})
            if (const char *value = xpxn_attribute_ns(root, ns, "i")) values += value;
        EXPECT_EQ(values, rest);
    }
    EXPECT_EQ(xpxn_find(root, "@i"), nullptr);
    EXPECT_EQ(root->attributes->count, 1);
}

TEST(XmlNs, NothingIsLeftWhenMemoryRunsOut) {
    std::string text;
    harness::oom_sweep([&] {
        text = "<a xmlns='U' xmlns:p='P' xmlns:q='Q' x:p:i='1' x:q:i='2' x:p:j='3' x:p:k='4' x:p:l='5'>"
               "<b xmlns='V'><b xmlns='W'><b xmlns='X'><b xmlns='Y'/></b></b></b></a>";
        xp_xmltree tree;
        if (!xp_init_xmltree(&tree, text.data(), 0, nullptr)) return;
        if (xpxt_enable_ns(&tree)) {
            EXPECT_STREQ(xpxn_attribute_ns(tree.root, "Q", "i"), "2");
        }
        xp_close_xmltree(&tree);
    });
}

// Whatever goes through a document in depth must not do so on the stack.
void *treat_deep_document(void *) {
    constexpr int depth = 1'000'000;
    std::string text, path;
    for (int i = 0; i < depth; i++) text += "<a>", path += i ? "/a" : "a";
    text += "&lt;";
    for (int i = 0; i < depth; i++) text += "</a>";
    path += "/text()";

    xp_xmltree tree;
    EXPECT_EQ(xp_init_xmltree(&tree, text.data(), 0, nullptr), 1);
    EXPECT_EQ(xpxt_unescape(&tree), 1);
    EXPECT_EQ(xpxt_enable_ns(&tree), 1);
    xp_xmlnode *const leaf = xpxn_find(xpxt_node(&tree), path.c_str());
    EXPECT_STREQ(leaf->text, "<");
    xp_array all;
    xp_init_array(&all, 1, nullptr, nullptr);
    EXPECT_EQ(xpxn_select(xpxt_node(&tree), path.c_str(), &all), 1);
    EXPECT_EQ(all.items[0], leaf);
    xp_close_array(&all);
    char *const written = xpxn_gen_xpath_str(leaf, 0);
    EXPECT_EQ(written, '/' + path);
    free(written);
    xp_close_xmltree(&tree);

    std::string unclosed;
    for (int i = 0; i < depth; i++) unclosed += "<a>";
    int offset = 0;
    EXPECT_EQ(xp_init_xmltree(&tree, unclosed.data(), 0, &offset), 0);
    EXPECT_EQ(offset, 3 * depth);
    return nullptr;
}

TEST(XmlNs, AMillionNestedElementsFitASmallStack) {
    pthread_attr_t small;
    pthread_attr_init(&small);
    pthread_attr_setstacksize(&small, 256 << 10);
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &small, treat_deep_document, nullptr), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&small);
}

} // namespace
