/* XML tree: a parser that works in place, and the tree of nodes that it makes.
 *
 * The parser copies no text. It ends names, values and texts by writing NUL bytes into the caller's buffer, and every
 * node points there: the buffer must be writable and outlive the tree. Entity references stay as they are until they
 * are asked to be replaced. Paths through a tree are in xml/xpath.h, namespaces in xml/xmlns.h, and lines and columns
 * for the offset of an error in xml/lineinfo.h.
 *
 *     int offset;
 *     xp_xmltree tree;
 *     if (!xp_init_xmltree(&tree, text, XP_XML_COMMENT | XP_XML_PI, &offset)) return complain(offset);
 *     xpxt_unescape(&tree);
 *     for (int i = 0; (item = xpxn_search_element(tree.root, "item", i, &i));) use(item);
 *     xp_close_xmltree(&tree);
 *
 * What is understood: elements, attributes, text, CDATA sections, comments, processing instructions and an XML
 * declaration; not a document type. White space is the six bytes of XP_CHAR_SPACE, a name is made of XP_CHAR_NAME
 * (base/chartype.h): ASCII only. Nesting is limited by memory alone: no call recurses.
 *
 * Kept for callers:
 *   - A text loses its leading white space and keeps the trailing; white space alone makes no node.
 *   - A name without "=" among the attributes is dropped when it stands directly before ">" or "/>", and fails the
 * parse elsewhere.
 *   - A text that begins with a processing instruction whose target begins with "xml" fails.
 *   - No white space is needed between an attribute's value and the next name.
 *
 * Parsing takes time in proportion to the text, but for the attributes of one element, which must all differ: their
 * table has 11 buckets, so n of them take about n * n / 22 comparisons. So does looking n of them up.
 *
 * Beside the text, a tree takes 80 bytes for a node, 112 more for an element that has content, 208 more for one that
 * has attributes, and 96 for each of these.
 *
 * Out of memory: parsing fails as for a wrong text; xpxn_add_child and the calls that unescape end the process.
 *
 * Threads: a tree belongs to one thread at a time. */
#ifndef VORNCORE_XML_XMLTREE_H
#define VORNCORE_XML_XMLTREE_H

#include <stdint.h>

#include "vorncore/base/array.h"
#include "vorncore/base/hashtable.h"

VORNCORE_BEGIN_DECLS

/* Kinds of nodes: single bits but for the last, so that a set of them is their OR. */
enum {
    XP_XML_TREE = 0, /* the tree record, seen as the parent of the top-level nodes */
    XP_XML_ELEMENT = 1,
    XP_XML_TEXT = 2,
    XP_XML_PI = 4,
    XP_XML_CDATA = 8,
    XP_XML_COMMENT = 16,
    XP_XML_ATTRIBUTE = 17
};

/* An element, text, processing instruction, CDATA section or comment. Texts lie in the source. Fields may be read;
 * `parent` may be assigned, and so may the texts, which are borrowed. What the parser made is not for free(): nodes and
 * attributes go one by one through xp_destroy_xmlnode, wherever they were moved, and their memory is given back by
 * pieces of up to 64 KiB when all in a piece are gone. */
typedef struct xp_xmlnode xp_xmlnode;
struct __attribute__((may_alias)) xp_xmlnode {
    uint32_t kind;
    char *text;   /* an element's name as it is written, prefix included; else what stands between the delimiters */
    char *ns;     /* URI of the namespace; null before namespaces are resolved, and without one */
    char *prefix; /* set when namespaces are resolved */
    xp_xmlnode *parent;       /* an element, or the tree */
    xp_array *children;       /* owned, of xp_xmlnode *, in document order; null until there is a first child */
    xp_hashtable *attributes; /* owned, of xp_xmlattr * by name; null when none was read */
    uint32_t attribute_count; /* attributes that were read */
};

/* An attribute. It begins as a node does, so that a path can lead to it: see xpxa_node. */
typedef struct xp_xmlattr xp_xmlattr;
struct __attribute__((may_alias)) xp_xmlattr {
    uint32_t kind; /* XP_XML_ATTRIBUTE */
    char *value;
    char *ns;
    char *prefix;
    xp_xmlnode *owner; /* the element */
    char *name;
    xp_xmlattr *next; /* owned: same name, other namespace; null before namespaces are resolved */
};

