#include "vorncore/xml/xpath.h"

#include "vorncore/xml/lineinfo.h"
#include "vorncore/xml/xmlns.h"
#include "xml/outline.h"

namespace {

const char source[] = "<!--top--><a id='1'>t<b><x/></b><!--c--><b id='2'><c>1</c><p:c/><c>2</c></b>"
                      "<![CDATA[u]]><?p?><d><c/></d></a><?end?>";

TEST(XPath, FindsTheFirstAndSelectsAll) {
    const struct {
        const char *path, *first, *all;
    } cases[] = {
        {"a/b/x", "x[]", "x[] "},
        {"a/b/c", "", "c['1'] c['2'] "}, // the first b has no c, and find does not turn back
        {"a/*/c", "", "c['1'] c['2'] c[] "},
        {"*/*/*", "x[]", "x[] c['1'] p:c[] c['2'] c[] "},
        {"a/text()/b/@z", "'t'", "'t' !u! "},
        {"comment()", "#top#", "#top# "},
        {"a/comment()/x", "#c#", "#c# "},
        {"a/processing-instruction()", "%p%", "%p% "},
        {"a/@id/b", "@1@", "@1@ "},
        {"a/b/@id", "", "@2@ "},
    };
    outline::document doc(source);
    xp_array found;
    xp_init_array(&found, 1, nullptr, nullptr);
    for (const auto &c : cases) {
        const xp_xmlnode *const first = xpxn_find(doc.top(), c.path);
        EXPECT_EQ(first ? outline::of(first) : "", c.first) << c.path;
        const int before = found.count, count = xpxn_select(doc.top(), c.path, &found);
        EXPECT_EQ(count, found.count - before) << c.path;
        std::string all;
        for (int i = before; i < found.count; i++) all += outline::of(static_cast<xp_xmlnode *>(found.items[i])) + ' ';
        EXPECT_EQ(all, c.all) << c.path;
    }
    for (const char *path : {"", "/a/b", "a/b/", "@id", "a/@", "a/*x", "a/\1ext()"}) {
        EXPECT_EQ(xpxn_find(doc.top(), path), nullptr) << path;
        EXPECT_EQ(xpxn_select(doc.top(), path, &found), 0) << path;
    }
    xp_close_array(&found);
    xp_xmlnode *const attribute = xpxn_find(doc.child(3), "@id");
    EXPECT_EQ(outline::of(attribute), "@2@") << "of the element itself";
    for (const char *path : {"@id", "*", "text()"})
        for (xp_xmlnode *node : {attribute, doc.child(0)}) EXPECT_EQ(xpxn_find(node, path), nullptr);
}

TEST(XPath, PathsAreWrittenFromAnyDepth) {
    outline::document doc("<a><b id='7'><c>x<!--y--><?z?><![CDATA[w]]></c></b></a>");
    xp_respool pool;
    xp_init_respool(&pool);
    for (std::string path :
         {"a", "a/b/@id", "a/b/c", "a/b/c/text()", "a/b/c/comment()", "a/b/c/processing-instruction()"}) {
        xp_xmlnode *const node = xpxn_find(doc.top(), path.c_str());
        for (const int depth : {0, -3}) EXPECT_EQ(xprp_gen_xpath_str(&pool, node, depth), '/' + path);
        for (int depth = 1; !path.empty(); depth++) {
            path.erase(0, std::min(path.find('/'), path.size() - 1) + 1);
            EXPECT_EQ(xprp_gen_xpath_str(&pool, node, depth), path) << depth;
        }
    }
    EXPECT_STREQ(xprp_gen_xpath_str(&pool, xpxn_child(xpxn_find(doc.tree.root, "b/c"), 3), 3), "text()");
    EXPECT_STREQ(xprp_gen_xpath_str(&pool, doc.top(), 0), "");
    xp_close_respool(&pool);
}

// Of all that is done with a document.
TEST(XPath, NothingIsLeftWhenMemoryRunsOut) {
    outline::document doc("<a>x</a>");
    xp_respool pool;
    xp_init_respool(&pool);
    for (int i = 0; i < 16; i++) xprp_add(&pool, nullptr, nullptr);
    std::string text; // its memory is not counted: operator new
    harness::oom_sweep([&] {
        const int mark = xprp_last_index(&pool);
        xprp_gen_xpath_str(&pool, doc.tree.root, 0);
        xprp_pop_ex(&pool, mark);
        text = "<?xml v='1'?><!--c--><a xmlns:p='P' xmlns:q='Q' x:p:i='1' x:q:i='2' x:p:j='3' x:p:k='4' x:p:l='5'>x"
               "<b xmlns='U'><!--c--><b xmlns='V'><b xmlns='W' k='1'>y</b></b></b>"
               "<d/><d/><d/><d/><d/><d/><d/><d/><d/><d/><d/></a><?p?>";
        xp_xmltree *const tree = xp_create_xmltree(text.data(), XP_XML_COMMENT, nullptr);
        if (!tree) return;
        EXPECT_TRUE(!xpxt_enable_ns(tree) || xpxn_attribute_ns(tree->root, "Q", "i"));
        xpxn_find(tree->root, "1/2/3/4/5/6");
        xp_destroy_xmltree(tree);
        if (xp_xpath *const path = xp_create_xpath("a/b/c/d/e/f/g/h/i/j/k")) {
            EXPECT_EQ(path->steps.capacity, 20);
            xp_destroy_xpath(path);
        }
        if (xp_lineinfo *const info = xp_create_lineinfo(std::string(2000, '\n').c_str())) {
            EXPECT_EQ(info->starts.capacity, 2048);
            xp_destroy_lineinfo(info);
        }
    });
    xp_close_respool(&pool);
    const auto add = [&] {
        harness::fail_allocation failure(1);
        xpxn_add_child(doc.child(0), doc.tree.root);
    };
    EXPECT_DEATH(add(), "vorncore: xpxn_add_child: out of memory");
}

TEST(LineInfo, TheLastLineCountsOtherwise) {
    const struct {
        const char *text;
        int offset, line, column;
    } cases[] = {
        {"ab\ncd", 0, 1, -1}, {"ab\ncd", 1, 1, 0},    {"ab\ncd", 2, 1, 1},   {"ab\ncd", 3, 1, 1},
        {"ab\ncd", 4, 1, 2},  {"ab\ncd", 100, 1, 98}, {"ab\ncd", -5, 0, -5}, {"", 0, 0, 1},
        {"\n\n\n", 1, 2, -1}, {"\n\n\n", 3, 3, 1},    {"\r\nx\n", 2, 2, -1}, {"\r\nx\n", 4, 2, 1},
    };
    for (const auto &c : cases) {
        int line, column;
        xp_lineinfo info;
        xp_init_lineinfo(&info, c.text);
        xpli_resolve_pos(&info, c.offset, &line, nullptr);
        xpli_resolve_pos(&info, c.offset, nullptr, &column);
        EXPECT_EQ(std::pair(line, column), std::pair(c.line, c.column)) << c.text << c.offset;
        xp_close_lineinfo(&info);
    }
}

} // namespace
