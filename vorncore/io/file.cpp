#include "vorncore/io/file.h"

#include <fcntl.h>

#include "vorncore/io/internal/syscall.h"

using namespace vorncore;

namespace {

int lock_whole(int descriptor, int command, short type) {
    struct flock whole {};
    whole.l_type = type;
    whole.l_whence = SEEK_SET; // from 0, of length 0: to the end, wherever that will be
    return uninterrupted([&] { return fcntl(descriptor, command, &whole); }) != -1;
}

int get_flags(int descriptor) {
    return uninterrupted([=] { return fcntl(descriptor, F_GETFL); });
}

int set_flags(int descriptor, int flags) {
    return uninterrupted([=] { return fcntl(descriptor, F_SETFL, flags); }) != -1;
}

} // namespace

int xp_file_rlock(int descriptor) { return lock_whole(descriptor, F_SETLKW, F_RDLCK); }
int xp_file_wlock(int descriptor) { return lock_whole(descriptor, F_SETLKW, F_WRLCK); }
int xp_file_unlock(int descriptor) { return lock_whole(descriptor, F_SETLKW, F_UNLCK); }
int xp_file_try_rlock(int descriptor) { return lock_whole(descriptor, F_SETLK, F_RDLCK); }
int xp_file_try_wlock(int descriptor) { return lock_whole(descriptor, F_SETLK, F_WRLCK); }

int xp_file_set_flag(int descriptor, int flags) {
    const int now = get_flags(descriptor);
    if (now == -1) return 0;
    return (now & flags) || set_flags(descriptor, now | flags);
}

int xp_file_unset_flag(int descriptor, int flags) {
    const int now = get_flags(descriptor);
    if (now == -1) return 0;
    return !(now & flags) || set_flags(descriptor, now & ~flags);
}
