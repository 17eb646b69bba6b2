// A document as one line of text: name{attribute=value ...}[children], 'text', !CDATA!, %instruction%, #comment#.
#pragma once

#include <map>
#include <set>
#include <string>

#include "support/harness.h"
#include "vorncore/xml/xmltree.h"

namespace outline {

using attributes = std::multiset<std::string>; // NAME=VALUE

inline std::string in_braces(const attributes &values) {
    std::string text;
    for (const auto &value : values) text += (text.empty() ? "{" : " ") + value;
    return text.empty() ? "" : text + '}';
}

/// With the namespace and the prefix, once names are resolved: {namespace}prefix|name.
template <class Record>
std::string full_name(const Record *record, const char *name) {
    return (record->ns ? std::string("{") + record->ns + '}' : "") +
           (record->prefix ? std::string(record->prefix) + '|' : "") + name;
}

inline std::string of(const xp_xmlnode *node) {
    static const std::map<uint32_t, std::string> quotes = {
        {XP_XML_TEXT, "'"}, {XP_XML_CDATA, "!"}, {XP_XML_PI, "%"}, {XP_XML_COMMENT, "#"}, {XP_XML_ATTRIBUTE, "@"}};
    if (const auto quote = quotes.find(node->kind); quote != quotes.end())
        return quote->second + node->text + quote->second;
    const bool is_tree = node->kind == XP_XML_TREE; // its attributes are the declaration's
    attributes values;
    xp_hashenum e;
    if (node->attributes) {
        for (xp_init_hashenum(&e, node->attributes); xphe_next(&e);)
            if (is_tree)
                values.insert(static_cast<char *>(e.current->key) + std::string("=") +
                              static_cast<char *>(e.current->value));
            else
                for (auto *a = static_cast<xp_xmlattr *>(e.current->value); a; a = a->next)
                    values.insert(full_name(a, a->name) + '=' + a->value);
    }
    std::string children;
    for (int i = 0; i < xpxn_child_count(node); i++) {
        EXPECT_EQ(xpxn_child(node, i)->parent, node);
        if (i) children += ' ';
        children += of(xpxn_child(node, i));
    }
    if (is_tree) return (node->attributes ? "xml" + in_braces(values) + ' ' : "") + children;
    EXPECT_EQ(node->attribute_count, values.size());
    return full_name(node, node->text) + in_braces(values) + '[' + children + ']';
}

/// A text with its tree, for as long as the test runs.
struct document {
    explicit document(const std::string &source, uint32_t skip_mask = 0)
        : text(source.c_str()), parsed(xp_init_xmltree(&tree, text.data(), skip_mask, &offset)) {}
    document(const document &) = delete;
    ~document() {
        if (parsed) xp_close_xmltree(&tree);
    }
    xp_xmlnode *top() { return xpxt_node(&tree); }
    xp_xmlnode *child(int index) { return xpxn_child(tree.root, index); }

    /// "@" and the offset of the error when there is no tree.
    std::string outline() {
        EXPECT_EQ(offset == -1, parsed);
        return parsed ? of(top()) : '@' + std::to_string(offset);
    }

    harness::guarded_text text;
    xp_xmltree tree;
    int offset = -1;
    int parsed;
};

} // namespace outline
