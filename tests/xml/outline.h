// A document as one line of text: name{attribute=value ...}[children], 'text', !CDATA!, %instruction%, #comment#.
#pragma once

#include <map>
#include <string>

#include "support/harness.h"
#include "vorncore/xml/xmltree.h"

namespace outline {

using attributes = std::map<std::string, std::string>;

/// Written from first to last.
class writer {
  public:
    std::string line;

    void start(const std::string &name, const attributes &values) {
        separate();
        line += name;
        if (!values.empty()) line += in_braces(values);
        line += '[';
    }
    void end() { line.back() == '[' ? line.pop_back() : line.push_back(']'); }
    void leaf(char quote, const std::string &text) {
        separate();
        line += quote + text + quote;
    }

    static std::string in_braces(const attributes &values) {
        std::string text;
        for (const auto &[name, value] : values) text += (text.empty() ? "" : " ") + name + '=' + value;
        return '{' + text + '}';
    }

  private:
    void separate() {
        if (!line.empty() && line.back() != '[') line += ' ';
    }
};

template <class Value>
attributes values_of(xp_hashtable *table, Value value) {
    attributes values;
    xp_hashenum e;
    if (table)
        for (xp_init_hashenum(&e, table); xphe_next(&e);)
            values[static_cast<char *>(e.current->key)] = value(e.current->value);
    return values;
}

/// Calls the writer for a node and all below it, or for all below a tree.
template <class Writer>
void write(Writer &to, const xp_xmlnode *node) {
    switch (node->kind) {
    case XP_XML_TEXT: return to.leaf('\'', node->text);
    case XP_XML_CDATA: return to.leaf('!', node->text);
    case XP_XML_PI: return to.leaf('%', node->text);
    case XP_XML_COMMENT: return to.leaf('#', node->text);
    case XP_XML_ELEMENT: {
        const auto values = values_of(node->attributes, [](void *a) { return static_cast<xp_xmlattr *>(a)->value; });
        EXPECT_EQ(node->attribute_count, values.size());
        to.start(node->text, values);
    }
    }
    for (int i = 0; i < xpxn_child_count(node); i++) {
        EXPECT_EQ(xpxn_child(node, i)->parent, node);
        write(to, xpxn_child(node, i));
    }
    if (node->kind == XP_XML_ELEMENT) to.end();
}

inline std::string of(const xp_xmlnode *node) {
    writer to;
    write(to, node);
    return to.line;
}

inline std::string of(xp_xmltree &tree) {
    const auto declared = values_of(tree.declaration, [](void *value) { return static_cast<char *>(value); });
    return (tree.declaration ? "xml" + writer::in_braces(declared) + ' ' : "") + of(xpxt_node(&tree));
}

/// A text with its tree, for as long as the test runs.
struct document {
    explicit document(std::string source) : text(std::move(source)) {
        EXPECT_EQ(xp_init_xmltree(&tree, text.data(), 0, nullptr), 1) << text;
    }
    document(const document &) = delete;
    ~document() { xp_close_xmltree(&tree); }
    xp_xmlnode *top() { return xpxt_node(&tree); }
    xp_xmlnode *child(int index) { return xpxn_child(tree.root, index); }
    std::string text;
    xp_xmltree tree;
};

/// The outline of a text's tree; "@" and the offset of the error when there is none.
inline std::string of_text(std::string_view text, uint32_t skip_mask = 0) {
    harness::guard_page page(std::string(text) + '\0');
    int offset = -1;
    xp_xmltree tree;
    if (!xp_init_xmltree(&tree, page.data(), skip_mask, &offset)) return '@' + std::to_string(offset);
    EXPECT_EQ(offset, -1);
    const std::string result = of(tree);
    xp_close_xmltree(&tree);
    return result;
}

} // namespace outline
