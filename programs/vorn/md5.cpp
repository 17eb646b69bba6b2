// `vorn md5`: digests of files, and lists of them checked, as md5sum does it.
#include <getopt.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "programs/vorn/command.h"
#include "programs/vorn/files.h"
#include "vorncore/base/chartype.h"
#include "vorncore/base/md5.h"

namespace vorn {

namespace {

const char *const help = R"(usage: vorn md5 [-c] [FILE]...

Prints the MD5 digest of each FILE, or of standard input ("-"), in the format of
md5sum: digest, two blanks, name. Where the name has a backslash or a line end, these
are escaped and the line begins with a backslash.

  -c, --check   reads such lines from each FILE and checks the files that they name

Exit codes, those of md5sum: 0 done; 1 a file cannot be read or, with -c, differs, or
a list holds no digest; 2 bad arguments.
)";

constexpr size_t digits = 32;

struct escape {
    char byte, letter;
};
constexpr escape escapes[] = {{'\\', '\\'}, {'\n', 'n'}, {'\r', 'r'}};

const escape *find(char escape::*by, char c) {
    for (const escape &e : escapes)
        if (e.*by == c) return &e;
    return nullptr;
}

std::string escaped(std::string_view name) {
    std::string out;
    for (const char c : name) {
        const escape *const found = find(&escape::byte, c);
        if (found) out += '\\';
        out += found ? found->letter : c;
    }
    return out;
}

/// False for what escaping does not make.
bool unescape(std::string *name) {
    std::string out;
    for (size_t i = 0; i < name->size(); i++) {
        char c = (*name)[i];
        if (c == '\\') {
            const escape *const found = ++i < name->size() ? find(&escape::letter, (*name)[i]) : nullptr;
            if (!found) return false;
            c = found->byte;
        }
        out += c;
    }
    *name = out;
    return true;
}

int complain(const char *file, const char *why) {
    fflush(stdout); // what is said of the files before comes first
    fprintf(stderr, "vorn md5: %s: %s\n", file, why);
    return exit_no;
}

/// The digest as text, empty when the file cannot be read: that has been told.
std::string digest_of(const char *file) {
    input in(file);
    xp_md5 md5;
    xp_md5_init(&md5);
    char bytes[chunk_size];
    while (const size_t count = in.read(bytes, chunk_size)) xp_md5_update(&md5, bytes, static_cast<int>(count));
    if (in.error()) {
        complain(file, strerror(in.error()));
        return "";
    }
    xp_md5_close(&md5);
    return xp_md5_result_str(&md5);
}

int print(const char *file) {
    const std::string digest = digest_of(file), name = escaped(file);
    if (digest.empty()) return exit_no;
    printf("%s%s  %s\n", name != file ? "\\" : "", digest.c_str(), name.c_str());
    return exit_done;
}

/// A line of a list.
struct expectation {
    std::string digest, name;

    bool parse(std::string_view line);
};

bool expectation::parse(std::string_view line) {
    line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
    const bool is_escaped = line.starts_with('\\');
    if (is_escaped) line.remove_prefix(1);
    if (line.size() < digits + 3 || line[digits] != ' ' || (line[digits + 1] != ' ' && line[digits + 1] != '*'))
        return false;
    digest = line.substr(0, digits);
    name = line.substr(digits + 2);
    for (char &c : digest) {
        if (!xp_char_is(c, XP_CHAR_HEX_DIGIT)) return false;
        c = static_cast<char>(xp_char_to_lower(c));
    }
    return (!is_escaped || unescape(&name)) && name.find('\0') == name.npos;
}

/// What checking one list has found.
class report {
  public:
    explicit report(const char *list) : list_(list) {}
    void check(std::string_view line);
    int finish(const char *read_failure) const;

  private:
    static void warn(long count, const char *one, const char *many) {
        if (!count) return;
        fflush(stdout);
        fprintf(stderr, "vorn md5: WARNING: %ld %s\n", count, count == 1 ? one : many);
    }

    const char *list_;
    long good_lines_ = 0, bad_lines_ = 0, unreadable_ = 0, different_ = 0;
};

void report::check(std::string_view line) {
    if (line.empty() || line.starts_with('#')) return;
    expectation expected;
    // standard input cannot be the list and what is listed
    if (!expected.parse(line) || (expected.name == "-" && !strcmp(list_, "-"))) {
        bad_lines_++;
        return;
    }
    good_lines_++;
    const std::string digest = digest_of(expected.name.c_str());
    const bool is_escaped = expected.name.find('\n') != expected.name.npos; // else it is shown as it is
    const char *verdict = "OK";
    if (digest.empty()) {
        unreadable_++;
        verdict = "FAILED open or read";
    } else if (digest != expected.digest) {
        different_++;
        verdict = "FAILED";
    }
    const std::string shown = is_escaped ? '\\' + escaped(expected.name) : expected.name;
    printf("%s: %s\n", shown.c_str(), verdict);
}

int report::finish(const char *read_failure) const {
    if (read_failure) return complain(list_, read_failure);
    if (!good_lines_)
        return complain(strcmp(list_, "-") ? list_ : "'standard input'", "no properly formatted checksum lines found");
    warn(bad_lines_, "line is improperly formatted", "lines are improperly formatted");
    warn(unreadable_, "listed file could not be read", "listed files could not be read");
    warn(different_, "computed checksum did NOT match", "computed checksums did NOT match");
    return unreadable_ || different_ ? exit_no : exit_done;
}

int check(const char *list) {
    line_reader lines(list);
    report found(list);
    size_t length;
    while (const char *line = lines.next(&length)) found.check({line, length});
    return found.finish(lines.failure());
}

} // namespace

int md5(int count, char **arguments) {
    static const option names[] = {{"check", no_argument, nullptr, 'c'}, {"help", no_argument, nullptr, 'h'}, {}};
    int (*each)(const char *) = print;
    for (int c; (c = getopt_long(count, arguments, "c", names, nullptr)) != -1;) switch (c) {
        case 'c': each = check; break;
        case 'h': fputs(help, stdout); return exit_done;
        default: return exit_usage; // getopt said why
        }
    if (optind == count) return each("-");
    int code = exit_done;
    for (int i = optind; i < count; i++)
        if (each(arguments[i]) != exit_done) code = exit_no;
    return code;
}

} // namespace vorn
