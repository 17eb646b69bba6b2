#include "support/harness.h"
#include "support/log_lines.h"
#include "vorncore/base/internal/report.h"

TEST(Log, TheDefaultHookWritesLinesAndANullHookNone) {
    testing::internal::CaptureStderr();
    for (const char *category : {XP_LOGCATE_RWLK, "|TOOLONG|", "ab"})
        EXPECT_EQ(xp_logfn(nullptr, category, "io/rwlock.cpp", 77, "Invalid %d call", 5), 0);
    harness::log_lines log; // the hook that others find again
    const int line = __LINE__ + 1;
    vorncore::report(XP_LOGCATE_RPUTL, "stat(%s)", "x");
    EXPECT_EQ(log.take(), "|RUTL|tests/base/log_test.cpp: stat(x)\n");
    EXPECT_EQ(log.last_number, line);

    int parameter;
    xp_set_logproc(nullptr, &parameter);
    EXPECT_EQ(xp_logparam, &parameter);
    vorncore::report(XP_LOGCATE_DBI, "unheard %s", "of");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "|RWLK| (io/rwlock.cpp:77) Invalid 5 call\n"
                                                      "|TOOLO (io/rwlock.cpp:77) Invalid 5 call\n"
                                                      "    ab (io/rwlock.cpp:77) Invalid 5 call\n");
}
