#include "vorncore/xml/xmlns.h"

#include <string.h>

#include "vorncore/base/stack.h"
#include "vorncore/xml/internal/attributes.h"
#include "vorncore/xml/internal/blocks.h"
#include "vorncore/xml/internal/walk.h"

using namespace vorncore;

static void __parse_name(char *&name, char *&prefix) {
    char *const colon = strchr(name, ':');
    prefix = colon ? name : nullptr;
    if (!colon) return;
    *colon = '\0';
    name = colon + 1;
}

namespace {

bool same_text(const char *a, const char *b) { return a == b || (a && b && strcmp(a, b) == 0); }

bool push(xp_array *stack, const void *item) { return xpar_insert(stack, stack->count, item); }

xp_xmlattr *current(const xp_hashenum &e) { return static_cast<xp_xmlattr *>(e.current->value); }

/// Takes the current attribute out of its table, but not those chained to it. Says whether there is a next one.
bool take_current(xp_hashenum &e) {
    xp_xmlattr *const next = current(e)->next;
    if (!next) return xphe_del(&e);
    e.current->value = next;
    return xphe_next(&e);
}

/// What one run over a document knows.
struct resolution {
    xp_array *defaults = xp_create_array(5, nullptr, nullptr); // default namespaces in force: URI, element, URI ...
    xp_array *bound = xp_create_array(3, nullptr, nullptr);    // attributes on the way to their new key
    xp_hashtable *prefixes = xp_create_hashtable(11, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr); // to URIs

    resolution() = default;
    resolution(const resolution &) = delete;
    ~resolution() {
        if (defaults) xp_destroy_array(defaults);
        if (bound) xp_destroy_array(bound);
        if (prefixes) xp_destroy_hashtable(prefixes);
    }
};

enum class declaration { none, made, refused };

declaration declare(const resolution &run, const xp_xmlnode *element, const xp_xmlattr *attribute) {
    if (!attribute->prefix) {
        if (strcmp(attribute->name, "xmlns") != 0) return declaration::none;
        const bool pushed = push(run.defaults, attribute->value) && push(run.defaults, element);
        return pushed ? declaration::made : declaration::refused;
    }
    if (strcmp(attribute->prefix, "xmlns") != 0) return declaration::none;
    if (*attribute->value)
        return xpht_put(run.prefixes, attribute->name, attribute->value) ? declaration::made : declaration::refused;
    xpht_del(run.prefixes, attribute->name);
    return declaration::made;
}

/// Splits the names of all attributes and takes the declarations out.
bool read_declarations(const resolution &run, xp_xmlnode *element) {
    if (element->attributes->count == 0) return false;
    xp_hashenum e;
    xp_init_hashenum(&e, element->attributes);
    for (bool more = xphe_next(&e); more;) {
        xp_xmlattr *const attribute = current(e);
        __parse_name(attribute->name, attribute->prefix);
        const declaration found = declare(run, element, attribute);
        if (found == declaration::refused) return false;
        more = found == declaration::made ? take_current(e) : xphe_next(&e);
        if (found == declaration::made) block_release()(attribute);
    }
    element->attribute_count = static_cast<uint32_t>(element->attributes->count);
    return true;
}

/// Splits the names once more, and finds the namespace of those that are still in two parts. Kept: a name with one
/// colon lost it in the first split and is left as it is.
bool find_namespaces(const resolution &run, xp_hashtable *attributes) {
    xp_hashenum e;
    for (xp_init_hashenum(&e, attributes); xphe_next(&e);) {
        xp_xmlattr *const attribute = current(e);
        __parse_name(attribute->name, attribute->prefix);
        if (!attribute->prefix) continue;
        attribute->ns = static_cast<char *>(xpht_get(run.prefixes, attribute->prefix));
        if (!attribute->ns) return false;
    }
    return true;
}

/// Takes the attributes with a namespace out of the table.
bool take_bound(const resolution &run, xp_hashtable *attributes) {
    run.bound->count = 0;
    xp_hashenum e;
    xp_init_hashenum(&e, attributes);
    for (bool more = xphe_next(&e); more;) {
        const bool is_bound = current(e)->prefix;
        if (is_bound && !push(run.bound, current(e))) return false;
        more = is_bound ? take_current(e) : xphe_next(&e);
    }
    return true;
}

/// Puts an attribute into the table by its local name, or behind its namesakes: there even when one of them has its
/// namespace, for it must not get lost. The result says whether it may be there.
bool put_bound(xp_hashtable *attributes, xp_xmlattr *attribute) {
    attribute->next = nullptr;
    auto *namesake = static_cast<xp_xmlattr *>(xpht_get(attributes, attribute->name));
    if (!namesake) {
        if (xpht_put(attributes, attribute->name, attribute)) return true;
        block_release()(attribute); // memory is short
        return false;
    }
    bool single = !same_text(namesake->ns, attribute->ns);
    for (; namesake->next; namesake = namesake->next)
        if (same_text(namesake->next->ns, attribute->ns)) single = false;
    namesake->next = attribute;
    return single;
}

bool bind_attributes(const resolution &run, xp_hashtable *attributes) {
    if (!find_namespaces(run, attributes)) return false;
    bool all = take_bound(run, attributes);
    for (int i = 0; i < run.bound->count; i++)
        if (!put_bound(attributes, static_cast<xp_xmlattr *>(run.bound->items[i]))) all = false;
    return all;
}

bool bind_name(const resolution &run, xp_xmlnode *element) {
    __parse_name(element->text, element->prefix);
    const xp_array *const defaults = run.defaults;
    if (element->prefix)
        element->ns = static_cast<char *>(xpht_get(run.prefixes, element->prefix));
    else
        element->ns = defaults->count ? static_cast<char *>(defaults->items[defaults->count - 2]) : nullptr;
    return element->ns || !element->prefix;
}

void leave(const resolution &run, const xp_xmlnode *element) {
    void *owner;
    if (xpst_peek(run.defaults, &owner) && owner == element) run.defaults->count -= 2;
}

} // namespace

static bool __enable_ns(const resolution &run, xp_xmlnode *element) {
    if (element->attributes && (!read_declarations(run, element) || !bind_attributes(run, element->attributes)))
        return false;
    return bind_name(run, element);
}

static xp_xmlattr *__xpxn_attribute_ns(const xp_xmlnode *element, const char *ns, const char *name) {
    return find_attribute(element, name,
                          [=](const xp_xmlattr *attribute) { return !ns || same_text(attribute->ns, ns); });
}

int xpxt_enable_ns(xp_xmltree *tree) {
    if (tree->ns_enabled) return 1;
    const resolution run;
    if (!run.defaults || !run.bound || !run.prefixes) return 0;
    const auto enter = [&](xp_xmlnode *node, int) {
        if (node->kind != XP_XML_ELEMENT) return visit::past;
        return __enable_ns(run, node) ? visit::down : visit::stop;
    };
    if (tree->root && !tree_walk().run(tree->root, enter, [&](xp_xmlnode *node) { leave(run, node); })) return 0;
    tree->ns_enabled = 1;
    return 1;
}

char *xpxn_attribute_ns(const xp_xmlnode *element, const char *ns, const char *name) {
    const xp_xmlattr *const found = __xpxn_attribute_ns(element, ns, name);
    return found ? found->value : nullptr;
}
