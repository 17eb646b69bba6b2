// The last failure of an object that does I/O. The record keeps the code (`last_error`, 0 for none), the errno of that
// moment (`saved_errno`) and a text (`message`, owned, null until first asked for); every call may fail, few are asked.
#pragma once

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "vorncore/base/internal/alloc.h"
#include "vorncore/io/io.h"

namespace vorncore {

template <class Record>
void set_failure(Record *record, int code) {
    record->saved_errno = errno;
    record->last_error = code;
    if (record->message) record->message[0] = '\0';
}

template <class Record>
void clear_failure(Record *record) {
    record->last_error = 0;
    record->saved_errno = 0;
}

/// The text of the last failure, cut to `size` bytes with its NUL. Without memory for it, the bare name of the code.
template <class Record>
const char *failure_text(Record *record, size_t size) {
    if (record->last_error == 0) return "NO ERROR";
    const char *const name = xp_ioerror_str(record->last_error);
    if (!record->message) {
        record->message = try_array<char>(size);
        if (!record->message) return name;
        record->message[0] = '\0';
    }
    if (!record->message[0]) {
        char buffer[128];
        const char *const cause = strerror_r(record->saved_errno, buffer, sizeof buffer);
        snprintf(record->message, size, "%s:errno=%d<%s>", name, record->saved_errno, cause);
    }
    return record->message;
}

} // namespace vorncore
