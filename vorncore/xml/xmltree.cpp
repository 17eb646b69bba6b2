#include "vorncore/xml/xmltree.h"

#include <stddef.h>
#include <string.h>

#include <algorithm>

#include "vorncore/base/chartype.h"
#include "vorncore/base/internal/alloc.h"
#include "vorncore/xml/internal/nodes.h"
#include "vorncore/xml/internal/parser.h"
#include "vorncore/xml/internal/walk.h"

using namespace vorncore;

// The tree stands for a node: what the calls on nodes read of it lies at the same place.
static_assert(offsetof(xp_xmltree, source) == offsetof(xp_xmlnode, text));
static_assert(offsetof(xp_xmltree, nodes) == offsetof(xp_xmlnode, children));
static_assert(offsetof(xp_xmltree, declaration) == offsetof(xp_xmlnode, attributes));
// And so does an attribute.
static_assert(offsetof(xp_xmlattr, value) == offsetof(xp_xmlnode, text));
static_assert(offsetof(xp_xmlattr, owner) == offsetof(xp_xmlnode, parent));

namespace {

/// A reference that stands at an "&": `length` bytes for `count` times `byte`; of length 0 when none stands there, and
/// negative when a number lacks its ";".
struct reference {
    ptrdiff_t length;
    int count;
    char byte;
};

reference read_number(const char *at) {
    const bool hexadecimal = at[2] == 'x';
    const uint32_t digits = hexadecimal ? XP_CHAR_HEX_DIGIT : XP_CHAR_DIGIT;
    const char *const first = at + (hexadecimal ? 3 : 2);
    const char *p = first;
    unsigned value = 0;
    for (; xp_char_is(*p, digits); p++) {
        value = value * (hexadecimal ? 16 : 10) + static_cast<unsigned>(xp_char_hex_value(*p));
        if (value > 0xFF) value = 0x100 | (value & 0xFF);
    }
    if (p == first) return {0, 0, 0};
    // Kept: what does not fit into a byte gives its low byte twice.
    return {*p == ';' ? p + 1 - at : -1, value > 0xFF ? 2 : 1, static_cast<char>(value)};
}

reference read_reference(const char *at) {
    constexpr struct {
        char name[7];
        char byte;
    } named[] = {{"&lt;", '<'}, {"&amp;", '&'}, {"&gt;", '>'}, {"&quot;", '"'}, {"&apos;", '\''}};
    if (at[1] == '#') return read_number(at);
    for (const auto &entity : named)
        if (const size_t length = strlen(entity.name); strncmp(at, entity.name, length) == 0)
            return {static_cast<ptrdiff_t>(length), 1, entity.byte};
    return {0, 0, 0};
}

} // namespace

/// In place: what replaces a reference is never longer.
static int __xml_unescape(char *text) {
    char *in = text, *out = text;
    while (char *const found = strchr(in, '&')) {
        if (in != out) memmove(out, in, static_cast<size_t>(found - in));
        out += found - in;
        in = found;
        const reference ref = read_reference(in);
        if (ref.length < 0) return 0; // Kept: the rest stays where it is.
        if (ref.length == 0) *out++ = '&';
        for (int i = 0; i < ref.count; i++) *out++ = ref.byte;
        in += ref.length ? ref.length : 1;
    }
    if (in != out) memmove(out, in, strlen(in) + 1);
    return 1;
}

namespace {

void unescape_values(const xp_xmlnode *element) {
    if (!element->attributes) return;
    each_attribute(element->attributes, [](xp_xmlattr *record) {
        __xml_unescape(record->value);
        return true;
    });
}

void unescape_declaration(const xp_xmlnode *tree) {
    xp_hashtable *const declaration = tree->attributes;
    const auto unescape = [](void *, xp_pair *pair) { return __xml_unescape(static_cast<char *>(pair->value)), 1; };
    if (declaration) xpht_enumerate(declaration, unescape, nullptr);
}

visit unescape_node(xp_xmlnode *node) {
    if (node->kind == XP_XML_TREE) unescape_declaration(node);
    if (node->kind == XP_XML_ELEMENT) unescape_values(node);
    if (node->kind == XP_XML_TEXT) __xml_unescape(node->text);
    return children_of(node) ? visit::down : visit::past;
}

void unescape_all(const char *call, xp_xmlnode *top) {
    tree_walk walk;
    const auto enter = [](xp_xmlnode *node, int) { return unescape_node(node); };
    if (!walk.run(top, enter, [](xp_xmlnode *) {})) out_of_memory(call, walk.bytes_wanted());
}

/// Takes an attribute out of the table of its owner, or out of the chain that it stands in there.
void remove_attribute(const xp_xmlattr *gone) {
    xp_hashenum e;
    xp_init_hashenum(&e, gone->owner->attributes);
    while (xphe_next(&e)) {
        auto **link = reinterpret_cast<xp_xmlattr **>(&e.current->value);
        while (*link && *link != gone) link = &(*link)->next;
        if (!*link) continue;
        *link = gone->next;
        if (!e.current->value) xphe_del(&e);
        return;
    }
}

void destroy_attribute(xp_xmlattr *attribute) {
    remove_attribute(attribute);
    block_release()(attribute);
}

} // namespace

