// The attributes of an element: a table of records by name, each of which may head a chain of namesakes.
#pragma once

#include <string.h>

#include "vorncore/xml/xmltree.h"

namespace vorncore {

/// Calls visit(record) for each attribute until that returns false; the record may be freed by the visit.
template <class Visit>
void each_attribute(const xp_hashtable *table, Visit visit) {
    for (int bucket = 0; bucket < table->bucket_count; bucket++)
        for (const xp_hashitem *item = table->buckets[bucket]; item; item = item->next)
            for (auto *record = static_cast<xp_xmlattr *>(item->value), *next = record; record; record = next) {
                next = record->next;
                if (!visit(record)) return;
            }
}

/// The first attribute of that name that fits; null when there is none, or when the node is no element.
///
/// Splitting a name in place leaves its record in the table, under a key that now reads as the prefix. Such a record is
/// not what that key finds; it has its local name, for which the whole table is looked through.
template <class Fits>
xp_xmlattr *find_attribute(const xp_xmlnode *element, const char *name, Fits fits) {
    if (element->kind != XP_XML_ELEMENT || !element->attributes) return nullptr;
    const auto wanted = [&](const xp_xmlattr *record) { return strcmp(record->name, name) == 0 && fits(record); };
    auto *found = static_cast<xp_xmlattr *>(xpht_get(element->attributes, name));
    while (found && !wanted(found)) found = found->next;
    if (found) return found;
    each_attribute(element->attributes, [&](xp_xmlattr *record) {
        if (wanted(record)) found = record;
        return !found;
    });
    return found;
}

} // namespace vorncore
