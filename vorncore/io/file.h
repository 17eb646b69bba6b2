/* Advisory locks on whole files, and descriptor flags.
 *
 * Every call returns 1 when it was done and 0 when not (`errno` tells why), and goes on after a signal. The locks are
 * POSIX record locks: they belong to the process, not to a thread or descriptor, and closing any descriptor of the file
 * releases them.
 *
 * Threads: any; a lock does not keep threads of one process apart. */
#ifndef VORNCORE_IO_FILE_H
#define VORNCORE_IO_FILE_H

#include "vorncore/base/decls.h"

VORNCORE_BEGIN_DECLS

/* Wait for a shared lock (the descriptor must be readable) or an exclusive one (writable), in place of the one held. */
int xp_file_rlock(int descriptor);
int xp_file_wlock(int descriptor);
int xp_file_unlock(int descriptor);
/* Do not wait: 0 with EAGAIN or EACCES when another process is in the way. */
int xp_file_try_rlock(int descriptor);
int xp_file_try_wlock(int descriptor);

/* Add or remove status flags (O_NONBLOCK, O_APPEND ...). Kept for callers: flags count as set as soon as one of them
 * is, so adding several changes nothing when the descriptor has one of them already. */
int xp_file_set_flag(int descriptor, int flags);
int xp_file_unset_flag(int descriptor, int flags);

VORNCORE_END_DECLS

#endif
