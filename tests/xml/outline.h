// A tree as one line of text: name{attribute=value ...}[children], 'text', !CDATA!, %instruction%, #comment#.
#pragma once

#include <map>
#include <string>

#include "support/harness.h"
#include "vorncore/xml/xmltree.h"

namespace outline {

inline std::string pairs(const xp_hashtable *table, std::string (*value)(const void *)) {
    std::map<std::string, std::string> sorted;
    xp_hashenum e;
    xp_init_hashenum(&e, const_cast<xp_hashtable *>(table));
    while (xphe_next(&e)) sorted[static_cast<char *>(e.current->key)] = value(e.current->value);
    std::string text;
    for (const auto &[key, v] : sorted) text += (text.empty() ? "" : " ") + key + '=' + v;
    return '{' + text + '}';
}

inline std::string attribute_value(const void *record) { return static_cast<const xp_xmlattr *>(record)->value; }
inline std::string plain_value(const void *text) { return static_cast<const char *>(text); }

inline std::string of(const xp_xmlnode *node);

inline std::string of_children(const xp_xmlnode *node) {
    std::string text;
    for (int i = 0; i < xpxn_child_count(node); i++) {
        EXPECT_EQ(xpxn_child(node, i)->parent, node);
        if (i) text += ' ';
        text += of(xpxn_child(node, i));
    }
    return text;
}

inline std::string of(const xp_xmlnode *node) {
    const std::string text = node->text;
    switch (node->kind) {
    case XP_XML_TEXT: return '\'' + text + '\'';
    case XP_XML_CDATA: return '!' + text + '!';
    case XP_XML_PI: return '%' + text + '%';
    case XP_XML_COMMENT: return '#' + text + '#';
    default: break;
    }
    EXPECT_EQ(node->attribute_count, node->attributes ? static_cast<uint32_t>(node->attributes->count) : 0u);
    return text + (node->attributes ? pairs(node->attributes, attribute_value) : "") +
           (node->children ? '[' + of_children(node) + ']' : "");
}

inline std::string of(xp_xmltree &tree) {
    return (tree.declaration ? "xml" + pairs(tree.declaration, plain_value) + ' ' : "") + of_children(xpxt_node(&tree));
}

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
