// What the parts of `vorn xml` share.
#pragma once

#include <chrono>

#include "programs/vorn/files.h"
#include "vorncore/xml/xmltree.h"

namespace vorn {

/// A document from a file or standard input: its text, and the tree that stands in it.
class xml_document {
  public:
    xml_document() = default;
    ~xml_document() {
        if (parsed_) xp_close_xmltree(&tree);
    }
    xml_document(const xml_document &) = delete;
    xml_document &operator=(const xml_document &) = delete;

    /// Once. Reads and parses, replaces references and, when asked to, resolves namespaces. The exit code; says on
    /// standard error what is wrong, and where.
    int load(const char *file, uint32_t skip_mask, bool namespaces);

    size_t length() const { return text_.length(); }
    std::chrono::steady_clock::duration parse_time() const { return parse_time_; }

    xp_xmltree tree;

  private:
    int parse(const char *file, uint32_t skip_mask);

    bytes text_;
    std::chrono::steady_clock::duration parse_time_{};
    bool parsed_ = false;
};

} // namespace vorn
