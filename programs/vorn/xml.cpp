// `vorn xml`: XML documents as outlines, and what paths find in them.
#include "programs/vorn/xml.h"

#include <getopt.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "programs/vorn/command.h"
#include "vorncore/xml/xpath.h"

namespace vorn {

namespace {

const char *const help = R"(usage: vorn xml [OPTION]... [FILE [PATH]]

Prints the outline of an XML document, FILE or standard input ("-", or no FILE): each
line is a step of a path, with its text or value in quotes. With PATH, prints the
paths of all that matches instead.

  PATH           steps with "/" between them: NAME, *, @NAME, text(), comment(),
                 processing-instruction(); the first is the root's. A "/" before it
                 changes nothing.
  --text         prints the texts alone, as they are: the values of attributes, and
                 of elements the texts below, each ended by a line feed
  --ns           resolves namespaces: names lose their prefixes, {URI} follows
  --no-comments  leaves comments out
  --stat         prints counts of nodes and the time of the parse instead, with PATH
                 also the count of matches and the time of the search

References such as &lt; are replaced, a number stands for one byte. A document type is
skipped. Below the 32nd level the outline shows the level in parentheses instead of
indenting further. What cannot be parsed is told as FILE:LINE:COLUMN (in bytes, from
1), with the line and a mark below the place.

Exit codes: 0 done; 1 no document, or nothing matches; 2 bad arguments; 3 a file
failed.
)";

/// The depth that is shown by indentation: a document may be nested as deep as it is long.
constexpr size_t most_indented = 32;

struct options {
    bool namespaces = false, text_only = false, statistics = false;
    uint32_t skipped = 0;
    const char *file = "-";
    const char *path = nullptr;
};

/// Calls visit(node, depth) for all below a node, which is at depth 0, in document order until it returns false.
template <class Visit>
void walk(const xp_xmlnode *top, Visit visit) {
    struct place {
        const xp_xmlnode *node;
        int next; // child
    };
    std::vector<place> way = {{top, 0}};
    while (!way.empty()) {
        place &here = way.back();
        if (here.next == xpxn_child_count(here.node)) {
            way.pop_back();
            continue;
        }
        const xp_xmlnode *const child = xpxn_child(here.node, here.next++);
        if (!visit(child, way.size())) return;
        if (xpxn_child_count(child)) way.push_back({child, 0});
    }
}

/// The attributes of an element as they stand in the source.
void list_attributes(const xp_xmlnode *node, std::vector<xp_xmlattr *> *list) {
    list->clear();
    if (!node->attributes) return;
    xp_hashenum e;
    for (xp_init_hashenum(&e, node->attributes); xphe_next(&e);)
        for (auto *record = static_cast<xp_xmlattr *>(e.current->value); record; record = record->next)
            list->push_back(record);
    std::sort(list->begin(), list->end(),
              [](const xp_xmlattr *a, const xp_xmlattr *b) { return std::less<>()(a->name, b->name); });
}

const char *step_of(const xp_xmlnode *node) {
    switch (node->kind) {
    case XP_XML_ELEMENT: return node->text;
    case XP_XML_PI: return "processing-instruction()";
    case XP_XML_COMMENT: return "comment()";
    default: return "text()";
    }
}

/// What is printed for nodes.
class printer {
  public:
    explicit printer(xpwb *out) : out_(out) {}

    bool failed() const { return out_->status == 0; }
    void outline(xp_xmltree &tree);
    void match(const xp_xmlnode *node);
    void texts(const xp_xmlnode *node);

  private:
    void write(std::string_view text) { xpwb_write(out_, text.data(), static_cast<int>(text.size())); }
    void quoted(std::string_view text);
    void indent(size_t level);
    void declaration(xp_hashtable *table);
    void rest(const xp_xmlnode *node);
    void line(std::string_view text);