int xp_init_xmltree(xp_xmltree *tree, char *text, uint32_t skip_mask, int *error_offset) {
    *tree = {XP_XML_TREE, text, skip_mask, 0, nullptr, create_children(), nullptr};
    parse_state state = {text, skip_mask, {}};
    if (tree->nodes && parse_document(state, tree)) return 1;
    xp_close_xmltree(tree);
    if (error_offset) *error_offset = static_cast<int>(state.at - text);
    return 0;
}

xp_xmltree *xp_create_xmltree(char *text, uint32_t skip_mask, int *error_offset) {
    return create_record<xp_xmltree>(
        [=](xp_xmltree *tree) { return xp_init_xmltree(tree, text, skip_mask, error_offset); });
}

void xp_close_xmltree(xp_xmltree *tree) {
    if (tree->declaration) xp_destroy_hashtable(tree->declaration);
    tree->declaration = nullptr;
    tree->root = nullptr;
    free_contents(xpxt_node(tree));
}

void xp_destroy_xmltree(xp_xmltree *tree) { destroy_record(tree, xp_close_xmltree); }

int xpxt_unescape(xp_xmltree *tree) {
    unescape_all("xpxt_unescape", xpxt_node(tree));
    return 1;
}

void xpxn_unescape(xp_xmlnode *node) { unescape_all("xpxn_unescape", node); }

int xp_init_xmlnode(xp_xmlnode *node, xp_xmltree *tree, xp_xmlnode *parent, char *position, char **end) {
    parse_state state = {position, tree->skip_mask, {}};
    const bool parsed = parse_node(state, node, parent);
    if (end) *end = state.at;
    return parsed;
}

xp_xmlnode *xp_create_xmlnode(xp_xmltree *tree, xp_xmlnode *parent, char *position, char **end) {
    return create_record<xp_xmlnode>(
        [=](xp_xmlnode *node) { return xp_init_xmlnode(node, tree, parent, position, end); });
}

void xp_close_xmlnode(xp_xmlnode *node) {
    if (node->kind == XP_XML_ATTRIBUTE) return;
    xpxn_detach(node);
    if (auto *const tree = reinterpret_cast<xp_xmltree *>(node->parent);
        tree && tree->kind == XP_XML_TREE && tree->root == node)
        tree->root = nullptr;
    free_contents(node);
}

void xp_destroy_xmlnode(xp_xmlnode *node) {
    if (node->kind == XP_XML_ATTRIBUTE) return destroy_attribute(reinterpret_cast<xp_xmlattr *>(node));
    xp_close_xmlnode(node);
    block_release()(node);
}

int xpxn_detach(xp_xmlnode *node) {
    if (node->kind == XP_XML_TREE || node->kind == XP_XML_ATTRIBUTE || !node->parent) return 0;
    xp_array *const siblings = node->parent->children;
    if (!siblings) return 0;
    void **const end = siblings->items + siblings->count;
    void **const found = std::find(siblings->items, end, node);
    if (found == end) return 0;
    xpar_del(siblings, static_cast<int>(found - siblings->items));
    return 1;
}

void xpxn_add_child(xp_xmlnode *node, xp_xmlnode *child) {
    if (!node->children) node->children = create_children();
    if (!node->children || !append_child(node->children, child))
        out_of_memory("xpxn_add_child", bytes_of<void *>(xpxn_child_count(node) + 1));
}

int xpxn_child_count(const xp_xmlnode *node) {
    const xp_array *const children = children_of(node);
    return children ? children->count : 0;
}

xp_xmlnode *xpxn_child(const xp_xmlnode *node, int index) {
    return static_cast<xp_xmlnode *>(node->children->items[index]);
}

xp_xmlnode *xpxn_search_element(const xp_xmlnode *node, const char *name, int start, int *next) {
    const int count = xpxn_child_count(node);
    for (int i = std::max(start, 0); i < count; i++) {
        xp_xmlnode *const child = xpxn_child(node, i);
        if (child->kind != XP_XML_ELEMENT || strcmp(child->text, name) != 0) continue;
        if (next) *next = i + 1;
        return child;
    }
    return nullptr;
}
