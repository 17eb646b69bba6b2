#include "vorncore/base/log.h"

#include <stdarg.h>
#include <string.h>

#include "support/harness.h"
#include "vorncore/base/internal/report.h"

namespace {

const xp_logproc default_hook = xp_logfn;

int keep_report(void *out, const char *category, const char *file, int line, const char *format, ...) {
    char message[64];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(message, sizeof message, format, arguments);
    va_end(arguments);
    *static_cast<std::string *>(out) = std::string(category) + file + ":" + std::to_string(line) + message;
    return 0;
}

struct LogTest : testing::Test {
    ~LogTest() override { xp_set_logproc(default_hook, nullptr); }
};

TEST_F(LogTest, TheDefaultHookWritesOneLineAndCutsOrPadsTheCategory) {
    const struct {
        const char *category;
        const char *line;
    } cases[] = {
        {XP_LOGCATE_RWLK, "|RWLK| (io/rwlock.cpp:77) Invalid 5 call\n"},
        {"|TOOLONG|", "|TOOLO (io/rwlock.cpp:77) Invalid 5 call\n"},
        {"ab", "    ab (io/rwlock.cpp:77) Invalid 5 call\n"},
    };
    for (const auto &c : cases) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(xp_logfn(xp_logparam, c.category, "io/rwlock.cpp", 77, "Invalid %d call", 5), 0);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.line);
    }
}

TEST_F(LogTest, ANullHookIsSilentAndTheParameterIsReplacedAllTheSame) {
    int parameter;
    xp_set_logproc(nullptr, &parameter);
    EXPECT_EQ(xp_logparam, &parameter);
    testing::internal::CaptureStderr();
    vorncore::report(XP_LOGCATE_DBI, "unheard %s", "of");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(LogTest, ReportsCarryTheParameterAndThePlaceWithoutTheBuildPath) {
    std::string seen;
    xp_set_logproc(keep_report, &seen);
    const std::string line = std::to_string(__LINE__ + 1);
    vorncore::report(XP_LOGCATE_RPUTL, "stat(%s)", "x");
    EXPECT_EQ(seen, "|RUTL|tests/base/log_test.cpp:" + line + "stat(x)");
}

} // namespace
