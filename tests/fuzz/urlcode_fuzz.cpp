// Decoding never grows a text, and undoes encoding.
#include "tests/fuzz/target.h"
#include "vorncore/base/strutil.h"

static void check(std::string_view input) {
    const std::string text = std::string(input).c_str();
    std::string copy = text, encoded(3 * text.size(), '#');
    require(strlen(xp_url_decode(copy.data())) <= text.size());
    require(xp_url_decode(xp_url_encode(text.c_str(), encoded.data())) == text);
}
