#include "vorncore/base/log.h"

#include <stdarg.h>
#include <stdio.h>

#include "vorncore/base/version.h"

static int default_logfn(void *, const char *category, const char *file, int line, const char *format, ...) {
    fprintf(stderr, "%6.6s (%s:%d) ", category, file, line);
    va_list arguments;
    va_start(arguments, format);
    vfprintf(stderr, format, arguments);
    va_end(arguments);
    fputc('\n', stderr);
    return fflush(stderr);
}

static int empty_logfn(void *, const char *, const char *, int, const char *, ...) { return 0; }

const char *const vorncore_name = "Vorncore Library " VORNCORE_VERSION_STRING
                                  " " VORNCORE_VERSION_TEXT(VORNCORE_VERSION_BUILD) " " VORNCORE_VERSION_STAMP;

xp_logproc xp_logfn = default_logfn;
void *xp_logparam = nullptr;

const char *const XP_LOGCATE_ABORT = "|ABRT|";
const char *const XP_LOGCATE_RWLK = "|RWLK|";
const char *const XP_LOGCATE_RPUTL = "|RUTL|";
const char *const XP_LOGCATE_MMAP = "|MMAP|";
const char *const XP_LOGCATE_DBI = "|EDBI|";
const char *const XP_LOGCATE_OCI = "|EOCI|";
const char *const XP_LOGCATE_MYSQL = "|MSQL|";
const char *const XP_LOGCATE_ODBC = "|ODBC|";

void xp_set_logproc(xp_logproc procedure, void *parameter) {
    xp_logfn = procedure ? procedure : empty_logfn;
    xp_logparam = parameter;
}
