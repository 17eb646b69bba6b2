// Decoding never grows a text, and undoes encoding.
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "vorncore/base/strutil.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text = std::string(reinterpret_cast<const char *>(data), size).c_str();
    std::vector<char> exact(text.c_str(), text.c_str() + text.size() + 1), encoded(3 * text.size() + 1);
    if (strlen(xp_url_decode(exact.data())) > text.size()) abort();
    if (text != xp_url_decode(xp_url_encode(text.c_str(), encoded.data()))) abort();
    return 0;
}
