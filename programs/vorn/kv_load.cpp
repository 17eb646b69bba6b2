// `vorn kv load` and `check`: files of entries, a line each.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <map>

#include "programs/vorn/command.h"
#include "programs/vorn/kv.h"
#include "programs/vorn/lines.h"

namespace vorn {

namespace {

/// Tells about lines that are left out; a file that is wrong throughout is not repeated on the terminal.
class complaints {
  public:
    explicit complaints(const char *file) : file_(file) {} // null: in silence
    void add(long line, const char *what) {
        if (++count_ > 21 || !file_) return;
        if (count_ <= 20) fprintf(stderr, "%s:%ld: %s\n", file_, line, what);
        if (count_ == 21) fprintf(stderr, "%s: there is more, not shown\n", file_);
    }
    long count() const { return count_; }

  private:
    const char *file_;
    long count_ = 0;
};

/// How far it has got, on a terminal only.
class progress {
  public:
    explicit progress(const char *doing) : doing_(doing), shown_(isatty(STDERR_FILENO)) {}
    ~progress() {
        if (shown_) fputs("\r\033[K", stderr);
    }
    void step() {
        if (++done_ % 500 == 0 && shown_) fprintf(stderr, "\r%s: %ld entries", doing_, done_);
    }

  private:
    const char *doing_;
    bool shown_;
    long done_ = 0;
};

/// Splits a line at its first tab, without one at its first "="; what is wrong with it, or null.
const char *split(char *line, size_t length, char **value) {
    if (strlen(line) != length) return "a NUL byte";
    *value = strchr(line, '\t');
    if (!*value) *value = strchr(line, '=');
    if (!*value) return "neither a tab nor '='";
    *(*value)++ = '\0';
    if (!*line) return "no key";
    return **value ? nullptr : "no value";
}

/// Calls use(line number, key, value) for each good line until it returns false. False when the file cannot be read.
template <class Use>
bool each_entry(const char *file, complaints &bad, Use use) {
    line_reader lines(file);
    char *value;
    size_t length;
    bool going = true;
    for (long number = 1; going; number++) {
        char *line = lines.next(&length);
        if (!line) break;
        if (length == 0) continue;
        if (const char *wrong = split(line, length, &value))
            bad.add(number, wrong);
        else
            going = use(number, line, value);
    }
    const char *failure = lines.failure();
    if (failure) fprintf(stderr, "vorn kv: %s: %s\n", file, failure);
    return !failure;
}

} // namespace

int kv_load(kv_client &client, const char *file) {
    complaints bad(file);
    long stored = 0;
    int code = exit_done;
    {
        progress shown("load");
        const bool readable = each_entry(file, bad, [&](long number, const char *key, const char *value) {
            const int result = xpql_put(client, key, value);
            shown.step();
            if (result == XPQL_OK) stored++;
            if (result == XPQL_SERVER_ERROR) bad.add(number, xpql_lasterror(client)); // too long, say: the next may do
            if (result != XPQL_OK && result != XPQL_SERVER_ERROR) code = client.told("load", result);
            return code == exit_done;
        });
        if (!readable) code = exit_failure;
    }
    printf("%ld entries stored, %ld lines left out\n", stored, bad.count());
    return code != exit_done ? code : bad.count() ? exit_no : exit_done;
}

int kv_check(kv_client &client, const char *file) {
    struct entry {
        long line;
        std::string value;
    };
    std::map<std::string, entry> expected;   // of a key that occurs twice the last value counts
    complaints bad(file), left_out(nullptr); // as by load, which told
    if (!each_entry(file, left_out, [&](long number, const char *key, const char *value) {
            expected[key] = {number, value};
            return true;
        }))
        return exit_failure;
    progress shown("check");
    for (const auto &[key, wanted] : expected) {
        char *value = nullptr;
        const int result = xpql_get(client, key.c_str(), &value);
        shown.step();
        if (result == XPQL_NOT_FOUND)
            bad.add(wanted.line, "not in the store");
        else if (result != XPQL_OK)
            return client.told("check", result);
        else if (kv_unescaped(value ? value : "") != wanted.value)
            bad.add(wanted.line, "has another value in the store");
    }
    printf("%zu entries compared, %ld differ\n", expected.size(), bad.count());
    return bad.count() ? exit_no : exit_done;
}

} // namespace vorn
