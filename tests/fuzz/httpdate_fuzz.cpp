// What is read as a date is written as one that reads the same.
#include "tests/fuzz/target.h"
#include "vorncore/app/httpdate.h"

static void check(std::string_view input) {
    const int64_t seconds = xp_parse_http_date(std::string(input).c_str());
    char made[30];
    require(seconds >= -1 && xp_make_http_date(seconds, made) == made);
    require(seconds < 0 || !*made || xp_parse_http_date(made) == seconds);
}
