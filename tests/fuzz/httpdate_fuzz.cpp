#include <stdint.h>
#include <stdlib.h>

#include <string>

#include "vorncore/app/httpdate.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text(data, data + size); // a block of its own: reading too far shows
    const int64_t seconds = xp_parse_http_date(text.c_str());
    char made[30];
    if (seconds < -1 || xp_make_http_date(seconds, made) != made) abort();
    if (seconds >= 0 && *made && xp_parse_http_date(made) != seconds) abort();
    return 0;
}
