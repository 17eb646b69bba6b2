#include "vorncore/xml/xpath.h"

#include <string.h>

#include <algorithm>
#include <iterator>

#include "vorncore/base/internal/alloc.h"
#include "vorncore/base/internal/tokenizer.h"
#include "vorncore/xml/internal/attributes.h"
#include "vorncore/xml/internal/walk.h"

using namespace vorncore;

namespace {

constexpr int initial_steps = 5;

/// The steps for kinds of nodes, by the code that their first byte is replaced by, less one.
constexpr struct {
    const char *step;
    uint32_t kinds;
} kind_tests[] = {
    {"text()", XP_XML_TEXT | XP_XML_CDATA}, {"processing-instruction()", XP_XML_PI}, {"comment()", XP_XML_COMMENT}};
constexpr char last_code = std::size(kind_tests);

/// Marks the steps that are looked at by their first byte. What only looks like a mark becomes the empty step: it could
/// not match either.
void classify(char *step) {
    if (*step <= last_code && *step > 0) *step = '\0';
    if (*step == '*' && step[1]) *step = '\0';
    for (char code = 1; code <= last_code; code++)
        if (strcmp(step, kind_tests[code - 1].step) == 0) *step = code;
}

bool compile(xp_xpath *path, const char *text) {
    *path = {try_strdup(text), {try_array<void *>(initial_steps), nullptr, nullptr, initial_steps, initial_steps, 0}};
    xp_array *const steps = &path->steps;
    const auto add = [=](char *step) {
        classify(step);
        return xpar_insert(steps, steps->count, step) != nullptr;
    };
    if (steps->items && !text == !path->text && cut_text(path->text, one_byte{'/'}, 0, add)) return true;
    xp_close_xpath(path);
    return false;
}

class step_test {
  public:
    step_test(const xp_xpath *path, int index) : text_(static_cast<const char *>(path->steps.items[index])) {}

    bool is_attribute() const { return *text_ == '@'; }
    /// A test for a kind: what it finds ends the path.
    bool is_last() const { return *text_ > 0 && *text_ <= last_code; }

    xp_xmlnode *attribute_of(const xp_xmlnode *node) const {
        xp_xmlattr *const found = find_attribute(node, text_ + 1, [](const xp_xmlattr *) { return true; });
        return found ? xpxa_node(found) : nullptr;
    }

    bool matches(const xp_xmlnode *child) const {
        if (is_last()) return child->kind & kind_tests[*text_ - 1].kinds;
        return child->kind == XP_XML_ELEMENT && *text_ && (*text_ == '*' || strcmp(child->text, text_) == 0);
    }

    xp_xmlnode *first_match(const xp_xmlnode *node) const {
        const xp_array *const children = children_of(node);
        for (int i = 0; children && i < children->count; i++)
            if (auto *const child = static_cast<xp_xmlnode *>(children->items[i]); matches(child)) return child;
        return nullptr;
    }

  private:
    const char *text_;
};

/// What a node is to a selection, where `depth` steps have led to it, and the last one matched.
visit select_node(const xp_xpath *path, xp_xmlnode *node, int depth, xp_array *result) {
    if (depth && !step_test(path, depth - 1).matches(node)) return visit::past;
    if (depth == path->steps.count || (depth && step_test(path, depth - 1).is_last())) {
        xpar_add(result, node);
        return visit::past;
    }
    const step_test next(path, depth);
    if (!next.is_attribute()) return visit::down;
    if (xp_xmlnode *const attribute = next.attribute_of(node)) xpar_add(result, attribute);
    return visit::past;
}

} // namespace

void xp_init_xpath(xp_xpath *path, const char *text) {
    if (!compile(path, text)) out_of_memory("xp_init_xpath", strlen(text) + 1);
}

xp_xpath *xp_create_xpath(const char *text) { return create_record<xp_xpath>(compile, text); }

void xp_close_xpath(xp_xpath *path) {
    xp_close_array(&path->steps);
    free(path->text);
}

void xp_destroy_xpath(xp_xpath *path) { destroy_record(path, xp_close_xpath); }

xp_xmlnode *xpxp_find(const xp_xpath *path, const xp_xmlnode *start) {
    xp_xmlnode *found = nullptr;
    for (int i = 0; i < path->steps.count; i++) {
        const step_test step(path, i);
        if (step.is_attribute()) return step.attribute_of(start);
        found = step.first_match(start);
        if (!found || step.is_last()) return found;
        start = found;
    }
    return found;
}

int xpxp_select(const xp_xpath *path, const xp_xmlnode *start, xp_array *result) {
    if (!path->steps.count) return 0;
    const int before = result->count;
    tree_walk walk;
    const auto enter = [=](xp_xmlnode *node, int depth) { return select_node(path, node, depth, result); };
    if (!walk.run(const_cast<xp_xmlnode *>(start), enter, [](xp_xmlnode *) {}))
        out_of_memory("xpxp_select", walk.bytes_wanted());
    return result->count - before;
}

xp_xmlnode *xpxn_find(const xp_xmlnode *start, const char *path) {
    xp_xpath compiled;
    if (!compile(&compiled, path)) return nullptr;
    xp_xmlnode *const found = xpxp_find(&compiled, start);
    xp_close_xpath(&compiled);
    return found;
}

int xpxn_select(const xp_xmlnode *start, const char *path, xp_array *result) {
    xp_xpath compiled;
    xp_init_xpath(&compiled, path);
    const int count = xpxp_select(&compiled, start, result);
    xp_close_xpath(&compiled);
    return count;
}

namespace {

/// The step that leads to a node from its parent.
struct written_step {
    bool attribute;
    const char *name;

    size_t length() const { return attribute + strlen(name); }

    /// Returns where it begins.
    char *write_before(char *end) const {
        char *const begin = end - length();
        if (attribute) *begin = '@';
        memcpy(begin + attribute, name, strlen(name));
        return begin;
    }
};

written_step step_to(const xp_xmlnode *node) {
    if (node->kind == XP_XML_ATTRIBUTE) return {true, reinterpret_cast<const xp_xmlattr *>(node)->name};
    for (const auto &test : kind_tests)
        if (node->kind & test.kinds) return {false, test.step};
    return {false, node->text};
}

/// The node above, null above the top level.
const xp_xmlnode *above(const xp_xmlnode *node) {
    return node->parent && node->parent->kind != XP_XML_TREE ? node->parent : nullptr;
}

} // namespace

char *xpxn_gen_xpath_str(const xp_xmlnode *node, int depth) {
    int64_t steps = -static_cast<int64_t>(std::max(depth, 0)); // that are written
    for (const xp_xmlnode *n = node->kind == XP_XML_TREE ? nullptr : node; n; n = above(n)) steps++;
    const bool absolute = depth <= 0;

    size_t length = 0;
    const xp_xmlnode *n = node;
    for (int64_t i = steps; i > 0; i--, n = above(n)) length += step_to(n).length() + (i > 1 || absolute);
    auto *const text = static_cast<char *>(malloc(length + 1));
    if (!text) return nullptr;
    char *at = text + length;
    *at = '\0';
    n = node;
    for (int64_t i = steps; i > 0; i--, n = above(n)) {
        at = step_to(n).write_before(at);
        if (i > 1 || absolute) *--at = '/';
    }
    return text;
}

char *xprp_gen_xpath_str(xp_respool *rp, const xp_xmlnode *node, int depth) {
    char *const text = xpxn_gen_xpath_str(node, depth);
    if (text && !xprp_add(rp, text, free)) {
        free(text);
        return nullptr;
    }
    return text;
}
