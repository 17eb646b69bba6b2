/* Paths through an XML tree: steps from a node to what is below it.
 *
 * A path is a list of steps with "/" between them. Each step leads from the current node to some of its children, or to
 * one of its attributes:
 *
 *     NAME                        elements of that name, as the tree has it (prefix included, until names are split)
 *     *                           elements
 *     text()                      texts and CDATA sections
 *     comment()                   comments
 *     processing-instruction()    processing instructions
 *     @NAME                       the attribute of that name, in whatever namespace
 *
 * There is nothing else: no positions, no conditions, no other directions. An empty step, which is what "/" at either
 * end or "//" makes, leads nowhere. A path is relative to the node that it starts from; the tree itself starts one as
 * xpxt_node(&tree), and the first step is then the root's:
 *
 *     xp_xmlnode *title = xpxn_find(xpxt_node(&tree), "book/title/text()");
 *
 * Kept for callers: steps behind text(), comment(), processing-instruction() or an attribute are ignored. A search for
 * the first match does not turn back: where the rest of the path is not found below the first child that fits a step,
 * it fails, although a later child might lead on. Selecting does look at them all.
 *
 * An attribute is returned as a node, of kind XP_XML_ATTRIBUTE: its `text` is the value.
 *
 * Out of memory: calls that return a pointer return null; xp_init_xpath, and calls that select, end the process.
 *
 * Threads: a compiled path is only read by its searches. */
#ifndef VORNCORE_XML_XPATH_H
#define VORNCORE_XML_XPATH_H

#include "vorncore/base/array.h"
#include "vorncore/base/respool.h"
#include "vorncore/xml/xmltree.h"

VORNCORE_BEGIN_DECLS

/* A path that has been taken apart, to be used often. */
typedef struct xp_xpath {
    char *text; /* owned copy of the path, cut at every "/" */
    xp_array
        steps; /* of pointers into it; the first byte of text(), processing-instruction() and comment() is 1, 2, 3 */
} xp_xpath;

/* Copies the text. */
void xp_init_xpath(xp_xpath *path, const char *text);
xp_xpath *xp_create_xpath(const char *text);
void xp_close_xpath(xp_xpath *path);
void xp_destroy_xpath(xp_xpath *path);

/* The first match, null when there is none; also for an empty path. */
xp_xmlnode *xpxp_find(const xp_xpath *path, const xp_xmlnode *start);
/* Appends every match to `result`, in document order, and returns how many. Allocates nothing else for paths of up to
 * 64 steps. */
int xpxp_select(const xp_xpath *path, const xp_xmlnode *start, xp_array *result);
/* The same for a path that is used once. */
xp_xmlnode *xpxn_find(const xp_xmlnode *start, const char *path);
int xpxn_select(const xp_xmlnode *start, const char *path, xp_array *result);

/* The path of a node, made of the steps above; siblings of one name share theirs. With depth 0 it begins at the top
 * level, and with "/", because of which it finds nothing: "/a/b/@id". With depth n it leaves n steps out and begins
 * without "/": for 1 "b/@id", to be followed from "a". Empty when no step is left, and for the tree. To be freed by the
 * caller, or owned by the pool. */
char *xpxn_gen_xpath_str(const xp_xmlnode *node, int depth);
char *xprp_gen_xpath_str(xp_respool *rp, const xp_xmlnode *node, int depth);

VORNCORE_END_DECLS

#endif
