#include "vorncore/xml/internal/parser.h"

#include <string.h>

#include <bit>
#include <utility>

#include "vorncore/base/chartype.h"
#include "vorncore/base/internal/textscan.h"
#include "vorncore/xml/internal/nodes.h"

using namespace vorncore;

namespace {

char *skip_space(char *at) {
    while (xp_char_is(*at, XP_CHAR_SPACE)) at++;
    return at;
}

char *skip_name(char *at) {
    while (xp_char_is(*at, XP_CHAR_NAME)) at++;
    return at;
}

enum class attribute { none, read, broken };

/// Reads an attribute after white space. Of a name without "=" it passes only the name itself, and says `none`.
attribute read_attribute(char *&at, char *&name, char *&value) {
    name = skip_space(at);
    at = skip_name(name);
    if (at == name) return attribute::none;
    char *const equals = skip_space(at);
    if (*equals != '=') return attribute::none;
    *at = '\0';
    at = skip_space(equals + 1);
    if (*at != '"' && *at != '\'') return attribute::broken;
    value = at + 1;
    char *const end = strchr(value, *at++);
    if (!end) return attribute::broken;
    *end = '\0';
    at = end + 1;
    return attribute::read;
}

} // namespace

/// Reads attributes as long as there are any and store(name, value) takes them.
template <class Store>
static bool __read_attributes(char *&at, Store store) {
    for (char *name, *value;;) {
        const attribute found = read_attribute(at, name, value);
        if (found != attribute::read) return found == attribute::none;
        if (!store(name, value)) return false;
    }
}

/// Ends a text at the first occurrence of a pattern and goes behind that.
static bool __cut_to_pattern(char *&at, const char *pattern) {
    char *const end = strstr(at, pattern);
    if (!end) return false;
    *end = '\0';
    at = end + strlen(pattern);
    return true;
}

/// Where a text goes on behind a name that it begins with, null if it does not. The name lies before it in the same
/// buffer, and is not empty. Most names are less than a word long; compared as one, their lengths need no guessing.
static char *behind_name(char *text, const char *name) {
    if (VORNCORE_READ_TO_PAGE_END && text - name >= 8) {
        const uint64_t word = load_word<uint64_t>(name);
        if (const uint64_t end = zeros_in(word)) {
            const int length = std::countr_zero(end) / 8;
            return (load_text(text) ^ word) << (64 - 8 * length) ? nullptr : text + length;
        }
    }
    while (*name && *text == *name) text++, name++;
    return *name ? nullptr : text;
}

/// Goes behind the end tag of that name if it is what stands here.
static bool __istagend(char *&at, const char *name) {
    if (at[0] != '<' || at[1] != '/') return false;
    char *p = behind_name(at + 2, name);
    if (!p) return false;
    p = skip_space(p);
    if (*p != '>') return false;
    *at = '\0'; // ends a text
    at = p + 1;
    return true;
}

namespace {

/// What was read of a node: all of it, or the start tag of an element. Where its record will lie depends on that.
struct reading {
    uint32_t kind = XP_XML_TEXT;
    char *text = nullptr;
    xp_hashtable *attributes = nullptr; // owned; they have no owner yet

    void move_to(xp_xmlnode *node, xp_xmlnode *parent) {
        const uint32_t count = attributes ? static_cast<uint32_t>(attributes->count) : 0;
        *node = {kind, text, nullptr, nullptr, parent, nullptr, attributes, count};
        if (attributes) each_attribute(attributes, [=](xp_xmlattr *a) { return a->owner = node, true; });
    }
};

/// False for a name that is there already, and when memory is short.
bool add_attribute(block_source &blocks, xp_hashtable *&attributes, char *name, char *value) {
    if (!attributes) {
        auto *const table = blocks.allocate<table_block>();
        if (!table) return false;
        attributes = table->init();
    }
    auto *const cut = blocks.allocate<attribute_block>();
    if (!cut) return false;
    xp_xmlattr *const record = &cut->record;
    *record = {XP_XML_ATTRIBUTE, value, nullptr, nullptr, nullptr, name, nullptr};
    if (xpht_put(attributes, name, record)) return true;
    block_release()(record);
    return false;
}

enum class outcome {
    failed,
    whole,  // nothing of the node follows
    opened, // content follows
};

outcome read_element(parse_state &state, reading &node) {
    char *&at = state.at;
    node.kind = XP_XML_ELEMENT;
    node.text = at;
    at = skip_name(at);
    if (at == node.text) return outcome::failed;
    if (xp_char_is(*at, XP_CHAR_SPACE)) {
        *at++ = '\0';
        const auto store = [&](char *name, char *value) {
            return add_attribute(state.blocks, node.attributes, name, value);
        };
        if (!__read_attributes(at, store)) return outcome::failed;
    }
    const bool empty = at[0] == '/' && at[1] == '>';
    if (!empty && *at != '>') return outcome::failed;
    *at = '\0'; // ends the name, when nothing stands between
    at += empty ? 2 : 1;
    return empty ? outcome::whole : outcome::opened;
}

outcome read_text(parse_state &state, reading &node) {
    node.text = state.at;
    char *const end = strchr(state.at, '<');
    if (!end) return outcome::failed;
    state.at = end; // becomes a NUL when it is parsed
    return outcome::whole;
}

/// The kinds whose text runs from one pattern to another.
constexpr struct {
    uint32_t kind;
    char begin[9];
    char end[4];
} sections[] = {{XP_XML_COMMENT, "!--", "-->"}, {XP_XML_CDATA, "![CDATA[", "]]>"}, {XP_XML_PI, "?", "?>"}};

outcome read_section(parse_state &state, reading &node) {
    for (const auto &section : sections) {
        const size_t length = strlen(section.begin);
        if (strncmp(state.at, section.begin, length) != 0) continue;
        node.kind = section.kind;
        node.text = state.at += length;
        return __cut_to_pattern(state.at, section.end) ? outcome::whole : outcome::failed;
    }
    return outcome::failed;
}

/// Reads a node after white space; of an element with content, the start tag.
outcome read_node(parse_state &state, reading &node) {
    state.at = skip_space(state.at);
    if (*state.at != '<') return read_text(state, node);
    *state.at++ = '\0'; // ends a text
    return *state.at == '!' || *state.at == '?' ? read_section(state, node) : read_element(state, node);
}

bool is_skipped(const parse_state &state, uint32_t kind) { return kind & state.skip_mask; }

/// Moves what was read into a block. Null when memory is short.
template <class Block>
xp_xmlnode *kept(parse_state &state, reading &read, xp_xmlnode *parent) {
    Block *const cut = state.blocks.allocate<Block>();
    if (!cut) return nullptr;
    read.move_to(&cut->record, parent);
    return &cut->record;
}

/// Reads the content and the end tag of an element.
class content_reader {
  public:
    content_reader(parse_state &state, xp_xmlnode *top) : state_(state), top_(top), open_(top) {}

