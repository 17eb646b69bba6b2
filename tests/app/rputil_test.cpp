#include "vorncore/app/rputil.h"

#include <errno.h>
#include <fcntl.h>

#include "support/fault.h"
#include "support/folder.h"
#include "support/harness.h"
#include "support/log_lines.h"

using namespace harness;

namespace {

TEST(RpUtil, OpensCloseOnExecAndLoadsWholeFilesOrSaysWhyNot) {
    const temporary_folder folder;
    const std::string path = folder.path() + "/file", long_mode(100, 'r');
    const char *const name = path.c_str();
    xp_respool rp;
    xp_init_respool(&rp);
    EXPECT_EQ(fcntl(xprp_open(&rp, name, O_WRONLY | O_CREAT, 0600), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms{0600});
    for (const char *mode : {"w", "r+", "rb", long_mode.c_str(), ""}) {
        errno = 0;
        FILE *file = xprp_fopen(&rp, name, mode);
        const int expected = mode == long_mode || !*mode ? -EINVAL : FD_CLOEXEC;
        EXPECT_EQ(file ? fcntl(fileno(file), F_GETFD) : -errno, expected) << mode;
    }
    xp_filedata data{};
    for (const std::string &content : {std::string(), std::string("a\0b", 3)}) {
        folder.write("file", content);
        const fault_io slow(call::read, 0, 0); // a byte at a time
        EXPECT_EQ(xprp_load_file(&rp, name, &data), 1);
        EXPECT_EQ(std::string(data.data, data.length + 1), content + '\0');
        EXPECT_EQ(xprp_search(&rp, data.data), xprp_last_index(&rp));
    }
    EXPECT_EQ(xprp_open(&rp, "/absent", O_RDONLY, 0), -1);
    const char *const last = data.data;
    const fault_io broken(call::read, 1, EIO);
    const std::string failures[][2] = {{"/absent", "stat(/absent) : 2 No such file or directory"},
                                       {"/dev", "</dev> is not a regular file."},
                                       {path, "xp_read_all(" + path + ") : IOERROR_READ (5=Input/output error)"}};
    for (const auto &[file, message] : failures) {
        log_lines log;
        EXPECT_EQ(xprp_load_file(&rp, file.c_str(), &data), 0);
        EXPECT_TRUE(data.data == last && data.length == 3 && rp.count == 6) << "4 open files, 2 loaded ones";
        EXPECT_EQ(log.take(), "|RUTL|vorncore/app/rputil.cpp: " + message + '\n');
    }
    xp_close_respool(&rp);
}

TEST(RpUtil, FailedAllocationsLeaveNothingOpen) {
    const char *const name = "/proc/self/exe"; // a regular file
    log_lines log;
    for (const int entries : {14, 15, 16}) // the pool grows at a file, at a descriptor, at a block
        oom_sweep([&] {
            xp_respool *pool = xp_create_respool();
            if (!pool) return;
            while (pool->count < entries) xprp_add(pool, nullptr, free);
            xp_filedata data;
            const bool loaded = xprp_load_file(pool, name, &data), opened = xprp_open(pool, name, O_RDONLY, 0) >= 0;
            EXPECT_EQ(pool->count, entries + loaded + opened + (xprp_fopen(pool, name, "r") != nullptr));
            xp_destroy_respool(pool);
        });
    EXPECT_EQ(log.take(), "|RUTL|vorncore/app/rputil.cpp: open(/proc/self/exe) : 12 Cannot allocate memory\n");
}

} // namespace
