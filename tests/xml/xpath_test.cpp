#include "vorncore/xml/xpath.h"

#include "vorncore/xml/lineinfo.h"
#include "xml/outline.h"

namespace {

const char source[] = "<!--top--><a id='1'>t<b><x/></b><!--c--><b id='2'><c>1</c><p:c/><c>2</c></b>"
                      "<![CDATA[u]]><?p?><d><c/></d></a><?end?>";

std::string shown(const xp_xmlnode *node) {
    if (!node) return "none";
    return node->kind == XP_XML_ATTRIBUTE ? '@' + std::string(node->text) : outline::of(node);
}

TEST(XPath, FindsTheFirstAndSelectsAll) {
    const struct {
        const char *path;
        const char *first;
        const char *all;
    } cases[] = {
        {"", "none", ""},
        {"a/b/x", "x", "x "},
        {"/a/b", "none", ""},
        {"a//b", "none", ""},
        {"a/b/", "none", ""},
        {"a/b/c", "none", "c['1'] c['2'] "}, // the first b has no c, and find does not turn back
        {"a/d/c", "c", "c "},
        {"a/*/c", "none", "c['1'] c['2'] c "},
        {"*/*/*", "x", "x c['1'] p:c c['2'] c "},
        {"a/b/p:c", "none", "p:c "},
        {"a/b/c/text()", "none", "'1' '2' "},
        {"a/text()", "'t'", "'t' !u! "},
        {"a/text()/b/@z", "'t'", "'t' !u! "},
        {"comment()", "#top#", "#top# "},
        {"a/comment()", "#c#", "#c# "},
        {"processing-instruction()", "%end%", "%end% "},
        {"a/processing-instruction()/x", "%p%", "%p% "},
        {"a/b/comment()", "none", ""},
        {"a/@id", "@1", "@1 "},
        {"a/@id/b", "@1", "@1 "},
        {"a/b/@id", "none", "@2 "},
        {"@id", "none", ""},
        {"a/@", "none", ""},
        {"a/*x", "none", ""},
        {"a/\x01"
         "ext()",
         "none", ""},
        {"a/text", "none", ""},
        {"a/b[1]", "none", ""},
        {"a/.", "none", ""},
    };
    outline::document doc(source);
    for (const auto &c : cases) {
        xp_xpath *path = xp_create_xpath(c.path);
        EXPECT_EQ(shown(xpxp_find(path, doc.top())), c.first) << c.path;
        xp_destroy_xpath(path);
        xp_array found;
        xp_init_array(&found, 1, nullptr, nullptr);
        xpar_add(&found, doc.tree.root); // stays
        const int count = xpxn_select(doc.top(), c.path, &found);
        EXPECT_EQ(count, found.count - 1) << c.path;
        std::string all;
        for (int i = 1; i < found.count; i++) all += shown(static_cast<xp_xmlnode *>(found.items[i])) + ' ';
        EXPECT_EQ(all, c.all) << c.path;
        xp_close_array(&found);
    }
    xp_xmlnode *const attribute = xpxn_find(doc.tree.root, "@id");
    EXPECT_EQ(attribute->parent, doc.tree.root);
    for (const char *path : {"@id", "*", "text()"})
        for (xp_xmlnode *node : {attribute, doc.child(0)}) EXPECT_EQ(xpxn_find(node, path), nullptr);
    EXPECT_EQ(shown(xpxn_find(doc.child(3), "@id")), "@2") << "from the element itself";
}

// The path that is written for a node leads from its ancestor to the first of those that share it.
TEST(XPath, WrittenPathsLeadBack) {
    outline::document doc("<a><b id='7'><c>x<!--y--><?z?><![CDATA[w]]></c></b></a>");
    xp_respool pool;
    xp_init_respool(&pool);
    const struct {
        const char *path;
        const char *written[4]; // by depth; "" from there on
    } cases[] = {
        {"a", {"/a", ""}},
        {"a/b/@id", {"/a/b/@id", "b/@id", "@id", ""}},
        {"a/b/c", {"/a/b/c", "b/c", "c", ""}},
        {"a/b/c/text()", {"/a/b/c/text()", "b/c/text()", "c/text()", "text()"}},
        {"a/b/c/comment()", {"/a/b/c/comment()", "b/c/comment()", "c/comment()", "comment()"}},
        {"a/b/c/processing-instruction()", {"/a/b/c/processing-instruction()", "b/c/processing-instruction()"}},
    };
    for (const auto &c : cases) {
        xp_xmlnode *const node = xpxn_find(doc.top(), c.path);
        const xp_xmlnode *from = doc.top();
        for (int depth = 0; depth < 4 && c.written[depth]; depth++) {
            char *const written = xprp_gen_xpath_str(&pool, node, depth);
            EXPECT_STREQ(written, c.written[depth]);
            if (depth > 0 && *written) {
                from = depth == 1 ? doc.tree.root : xpxn_child(from, 0);
                EXPECT_EQ(xpxn_find(from, written), node) << written;
            }
        }
    }
    EXPECT_STREQ(xprp_gen_xpath_str(&pool, doc.top(), 0), "");
    EXPECT_STREQ(xprp_gen_xpath_str(&pool, doc.tree.root, -3), "/a");
    xp_close_respool(&pool);
}

TEST(XPath, NothingIsLeftWhenMemoryRunsOut) {
    outline::document doc(source);
    harness::oom_sweep([&] {
        if (xp_xpath *const path = xp_create_xpath("a/b/c/d/e/f/g/h/i/j/k")) {
            EXPECT_EQ(path->steps.count, 11);
            xp_destroy_xpath(path);
        }
        xpxn_find(doc.top(), "1/2/3/4/5/6");
        free(xpxn_gen_xpath_str(doc.tree.root, 0));
        if (xp_lineinfo *const info = xp_create_lineinfo(std::string(2000, '\n').c_str())) {
            EXPECT_EQ(info->starts.count, 2001);
            xp_destroy_lineinfo(info);
        }
    });
    xp_respool pool;
    xp_init_respool(&pool);
    for (int i = 0; i < 16; i++) xprp_add(&pool, nullptr, nullptr);
    harness::oom_sweep([&] {
        const int mark = xprp_last_index(&pool);
        xprp_gen_xpath_str(&pool, doc.tree.root, 0);
        xprp_pop_ex(&pool, mark);
    });
    xp_close_respool(&pool);
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
        int line = -7, column = -7;
        xp_lineinfo info;
        xp_init_lineinfo(&info, c.text);
        xpli_resolve_pos(&info, c.offset, &line, nullptr);
        xpli_resolve_pos(&info, c.offset, nullptr, &column);
        EXPECT_EQ(line, c.line) << c.text << c.offset;
        EXPECT_EQ(column, c.column) << c.text << c.offset;
        xp_close_lineinfo(&info);
    }
}

} // namespace
