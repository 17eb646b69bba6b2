#include "vorncore/xml/xmlns.h"

#include <pthread.h>

#include "vorncore/xml/xpath.h"
#include "xml/outline.h"

namespace {

TEST(XmlNs, ResolvesNamesOrFails) {
    const std::pair<const char *, const char *> cases[] = {
        // "": fails
        {"<a><b xmlns='U'><c/><d xmlns='V'><e/></d><f xmlns=''/><g/></b><h/></a>",
         "a[{U}b[{U}c[] {V}d[{V}e[]] {}f[] {U}g[]] h[]]"},
        // one table of prefixes for the whole document
        {"<a><p:b xmlns='U' xmlns:p='P'><c/><p:d/></p:b><p:e/></a>", "a[{P}p|b[{U}c[] {P}p|d[]] {P}p|e[]]"},
        {"<a><p:b/><c xmlns:p='P'/></a>", ""},
        {"<a><b xmlns:p='P'/><c xmlns:p='P'/></a>", ""},
        {"<a xmlns:p='P'><b xmlns:p=''><p:c/></b></a>", ""},
        {"<a xmlns:p=''><b xmlns:p='P'/><c xmlns:p=''/><p:d xmlns:p='Q'/></a>", "a[b[] c[] {Q}p|d[]]"},
        // attributes
        {"<a xmlns='U' xmlns:p='P' i='1' x:i='2' p:i='3'/>", "{U}a{i=1 i=2 i=3}[]"},
        {"<a x:p:i='1' x:q:i='2' i='3' y:i='4' y:p:j:k='5' xmlns:p='P' xmlns:q='Q' xmlns:r:s='R'/>",
         "a{i=3 i=4 {P}p|i=1 {P}p|j:k=5 {Q}q|i=2}[]"},
        {"<a xmlns:p='P' xmlns:q='P' x:p:i='1' x:q:i='2'/>", ""},
        {"<a xmlns:p='P' xmlns:q='Q' x:p:i='1' y:q:i='2' y:p:i='3'/>", ""},
        {"<a><b x:p:i='1'/></a>", ""},
    };
    for (const auto &[text, outline] : cases) {
        outline::document doc(text);
        const int done = xpxt_enable_ns(&doc.tree);
        EXPECT_EQ(doc.tree.ns_enabled, done);
        const int again = xpxt_enable_ns(&doc.tree); // changes nothing, or breaks nothing
        xpxt_unescape(&doc.tree);
        EXPECT_EQ(done ? doc.outline() : "", outline) << text;
        EXPECT_TRUE(again || !done);
    }
    outline::document emptied("<a><b i='1'/></a>");
    xp_destroy_xmlnode(xpxn_find(emptied.tree.root, "b/@i"));
    EXPECT_EQ(emptied.child(0)->attribute_count, 1U) << "what was read";
    EXPECT_EQ(xpxt_enable_ns(&emptied.tree), 0) << "a table without attributes";
    outline::document failed("<a xmlns:p='P'><q:b/></a>");
    EXPECT_EQ(xpxt_enable_ns(&failed.tree), 0);
    EXPECT_EQ(outline::of(failed.tree.root), "a[q|b[]]") << "split, and declared no more";
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

    for (const char *left : {"12", "1-", "--"}) { // they are chained in the order of their full names in the table
        xp_destroy_xmlnode(xpxn_find(root, "@i"));
        const char *const p = xpxn_attribute_ns(root, "P", "i"), *const q = xpxn_attribute_ns(root, "Q", "i");
        EXPECT_EQ(std::string(p ? p : "-") + (q ? q : "-"), left);
    }
    EXPECT_EQ(xpxn_find(root, "@i"), nullptr);
    EXPECT_EQ(root->attributes->count, 2) << "its namesakes leave nothing";
}

// Whatever goes through a document in depth must not do so on the stack.
void *treat_deep_document(void *) {
    constexpr int depth = 1'000'000;
    std::string begin, end, path;
    for (int i = 0; i < depth; i++) begin += "<a>", end += "</a>", path += "a/";
    path += "text()";
    EXPECT_EQ(outline::document(begin).offset, 3 * depth);

    outline::document doc(begin + "&lt;" + end);
    EXPECT_EQ(xpxt_unescape(&doc.tree), 1);
    EXPECT_EQ(xpxt_enable_ns(&doc.tree), 1);
    xp_xmlnode *const leaf = xpxn_find(doc.top(), path.c_str());
    EXPECT_EQ(outline::of(leaf), "'<'");
    xp_array all;
    xp_init_array(&all, 1, nullptr, nullptr);
    EXPECT_EQ(xpxn_select(doc.top(), path.c_str(), &all), 1);
    EXPECT_EQ(all.items[0], leaf);
    xp_close_array(&all);
    char *const written = xpxn_gen_xpath_str(leaf, 0);
    EXPECT_EQ(written, '/' + path);
    free(written);
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
