#include "vorncore/app/rputil.h"

#include <errno.h>
#include <fcntl.h>

#include "support/fault.h"
#include "support/folder.h"
#include "support/harness.h"
#include "support/log_lines.h"

using namespace harness;

namespace {

struct RpUtil : testing::Test {
    RpUtil() { xp_init_respool(&rp); }
    ~RpUtil() override { xp_close_respool(&rp); }

    const temporary_folder folder;
    const std::string path = folder.path() + "/file";
    const char *const name = path.c_str();
    xp_respool rp;
};

TEST_F(RpUtil, OpensCloseOnExecIntoThePool) {
    EXPECT_EQ(fcntl(xprp_open(&rp, name, O_WRONLY | O_CREAT, 0600), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms{0600});
    const std::pair<std::string, int> modes[] = {
        {"w", FD_CLOEXEC}, {"r+", FD_CLOEXEC}, {"rb", FD_CLOEXEC}, {"", -EINVAL}, {std::string(100, 'r'), -EINVAL}};
    for (const auto &[mode, flags] : modes) {
        FILE *file = xprp_fopen(&rp, name, mode.c_str());
        EXPECT_EQ(file ? fcntl(fileno(file), F_GETFD) : -errno, flags) << mode;
    }
    EXPECT_EQ(xprp_open(&rp, "/absent", O_RDONLY, 0), -1);
    EXPECT_EQ(rp.count, 4);
}

TEST_F(RpUtil, LoadsWholeFilesOrSaysWhyNot) {
    xp_filedata data{};
    for (const std::string &content : {std::string("0123456789"), std::string(), std::string("a\0b", 3)}) {
        folder.write("file", content);
        const int count = rp.count;
        const fault_io slow(call::read, 0, 0); // a byte at a time
        ASSERT_EQ(xprp_load_file(&rp, name, &data), 1);
        EXPECT_EQ(std::string(data.data, data.length + 1), content + '\0');
        EXPECT_TRUE(xprp_search(&rp, data.data) == count && rp.count == count + 1);
    }
    log_lines log;
    const auto expect_failure = [&, last = data.data](const std::string &file, const std::string &message) {
        EXPECT_EQ(xprp_load_file(&rp, file.c_str(), &data), 0);
        EXPECT_TRUE(data.data == last && data.length == 3 && rp.count == 3);
        EXPECT_EQ(log.take(), "|RUTL|vorncore/app/rputil.cpp: " + message + '\n');
    };
    expect_failure("/absent", "stat(/absent) : 2 No such file or directory");
    expect_failure("/dev", "</dev> is not a regular file.");
    const fault_io broken(call::read, 1, EIO);
    expect_failure(path, "xp_read_all(" + path + ") : IOERROR_READ (5=Input/output error)");
}

TEST_F(RpUtil, FailedAllocationsLeaveNothingOpen) {
    folder.write("file", "content");
    log_lines log;
    for (const int entries :
         {14, 15, 16}) // the pool grows at a file, at the descriptor of the loaded one, at its block
        oom_sweep([&] {
            xp_respool *pool = xp_create_respool();
            if (!pool) return;
            while (pool->count < entries) xprp_add(pool, nullptr, free);
            xp_filedata data;
            const bool loaded = xprp_load_file(pool, name, &data), opened = xprp_open(pool, name, O_RDONLY, 0) >= 0;
            EXPECT_EQ(pool->count, entries + loaded + opened + (xprp_fopen(pool, name, "r") != nullptr));
            xp_destroy_respool(pool);
        });
    EXPECT_EQ(log.take(), "|RUTL|vorncore/app/rputil.cpp: open(" + path + ") : 12 Cannot allocate memory\n");
}

} // namespace
