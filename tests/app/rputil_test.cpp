#include "vorncore/app/rputil.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/fault.h"
#include "support/harness.h"
#include "support/log_lines.h"

using namespace harness;

namespace {

struct RpUtil : testing::Test {
    RpUtil() {
        close(mkstemp(name));
        xp_init_respool(&rp);
    }
    ~RpUtil() override {
        xp_close_respool(&rp);
        unlink(name);
    }
    void fill(std::string_view content) {
        const int fd = open(name, O_WRONLY | O_TRUNC | O_CLOEXEC);
        EXPECT_EQ(write(fd, content.data(), content.size()), std::ssize(content));
        close(fd);
    }

    char name[32] = "/tmp/rputil_test.XXXXXX";
    xp_respool rp;
};

TEST_F(RpUtil, OpensCloseOnExecIntoThePool) {
    unlink(name);
    const int fd = xprp_open(&rp, name, O_WRONLY | O_CREAT, 0640);
    EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
    struct stat status {};
    EXPECT_EQ(fstat(fd, &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0640u & ~umask(umask(0)));
    for (const char *mode : {"w", "r+", "rb", "a+"}) {
        FILE *stream = xprp_fopen(&rp, name, mode);
        ASSERT_NE(stream, nullptr) << mode;
        EXPECT_EQ(fcntl(fileno(stream), F_GETFD), FD_CLOEXEC) << mode;
    }
    EXPECT_EQ(xprp_open(&rp, "/nowhere/at/all", O_RDONLY, 0), -1);
    EXPECT_EQ(xprp_fopen(&rp, "/nowhere/at/all", "r"), nullptr);
    EXPECT_EQ(errno, ENOENT);
    const std::string long_mode(100, 'r');
    for (const char *mode : {"", "x", long_mode.c_str()}) {
        errno = 0;
        EXPECT_EQ(xprp_fopen(&rp, name, mode), nullptr) << mode;
        EXPECT_EQ(errno, EINVAL) << mode;
    }
    EXPECT_EQ(rp.count, 5);
}

TEST_F(RpUtil, LoadsWholeFilesAndKeepsOnlyTheBlock) {
    for (const std::string &content : {std::string("0123456789"), std::string(), std::string("a\0b", 3)}) {
        fill(content);
        const int count = rp.count;
        xp_filedata data;
        const fault_io slow(call::read, 0, 0); // a byte at a time
        ASSERT_EQ(xprp_load_file(&rp, name, &data), 1);
        EXPECT_EQ(std::string(data.data, data.length + 1), content + '\0');
        EXPECT_EQ(xprp_search(&rp, data.data), count);
        EXPECT_EQ(rp.count, count + 1);
    }
}

TEST_F(RpUtil, ReportsWhyAFileWasNotLoaded) {
    fill("content");
    rlimit before;
    getrlimit(RLIMIT_NOFILE, &before);
    xprp_add(&rp, nullptr, free); // not to be released
    log_lines log;
    const auto expect_failure = [&](const std::string &file, const std::string &message) {
        xp_filedata data{name, 1};
        EXPECT_EQ(xprp_load_file(&rp, file.c_str(), &data), 0);
        EXPECT_TRUE(data.data == name && data.length == 1 && rp.count == 1);
        EXPECT_EQ(log.take(), "|RUTL|vorncore/app/rputil.cpp: " + message + '\n');
    };
    expect_failure("/absent", "stat(/absent) : 2 No such file or directory");
    expect_failure("/dev", "</dev> is not a regular file.");
    const rlimit none{0, before.rlim_max}; // no further descriptor
    setrlimit(RLIMIT_NOFILE, &none);
    expect_failure(name, std::string("open(") + name + ") : 24 Too many open files");
    setrlimit(RLIMIT_NOFILE, &before);
    const fault_io broken(call::read, 1, EIO);
    expect_failure(name, std::string("xp_read_all(") + name + ") : IOERROR_READ (5=Input/output error)");
}

TEST_F(RpUtil, FailedAllocationsLeaveNothingOpen) {
    fill("content");
    const log_lines silence;
    for (const int room : {2, 1, 0}) // until a file, the descriptor of the loaded one, its block
        oom_sweep([&] {
            xp_respool *pool = xp_create_respool();
            if (!pool) return;
            while (pool->count < 16 - room) xprp_add(pool, nullptr, free);
            xp_filedata data;
            int count = pool->count + xprp_load_file(pool, name, &data);
            EXPECT_EQ(pool->count, count);
            count += xprp_open(pool, name, O_RDONLY, 0) >= 0;
            EXPECT_EQ(pool->count, count);
            count += xprp_fopen(pool, name, "r") != nullptr;
            EXPECT_EQ(pool->count, count);
            xp_destroy_respool(pool);
        });
}

} // namespace
