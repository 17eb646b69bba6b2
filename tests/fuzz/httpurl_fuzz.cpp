// The parts of a URL, put together, make a URL of the same parts.
#include <stdlib.h>

#include <string>

#include "vorncore/app/httpurl.h"

static std::string parts_of(std::string text) {
    xp_http_url url;
    if (!xp_parse_http_url(text.data(), &url)) return "";
    return "http://" + std::string(url.host) + ":" + std::to_string(url.port) + "/" + url.path;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string parts = parts_of(std::string(data, data + size));
    if (parts_of(parts) != parts) abort();
    return 0;
}
