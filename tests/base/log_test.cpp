#include "support/harness.h"
#include "support/log_lines.h"
#include "vorncore/base/internal/report.h"

namespace {

const xp_logproc default_hook = xp_logfn;

TEST(Log, TheDefaultHookWritesOneLineAndCutsOrPadsTheCategory) {
    const struct {
        const char *category, *line;
    } cases[] = {{XP_LOGCATE_RWLK, "|RWLK| (io/rwlock.cpp:77) Invalid 5 call\n"},
                 {"|TOOLONG|", "|TOOLO (io/rwlock.cpp:77) Invalid 5 call\n"},
                 {"ab", "    ab (io/rwlock.cpp:77) Invalid 5 call\n"}};
    for (const auto &c : cases) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(default_hook(nullptr, c.category, "io/rwlock.cpp", 77, "Invalid %d call", 5), 0);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.line);
    }
}

TEST(Log, ANullHookIsSilentAndTheParameterIsReplacedAllTheSame) {
    const harness::log_lines restores_the_hook;
    int parameter;
    xp_set_logproc(nullptr, &parameter);
    EXPECT_EQ(xp_logparam, &parameter);
    testing::internal::CaptureStderr();
    vorncore::report(XP_LOGCATE_DBI, "unheard %s", "of");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(Log, ReportsCarryTheirPlaceWithoutTheBuildPath) {
    harness::log_lines log;
    const int line = __LINE__ + 1;
    vorncore::report(XP_LOGCATE_RPUTL, "stat(%s)", "x");
    EXPECT_EQ(log.take(), "|RUTL|tests/base/log_test.cpp: stat(x)\n");
    EXPECT_EQ(log.last_number, line);
}

} // namespace