typedef struct __attribute__((may_alias)) xp_xmltree {
    uint32_t kind;                                  /* XP_XML_TREE */
    char *source;                                   /* borrowed */
    uint32_t skip_mask;                             /* kinds of nodes that are left out */
    int32_t ns_enabled __attribute__((aligned(8))); /* 1 when namespaces have been resolved */
    xp_xmlnode *root;          /* the document element, one of `nodes`; null once it has been destroyed */
    xp_array *nodes;           /* owned: the top-level nodes in document order */
    xp_hashtable *declaration; /* owned: name -> value text of the XML declaration; null when there is none */
} xp_xmltree;

/* The tree as the parent of its top-level nodes: for every call that reads children, and for xpxn_add_child. Of the
 * view, `kind`, `text` and `children` may be read. */
static inline xp_xmlnode *xpxt_node(xp_xmltree *tree) {
    xp_xmlnode *node = (xp_xmlnode *)(void *)tree;
    __asm__("" : "+r"(node)); /* or compilers warn that a node is longer */
    return node;
}
/* An attribute as a node without children or attributes. Of the view, `kind` to `parent` may be read. */
static inline xp_xmlnode *xpxa_node(xp_xmlattr *attribute) {
    xp_xmlnode *node = (xp_xmlnode *)(void *)attribute;
    __asm__("" : "+r"(node));
    return node;
}

/* Parses a whole text, which must have one element at its top level, and no text or CDATA section there. Nodes of a
 * kind in `skip_mask` are destroyed as soon as they are parsed, also those at the top level. 1, or 0: nothing is left
 * to close then, the text is spoilt, and the offset of the byte where the parser stopped, deep in the nesting as that
 * may be, is stored through `error_offset` (may be null). A comment or quoted value without an end stops it where the
 * content begins. */
int xp_init_xmltree(xp_xmltree *tree, char *text, uint32_t skip_mask, int *error_offset);
xp_xmltree *xp_create_xmltree(char *text, uint32_t skip_mask, int *error_offset);
/* Destroys every node. */
void xp_close_xmltree(xp_xmltree *tree);
void xp_destroy_xmltree(xp_xmltree *tree);

/* Replaces &lt; &gt; &amp; &quot; &apos; and numeric references in the values of attributes and in texts: of all nodes
 * and of the declaration, or of one node and all below it. CDATA sections, comments and processing instructions stay as
 * they are. A number stands for one byte. To be done once: what comes out may look like a reference again. Returns 1.
 * Kept for callers: a number above 255 gives its low byte twice; and where the ";" of a number is missing, replacing
 * stops, so that what was replaced before stands in front of a rest that has not moved. */
int xpxt_unescape(xp_xmltree *tree);
void xpxn_unescape(xp_xmlnode *node);

/* Parses one node, with all below it, that begins at `position` after white space. It gets `parent` but does not become
 * its child: xpxn_add_child does that. Of the tree, the mask is used, for what is below the node. 1, and the position
 * behind the node is stored through `end` (may be null); or 0, with the position where the parser stopped, and nothing
 * is left to close. A text is not terminated before the "<" behind it is parsed. */
int xp_init_xmlnode(xp_xmlnode *node, xp_xmltree *tree, xp_xmlnode *parent, char *position, char **end);
xp_xmlnode *xp_create_xmlnode(xp_xmltree *tree, xp_xmlnode *parent, char *position, char **end);
/* Detaches the node and destroys all below it. */
void xp_close_xmlnode(xp_xmlnode *node);
/* Also frees the node. An attribute is taken out of the table of its owner (its namesakes stay) and freed. */
void xp_destroy_xmlnode(xp_xmlnode *node);

/* Takes a node out of the children of its parent, where it is looked for from the first one on: 1, and the node is the
 * caller's; 0 for an attribute, a tree, and a node that is not there. Its `parent` stays: assign null when the node is
 * to outlive that. */
int xpxn_detach(xp_xmlnode *node);
/* Appends a child, which the node takes. Kept for callers: its `parent` is not changed; assign it, so that the child
 * can be detached. */
void xpxn_add_child(xp_xmlnode *node, xp_xmlnode *child);

int xpxn_child_count(const xp_xmlnode *node);
/* The index is not checked. */
xp_xmlnode *xpxn_child(const xp_xmlnode *node, int index);
/* The first element of that name (prefix included) among the children from index `start` on; the index behind it is
 * stored through `next` (may be null). Null when there is none; nothing is stored then. */
xp_xmlnode *xpxn_search_element(const xp_xmlnode *node, const char *name, int start, int *next);

VORNCORE_END_DECLS

#endif