    bool run() {
        for (;;) {
            state_.at = skip_space(state_.at);
            const bool ends = __istagend(state_.at, open_->text);
            if (ends && open_ == top_) return true;
            if (ends ? !close() : !read_child()) return abandon();
        }
    }

  private:
    /// Ends the open element, which becomes a child only now, if it is wanted.
    bool close() {
        xp_xmlnode *const whole = open_;
        open_ = whole->parent;
        if (!is_skipped(state_, whole->kind)) return take_child(whole);
        free_node(whole);
        return true;
    }

    /// Reads a node into the open element, or opens it when it has content.
    bool read_child() {
        reading read;
        xp_xmlnode *node = nullptr;
        const outcome found = read_node(state_, read);
        const bool skipped = found == outcome::whole && is_skipped(state_, read.kind);
        if (found == outcome::opened) node = kept<parent_block>(state_, read, open_);
        if (found == outcome::whole && !skipped) node = kept<leaf_block>(state_, read, open_);
        if (!node) return free_attributes(read.attributes), skipped;
        if (found == outcome::whole) return take_child(node);
        open_ = node;
        return true;
    }

    /// Makes a node the last child of the open element. False when memory is short: the node is then freed.
    bool take_child(xp_xmlnode *child) {
        if (!open_->children)
            open_->children = open_ == top_ ? create_children() : parent_block::of(open_)->children.init();
        if (open_->children && append_child(open_->children, child)) return true;
        free_node(child);
        return false;
    }

    /// Frees what is open below the top, for nothing else leads there.
    bool abandon() {
        while (open_ != top_) free_node(std::exchange(open_, open_->parent));
        return false;
    }

    parse_state &state_;
    xp_xmlnode *const top_; // its record may be the caller's, and has no room for an array
    xp_xmlnode *open_;
};

} // namespace

static bool __parse_xml(parse_state &state, xp_xmlnode *node, xp_xmlnode *parent) {
    reading read;
    const outcome found = read_node(state, read);
    read.move_to(node, parent);
    if (found == outcome::whole || (found == outcome::opened && content_reader(state, node).run())) return true;
    free_contents(node);
    return false;
}

/// Reads an XML declaration, if the text begins with one.
static bool __read_declaration(char *&at, xp_hashtable *&declaration) {
    at = skip_space(at);
    if (strncmp(at, "<?xml", 5) != 0) return true;
    at += 5;
    if (!xp_char_is(*at, XP_CHAR_SPACE)) return false;
    declaration = xp_create_hashtable(attribute_buckets, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    const auto store = [&](char *name, char *value) { return xpht_put(declaration, name, value); };
    if (!declaration || !__read_attributes(at, store)) return false;
    at = skip_space(at);
    if (at[0] != '?' || at[1] != '>') return false;
    at += 2;
    return true;
}

bool vorncore::parse_node(parse_state &state, xp_xmlnode *node, xp_xmlnode *parent) {
    return __parse_xml(state, node, parent);
}

bool vorncore::parse_document(parse_state &state, xp_xmltree *tree) {
    if (!__read_declaration(state.at, tree->declaration)) return false;
    while (*(state.at = skip_space(state.at))) {
        auto *const node =
            create_record<xp_xmlnode>([&](xp_xmlnode *record) { return __parse_xml(state, record, xpxt_node(tree)); });
        if (!node) return false;
        if (is_skipped(state, node->kind)) {
            free_node(node);
            continue;
        }
        if (!append_child(tree->nodes, node)) return free_node(node), false;
        if (node->kind & (XP_XML_TEXT | XP_XML_CDATA)) return false;
        if (node->kind != XP_XML_ELEMENT) continue;
        if (tree->root) return false;
        tree->root = node;
    }
    return tree->root;
}
