#include "vorncore/app/rputil.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <deque>

#include "support/fault.h"
#include "support/harness.h"
#include "support/log_lines.h"

namespace {

class RpUtil : public testing::Test {
  protected:
    RpUtil() {
        EXPECT_NE(mkdtemp(folder_), nullptr);
        xp_init_respool(&rp_);
    }
    ~RpUtil() override {
        xp_close_respool(&rp_);
        for (const auto &file : files_) unlink(file.c_str());
        rmdir(folder_);
    }

    const char *path(const char *name) {
        files_.push_back(std::string(folder_) + '/' + name);
        return files_.back().c_str();
    }
    const char *file(const char *name, std::string_view content) {
        const char *made = path(name);
        const int fd = open(made, O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        EXPECT_EQ(write(fd, content.data(), content.size()), std::ssize(content));
        close(fd);
        return made;
    }

    xp_respool rp_;

  private:
    char folder_[32] = "/tmp/rputil_test.XXXXXX";
    std::deque<std::string> files_;
};

TEST_F(RpUtil, OpensCloseOnExecIntoThePool) {
    const char *name = path("a");
    const int fd = xprp_open(&rp_, name, O_WRONLY | O_CREAT, 0640);
    EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
    struct stat status {};
    EXPECT_EQ(fstat(fd, &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0640u & ~umask(umask(0)));
    for (const char *mode : {"w", "r+", "rb", "a+"}) {
        FILE *stream = xprp_fopen(&rp_, name, mode);
        ASSERT_NE(stream, nullptr) << mode;
        EXPECT_EQ(fcntl(fileno(stream), F_GETFD), FD_CLOEXEC) << mode;
    }
    EXPECT_EQ(rp_.count, 5);
    EXPECT_EQ(xprp_open(&rp_, "/nowhere/at/all", O_RDONLY, 0), -1);
    EXPECT_EQ(xprp_fopen(&rp_, "/nowhere/at/all", "r"), nullptr);
    EXPECT_EQ(errno, ENOENT);
    const std::string long_mode(100, 'r');
    for (const char *mode : {"", "x", long_mode.c_str()}) {
        EXPECT_EQ(xprp_fopen(&rp_, name, mode), nullptr) << mode;
        EXPECT_EQ(errno, EINVAL) << mode;
    }
    EXPECT_EQ(rp_.count, 5);
}

TEST_F(RpUtil, LoadsWholeFilesAndKeepsOnlyTheBlock) {
    const int open_before = harness::open_descriptors();
    for (const std::string &content : {std::string("0123456789"), std::string(), std::string("a\0b", 3)}) {
        const int count = rp_.count;
        xp_filedata data;
        harness::fault_io slow(harness::call::read, 0, 0); // a byte at a time
        ASSERT_EQ(xprp_load_file(&rp_, file("a", content), &data), 1);
        EXPECT_EQ(std::string(data.data, data.length + 1), content + '\0');
        EXPECT_EQ(xprp_search(&rp_, data.data), count);
        EXPECT_EQ(rp_.count, count + 1);
        EXPECT_EQ(harness::open_descriptors(), open_before);
        unlink(path("a"));
    }
}

/// Lets no further descriptor be opened.
class no_descriptors {
  public:
    no_descriptors() {
        getrlimit(RLIMIT_NOFILE, &before_);
        const int next = dup(0);
        close(next);
        const rlimit none{static_cast<rlim_t>(next), before_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~no_descriptors() { setrlimit(RLIMIT_NOFILE, &before_); }
    no_descriptors(const no_descriptors &) = delete;

  private:
    rlimit before_{};
};

TEST_F(RpUtil, ReportsWhyAFileWasNotLoaded) {
    const std::string name = file("a", "content"), absent = path("absent");
    const auto because = [](int error) { return std::to_string(error) + ' ' + strerror(error); };
    xprp_add(&rp_, nullptr, free); // not to be released
    harness::log_lines log;
    const auto expect_failure = [&](const std::string &loaded, const std::string &message) {
        char other = 0;
        xp_filedata data{&other, 1};
        EXPECT_EQ(xprp_load_file(&rp_, loaded.c_str(), &data), 0);
        EXPECT_TRUE(!data.data && data.length == 0);
        EXPECT_EQ(rp_.count, 1);
        ASSERT_EQ(log.lines.size(), 1u);
        EXPECT_EQ(log.lines[0].category, "|RUTL|");
        EXPECT_EQ(log.lines[0].file, "vorncore/app/rputil.cpp");
        EXPECT_EQ(log.lines[0].message, message);
        log.lines.clear();
    };
    expect_failure(absent, "stat(" + absent + ") : " + because(ENOENT));
    expect_failure("/dev", "</dev> is not a regular file.");
    {
        const no_descriptors limit;
        expect_failure(name, "open(" + name + ") : " + because(EMFILE));
    }
    const harness::fault_io broken(harness::call::read, 1, EIO);
    expect_failure(name,
                   "xp_read_all(" + name + ") : IOERROR_READ (" + std::to_string(EIO) + '=' + strerror(EIO) + ')');
}

TEST_F(RpUtil, FailedAllocationsLeaveNothingOpen) {
    const char *name = file("a", "content");
    const harness::log_lines silence;
    harness::oom_sweep([&] {
        xp_respool *rp = xp_create_respool();
        if (!rp) return;
        for (const int room : {1, 0}) {
            while (rp->count % 16 != 15 * room) xprp_add(rp, nullptr, free);
            const int count = rp->count;
            xp_filedata data;
            const int loaded = xprp_load_file(rp, name, &data);
            EXPECT_EQ(rp->count, count + loaded);
            EXPECT_EQ(xprp_open(rp, name, O_RDONLY, 0) >= 0 ? count + loaded + 1 : count + loaded, rp->count);
            const int before = rp->count;
            EXPECT_EQ(xprp_fopen(rp, name, "r") ? before + 1 : before, rp->count);
        }
        xp_destroy_respool(rp);
    });
}

} // namespace
