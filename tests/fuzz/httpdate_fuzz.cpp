// What is read as a date is written as one that reads the same.
#include <stdlib.h>

#include <string>

#include "vorncore/app/httpdate.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const int64_t seconds = xp_parse_http_date(std::string(data, data + size).c_str());
    char made[30];
    if (seconds < -1 || xp_make_http_date(seconds, made) != made) abort();
    if (seconds >= 0 && *made && xp_parse_http_date(made) != seconds) abort();
    return 0;
}
