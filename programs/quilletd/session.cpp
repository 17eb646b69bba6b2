#include "programs/quilletd/session.h"

namespace quilletd {

namespace {

/// Cuts a text at the first `separator`; null when there is none.
char *cut_at(char *text, char separator) {
    char *end = strchr(text, separator);
    if (end) *end++ = '\0';
    return end;
}

} // namespace

bool session::answer(size_t output_limit) {
    while (waiting() < output_limit) {
        if (output_.status == 0) return false;
        char *line;
        size_t length;
        if (listing_) {
            list_on();
        } else if (next_line(&line, &length)) {
            requests_++;
            answer_line(line, length);
            input_.drop(length + 1);
        } else {
            return false;
        }
    }
    return true;
}

/// The next whole line, NUL in place of its line feed. It stays in the input until it is dropped.
bool session::next_line(char **line, size_t *length) {
    for (;;) {
        char *const begin = input_.data();
        auto *end = static_cast<char *>(memchr(begin + scanned_, '\n', input_.size() - scanned_));
        const size_t size = end ? static_cast<size_t>(end - begin) : input_.size();
        if (size > max_line_ && !skipping_) {
            reply("500 request too long");
            skipping_ = true;
        }
        if (!end && !skipping_) {
            scanned_ = size;
            return false;
        }
        scanned_ = 0;
        if (!skipping_) {
            *end = '\0';
            *line = begin;
            *length = size;
            return true;
        }
        input_.drop(end ? size + 1 : size);
        if (!end) return false;
        skipping_ = false;
    }
}

void session::answer_line(char *line, size_t length) {
    if (strlen(line) != length) return reply("500 request holds a NUL byte");
    if (length > 0 && line[length - 1] == '\r') line[--length] = '\0';
    char *arguments = cut_at(line, ' ');
    const std::string_view verb = line;
    if (verb == "NEW" && !arguments) {
        const std::string id = all_.create();
        return id.empty() ? reply("500 too many stores") : reply("200 ", id);
    }
    if (verb == "PUT" && arguments) return put(arguments);
    if (verb == "GET" && arguments) return get(arguments);
    if (verb == "LST" && arguments) return begin_listing(arguments);
    if (verb == "EXX" && arguments) return reply(all_.purge(arguments), "200 purged");
    reply("500 unknown request");
}

void session::put(char *arguments) {
    char *key = cut_at(arguments, ' ');
    char *value = key ? cut_at(key, '=') : nullptr;
    // Blanks and "=" inside a key or value travel escaped; here they would break a listing.
    if (!value || strchr(key, ' ') || strpbrk(value, " =\r")) return reply("500 malformed request");
    reply(all_.put(arguments, key, value), *value ? "200 stored" : "200 deleted");
}

void session::get(char *arguments) {
    char *key = cut_at(arguments, ' ');
    std::string value;
    if (!key) return reply("500 malformed request");
    const result found = all_.get(arguments, key, &value);
    return found == result::done ? reply("200 ", value) : reply(found, "");
}

void session::begin_listing(const char *store) {
    if (!all_.exists(store)) return reply(result::no_store, "");
    strcpy(listed_store_, store); // an id that exists is short enough
    next_bucket_ = 0;
    listing_ = true;
    reply("200 entries follow");
}

/// A store that is purged meanwhile ends its listing.
void session::list_on() {
    std::string lines;
    next_bucket_ = all_.list_bucket(listed_store_, next_bucket_, &lines);
    write(lines);
    listing_ = next_bucket_ != 0;
    if (!listing_) reply("");
}

void session::reply(std::string_view status, std::string_view text) {
    write(status);
    write(text);
    xpwb_write_char(&output_, '\n');
}

void session::reply(result what, std::string_view done) {
    switch (what) {
    case result::done: return reply(done);
    case result::no_store: return reply("404 no such store");
    case result::no_key: return reply("404 no such key");
    case result::full: return reply("500 no room");
    }
}

} // namespace quilletd