    xpwb *out_;
    std::vector<xp_xmlattr *> attributes_; // of one element
};

void printer::quoted(std::string_view text) {
    static constexpr std::string_view escaped = "\n\t\r\"\\", letters = "ntr\"\\";
    const auto is_special = [](char c) { return (c >= 0 && c < ' ') || c == '"' || c == '\\' || c == 0x7F; };
    write(" \"");
    for (;;) {
        const auto plain = static_cast<size_t>(std::find_if(text.begin(), text.end(), is_special) - text.begin());
        write(text.substr(0, plain));
        if (plain == text.size()) break;
        const size_t known = escaped.find(text[plain]);
        if (known == escaped.npos)
            xpwb_printf(out_, "\\x%02X", text[plain]);
        else
            xpwb_printf(out_, "\\%c", letters[known]);
        text.remove_prefix(plain + 1);
    }
    write("\"");
}

void printer::indent(size_t level) {
    static const std::string blanks(2 * most_indented, ' ');
    write(std::string_view(blanks).substr(0, 2 * (level - 1)));
    if (level > most_indented) xpwb_printf(out_, "(%lu) ", level);
}

/// Ends a line with what stands behind the last step of a path: namespace and text.
void printer::rest(const xp_xmlnode *node) {
    if (node->ns) xpwb_write_str_v(out_, " {", node->ns, "}", nullptr);
    if (node->kind == XP_XML_CDATA) write(" CDATA");
    if (node->kind != XP_XML_ELEMENT) quoted(node->text);
    write("\n");
}

/// In the order of the source, as the attributes of elements are.
void printer::declaration(xp_hashtable *table) {
    std::vector<xp_pair> pairs;
    xp_hashenum e;
    for (xp_init_hashenum(&e, table); xphe_next(&e);) pairs.push_back({e.current->key, e.current->value});
    std::sort(pairs.begin(), pairs.end(),
              [](const xp_pair &a, const xp_pair &b) { return std::less<>()(a.key, b.key); });
    write("?xml\n");
    for (const xp_pair &pair : pairs) {
        xpwb_write_str_v(out_, "  @", pair.key, nullptr);
        quoted(static_cast<char *>(pair.value));
        write("\n");
    }
}

void printer::outline(xp_xmltree &tree) {
    if (tree.declaration) declaration(tree.declaration);
    walk(xpxt_node(&tree), [this](const xp_xmlnode *node, size_t level) {
        indent(level);
        write(step_of(node));
        rest(node);
        list_attributes(node, &attributes_);
        for (xp_xmlattr *attribute : attributes_) {
            indent(level + 1);
            xpwb_write_str_v(out_, "@", attribute->name, nullptr);
            rest(xpxa_node(attribute));
        }
        return !failed();
    });
}

void printer::match(const xp_xmlnode *node) {
    char *const path = xpxn_gen_xpath_str(node, 0);
    if (path) xpwb_write_str(out_, path);
    free(path);
    rest(node);
}

void printer::line(std::string_view text) {
    write(text);
    if (!text.ends_with('\n')) write("\n");
}

void printer::texts(const xp_xmlnode *node) {
    if (node->kind != XP_XML_ELEMENT) return line(node->text);
    walk(node, [this](const xp_xmlnode *below, size_t) {
        if (below->kind & (XP_XML_TEXT | XP_XML_CDATA)) line(below->text);
        return !failed();
    });
}

using clock = std::chrono::steady_clock;

long microseconds(clock::duration time) {
    return static_cast<long>(std::chrono::duration_cast<std::chrono::microseconds>(time).count());
}

void print_row(xpwb *out, const char *name, long value) { xpwb_printf(out, "%-23s %12ld\n", name, value); }

void print_statistics(xpwb *out, xml_document &document) {
    static constexpr struct {
        const char *name;
        uint32_t kind;
    } rows[] = {{"elements", XP_XML_ELEMENT}, {"attributes", XP_XML_ATTRIBUTE},
                {"texts", XP_XML_TEXT},       {"CDATA sections", XP_XML_CDATA},
                {"comments", XP_XML_COMMENT}, {"processing instructions", XP_XML_PI}};
    long counts[XP_XML_ATTRIBUTE + 1] = {}; // by kind
    size_t levels = 0;
    std::vector<xp_xmlattr *> attributes;
    walk(xpxt_node(&document.tree), [&](const xp_xmlnode *node, size_t level) {
        counts[node->kind]++;
        levels = std::max(levels, level);
        list_attributes(node, &attributes);
        counts[XP_XML_ATTRIBUTE] += static_cast<long>(attributes.size());
        return true;
    });
    for (const auto &row : rows) print_row(out, row.name, counts[row.kind]);
    print_row(out, "levels", static_cast<long>(levels));
    print_row(out, "bytes", static_cast<long>(document.length()));
    print_row(out, "parse time, us", microseconds(document.parse_time()));
}

/// The exit code: whether there is a match.
int print_matches(xpwb *out, const options &chosen, xml_document &document) {
    xp_array found;
    xp_init_array(&found, 16, nullptr, nullptr);
    const auto begin = clock::now();
    const int count = xpxn_select(xpxt_node(&document.tree), chosen.path + (*chosen.path == '/'), &found);
    const auto time = clock::now() - begin;
    printer lines(out);
    for (int i = 0; i < count && !chosen.statistics && !lines.failed(); i++) {
        const auto *const node = static_cast<const xp_xmlnode *>(found.items[i]);
        chosen.text_only ? lines.texts(node) : lines.match(node);
    }
    xp_close_array(&found);
    if (chosen.statistics) {
        print_row(out, "matches", count);
        print_row(out, "search time, us", microseconds(time));
    }
    if (!count) fprintf(stderr, "vorn xml: nothing matches '%s'\n", chosen.path);
    return count ? exit_done : exit_no;
}

int run(const options &chosen) {
    xml_document document;
    int code = document.load(chosen.file, chosen.skipped, chosen.namespaces);
    if (code != exit_done) return code;
    output out("xml");
    if (chosen.statistics) print_statistics(&out.buffer, document);
    if (chosen.path)
        code = print_matches(&out.buffer, chosen, document);
    else if (chosen.text_only && !chosen.statistics)
        printer(&out.buffer).texts(document.tree.root);
    else if (!chosen.statistics)
        printer(&out.buffer).outline(document.tree);
    const int written = out.finish();
    return written != exit_done ? written : code;
}

} // namespace

int xml(int count, char **arguments) {
    static const option names[] = {{"ns", no_argument, nullptr, 'n'},   {"no-comments", no_argument, nullptr, 'c'},
                                   {"text", no_argument, nullptr, 't'}, {"stat", no_argument, nullptr, 's'},
                                   {"help", no_argument, nullptr, 'h'}, {}};
    options chosen;
    for (int c; (c = getopt_long(count, arguments, "", names, nullptr)) != -1;) switch (c) {
        case 'n': chosen.namespaces = true; break;
        case 'c': chosen.skipped = XP_XML_COMMENT; break;
        case 't': chosen.text_only = true; break;
        case 's': chosen.statistics = true; break;
        case 'h': fputs(help, stdout); return exit_done;
        default: return exit_usage; // getopt said why
        }
    if (count - optind > 2) {
        fprintf(stderr, "vorn xml: unexpected '%s', try --help\n", arguments[optind + 2]);
        return exit_usage;
    }
    if (optind < count) chosen.file = arguments[optind];
    if (optind + 1 < count) chosen.path = arguments[optind + 1];
    return run(chosen);
}

} // namespace vorn
