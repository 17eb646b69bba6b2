#include "vorncore/app/httpurl.h"

#include "support/harness.h"

namespace {

TEST(HttpUrl, IsCutIntoHostPortAndPath) {
    const struct {
        const char *text;
        const char *parts; // host, port and path; null when it fails
    } cases[] = {
        {"http://alpha/x/y?n=3:4#f", "alpha 80 x/y?n=3:4#f"},
        {"HTTP://alpha:8080/", "alpha 8080 "},
        {"alpha", "alpha 80 "},
        {"alpha//x", "alpha 80 /x"},
        {"alpha:80x", nullptr},
        {"alpha:/x", nullptr},
        {"alpha:0", nullptr},
        {":80/", nullptr},
        {"http://", nullptr},
        {"", nullptr},
        {"https://alpha/", nullptr},
        {"u:p@alpha/", nullptr},
        {"alpha: -1/x", "alpha -1 x"}, // what strtol reads
        {"alpha:4294967376", "alpha 80 "},
    };
    for (const auto &c : cases) {
        harness::guard_page text(std::string_view(c.text, strlen(c.text) + 1));
        xp_http_url url;
        ASSERT_EQ(xp_parse_http_url(text.data(), &url), c.parts ? 1 : 0) << c.text;
        if (!c.parts) continue;
        EXPECT_EQ(std::string(url.host) + " " + std::to_string(url.port) + " " + url.path, c.parts);
    }
}

} // namespace
