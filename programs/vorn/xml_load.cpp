// Documents of `vorn xml`: read, parsed, and what is wrong with them shown.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "programs/vorn/command.h"
#include "programs/vorn/xml.h"
#include "vorncore/xml/lineinfo.h"
#include "vorncore/xml/xmlns.h"

namespace vorn {

namespace {

constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF", white_space = "\t\n\v\f\r ";

/// Behind a comment or processing instruction that stands at an offset; the offset itself when none does.
size_t behind_remark(std::string_view text, size_t at) {
    static constexpr std::string_view remarks[][2] = {{"<!--", "-->"}, {"<?", "?>"}};
    for (const auto &[begin, end] : remarks)
        if (text.substr(at).starts_with(begin)) {
            const size_t found = text.find(end, at + begin.size());
            return found == text.npos ? text.size() : found + end.size();
        }
    return at;
}

/// Behind the end of a document type, from within it.
size_t behind_doctype(std::string_view text, size_t at) {
    for (int open = 0; at < text.size();) {
        const size_t next = behind_remark(text, at);
        const char c = text[at];
        at = next != at ? next : at + 1;
        if (c == '[') open++;
        if (c == ']') open--;
        if (c == '>' && open == 0) return at;
        if (c == '"' || c == '\'') at = std::min(text.find(c, at), text.size() - 1) + 1;
    }
    return text.npos;
}

/// Writes blanks over the document type, which the library does not understand.
void blank_doctype(char *data, std::string_view text) {
    constexpr std::string_view doctype = "<!DOCTYPE";
    const auto skip_space = [text](size_t at) {
        return std::min(text.find_first_not_of(white_space, at), text.size());
    };
    size_t at = skip_space(0);
    for (size_t next; (next = behind_remark(text, at)) != at;) at = skip_space(next);
    if (!text.substr(at).starts_with(doctype)) return;
    const size_t end = behind_doctype(text, at + doctype.size());
    if (end != text.npos) memset(data + at, ' ', end - at);
}

struct position {
    int line, column; // both from 1; columns are bytes
};

position position_of(const std::string &text, int offset) {
    xp_lineinfo lines;
    xp_init_lineinfo(&lines, text.c_str());
    position found;
    xpli_resolve_pos(&lines, offset, &found.line, &found.column);
    // the last line is counted otherwise than the others
    const bool is_last = offset >= reinterpret_cast<intptr_t>(lines.starts.items[lines.starts.count - 1]);
    (is_last ? found.line : found.column) += is_last ? 1 : 2;
    xp_close_lineinfo(&lines);
    return found;
}

bool is_continuation(char c) { return (c & 0xC0) == 0x80; } // of a character in UTF-8

/// The part of a line around an offset, and below it a mark at that place. Tabs are in both lines.
std::string excerpt(std::string_view text, size_t offset) {
    constexpr size_t most = 100, most_before = 60;
    const size_t begin = offset ? text.rfind('\n', offset - 1) + 1 : 0;
    size_t end = std::min(text.find('\n', offset), text.size());
    if (end > offset && text[end - 1] == '\r') end--;
    size_t from = offset - begin > most_before ? offset - most_before : begin;
    while (from < offset && is_continuation(text[from])) from++;
    size_t to = end - from > most ? from + most : end;
    while (to > offset && to < end && is_continuation(text[to])) to--;

    std::string line = from > begin ? "..." : "", mark(line.size(), ' ');
    for (size_t i = from; i < to; i++) {
        const bool is_control = (text[i] >= 0 && text[i] < ' ') || text[i] == 0x7F;
        line += is_control && text[i] != '\t' ? '?' : text[i];
        if (i < offset && !is_continuation(text[i])) mark += text[i] == '\t' ? '\t' : ' ';
    }
    return line + (to < end ? "...\n" : "\n") + mark + "^\n";
}

int complain(const char *file, const std::string &text, size_t offset, const char *what) {
    const position at = position_of(text, static_cast<int>(offset));
    fprintf(stderr, "%s:%d:%d: %s\n%s", file, at.line, at.column, what, excerpt(text, offset).c_str());
    return exit_no;
}

const char *what_is_wrong(std::string_view text, size_t offset) {
    if (text.find_first_not_of(white_space) == text.npos) return "no element";
    if (offset && text.substr(offset - 1).starts_with("</")) return "an end tag that does not fit";
    return "syntax error";
}

} // namespace

int xml_document::parse(const char *file, uint32_t skip_mask) {
    const std::string_view all(text_.data, text_.length());
    char *const text = text_.data + (all.starts_with(byte_order_mark) ? byte_order_mark.size() : 0);
    const std::string original(text, text_.cursor); // parsing spoils the text
    if (const size_t nul = original.find('\0'); nul != original.npos)
        return complain(file, original, nul, "a NUL byte, where the text would end");
    blank_doctype(text, original);
    int offset = 0;
    const auto begin = std::chrono::steady_clock::now();
    parsed_ = xp_init_xmltree(&tree, text, skip_mask, &offset);
    parse_time_ = std::chrono::steady_clock::now() - begin;
    if (parsed_) return exit_done;
    const auto at = static_cast<size_t>(offset);
    return complain(file, original, at, what_is_wrong(original, at));
}

int xml_document::load(const char *file, uint32_t skip_mask, bool namespaces) {
    input in(file);
    if (!in.read_all(&text_)) {
        fprintf(stderr, "vorn xml: %s: %s\n", file, strerror(in.error()));
        return exit_failure;
    }
    if (const int code = parse(file, skip_mask); code != exit_done) return code;
    xpxt_unescape(&tree);
    if (!namespaces || xpxt_enable_ns(&tree)) return exit_done;
    fprintf(stderr, "%s: namespaces: a prefix is not declared or declared again, or an attribute is there twice\n",
            file);
    return exit_no;
}

} // namespace vorn
