#include "vorncore/app/rputil.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "vorncore/base/internal/report.h"
#include "vorncore/io/io.h"

using namespace vorncore;

static void __close_file(void *file) { fclose(static_cast<FILE *>(file)); }

namespace {

/// The size of a regular file, -1 for anything else; says why.
int64_t stated_size(const char *path) {
    struct stat status;
    if (stat(path, &status) < 0) {
        report(XP_LOGCATE_RPUTL, "stat(%s) : %d %s", path, errno, strerror(errno));
        return -1;
    }
    if (!S_ISREG(status.st_mode)) {
        report(XP_LOGCATE_RPUTL, "<%s> is not a regular file.", path);
        return -1;
    }
    return status.st_size;
}

/// Reads a file into a buffer that holds `size` bytes; owns nothing new on success, says why on failure.
bool read_file(xp_respool *rp, const char *path, char *buffer, int64_t size) {
    const int descriptor = xprp_open(rp, path, O_RDONLY, 0);
    if (descriptor < 0) {
        report(XP_LOGCATE_RPUTL, "open(%s) : %d %s", path, errno, strerror(errno));
        return false;
    }
    const int64_t result = xp_read_all(descriptor, buffer, size, -1);
    if (result < 0) {
        const char *const code = xp_ioerror_str(static_cast<int>(result));
        report(XP_LOGCATE_RPUTL, "xp_read_all(%s) : %s (%d=%s)", path, code, errno, strerror(errno));
        return false;
    }
    xprp_pop(rp);
    return true;
}

} // namespace

int xprp_open(xp_respool *rp, const char *path, int flags, mode_t mode) {
    const int descriptor = open(path, flags | O_CLOEXEC, mode);
    if (descriptor < 0 || xprp_add_file(rp, descriptor) >= 0) return descriptor;
    close(descriptor);
    errno = ENOMEM;
    return -1;
}

FILE *xprp_fopen(xp_respool *rp, const char *path, const char *mode) {
    char with_cloexec[64]; // longer than any mode, with the name of a character set behind it
    if (static_cast<size_t>(snprintf(with_cloexec, sizeof with_cloexec, "%.1se%s", mode, *mode ? mode + 1 : "")) >=
        sizeof with_cloexec) {
        errno = EINVAL;
        return nullptr;
    }
    FILE *file = fopen(path, with_cloexec);
    if (!file || xprp_add(rp, file, __close_file)) return file;
    fclose(file);
    errno = ENOMEM;
    return nullptr;
}

int xprp_load_file(xp_respool *rp, const char *path, xp_filedata *out) {
    const int mark = xprp_last_index(rp);
    const int64_t size = stated_size(path);
    if (size < 0) return 0;
    char *data = static_cast<char *>(xprp_malloc(rp, static_cast<size_t>(size) + 1));
    if (!data || !read_file(rp, path, data, size)) {
        xprp_pop_ex(rp, mark);
        return 0;
    }
    data[size] = '\0';
    *out = {data, static_cast<uint64_t>(size)};
    return 1;
}
