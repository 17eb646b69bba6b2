// What the programs share in reading their command lines.
#pragma once

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace program {

constexpr int usage_error = 2; // exit code for a command line that makes no sense

/// The number in the argument of an option. Anything else ends the program.
template <class Number>
Number number_argument(const char *program, const char *option, std::string_view text, Number least, Number most) {
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error == std::errc() && end == text.data() + text.size() && number >= least && number <= most) return number;
    fprintf(stderr, "%s: --%s: '%.*s' is no number from %lld to %lld\n", program, option, static_cast<int>(text.size()),
            text.data(), static_cast<long long>(least), static_cast<long long>(most));
    exit(usage_error);
}

/// Reads HOST:PORT; false when there is no host. A port that is none ends the program.
inline bool address_argument(const char *program, std::string_view text, std::string *host, int *port) {
    const size_t colon = text.rfind(':');
    if (colon == std::string_view::npos || colon == 0) return false;
    *host = text.substr(0, colon);
    *port = number_argument(program, "port", text.substr(colon + 1), 1, 65535);
    return true;
}

/// Ends the program unless everything that it printed has arrived.
inline int checked_exit(const char *program, int code) {
    if (fflush(stdout) == 0 && !ferror(stdout)) return code;
    fprintf(stderr, "%s: cannot write to standard output\n", program);
    return code ? code : 3;
}

} // namespace program
