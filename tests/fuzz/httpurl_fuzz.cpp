// The parts of a URL, put together, make a URL of the same parts.
#include "tests/fuzz/target.h"
#include "vorncore/app/httpurl.h"

static std::string parts_of(std::string text) {
    xp_http_url url;
    if (!xp_parse_http_url(text.data(), &url)) return "";
    return "http://" + std::string(url.host) + ":" + std::to_string(url.port) + "/" + url.path;
}

static void check(std::string_view input) {
    const std::string parts = parts_of(std::string(input));
    require(parts_of(parts) == parts);
}
