#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "vorncore/app/httpurl.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string text(data, data + size);
    xp_http_url url, again;
    if (!xp_parse_http_url(text.data(), &url)) return 0;
    std::string joined = "http://" + std::string(url.host) + ":" + std::to_string(url.port) + "/" + url.path;
    if (!xp_parse_http_url(joined.data(), &again) || again.port != url.port) abort();
    if (!*url.host || strcmp(again.host, url.host) != 0 || strcmp(again.path, url.path) != 0) abort();
    return 0;
}
