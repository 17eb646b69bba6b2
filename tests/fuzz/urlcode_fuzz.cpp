// Decoding never grows a text, and undoes encoding.
#include <stdlib.h>

#include <string>

#include "vorncore/base/strutil.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text = std::string(reinterpret_cast<const char *>(data), size).c_str();
    std::string copy = text, encoded(3 * text.size(), '#');
    if (std::string(xp_url_decode(copy.data())).size() > text.size()) abort();
    if (text != xp_url_decode(xp_url_encode(text.c_str(), encoded.data()))) abort();
    return 0;
}
