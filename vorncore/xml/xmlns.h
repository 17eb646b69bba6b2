/* Namespaces of an XML tree: binds names to the URIs that xmlns attributes declare.
 *
 * Done once for a tree, after the parse. Names are split in place into prefix and local name, declarations are taken
 * out of the tree, and the `ns` of elements and attributes points to the URI, a text in the source.
 *
 * Kept for callers:
 *   - There is one table of prefixes for the whole document. A prefix stays declared behind the end of the element that
 *     declares it, and to declare it again fails, before xmlns:p="" has removed it. Only the default namespace,
 * xmlns="...", ends with its element.
 *   - An attribute is bound when its name has two colons: of "x:p:name", p is the prefix. A name with one colon is cut
 * to what follows it, and has neither prefix nor namespace.
 *   - An element whose table of attributes is there, but empty, fails: such as one whose attributes were all destroyed.
 *
 * The time is in proportion to the size of the document, but for prefixes, of which n take about n * n / 22 comparisons
 * (their table has 11 buckets, as an element's table of attributes), and for attributes of one element that have the
 * same local name: each is compared with all others.
 *
 * Threads: a tree belongs to one thread at a time. */
#ifndef VORNCORE_XML_XMLNS_H
#define VORNCORE_XML_XMLNS_H

#include "vorncore/xml/xmltree.h"

VORNCORE_BEGIN_DECLS

/* Resolves the namespaces of a tree: 1; nothing is done when that has happened before. 0 for a prefix that is not
 * declared or declared twice, for two attributes of one element with the same local name and namespace, for an empty
 * table of attributes, and when out of memory: then a part of the names is split and a part of the declarations gone
 * already, the tree cannot be resolved any more, but is whole otherwise. */
int xpxt_enable_ns(xp_xmltree *tree);

/* The value of an attribute, by its local name and the URI of its namespace; with a null `ns`, of the first attribute
 * of that name, in whatever namespace. Null when there is none. What had one colon in its name is found by what
 * followed it, behind an attribute that was written so. Before namespaces are resolved, the name is the one written. */
char *xpxn_attribute_ns(const xp_xmlnode *element, const char *ns, const char *name);

VORNCORE_END_DECLS

#endif
