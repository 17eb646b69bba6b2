// The parser: turns text into nodes, and knows nothing of trees beyond that.
#pragma once

#include "vorncore/xml/internal/blocks.h"
#include "vorncore/xml/xmltree.h"

namespace vorncore {

/// What a parse shares at all depths.
struct parse_state {
    char *at; // the position: on failure, how far it got
    uint32_t skip_mask;
    block_source blocks;
};

/// Parses one node and all below it into a record of the caller's. On failure nothing is left to free.
bool parse_node(parse_state &state, xp_xmlnode *node, xp_xmlnode *parent);

/// Parses a whole text into a tree that has an empty array of nodes. On failure it keeps what there is by then.
bool parse_document(parse_state &state, xp_xmltree *tree);

} // namespace vorncore
