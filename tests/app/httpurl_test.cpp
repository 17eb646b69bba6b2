#include "vorncore/app/httpurl.h"

#include "support/harness.h"

namespace {

TEST(HttpUrl, IsCutIntoHostPortAndPath) {
    const char *const cases[][2] = {
        // a text; host, port and path
        {"http://alpha/x/y?n=3:4#f", "alpha 80 x/y?n=3:4#f"},
        {"HTTP://alpha:8080/", "alpha 8080 "},
        {"alpha", "alpha 80 "},
        {"alpha//x", "alpha 80 /x"},
        {"alpha: -1/x", "alpha -1 x"}, // what strtol reads
        {"alpha:4294967376", "alpha 80 "},
    };
    xp_http_url url;
    for (const auto &[text, parts] : cases) {
        harness::guarded_text cut(text);
        ASSERT_EQ(xp_parse_http_url(cut.data(), &url), 1) << text;
        EXPECT_EQ(std::string(url.host) + " " + std::to_string(url.port) + " " + url.path, parts);
    }
    for (const char *text :
         {"alpha:80x", "alpha:/x", "alpha:0", ":80/", "http://", "", "https://alpha/", "u:p@alpha/", "alpha:1:2/"})
        EXPECT_EQ(xp_parse_http_url(harness::guarded_text(text).data(), &url), 0) << text;
}

} // namespace
